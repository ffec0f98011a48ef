// The files of attachments: which record each belongs to, and what becomes of those of lost ones.
#include <algorithm>
#include <cstring>

#include "Attachment.h"
#include "AttachmentFiles.h"
#include "MSFixerJob.h"
#include "ObjectAccess.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

namespace MSF {
namespace {

// Names of files in one store may be alike but for a byte or two of their directories; a damaged
// one is still taken for the name that it differs from by no more, if that is one alone.
constexpr std::size_t kFewBytes = 4;
constexpr char kNoName[] = "lost.dat";
constexpr std::size_t kLongestName = 100;

// Texts of damaged records as a log can hold them.
std::string Printable(std::string text) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' '; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

bool IsRemoved(const CMSAttachmentData& record) {
  return (record.Flag & attachmentflag::FileRemoved) != 0;
}

std::string StoredName(const CMSAttachmentData& record) {
  return CMSFieldAccess::TextOf(record.InternalFileName);
}

// By how many bytes the whole field differs from one with that name.
template <std::size_t N>
std::size_t Distance(const char (&field)[N], const std::string& name) {
  if (name.size() >= N) return N;
  std::size_t distance = 0;
  for (std::size_t i = 0; i < N; ++i)
    if (field[i] != (i < name.size() ? name[i] : '\0')) ++distance;
  return distance;
}

// A name for the file of an attachment that has none, out of the one it came with.
std::string PlainName(const CMSAttachmentData& record) {
  std::string name = CMSFieldAccess::TextOf(record.AttachmentName);
  const auto isWrong = [](char c) {
    return static_cast<unsigned char>(c) < ' ' || std::strchr("\\/:*?\"<>|", c) != nullptr;
  };
  const bool isPlain = !name.empty() && name.size() <= kLongestName && name != "." &&
                       name != ".." && std::none_of(name.begin(), name.end(), isWrong);
  return isPlain ? name : kNoName;
}

}  // namespace

CFileTree& CFixer::CJob::Tree() {
  if (m_tree == nullptr) {
    const std::uint64_t total = m_table.Count(eAttachment);
    m_tree = std::make_unique<CFileTree>(m_store, [=, this](std::uint64_t found) {
      OnProgress(m_store.c_str(), std::min(found, total), total);
    });
  }
  return *m_tree;
}

// The record goes, the file is kept where a person finds it. What lies outside of the store is the
// client's own.
void CFixer::CJob::SaveFile(const CDBEntry& row) {
  CMSAttachmentData record;
  FileOf(eAttachment).ReadRecord(row.Slot, &record);
  const std::string stored = StoredName(record);
  if (attachmentfiles::PlaceOf(m_store, stored) != attachmentfiles::Place::Inside) return;
  CSavedFile saved{attachmentfiles::Canonical(m_store, stored),
                   attachmentfiles::ToFull(m_store, stored), ""};
  if (!Tree().Has(saved.stored)) return;
  const std::string directory = CKitFile::Join(m_store, kSavedDirectory);
  if (CKitFile::Info(directory).isLink) {  // nobody knows where to
    Dispatch(severity::Error,
             "Repairing MS - error copying file (" + saved.from + " to " + directory + ")", 129);
    return;
  }
  const std::string base = CKitFile::BaseName(saved.from);
  const std::string extension = CKitFile::Extension(saved.from);
  saved.to = CKitFile::Join(directory, base + extension);
  for (int n = 1; CKitFile::IsVisible(saved.to); ++n)
    saved.to = CKitFile::Join(directory, KitFormat("%s_%d%s", base.c_str(), n, extension.c_str()));
  m_savedFiles.push_back(saved);
  try {
    CKitFolder::MakePath(directory);
    CopyFile(saved.from, saved.to, kLasting);
  } catch (const XKitFile&) {
    Dispatch(severity::Error,
             "Repairing MS - error copying file (" + saved.from + " to " + saved.to + ")", 129);
    static_cast<void>(platform::Files().Remove(saved.to));
    m_savedFiles.pop_back();
    return;
  }
  Dispatch(severity::Information,
           "Repairing MS - file is copied (" + saved.from + " to " + saved.to + ")", 128);
}

// Each file belongs to one record, each record that has one names a file of its own.
void CFixer::CJob::FixAttachmentFiles() {
  CMSDBFile& file = FileOf(eAttachment);
  const auto rows = RowsBySlot(eAttachment);
  std::vector<CFileTrouble> troubles;
  file.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    if (rows[slot] != nullptr) ClaimFile(slot, RecordIn<CMSAttachmentData>(bytes), troubles);
    return false;
  });
  // A lost attachment's file that is somebody else's as well stays where it is.
  std::erase_if(m_savedFiles, [&](const CSavedFile& saved) {
    std::uint32_t owner = 0;
    return Tree().Take(saved.stored, kNoContainer - 1, owner) != CFileTree::Claim::Made;
  });
  std::vector<std::string> unclaimed = Tree().Unclaimed();
  for (const CFileTrouble& trouble : troubles) MendPath(*rows[trouble.slot], trouble, unclaimed);
  for (const std::string& name : unclaimed) {
    const std::string path = attachmentfiles::ToFull(m_store, name);
    m_log.Detail("\tfile without object: \"" + Printable(path) + "\"\n");
    m_fixer.m_unnamedFiles.push_back(path);
  }
  if (m_fixer.m_deep) CompareFiles();
}

