// Directories and what is in them. Failures are XKitFile.
#pragma once

#include <string>
#include <vector>

#include "platform/File.h"

class CKitFolder {
 public:
  explicit CKitFolder(const std::string& path);
  const std::string& Path() const { return m_path; }

  static bool Exists(const std::string& path);
  // The directory or, as long as it is not there, the nearest one above it that is; a full path.
  static std::string NearestExisting(const std::string& path);
  // Makes the directory; missing parents are made too. A directory that is there already is no
  // failure.
  static void MakePath(const std::string& path);
  // Makes just this directory. False when the name is taken already.
  static bool MakeFolder(const std::string& path);
  // False when it is not empty or not there.
  static bool RemoveFolder(const std::string& path);
  // A path of a directory under parent that does not exist now: eight letters and digits. Another
  // thread may take it first, so callers make it with MakeFolder and ask again when that answers
  // false.
  static std::string UniqueDirectoryName(const std::string& parent);
  // Such a name alone, which most likely nothing has.
  static std::string NewName();

 private:
  std::string m_path;
};

// The entries of one directory, in byte order of their names.
class CKitFindFile {
 public:
  explicit CKitFindFile(const std::string& directory);
  // The next entry, or null at the end.
  const platform::DirectoryEntry* Next();

 private:
  std::vector<platform::DirectoryEntry> m_entries;
  std::size_t m_next = 0;
};
