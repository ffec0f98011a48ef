#include "Archiver.h"

#include <algorithm>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "BackupRun.h"
#include "BackupTarget.h"
#include "Copy.h"
#include "LetterImage.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"

namespace {

constexpr std::uint32_t kNoRoom = 35;
constexpr unsigned long kNoRoomDetail = 5;
constexpr std::uint64_t kRoomPerByte = 4;

// What the callback may answer to an error.
constexpr int kAnswerGoOn = 1;
constexpr int kAnswerCancel = 2;
constexpr int kAnswerAbort = 3;
constexpr int kAnswerRetry = 4;

// Of the volume on which the directory is, or would be made.
std::uint64_t FreeSpace(const std::string& directory) {
  const std::string place = CKitFolder::NearestExisting(directory);
  std::uint64_t bytes = 0;
  KitCheck(platform::Files().FreeSpace(place, bytes), "measure the free space of", place);
  return bytes;
}

std::uint32_t Number(unsigned long id) {
  return static_cast<std::uint32_t>(id);
}

}  // namespace

CMSArchiver::CStatusCallback::~CStatusCallback() = default;
CMSArchiver::CBackupFilter::~CBackupFilter() = default;
CMSArchiver::~CMSArchiver() = default;

CMSArchiver::CStatusCallback* CMSArchiver::SetStatusCallback(CStatusCallback* callback) {
  const CSharedLocker guard(m_lock);
  return std::exchange(m_callback, callback);
}

CMSArchiver::CBackupFilter* CMSArchiver::SetBackupFilter(CBackupFilter* filter) {
  const CSharedLocker guard(m_lock);
  return std::exchange(m_filter, filter);
}

// However a backup ends, it is over.
class CMSArchiver::CIdleAfterwards {
 public:
  explicit CIdleAfterwards(CMSArchiver& archiver) : m_archiver(archiver) {}
  ~CIdleAfterwards() { m_archiver.ResetStatus(kIdle); }
  CIdleAfterwards(const CIdleAfterwards&) = delete;
  CIdleAfterwards& operator=(const CIdleAfterwards&) = delete;

 private:
  CMSArchiver& m_archiver;
};

void CMSArchiver::Backup(const CMSMessageStore& store, const char* targetDirectory,
                         const CMSBackupSettings* settings, bool* copied) {
  const std::string directory = CKitString(targetDirectory);
  if (directory.empty()) {
    throw XKitStatus(kit::kStatusInvalidArgument, "a backup needs a directory");
  }
  const CIdleAfterwards idle(*this);
  ResetStatus(kIdle);
  ResetStatus(kPreparing);
  CSelection selection = PreBackup(store);
  if (!IsBackupNeeded(selection.List, selection.TotalSize, settings)) throw XInterrupted();
  const CMSBackupSettings everything;
  const CMSBackupSettings& chosen = settings != nullptr ? *settings : everything;
  if (chosen.Pack) PackBackupList(selection, chosen);
  if ((chosen.Options & kBackupPlanOnly) == 0) WaitForRoom(directory, selection.TotalSize);
  DoBackup(store, directory.c_str(), selection, chosen, copied);
}

void CMSArchiver::WaitForRoom(const std::string& directory, std::uint64_t size) {
  ResetStatus(kPreparing);
  for (;;) {
    const std::uint64_t needed = kRoomPerByte * size;
    const std::uint64_t free = FreeSpace(directory);
    if (needed < free) return;
    ResetStatus(kPreparing);
    const std::string text = KitFormat(
        "a backup of %llu bytes wants more than %llu free ones for '%s', where %llu are free",
        static_cast<unsigned long long>(size), static_cast<unsigned long long>(needed),
        directory.c_str(), static_cast<unsigned long long>(free));
    if (Report(kNoRoom, kNoRoomDetail, text) != kAnswerRetry) throw XInterrupted();
  }
}

bool CMSArchiver::IsHalfMade(const char* directory) {
  return IsHalfMadeTarget(directory);
}

bool CMSArchiver::IsBackupNeeded(const CMSMessageStore& store, const CMSBackupSettings* settings) {
  const CIdleAfterwards idle(*this);
  ResetStatus(kPreparing);
  const CSelection selection = PreBackup(store);
  return IsBackupNeeded(selection.List, selection.TotalSize, settings);
}

bool CMSArchiver::IsBackupNeeded(const CMSFolder& folder) {
  const CSharedLocker guard(m_lock);
  return m_filter == nullptr || m_filter->IsBackupNeeded(folder);
}

bool CMSArchiver::IsBackupNeeded(const CMSDocument& document) {
  const CSharedLocker guard(m_lock);
  return m_filter == nullptr || m_filter->IsBackupNeeded(document);
}

bool CMSArchiver::IsBackupNeeded(const CBackupList& list, std::uint64_t totalSize,
                                 const CMSBackupSettings* settings) {
  if (settings == nullptr) return !list.empty();
  if (settings->CountRule && list.size() >= settings->Count) return true;
  return settings->SizeRule && totalSize >= settings->Size;
}

