#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>

#include "platform/posix/FileSystem.h"
#include "platform/posix/OpenFile.h"

namespace platform::posix {
namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

bool IsDots(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Not every file system says the kind along with the name.
FileKind KindOf(int directory, const struct dirent& entry) {
  switch (entry.d_type) {
    case DT_REG:
      return FileKind::File;
    case DT_DIR:
      return FileKind::Directory;
    case DT_LNK:
      return FileKind::Link;
    case DT_UNKNOWN:
      break;
    default:
      return FileKind::Other;
  }
  struct stat state;
  const bool gone = ::fstatat(directory, entry.d_name, &state, AT_SYMLINK_NOFOLLOW) != 0;
  return gone ? FileKind::None : InfoOf(state).kind;
}

}  // namespace

Status PosixFileSystem::List(const std::string& path, std::vector<DirectoryEntry>& entries) {
  entries.clear();
  const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(path.c_str()));
  if (directory == nullptr) return LastStatus();
  for (;;) {
    errno = 0;
    const struct dirent* entry = ::readdir(directory.get());
    if (entry == nullptr) return errno == 0 ? Status() : LastStatus();
    if (IsDots(entry->d_name)) continue;
    const FileKind kind = KindOf(::dirfd(directory.get()), *entry);
    if (kind != FileKind::None) entries.push_back({entry->d_name, kind});
  }
}

}  // namespace platform::posix
