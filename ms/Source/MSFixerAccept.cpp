// Putting the new set of files in place, or finding out whether it differs from the old one.
#include <algorithm>
#include <cstring>

#include "EntryFormat.h"
#include "MSFixerJob.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

namespace MSF {
namespace {

constexpr platform::OpenOptions kToRead{platform::Access::Read, platform::Disposition::OpenExisting,
                                        platform::Sharing::All};

void SyncFile(const std::string& path) {
  CKitFile file(path, {platform::Access::ReadWrite, platform::Disposition::OpenExisting,
                       platform::Sharing::All});
  file.Sync();
}

const CMSEntryFormat& FormatOf(int index) {
  constexpr int kRelations = 8;
  constexpr int kPackets = 9;
  if (index == kRelations) return kSetFormat;
  return index == kPackets ? kPacketFormat : kIndexFormat;
}

// The live entries, sorted; false when the file is none of its kind.
bool ReadEntries(const std::string& path, const CMSEntryFormat& format,
                 std::vector<std::string>& entries) {
  CKitFile file(path, kToRead);
  LittleU32 header[4];
  const std::uint64_t length = file.Length();
  if (length < format.HeaderSize() || (length - format.HeaderSize()) % format.EntrySize() != 0 ||
      file.Read(0, header, format.HeaderSize()) != format.HeaderSize() ||
      header[0] != format.signature || header[1] > kEntryVersion || header[2] != format.keySize ||
      (format.valueSize != 0 && header[3] != format.valueSize)) {
    return false;
  }
  std::string bytes(length - format.HeaderSize(), '\0');
  file.Read(format.HeaderSize(), bytes.data(), bytes.size());
  for (std::size_t at = 0; at < bytes.size(); at += format.EntrySize())
    if (static_cast<unsigned char>(bytes[at]) == kEntryLive)
      entries.push_back(bytes.substr(at + 1, format.PayloadSize()));
  std::sort(entries.begin(), entries.end());
  return true;
}

}  // namespace

// Record files byte for byte, the others by what they say.
void CFixer::CJob::CompareWithOperative() {
  for (int index = 0; index < kMasterFile; ++index) {
    const std::string path = Path(index, eOperative);
    const auto differs = [&](const std::string& stored, const std::string& found) {
      m_fixer.m_findings.push_back({path, "file", stored, found});
    };
    if (!Exists(index, eOperative)) {
      differs("missing", "rebuilt");
      continue;
    }
    if (index < kRecordFiles) {
      // What changes a record file has been found by name, unless it is in this list alone.
      if (!CKitFile::HoldSameBytes(path, Path(index, eTemporary)) && m_fixer.m_findings.empty())
        differs("", "changed");
      continue;
    }
    std::vector<std::string> stored;
    std::vector<std::string> found;
    ReadEntries(Path(index, eTemporary), FormatOf(index), found);
    if (!ReadEntries(path, FormatOf(index), stored)) {
      differs("no such file", "rebuilt");
    } else if (stored != found) {
      differs(std::to_string(stored.size()) + " entries",
              std::to_string(found.size()) + " entries, others");
    }
  }
  if (!Exists(kMasterFile, eOperative))
    m_fixer.m_findings.push_back({Path(kMasterFile, eOperative), "file", "missing", "rebuilt"});
}

void CFixer::CJob::AcceptFixedBase() {
  BeginStep("Replacing DB files");
  CopyOldSet();
  m_isReplacing = true;
  m_fixer.m_reportDirectory = m_reportDirectory;
  for (auto& lock : m_locks) lock.reset();
  // Told as deleted here, the old files go as the new ones take their places, one by one: cut off
  // anywhere, the directory has a whole record file of each kind.
  for (int index = 0; index < kFileCount; ++index)
    if (Exists(index, eOperative)) m_log.Deleting(Path(index, eOperative));
  for (int index = 0; index < kFileCount; ++index) {
    const std::string from = Path(index, eTemporary);
    const std::string to = Path(index, eOperative);
    m_log.Moving(from, to);
    const platform::Status moved = platform::Files().Replace(from, to);
    if (moved.Ok()) continue;
    Dispatch(severity::Error,
             "Repairing MS - error moving temporary DB file to operative one. Exception is thrown",
             150);
    KitCheck(moved, "replace", to);
  }
  KitCheck(platform::Files().SyncDirectory(m_directory), "sync", m_directory);
  if (HasChanged()) return;
  m_fixer.m_reportDirectory.clear();
  m_log.RemovingBackup();
  DropOldSet();
}

// A set that could not be copied whole is no report of anything.
void CFixer::CJob::CopyOldSet() {
  CKitFolder::MakePath(m_reportDirectory);
  for (int index = 0; index < kFileCount; ++index) {
    if (!Exists(index, eOperative)) continue;
    const std::string from = Path(index, eOperative);
    const std::string to = GetDBFilePath(index, m_reportDirectory.c_str(), eOperative);
    m_log.Copying(from, to);
    try {
      CKitFile::Copy(from, to);
      SyncFile(to);
    } catch (const XKitFile& error) {
      DropOldSet();
      throw XKitStatus(error.SystemCode(), KitFormat("%s ->%s", from.c_str(), to.c_str()));
    }
  }
  KitCheck(platform::Files().SyncDirectory(m_reportDirectory), "sync", m_reportDirectory);
}

void CFixer::CJob::DropOldSet() {
  DeleteDBFiles(m_reportDirectory, eOperative);
  CKitFolder::RemoveFolder(m_reportDirectory);
}

bool CFixer::CJob::HasChanged() {
  for (int index = 0; index < kRecordFiles; ++index) {
    const std::string old = GetDBFilePath(index, m_reportDirectory.c_str(), eOperative);
    if (!CKitFile::Exists(old) || !CKitFile::HoldSameBytes(old, Path(index, eOperative)))
      return true;
  }
  return false;
}

void CFixer::CJob::DeleteDBFiles(const std::string& directory, EBaseType kind) {
  for (int index = 0; index < kFileCount; ++index) {
    const std::string path = GetDBFilePath(index, directory.c_str(), kind);
    if (!CKitFile::Exists(path)) continue;
    m_log.Deleting(path);
    CKitFile::RemoveEx(path);
  }
}

// Not before the records that name them are gone for good.
void CFixer::CJob::RemoveSavedFiles() {
  for (const std::string& path : m_savedFiles) {
    try {
      CKitFile::RemoveEx(path);
    } catch (const XKitFile& error) {
      Dispatch(severity::Error, error.what(), 151);
      continue;
    }
    Dispatch(severity::Information, "Repairing MS - file is removed (" + path + ")", 152);
    const std::string folder = CKitFile::DirectoryName(path);
    if (CKitFolder::RemoveFolder(folder))
      Dispatch(severity::Information, "Repairing MS - folder is removed (" + folder + ")", 153);
    else
      Dispatch(severity::Repaired, "Repairing MS - can't remove folder (" + folder + ")", 154);
  }
}

}  // namespace MSF
