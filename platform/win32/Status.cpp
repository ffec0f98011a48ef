#include "platform/Status.h"

#include "platform/win32/Handle.h"

namespace platform {
namespace {

Cause CauseOf(DWORD error) {
  switch (error) {
    case ERROR_SUCCESS:
      return Cause::None;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
      return Cause::NotFound;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return Cause::AlreadyExists;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
      return Cause::AccessDenied;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
      return Cause::InUse;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_NOT_ENOUGH_QUOTA:
      return Cause::NoSpace;
    case ERROR_DIR_NOT_EMPTY:
      return Cause::NotEmpty;
    case ERROR_CRC:
    case ERROR_IO_DEVICE:
    case ERROR_READ_FAULT:
    case ERROR_WRITE_FAULT:
      return Cause::Io;
    default:
      return Cause::Other;
  }
}

}  // namespace

std::string Status::Text() const {
  char buffer[512];
  DWORD length =
      ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                       static_cast<DWORD>(m_code), 0, buffer, sizeof buffer, nullptr);
  if (length == 0) return "error " + std::to_string(m_code);
  while (length > 0 && (buffer[length - 1] == '.' || buffer[length - 1] <= ' ')) --length;
  return std::string(buffer, length);
}

Status win32::StatusOf(DWORD error) {
  return {CauseOf(error), static_cast<int>(error)};
}

}  // namespace platform
