// Exceptions of the library itself; the toolkit's (kit/KitErrors.h) pass through it unchanged.
#pragma once

#include "kit/KitErrors.h"

// A failure of the storage engine. Codes:
//    5  a file header could not be read
//    6  a file write failed
//   17  a database file could not be opened (missing, forbidden, or in use by another process)
//   22  an index file is invalid or holds a duplicate key
//   74  the store is corrupted
// Codes 22 and 74 are always preceded by a report to g_MSBaseInformer.
class MS_API CMSDBException : public XKitStatus {
 public:
  CMSDBException(int code, const std::string& text, bool inUse = false)
      : XKitStatus(code, text), m_inUse(inUse) {}
  // Of code 17: somebody else, perhaps in this process, has the store open.
  bool IsInUse() const { return m_inUse; }

  static constexpr int kHeaderUnreadable = 5;
  static constexpr int kWriteFailed = 6;
  static constexpr int kCannotOpen = 17;
  static constexpr int kIndexInvalid = 22;
  static constexpr int kCorrupted = 74;

 private:
  bool m_inUse;
};

// For clients to throw among themselves; the library never does.
struct MS_API XMSError {};
struct MS_API XMSUnknownObjectType {};
struct MS_API XMSInvalidArg {};
