#include "platform/win32/Wide.h"

#include "platform/win32/Handle.h"

namespace platform::win32 {

std::wstring WidePath(const std::string& path) {
  if (path.empty()) return {};
  const int size = static_cast<int>(path.size());
  const int needed =
      ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), size, nullptr, 0);
  const bool isPath = needed > 0 && path.find('\0') == path.npos;
  if (!isPath) return L"<>";  // characters that no name may hold
  std::wstring wide(static_cast<std::size_t>(needed), L'\0');
  ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), size, wide.data(), needed);
  return wide;
}

std::string Narrow(std::wstring_view text) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int needed =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(needed), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), needed, nullptr, nullptr);
  return narrow;
}

}  // namespace platform::win32
