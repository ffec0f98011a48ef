// What gives files other names and places, or takes them away.
#include "platform/win32/FileSystem.h"
#include "platform/win32/OpenFile.h"
#include "platform/win32/Patience.h"
#include "platform/win32/Wide.h"

namespace platform::win32 {

// The system copies the attributes as well, which a write-protected source would leave in the way
// of its copy.
Status Win32FileSystem::Copy(const std::string& from, const std::string& to, bool overwrite) {
  const std::wstring source = WidePath(from), target = WidePath(to);
  if (overwrite && IsLink(target)) return StatusOf(ERROR_CANT_RESOLVE_FILENAME);
  if (!::CopyFileW(source.c_str(), target.c_str(), !overwrite)) return LastStatus();
  return SetAttributes(to, attribute::Archive);
}

// A directory cannot be moved by copying, hence the two calls.
Status Win32FileSystem::Move(const std::string& from, const std::string& to) {
  const std::wstring source = WidePath(from), target = WidePath(to);
  const Status moved =
      WithPatience(source, target, [&] { return ::MoveFileW(source.c_str(), target.c_str()); });
  if (moved.Code() != ERROR_NOT_SAME_DEVICE) return moved;
  constexpr DWORD kFlags = MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH;
  return WithPatience(source, target,
                      [&] { return ::MoveFileExW(source.c_str(), target.c_str(), kFlags); });
}

Status Win32FileSystem::Replace(const std::string& from, const std::string& to) {
  const std::wstring source = WidePath(from), target = WidePath(to);
  constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  return WithPatience(source, target,
                      [&] { return ::MoveFileExW(source.c_str(), target.c_str(), kFlags); });
}

Status Win32FileSystem::Remove(const std::string& path) {
  const std::wstring file = WidePath(path);
  return WithPatience(file, file, [&] { return ::DeleteFileW(file.c_str()); });
}

}  // namespace platform::win32