// Two records with one name: it is that one's whose size is the file's, or else the first's.
void CFixer::CJob::ClaimFile(std::uint32_t slot, const CMSAttachmentData& record,
                             std::vector<CFileTrouble>& troubles) {
  using attachmentfiles::Place;
  const std::string stored = StoredName(record);
  const Place place = attachmentfiles::PlaceOf(m_store, stored);
  if (place == Place::Outside) return;
  if (place == Place::Nowhere) {
    const std::string path = attachmentfiles::ToFull(m_store, stored);
    // An unusual path of the client's own, after all.
    if (path == stored && CKitFile::Exists(path)) return;
    return troubles.push_back({slot, CFileTrouble::Nowhere});
  }
  const std::string name = attachmentfiles::Canonical(m_store, stored);
  std::uint32_t owner = 0;
  switch (Tree().Take(name, slot, owner)) {
    case CFileTree::Claim::Made:
      return;
    case CFileTree::Claim::Missing:
      if (!IsRemoved(record)) troubles.push_back({slot, CFileTrouble::Missing});
      return;
    case CFileTree::Claim::Taken:
      break;
  }
  CMSAttachmentData other;
  FileOf(eAttachment).ReadRecord(owner, &other);
  const std::uint64_t length = attachmentfiles::Length(attachmentfiles::ToFull(m_store, stored));
  const auto fits = [=](const CMSAttachmentData& one) {
    return !IsRemoved(one) && static_cast<std::uint64_t>(std::int32_t{one.Size}) == length;
  };
  if (fits(record) && !fits(other)) {
    Tree().Pass(name, slot);
    slot = owner;
  }
  troubles.push_back({slot, CFileTrouble::Shared});
}

void CFixer::CJob::MendPath(const CDBEntry& row, const CFileTrouble& trouble,
                            std::vector<std::string>& unclaimed) {
  CMSDBFile& file = FileOf(eAttachment);
  CMSAttachmentData record;
  file.ReadRecord(row.Slot, &record);
  const std::string stored = StoredName(record);
  std::string name;
  if (!IsRemoved(record)) {
    name = TakeLike(record, unclaimed);
    if (name.empty() && trouble.kind == CFileTrouble::Missing) return;
    if (name.empty() && trouble.kind == CFileTrouble::Shared) name = CopyOf(stored);
  }
  const bool hasFile = !name.empty();
  if (!hasFile) {
    record.Flag = static_cast<std::int32_t>(record.Flag | attachmentflag::FileRemoved);
    name = attachmentfiles::ToStored(
        m_store, CKitFile::Join(CKitFolder::UniqueDirectoryName(m_store), PlainName(record)));
  }
  std::memset(record.InternalFileName, 0, sizeof record.InternalFileName);
  CMSFieldAccess::PutText(record.InternalFileName, name);
  file.WriteRecord(row.Slot, &record);
  const std::string object = GetIDString(COID{row.ID, row.Type});
  const std::string old = Printable(stored);
  const std::string now = hasFile ? name : "no file";
  m_log.Detail("\t" + object + " file(" + old + " -> " + now + ")\n");
  Report({eMended, object, "attachment file", old, now},
         "attachment file mismatch is detected (" + object + ", " + old + " -> " + now + ")", 160);
}

// Takes the one of those that nobody claims that the record's name is closest to, if its length is
// right as well; "" when there is none, or more than one.
std::string CFixer::CJob::TakeLike(const CMSAttachmentData& record,
                                   std::vector<std::string>& unclaimed) {
  std::size_t least = kFewBytes + 1;
  auto best = unclaimed.end();
  for (auto it = unclaimed.begin(); it != unclaimed.end(); ++it) {
    const std::size_t distance = Distance(record.InternalFileName, *it);
    if (distance > kFewBytes || distance > least) continue;
    const std::string path = attachmentfiles::ToFull(m_store, *it);
    if (path.empty() ||
        attachmentfiles::Length(path) != static_cast<std::uint64_t>(std::int32_t{record.Size}))
      continue;
    best = distance < least ? it : unclaimed.end();
    least = distance;
  }
  if (best == unclaimed.end()) return {};
  std::string name = std::move(*best);
  unclaimed.erase(best);
  return name;
}

