// The parsed texts of the profile files that this process used last.
//
// A kept text is trusted while the file's stamp is the one it was read under, and only once that
// stamp lies some time back: the system's file times tick slowly, and two changes within one tick
// leave the same stamp. Until then the bytes are read again and compared. A section that nobody
// else writes needs no such proof: every change that this process makes is in the kept text, and
// what others change without a new stamp keeps all lines where they are and is not in that section.
//
// Not locked: the one user (Profile.cpp) holds its mutex around every call and around the use of
// what it got.
#pragma once

#include <list>
#include <string>

#include "platform/File.h"
#include "platform/ProfileText.h"

namespace platform::posix {

struct CachedProfile {
  std::string path;
  ProfileText text;
  FileInfo::Stamp stamp;
  bool settled = false;  // text and stamp belong together for sure
};

class ProfileCache {
 public:
  // The entry of a path, made empty and unsettled when there is none; valid until the next call.
  CachedProfile& At(const std::string& path);
  void Forget(const std::string& path);

  // Brings the entry up to date for a reader; null when the file is missing or cannot be read.
  CachedProfile* ForReading(const std::string& path, ProfileWriter writer);
  // Brings the entry up to date from the open file, whose update lock the caller holds.
  bool Refresh(CachedProfile& entry, File& locked);
  // Notes that the entry's text is what the file holds, whose update lock the caller holds.
  void Remember(CachedProfile& entry, File& locked);

 private:
  std::list<CachedProfile> m_entries;  // the last used first
};

}  // namespace platform::posix