// Every folder once, however often the links of a damaged store lead to it.
CMSArchiver::CSelection CMSArchiver::PreBackup(const CMSMessageStore& store) {
  struct Found {
    CMSFolder folder;
    std::uint32_t under;
  };
  CSelection selection;
  std::vector<Found> open{{store.Root(), 0}};
  if (!open.back().folder) {
    throw CMSDBException(
        CMSDBException::kCorrupted,
        KitFormat("the store '%s' has no root folder; it needs a repair", store.GetMainFolder()));
  }
  std::unordered_set<unsigned long> entered{open.back().folder.ID()};
  while (!open.empty()) {
    const Found found = open.back();
    open.pop_back();
    if (!found.folder || !IsBackupNeeded(found.folder)) continue;
    if (!found.folder.IsRoot())
      selection.Folders.push_back({Number(found.folder.ID()), found.under});
    const auto first = static_cast<std::ptrdiff_t>(open.size());
    try {
      PreBackupFolder(found.folder, selection);
      CMSFolder child;
      auto place = found.folder.GetFirstFolderPosition();
      while (found.folder.GetNextFolder(child, place)) {
        if (entered.insert(child.ID()).second) open.push_back({child, Number(found.folder.ID())});
      }
    } catch (const XKitStatus&) {
      if (found.folder) throw;  // else another thread has deleted it
    }
    std::reverse(open.begin() + first, open.end());  // the first is to come off first
  }
  AddStrays(selection);
  return selection;
}

void CMSArchiver::PreBackupFolder(const CMSFolder& folder, CSelection& selection) {
  CMSDocument document;
  for (auto place = folder.GetFirstDocumentPosition(); folder.GetNextDocument(document, place);) {
    try {
      if (!IsBackupNeeded(document)) continue;
    } catch (const XKitStatus&) {
      if (document) throw;
      continue;  // the filter met what another thread has deleted
    }
    AddLetter(folder, document, selection);
    OnProgress();
  }
}

// A letter that cannot be read, or whose files cannot be looked at, is listed nevertheless: copying
// it will tell. One that names another folder than the one it was found in waits for AddStrays.
void CMSArchiver::AddLetter(const CMSFolder& folder, const CMSDocument& document,
                            CSelection& selection) {
  CBackupEntry entry{Number(document.ID()), Number(folder.ID()), 0, 0};
  bool isStray = false;
  try {
    isStray = document.ParentID() != folder.ID();
    entry.CreationTime = Number(document.CreationTime());
    entry.Size = document.GetRawStorageSize();
  } catch (const XKitMsg&) {
    if (!document) return;  // another thread has deleted it
  }
  (isStray ? selection.Strays : selection.List).push_back(entry);
  const CSharedLocker guard(m_lock);
  ++m_status.Listed;
  m_status.ListedBytes += entry.Size;
}

// Each letter once. A move that was cut off leaves a letter in two folders: it counts where it says
// that it belongs. One that is not there at all counts where it was found; one that another thread
// has moved meanwhile, where it was met last.
void CMSArchiver::AddStrays(CSelection& selection) {
  std::unordered_set<std::uint32_t> listed;
  const auto isListed = [&](const CBackupEntry& entry) {
    return !listed.insert(entry.Document).second;
  };
  std::reverse(selection.List.begin(), selection.List.end());  // the last is to be kept
  std::erase_if(selection.List, isListed);
  std::reverse(selection.List.begin(), selection.List.end());
  for (const CBackupEntry& stray : selection.Strays) {
    if (!isListed(stray)) selection.List.push_back(stray);
  }
  for (const CBackupEntry& entry : selection.List) selection.TotalSize += entry.Size;
}

void CMSArchiver::PackBackupList(CSelection& selection, const CMSBackupSettings& settings) {
  std::vector<const CBackupEntry*> oldest;
  oldest.reserve(selection.List.size());
  for (const CBackupEntry& entry : selection.List) oldest.push_back(&entry);
  std::sort(oldest.begin(), oldest.end(), [](const CBackupEntry* a, const CBackupEntry* b) {
    return std::tie(a->CreationTime, a->Document) < std::tie(b->CreationTime, b->Document);
  });
  std::unordered_set<std::uint32_t> left;
  for (const CBackupEntry* entry : oldest) {
    if (selection.TotalSize <= settings.PackSize) break;
    selection.TotalSize -= entry->Size;
    left.insert(entry->Document);
  }
  std::erase_if(selection.List,
                [&](const CBackupEntry& entry) { return left.count(entry.Document) != 0; });
}

