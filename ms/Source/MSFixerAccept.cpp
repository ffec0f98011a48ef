// Putting the new set of files in place, or finding out whether it differs from the old one.
#include <algorithm>
#include <cstring>

#include "EntryFormat.h"
#include "MSFixerJob.h"
#include "StoreFiles.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

namespace MSF {
namespace {

const CMSEntryFormat& FormatOf(int index) {
  constexpr int kRelations = 8;
  constexpr int kPackets = 9;
  if (index == kRelations) return kSetFormat;
  return index == kPackets ? kPacketFormat : kIndexFormat;
}

// The payloads of the live entries of a file, sorted; nothing when the file is none of its kind.
template <std::size_t kSize>
class CEntries {
 public:
  CEntries(const std::string& path, const CMSEntryFormat& format)
      : m_format(format),
        m_file(path, {platform::Access::Read, platform::Disposition::OpenExisting,
                      platform::Sharing::All}) {
    if (!HasHeader()) return;
    m_isGood = true;
    const std::uint64_t length = m_file.Length();
    m_payloads.reserve(static_cast<std::size_t>(length / format.EntrySize()));
    const std::uint64_t atOnce =
        std::min<std::uint64_t>(kEntriesAtOnce, length / format.EntrySize() + 1);
    std::vector<unsigned char> block(static_cast<std::size_t>(atOnce) * format.EntrySize());
    for (std::uint64_t at = format.HeaderSize(); at < length; at += block.size()) {
      const std::size_t read = m_file.Read(at, block.data(), block.size());
      for (std::size_t entry = 0; entry < read; entry += format.EntrySize())
        if (block[entry] == kEntryLive) Add(&block[entry + 1]);
    }
    std::sort(m_payloads.begin(), m_payloads.end());
  }
  bool IsGood() const { return m_isGood; }
  std::size_t Count() const { return m_payloads.size(); }
  bool operator==(const CEntries& other) const { return m_payloads == other.m_payloads; }

 private:
  static constexpr std::size_t kEntriesAtOnce = 1 << 16;

  bool HasHeader() {
    LittleU32 header[4];
    const std::uint64_t length = m_file.Length();
    return length >= m_format.HeaderSize() &&
           (length - m_format.HeaderSize()) % m_format.EntrySize() == 0 &&
           m_file.Read(0, header, m_format.HeaderSize()) == m_format.HeaderSize() &&
           header[0] == m_format.signature && header[1] <= kEntryVersion &&
           header[2] == m_format.keySize &&
           (m_format.valueSize == 0 || header[3] == m_format.valueSize);
  }
  void Add(const unsigned char* bytes) {
    std::copy_n(bytes, kSize, m_payloads.emplace_back().begin());
  }

