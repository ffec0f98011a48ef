// The outcome of one call to the operating system.
//
// platform never throws and never interprets: it says what kind of failure happened and which
// number the system gave. The layers above turn that into the exceptions of the interface.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

enum class Cause : std::uint8_t {
  None,
  NotFound,       // no such file or directory
  AlreadyExists,  // the target is there already
  AccessDenied,   // permissions, or a read-only medium
  InUse,          // another open file refuses the sharing that was asked for
  NoSpace,        // the medium or the quota is full
  NotEmpty,       // a directory still has entries
  Io,             // the medium failed
  Unsupported,    // the system cannot do it there, or not for this user
  Other,
};

class [[nodiscard]] Status {
 public:
  Status() = default;
  Status(Cause cause, int code) : m_cause(cause), m_code(code) {}

  bool Ok() const { return m_cause == Cause::None; }
  Cause Why() const { return m_cause; }
  // The system's own error number (errno, GetLastError); 0 after success.
  int Code() const { return m_code; }
  // The system's words for Code(), without a final full stop or line break.
  std::string Text() const;

 private:
  Cause m_cause = Cause::None;
  int m_code = 0;
};

}  // namespace platform
