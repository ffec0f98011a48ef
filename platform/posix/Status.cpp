#include "platform/Status.h"

#include <cstring>

#include "platform/posix/Handle.h"

namespace platform {
namespace {

Cause CauseOf(int error) {
  switch (error) {
    case 0:
      return Cause::None;
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:  // no file can have such a name
    case ELOOP:
      return Cause::NotFound;
    case EEXIST:
      return Cause::AlreadyExists;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return Cause::AccessDenied;
    case EAGAIN:
    case EBUSY:
    case ETXTBSY:
      return Cause::InUse;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return Cause::NoSpace;
    case ENOTEMPTY:
      return Cause::NotEmpty;
    case EIO:
      return Cause::Io;
    default:
      return Cause::Other;
  }
}

}  // namespace

std::string Status::Text() const {
  char buffer[256];
  return ::strerror_r(m_code, buffer, sizeof buffer);
}

Status posix::StatusOf(int error) {
  return {CauseOf(error), error};
}

}  // namespace platform
