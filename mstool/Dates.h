// Dates of header fields.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tool {

// Seconds since 1970. None when there is no time of day in the text, when it was not understood
// for certain, or when it lies outside of what 32 bits hold.
std::optional<std::uint32_t> ReadDate(const std::string& text);

}  // namespace tool
