// Base64 as it is found in letters.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// Characters outside the alphabet are passed over and missing padding at the end costs nothing.
// Padding ends it: what a mailing list appends behind is no part of it.
std::string DecodeBase64(std::string_view text);

}  // namespace tool
