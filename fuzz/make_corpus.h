// The seeds: small inputs of every kind, made by the library itself out of invented content.
#pragma once

#include <string>

namespace fuzz {

// Writes them to "<directory>/<target>/", the same bytes each time.
void MakeCorpus(const std::string& directory);

}  // namespace fuzz
