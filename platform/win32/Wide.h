// Texts of the library (UTF-8) as the system's wide calls take them, and back.
#pragma once

#include <string>
#include <string_view>

namespace platform::win32 {

// A path for a wide call. What is no UTF-8 names no file: it becomes a path that the system refuses
// as one that cannot be.
std::wstring WidePath(const std::string& path);
// A half pair of surrogates, which a name on the disk may hold, becomes U+FFFD.
std::string Narrow(std::wstring_view text);

}  // namespace platform::win32
