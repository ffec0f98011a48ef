#include "platform/win32/Patience.h"

namespace platform::win32 {
namespace {

bool IsProtected(const std::wstring& path) {
  constexpr DWORD kRefused = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kRefused) != 0;
}

}  // namespace

bool MayPass(DWORD error, const std::wstring& path, const std::wstring& other) {
  switch (error) {
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_DELETE_PENDING:
    case ERROR_USER_MAPPED_FILE:
      return true;
    case ERROR_ACCESS_DENIED:
      return !IsProtected(path) && !IsProtected(other);
    default:
      return false;
  }
}

}  // namespace platform::win32