// A copy of a file that is another record's, for one of its own: its name as records have it. ""
// when it cannot be read. A scan makes none.
std::string CFixer::CJob::CopyOf(const std::string& stored) {
  const std::string from = attachmentfiles::ToFull(m_store, stored);
  std::string directory = CKitFolder::UniqueDirectoryName(m_store);
  std::string to = CKitFile::Join(directory, CKitFile::BaseName(from) + CKitFile::Extension(from));
  if (m_job != eRepair) return attachmentfiles::ToStored(m_store, to);
  CKitFolder::MakePath(directory);
  m_madeFiles.push_back(to);
  try {
    CopyFile(from, to, kLasting);
  } catch (const XKitFile& error) {
    if (error.Why() == XKitFile::Cause::NoSpace) throw;
    Dispatch(severity::Error, "Repairing MS - error copying file (" + from + " to " + to + ")",
             161);
    DropFile(to);
    m_madeFiles.pop_back();
    return {};
  }
  return attachmentfiles::ToStored(m_store, to);
}

void CFixer::CJob::CompareFiles() {
  CMSDBFile& file = FileOf(eAttachment);
  const auto rows = RowsBySlot(eAttachment);
  file.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    const auto record = RecordIn<CMSAttachmentData>(bytes);
    if (rows[slot] == nullptr || IsRemoved(record)) return false;
    const std::string path = attachmentfiles::ToFull(m_store, StoredName(record));
    const platform::FileInfo info = CKitFile::Info(path);
    const std::string object = GetIDString(COID{rows[slot]->ID, eAttachment});
    const auto tell = [&](const char* what, const std::string& was, const std::string& is) {
      m_log.Detail("\t" + object + " " + what + "(" + Printable(path) + ")\n");
      m_fixer.m_fileFindings.push_back({eNothing, object, what, was, is});
    };
    if (info.kind != platform::FileKind::File)
      tell("missing file", Printable(path), "");
    else if ((record.Flag & attachmentflag::Encrypted) == 0 &&
             info.length != static_cast<std::uint64_t>(std::int32_t{record.Size}))
      tell("file length", std::to_string(record.Size), std::to_string(info.length));
    OnProgress(file.Path().c_str(), slot, rows.size());
    return false;
  });
}

// With its directory, if that is empty then.
void CFixer::CJob::DropFile(const std::string& path) {
  const platform::Status removed = platform::Files().Remove(path);
  if (!removed.Ok() && removed.Why() != platform::Cause::NotFound)
    Dispatch(severity::Error, removed.Text(), 162);
  static_cast<void>(platform::Files().RemoveDirectory(CKitFile::DirectoryName(path)));
}

// What a job that failed has put beside the store's own files.
void CFixer::CJob::DropCopies() {
  for (const std::string& path : m_madeFiles) DropFile(path);
  for (const CSavedFile& saved : m_savedFiles) DropFile(saved.to);
}

void CFixer::CJob::SyncCopies() {
  std::vector<std::string> directories;
  for (const std::string& path : m_madeFiles) directories.push_back(CKitFile::DirectoryName(path));
  if (!m_savedFiles.empty()) directories.push_back(CKitFile::Join(m_store, kSavedDirectory));
  directories.push_back(m_store);
  for (const std::string& directory : directories)
    KitCheck(platform::Files().SyncDirectory(directory), "sync", directory);
}

// Not before the records that name them are gone for good.
void CFixer::CJob::RemoveSavedFiles() {
  for (const CSavedFile& saved : m_savedFiles) {
    try {
      CKitFile::RemoveEx(saved.from);
    } catch (const XKitFile& error) {
      Dispatch(severity::Error, error.what(), 151);
      continue;
    }
    Dispatch(severity::Information, "Repairing MS - file is removed (" + saved.from + ")", 152);
    const std::string folder = CKitFile::DirectoryName(saved.from);
    if (platform::Files().RemoveDirectory(folder).Ok())
      Dispatch(severity::Information, "Repairing MS - folder is removed (" + folder + ")", 153);
    else
      Dispatch(severity::Repaired, "Repairing MS - can't remove folder (" + folder + ")", 154);
  }
}

}  // namespace MSF
