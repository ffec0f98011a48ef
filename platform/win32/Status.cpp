#include "platform/Status.h"

#include "platform/win32/Handle.h"
#include "platform/win32/Wide.h"

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
    case ERROR_DIRECTORY:  // what stands in the place of one is none
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
      return Cause::NotFound;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return Cause::AlreadyExists;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_NETWORK_ACCESS_DENIED:
    case ERROR_PRIVILEGE_NOT_HELD:
      return Cause::AccessDenied;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
    case ERROR_DELETE_PENDING:
      return Cause::InUse;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_NOT_ENOUGH_QUOTA:
    case ERROR_FILE_TOO_LARGE:
      return Cause::NoSpace;
    case ERROR_DIR_NOT_EMPTY:
      return Cause::NotEmpty;
    case ERROR_CRC:
    case ERROR_IO_DEVICE:
    case ERROR_READ_FAULT:
    case ERROR_WRITE_FAULT:
    case ERROR_SECTOR_NOT_FOUND:
    case ERROR_NOT_READY:
    case ERROR_FILE_CORRUPT:
    case ERROR_DISK_CORRUPT:
    case ERROR_NETNAME_DELETED:
    case ERROR_UNEXP_NET_ERR:
      return Cause::Io;
    default:
      return Cause::Other;
  }
}

}  // namespace

std::string Status::Text() const {
  wchar_t buffer[512];
  DWORD length =
      ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                       static_cast<DWORD>(m_code), 0, buffer, std::size(buffer), nullptr);
  if (length == 0) return "error " + std::to_string(m_code);
  while (length > 0 && (buffer[length - 1] == L'.' || buffer[length - 1] <= L' ')) --length;
  return win32::Narrow({buffer, length});
}

Status win32::StatusOf(DWORD error) {
  return {CauseOf(error), static_cast<int>(error)};
}

}  // namespace platform
