// Mounting a store for maintenance: temporary copies, and the master table of what is in them.
#include <algorithm>
#include <cstring>

#include "MSFixerJob.h"
#include "StoreFiles.h"
#include "kit/LogDispatcher.h"

namespace MSF {

// Jobs share the names of their temporary files, so one at a time has the guard. Whoever has the
// store open holds one of the record files; readers do not disturb a scan.
void CFixer::CJob::LockOperativeFiles() {
  const std::string guard = CKitFile::Join(m_directory, storefiles::kGuard);
  m_guard = std::make_unique<CKitFile>(
      guard, platform::OpenOptions{platform::Access::ReadWrite, platform::Disposition::OpenOrCreate,
                                   platform::Sharing::ReadOnly});
  m_isHalfReplaced = storefiles::IsHalfReplaced(m_directory);
  LockRecordFiles();
  if (m_isHalfReplaced) FinishReplacing();
  if (m_job == eRepair) m_guard->Write(0, &storefiles::kGuardReplaces, 1);
}

void CFixer::CJob::LockRecordFiles() {
  const auto access = m_job == eScan ? platform::Access::Read : platform::Access::ReadWrite;
  for (int index = 0; index < kRecordFiles; ++index) {
    if (!Exists(index, eOperative)) continue;
    m_locks.at(static_cast<std::size_t>(index)) = std::make_unique<CKitFile>(
        Path(index, eOperative), platform::OpenOptions{access, platform::Disposition::OpenExisting,
                                                       platform::Sharing::ReadOnly});
  }
}

void CFixer::CJob::MarkGuard(char kind) {
  const bool isHalf = kind == storefiles::kGuardHalfReplaced;
  m_isHalfReplaced = m_isHalfReplaced || isHalf;
  m_guard->Write(0, &kind, 1);
  m_guard->Sync();
  m_isHalfReplaced = isHalf;
}

// What an earlier repair, cut off, has left to do. Its new files fit together, while each of them
// may name objects that an old one knows under other IDs.
void CFixer::CJob::FinishReplacing() {
  if (m_job == eScan)
    throw CTextError("a repair has replaced a part of the files; another one has to finish that");
  Dispatch(severity::Information,
           "Repairing MS - finishing an earlier repair that was cut off (" + m_directory + ")",
           152);
  for (auto& lock : m_locks) lock.reset();
  MoveNewSet();
  LockRecordFiles();
}

// Before it is let go, so that the next job makes one of its own. Where that cannot be, a next job
// that has taken it over keeps it.
void CFixer::CJob::ReleaseGuard() {
  if (m_guard == nullptr) return;
  if (m_isHalfReplaced) return m_guard.reset();
  const std::string guard = m_guard->Name();
  if (!platform::OpenFilesCanBeRemoved()) m_guard.reset();
  const platform::Status removed = platform::Files().Remove(guard);
  const bool taken = m_guard == nullptr && removed.Why() == platform::Cause::InUse;
  if (!removed.Ok() && !taken) Dispatch(severity::Error, removed.Text(), 118);
  m_guard.reset();
}

void CFixer::CJob::CopyFile(const std::string& from, const std::string& to, bool lasting) {
  constexpr std::size_t kBlock = 1 << 20;
  CKitFile source(
      from, {platform::Access::Read, platform::Disposition::OpenExisting, platform::Sharing::All});
  CKitFile target(to, {platform::Access::ReadWrite, platform::Disposition::CreateAlways,
                       platform::Sharing::All});
  const std::uint64_t length = source.Length();
  std::vector<std::byte> block(static_cast<std::size_t>(std::min<std::uint64_t>(length, kBlock)));
  for (std::uint64_t done = 0; done < length;) {
    OnProgress(from.c_str(), done, length);
    const std::size_t read = source.Read(done, block.data(), block.size());
    if (read == 0) break;
    target.Write(done, block.data(), read);
    done += read;
  }
  if (lasting) target.Sync();
}

void CFixer::CJob::MakeTemporaryDB() {
  BeginStep("creating temporary DB files");
  for (int index = 0; index < kRecordFiles; ++index) {
    if (!Exists(index, eOperative)) continue;
    const std::string from = Path(index, eOperative);
    const std::string to = Path(index, eTemporary);
    m_log.Copying(from, to);
    try {
      CopyFile(from, to, !kLasting);
    } catch (const XKitFile&) {
      Dispatch(severity::Error,
               "Repairing MS - error creating temporary DB files. Exception is thrown", 110);
      throw;
    }
  }
}

void CFixer::CJob::OpenDataBase() {
  BeginStep("mounting message store");
  constexpr std::array kOrder{std::pair{eFolder, 3}, std::pair{eDocument, 0},
                              std::pair{eAttachment, 1}, std::pair{eRecipient, 2}};
  for (const auto& [type, index] : kOrder) {
    CMSDBFile& file = FileOf(type);
    OpenDBFile(file, Path(index, eTemporary));
    AddToMasterTable(file, type);
  }
  m_table.Sort();
  for (const CDBEntry& row : m_table.Rows())
    if (row.ID <= kMaxObjectID) m_lastID = std::max(m_lastID, row.ID);
  m_log.ObjectStatistics(m_table.Count(eFolder), m_table.Count(eDocument),
                         m_table.Count(eAttachment), m_table.Count(eRecipient));
}

namespace {

[[noreturn]] void RefuseFile(const std::string& what, const std::string& details, int line) {
  Dispatch(severity::Error, "Repairing MS - " + what + " (" + details + "). Exception is thrown.",
           line);
  throw CRefusedFile(what + ": " + details);
}

}  // namespace

void CFixer::CJob::OpenDBFile(CMSDBFile& file, const std::string& path) {
  try {
    file.Open(path);
  } catch (const XKitFile& error) {
    Dispatch(severity::Error,
             KitFormat("Repairing MS - error opening file #%u (%s). Exception is thrown.",
                       static_cast<unsigned>(error.Why()), path.c_str()),
             111);
    throw;
  }
  if (m_fixer.m_renewHeaders) RenewHeader(file);
  if (file.Length() < sizeof(CMSFileHeader)) RefuseFile("DB file is too small", path, 112);
  const CMSFileHeader header = file.ReadHeader();
  const auto shown = [&](std::uint32_t value) {
    return KitFormat("%s, 0x%X", path.c_str(), value);
  };
  if (header.SI != CMSFileHeader::kSignature)
    RefuseFile("DB file signature is invalid", shown(header.SI), 113);
  if (header.VE != CMSFileHeader::kVersion)
    RefuseFile("DB file version is invalid", shown(header.VE), 114);
  if (header.KS != CMSFileHeader::kKeySize || header.DS != file.RecordSize())
    RefuseFile("DB file record size mismatch is detected", path, 115);
}

// No field of such a header is worth keeping: a false head of the chain would cost an object.
void CFixer::CJob::RenewHeader(CMSDBFile& file) {
  CMSFileHeader fresh;
  fresh.DS = file.RecordSize();
  if (file.Length() >= sizeof fresh) {
    const CMSFileHeader stored = file.ReadHeader();
    if (stored.SI == fresh.SI && stored.VE == fresh.VE && stored.KS == fresh.KS &&
        stored.DS == fresh.DS)
      return;
  }
  file.WriteHeader(fresh);
  Report({eMended, OwnPath(file), "file header", "", "renewed"},
         "file header is renewed (" + file.Path() + ")", 119);
}

// Answers the number of slots in use.
std::uint32_t CFixer::CJob::AddToMasterTable(CMSDBFile& file, EObjectType type) {
  const CMSFileHeader header = file.ReadHeader();
  auto& links = m_freeLinks.at(static_cast<std::size_t>(&file - m_files.data()));
  CMaintenanceLog::Counts found;
  found.total = file.SlotCount();
  file.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    CSlotHead head;
    std::memcpy(&head, bytes, sizeof head);
    if (slot == header.FI || !head.head.InUse()) {
      ++found.free;
      links.push_back({slot, head.head.previous, head.head.next});
      return false;
    }
    ++found.used;
    m_table.Rows().push_back({head.head.key, type, slot, head.parent});
    return false;
  });
  OnProgress(file.Path().c_str(), found.total, found.total);
  m_log.FileStatistics(header, found);
  ReportCounts(file, header, found);
  return found.used;
}

void CFixer::CJob::ReportCounts(const CMSDBFile& file, const CMSFileHeader& header,
                                const CMaintenanceLog::Counts& found) {
  const auto report = [&](const char* what, std::uint32_t stored, std::uint32_t counted, int line) {
    Report({eMended, OwnPath(file), what, std::to_string(stored), std::to_string(counted)},
           KitFormat("%s mismatch is detected (%s, %u -> %u)", what, file.Path().c_str(), stored,
                     counted),
           line);
  };
  const bool isTotalWrong = found.total != header.TC;
  const bool isUsedWrong = found.used != header.UC;
  if (isTotalWrong) report("total object count", header.TC, found.total, 116);
  if (isUsedWrong) report("used object count", header.UC, found.used, 117);
  if (isTotalWrong || isUsedWrong) m_log.CountsMismatch();
}

}  // namespace MSF
