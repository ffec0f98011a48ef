#pragma once

#include <cstddef>
#include <vector>

// Registers every work for each engine and each number of letters, as "work/engine/letters".
void RegisterWorks(const std::vector<std::size_t>& sizes);
