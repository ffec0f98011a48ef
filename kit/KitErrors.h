// The toolkit's exceptions, which pass through the library unchanged.
#pragma once

#include <stdexcept>
#include <string>

#include "kit/Export.h"

// A failure described by a text alone. what() is a whole sentence for a person.
class MS_API XKitMsg : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A failure with a status code. The codes that the library gives:
//    4  a file of the store is missing            19  the store is open for reading only
//    5, 6, 17, 22, 74  see CMSDBException         50  the store's format is not supported
//    6  the handle is empty or its object is gone 87  an argument is out of its range, a text too
//    long
//   32  a document key cannot be recovered        73  see CMSDocument::Key
//  196  an attachment's file is missing         1131  waiting would never end
class MS_API XKitStatus : public XKitMsg {
 public:
  XKitStatus(int code, const std::string& text) : XKitMsg(text), m_code(code) {}
  int Code() const { return m_code; }

 private:
  int m_code;
};

namespace kit {
inline constexpr int kStatusFileMissing = 4;
inline constexpr int kStatusInvalidHandle = 6;
inline constexpr int kStatusReadOnly = 19;
inline constexpr int kStatusKeyUnusable = 32;
inline constexpr int kStatusNotSupported = 50;
inline constexpr int kStatusKeyRefused = 73;
inline constexpr int kStatusInvalidArgument = 87;
inline constexpr int kStatusAttachmentMissing = 196;
inline constexpr int kStatusDeadlock = 1131;
}  // namespace kit

// A failed file operation: which file, what kind of failure, the system's own number.
class MS_API XKitFile : public XKitMsg {
 public:
  enum class Cause { NotFound, AlreadyExists, AccessDenied, InUse, NoSpace, NotEmpty, Io, Other };

  XKitFile(Cause cause, int systemCode, std::string file, const std::string& text)
      : XKitMsg(text), m_cause(cause), m_systemCode(systemCode), m_file(std::move(file)) {}
  Cause Why() const { return m_cause; }
  int SystemCode() const { return m_systemCode; }
  const std::string& FileName() const { return m_file; }

 private:
  Cause m_cause;
  int m_systemCode;
  std::string m_file;
};