  const CMSEntryFormat m_format;
  CKitFile m_file;
  bool m_isGood = false;
  std::vector<std::array<unsigned char, kSize>> m_payloads;
};

// How the two files differ, as what was stored and what was built; both "" when they do not.
using CDifference = std::pair<std::string, std::string>;

template <std::size_t kSize>
CDifference Compare(const std::string& stored, const std::string& built,
                    const CMSEntryFormat& format) {
  const CEntries<kSize> was(stored, format);
  if (!was.IsGood()) return {"no such file", "rebuilt"};
  const CEntries<kSize> is(built, format);
  if (was == is) return {};
  return {std::to_string(was.Count()) + " entries",
          std::to_string(is.Count()) + " entries" + (was.Count() == is.Count() ? ", others" : "")};
}

CDifference Compare(const std::string& stored, const std::string& built,
                    const CMSEntryFormat& format) {
  switch (format.PayloadSize()) {
    case kIndexFormat.PayloadSize():
      return Compare<kIndexFormat.PayloadSize()>(stored, built, format);
    case kSetFormat.PayloadSize():
      return Compare<kSetFormat.PayloadSize()>(stored, built, format);
    default:
      return Compare<kPacketFormat.PayloadSize()>(stored, built, format);
  }
}

}  // namespace

// Record files by whether anything was written to their copies, the others by what they say.
void CFixer::CJob::CompareWithOperative() {
  for (int index = 0; index < kMasterFile; ++index) {
    const std::string path = Path(index, eOperative);
    const auto differs = [&](const std::string& stored, const std::string& found) {
      m_fixer.m_findings.push_back({eRebuilt, path, "file", stored, found});
    };
    if (!Exists(index, eOperative)) {
      differs("missing", "rebuilt");
      continue;
    }
    if (index < kRecordFiles) {
      // What changes a record file has been found by name, unless it is in this list alone.
      if (m_fixer.m_findings.empty() && m_files.at(static_cast<std::size_t>(index)).IsChanged())
        differs("", "changed");
      continue;
    }
    const auto [stored, built] = Compare(path, Path(index, eTemporary), FormatOf(index));
    if (!stored.empty()) differs(stored, built);
  }
  if (!Exists(kMasterFile, eOperative))
    m_fixer.m_findings.push_back(
        {eRebuilt, Path(kMasterFile, eOperative), "file", "missing", "rebuilt"});
}

void CFixer::CJob::AcceptFixedBase() {
  BeginStep("Replacing DB files");
  SyncCopies();
  CopyOldSet();
  m_isReplacing = true;
  m_fixer.m_reportDirectory = m_reportDirectory;
  for (auto& lock : m_locks) lock.reset();
  // Told as deleted here, the old files go as the new ones take their places, one by one: cut off
  // anywhere, the directory has a whole record file of each kind.
  for (int index = 0; index < kFileCount; ++index)
    if (Exists(index, eOperative)) m_log.Deleting(Path(index, eOperative));
  // From here on there is no way back: the new files have reached the medium, names included, and
  // now so does the word that they are to take their places.
  KitCheck(platform::Files().SyncDirectory(m_directory), "sync", m_directory);
  MarkGuard(storefiles::kGuardHalfReplaced);
  MoveNewSet();
  if (HasChanged()) return;
  m_fixer.m_reportDirectory.clear();
  m_log.RemovingBackup();
  DropOldSet();
}

// All of them, or those that an earlier job had no time for.
void CFixer::CJob::MoveNewSet() {
  for (int index = 0; index < kFileCount; ++index) {
    if (!Exists(index, eTemporary)) continue;
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
  MarkGuard(storefiles::kGuardReplaces);
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
      CopyFile(from, to, kLasting);
    } catch (const CStopped&) {
      DropOldSet();
      throw;
    } catch (const XKitFile& error) {
      DropOldSet();
      throw XKitStatus(error.SystemCode(),
                       KitFormat("%s ->%s: %s", from.c_str(), to.c_str(), error.what()));
    }
  }
  std::string named = CKitFile::FullName(m_reportDirectory);
  while (!named.empty() && platform::IsSeparator(named.back())) named.pop_back();
  for (const std::string& directory : {m_reportDirectory, CKitFile::DirectoryName(named)})
    KitCheck(platform::Files().SyncDirectory(directory), "sync", directory);
}

void CFixer::CJob::DropOldSet() {
  DeleteDBFiles(m_reportDirectory, eOperative);
  CKitFolder::RemoveFolder(m_reportDirectory);
}

// A file whose copy nothing was written to need not be read to know it the same.
bool CFixer::CJob::HasChanged() {
  for (int index = 0; index < kRecordFiles; ++index) {
    const std::string old = GetDBFilePath(index, m_reportDirectory.c_str(), eOperative);
    if (!CKitFile::Exists(old)) return true;
    if (!m_files.at(static_cast<std::size_t>(index)).IsChanged()) continue;
    if (!CKitFile::HoldSameBytes(old, Path(index, eOperative))) return true;
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

}  // namespace MSF
