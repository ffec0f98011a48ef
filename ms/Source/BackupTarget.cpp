#include "BackupTarget.h"

#include <algorithm>
#include <optional>

#include "Format.h"
#include "StoreFiles.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

namespace {

constexpr char kMarkName[] = "archive3.start";

CMSMessageStore Open(const std::string& directory) {
  CKeyCarrier keys;
  CGroupID group;
  return CMSMessageStore(directory.c_str(), keys, nullptr, group, false, false, nullptr, "");
}

template <class Test>
bool AnyFile(const std::string& directory, Test test) {
  return std::any_of(storefiles::kRequired.begin(), storefiles::kRequired.end(),
                     [&](const char* name) { return test(CKitFile::Join(directory, name)); });
}

// What cannot be looked at must not pass for gone: files of a backup would be taken for remains, or
// remains left without their mark.
bool IsThere(const std::string& path) {
  return CKitFile::Info(path).kind != platform::FileKind::None;
}

bool HoldsNoLetters(const std::string& directory) {
  const auto isBlank = [&](const char* name) {
    return CKitFile::Info(CKitFile::Join(directory, name)).length <= sizeof(CMSFileHeader);
  };
  return isBlank("docs3.db") && isBlank("attach3.db") && isBlank("rcpt3.db");
}

// Stands in the directory, locked, while a store is being made there. It stays when the process
// dies, or when the making fails and leaves files behind.
class CMark {
 public:
  explicit CMark(const std::string& directory)
      : m_directory(directory), m_path(CKitFile::Join(directory, kMarkName)) {
    CKitFolder::MakePath(directory);
    try {
      m_file.emplace(m_path, platform::OpenOptions{platform::Access::ReadWrite,
                                                   platform::Disposition::OpenOrCreate,
                                                   platform::Sharing::ReadOnly});
    } catch (const XKitFile& error) {
      if (error.Why() != XKitFile::Cause::InUse) throw;
      throw CMSDBException(CMSDBException::kCannotOpen,
                           "another process is making a store in '" + directory + "'", true);
    }
    m_file->Sync();
    KitCheck(platform::Files().SyncDirectory(directory), "sync", directory);
  }
  // Without files beside it, for certain, there is nothing to remember. One that cannot be removed
  // does no harm before letters come.
  ~CMark() {
    RunOrLog(
        [this] {
          if (AnyFile(m_directory, IsThere)) return;
          LetGo();
          static_cast<void>(platform::Files().Remove(m_path));
        },
        "ms\\Source\\BackupTarget", 1);
  }
  void Remove() {
    LetGo();
    CKitFile::RemoveEx(m_path);
  }
  CMark(const CMark&) = delete;
  CMark& operator=(const CMark&) = delete;

 private:
  // Whoever locks the mark from then on cannot take away the files of the store, which is open.
  void LetGo() {
    if (!platform::OpenFilesCanBeRemoved()) m_file.reset();
  }

  const std::string m_directory;
  const std::string m_path;
  std::optional<CKitFile> m_file;
};

void RemoveRemains(const std::string& directory) {
  for (const char* name : storefiles::kRequired)
    CKitFile::RemoveEx(CKitFile::Join(directory, name));
}

}  // namespace

CMSMessageStore OpenBackupTarget(const std::string& directory) {
  if (!IsHalfMadeTarget(directory) && AnyFile(directory, IsThere)) return Open(directory);
  CMark mark(directory);
  if (HoldsNoLetters(directory)) RemoveRemains(directory);
  CMSMessageStore store = Open(directory);
  mark.Remove();
  return store;
}

bool IsHalfMadeTarget(const std::string& directory) {
  return IsThere(CKitFile::Join(directory, kMarkName));
}