void CMSArchiver::DoBackup(const CMSMessageStore& store, const char* targetDirectory,
                           const CSelection& selection, const CMSBackupSettings& settings,
                           bool* copied) {
  ResetStatus(kCopying);
  {
    const CSharedLocker guard(m_lock);
    m_status.Listed = static_cast<std::uint32_t>(selection.List.size());
    m_status.ListedBytes = selection.TotalSize;
    m_untold = nullptr;
  }
  CMSBackupRun run(*this, store, targetDirectory, settings, copied);
  if ((settings.Options & kBackupPlanOnly) != 0) {
    run.Recognise(selection.List);
    run.TellPlan();
    return;
  }
  try {
    run.Recognise(selection.List);
    run.PlaceFolders(selection.Folders);
    while (run.HasNext()) BackupFolder(run);
    run.Finish();
  } catch (...) {
    run.Salvage();
    throw;
  }
  if (m_untold) std::rethrow_exception(m_untold);
}

void CMSArchiver::BackupFolder(CMSBackupRun& run) {
  const std::uint32_t folder = run.NextFolder();
  CMSFolder copy = run.CopyOf(folder);
  while (run.HasNext() && run.NextFolder() == folder) run.NextLetter(copy);
}

CMSFolder CMSArchiver::CloneFolder(const CMSFolder& folder, CMSFolder& parent) {
  CMSFolder copy = folder.Clone(parent);
  if (copy) return copy;
  throw XKitStatus(CMSDBException::kCorrupted,
                   KitFormat("the store '%s' cannot hold the folder '%s'",
                             parent.MS().GetMainFolder(), folder.FullName().c_str()));
}

namespace {

// Why a letter was not copied, as a callback is told.
struct CFailure {
  std::uint32_t code = 0;
  std::string text;
  bool isFull = false;  // the disk is: the next letter would fare no better
};

// Must be called while an exception is being handled; those that say nothing of one letter pass on.
CFailure FailureOfLetter() {
  try {
    throw;
  } catch (const XKitStatus& error) {
    return {static_cast<std::uint32_t>(error.Code()), error.what(), false};
  } catch (const XKitFile& error) {
    return {static_cast<std::uint32_t>(error.SystemCode()), error.what(),
            error.Why() == XKitFile::Cause::NoSpace};
  } catch (const XKitMsg& error) {
    return {0, error.what(), false};
  }
}

// A refusal of the target's says nothing by itself.
void MakeCopy(CMSLetterCopy& copy, const CMSFolder& target) {
  try {
    copy.Make();
  } catch (const CMSDocument::XCloneError&) {
    throw XKitStatus(
        CMSDBException::kWriteFailed,
        KitFormat("the target '%s' cannot hold a part of the letter", target.MS().GetMainFolder()));
  }
}

}  // namespace

std::unique_ptr<CMSLetterCopy> CMSArchiver::CloneDocument(const CMSDocument& document,
                                                          CMSFolder& target, bool hasCopy,
                                                          std::uint64_t& stamp) {
  for (bool missingFiles = false;;) {
    try {
      // Taken first: what is written to a file while it is being copied shows in the next backup.
      stamp = ImageOf(document).stamp;
      auto copy = std::make_unique<CMSLetterCopy>(document, target, missingFiles);
      MakeCopy(*copy, target);
      return copy;
    } catch (...) {
      const CFailure failure = FailureOfLetter();
      if (target.IsReadOnly()) throw;  // its medium failed
      if (!document) return {};        // another thread has deleted it: there is nothing to copy
      const int answer = Report(failure.code, document.ID(), failure.text);
      if (answer == kAnswerCancel || answer == kAnswerAbort) throw XInterrupted();
      if (answer == kAnswerRetry) continue;
      if (failure.isFull) throw;
      NoteUntold(std::current_exception());
      if (failure.code != kit::kStatusAttachmentMissing || missingFiles || hasCopy) return {};
      missingFiles = true;
    }
  }
}

// Without a callback nobody has heard of it; the first is kept for the end.
void CMSArchiver::NoteUntold(const std::exception_ptr& failure) {
  const CSharedLocker guard(m_lock);
  if (m_callback == nullptr && !m_untold) m_untold = failure;
}

void CMSArchiver::ResetStatus(std::uint32_t phase) {
  const CSharedLocker guard(m_lock);
  m_status = CStatus();
  m_status.Phase = phase;
}

void CMSArchiver::OnProgress() {
  const CSharedLocker guard(m_lock);
  if (m_callback != nullptr && !m_callback->OnProgress(m_status)) throw XInterrupted();
}

int CMSArchiver::OnError(std::uint32_t error, unsigned long detail) {
  const CSharedLocker guard(m_lock);
  m_status.Error = error;
  return m_callback != nullptr ? m_callback->OnError(m_status, detail) : kAnswerGoOn;
}

int CMSArchiver::Report(std::uint32_t error, unsigned long detail, const std::string& text) {
  const CSharedLocker guard(m_lock);
  m_errorText = text;
  m_status.ErrorText = m_errorText.c_str();
  return OnError(error, detail);
}
