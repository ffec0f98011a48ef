// Registration numbers of letters.
#pragma once

#include <cstdint>
#include <string>

// The number under which an outgoing letter is known elsewhere: the text with the counter's decimal
// digits behind it (at most text length + 10 characters). A negative counter is taken as unsigned.
std::string FormatRegistrationNumber(const std::string& text, std::int32_t counter);
