#include "BackupRun.h"

#include "BackupTarget.h"
#include "Roles.h"
#include "StoreOf.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

namespace {

constexpr std::uint32_t kLettersPerPromise = 100;
constexpr std::uint32_t kRoot = 1;

bool IsSame(const platform::FileInfo& one, const platform::FileInfo& other) {
  return one.kind != platform::FileKind::None && one.stamp.device == other.stamp.device &&
         one.stamp.file == other.stamp.file;
}

// Whether the path is the directory or lies, or would lie, below it: by what is there, wherever
// links lead.
bool LiesWithin(const std::string& path, const std::string& directory) {
  const platform::FileInfo wanted = CKitFile::Info(directory);
  std::string at = CKitFolder::NearestExisting(path);
  for (;;) {
    const platform::FileInfo here = CKitFile::Info(at);
    if (IsSame(here, wanted)) return true;
    at = CKitFile::Join(at, "..");
    if (IsSame(here, CKitFile::Info(at))) return false;  // the top
  }
}

}  // namespace

CMSBackupRun::CMSBackupRun(CMSArchiver& archiver, const CMSMessageStore& source,
                           const std::string& directory, const CMSBackupSettings& settings,
                           bool* copied)
    : m_archiver(archiver), m_source(source), m_settings(settings), m_copied(copied) {
  if (LiesWithin(directory, source.GetMainFolder())) {
    throw XKitStatus(kit::kStatusInvalidArgument, "the backup '" + directory +
                                                      "' would lie within the store '" +
                                                      source.GetMainFolder() + "' itself");
  }
  OpenTarget(directory);
}

void CMSBackupRun::OpenTarget(const std::string& directory) {
  const bool isPlan = Has(kBackupPlanOnly);
  if (!isPlan) {
    m_target = OpenBackupTarget(directory);
  } else if (CMSMessageStore::IsMSDirectory(directory.c_str())) {
    CKeyCarrier keys;
    CGroupID group;
    m_target = CMSMessageStore(directory.c_str(), keys, nullptr, group, false, true, nullptr, "");
  }
  if (m_target.IsValid() && !m_target.Root()) {
    throw CMSDBException(CMSDBException::kCorrupted,
                         "the store '" + directory + "' has no root folder; it needs a repair");
  }
  const bool isMapped = m_target.IsValid() && !Has(kBackupAddOnly);
  m_map = isMapped ? std::make_unique<CMSBackupMap>(m_target.GetMainFolder())
                   : std::make_unique<CMSBackupMap>();
  if (isPlan) return;
  m_batch = std::make_unique<CMSBatch>(m_target);
  FinishLastRun();
}

void CMSBackupRun::FinishLastRun() {
  for (CMSBackupMap::Entry entry : m_map->Entries()) {
    if (entry.superseded == 0) continue;
    if (m_target.GetDocument(entry.target)) Delete(entry.superseded);
    entry.superseded = 0;
    m_map->Put(entry);
  }
}

void CMSBackupRun::Recognise(const std::vector<CMSArchiver::CBackupEntry>& list) {
  m_list = list;
  std::vector<std::uint32_t> letters;
  letters.reserve(list.size());
  for (const auto& entry : list) letters.push_back(entry.Document);
  CMSBackupRecognition recognition(m_source, m_target, *m_map, [this] {
    {
      const CSharedLocker guard(m_archiver.m_lock);
      ++m_archiver.m_status.Compared;
    }
    m_archiver.OnProgress();
  });
  m_decisions = recognition.Decide(letters);
  m_remains = recognition.Remains();
  m_mayRemove = recognition.MayRemove();
  if (!recognition.IsMapOfSource()) m_map->Clear();
}

void CMSBackupRun::TellPlan() {
  using Way = CMSBackupDecision::Way;
  using Status = CMSArchiver::CStatus;
  for (std::size_t i = 0; i < m_list.size(); ++i) {
    const CMSBackupDecision& decision = m_decisions[i];
    auto counter = decision.way == Way::Copy      ? &Status::Copied
                   : decision.way == Way::Replace ? &Status::Replaced
                                                  : &Status::Unchanged;
    const auto* folder = m_map->Find(CMSObjectType::Folder, m_list[i].Folder);
    if (decision.way == Way::Keep && folder != nullptr &&
        m_target.GetDocument(decision.target).ParentID() != folder->target) {
      counter = &Status::Moved;
    }
    Count(counter, m_list[i].Size);
  }
  if (!m_mayRemove) return;
  std::unordered_set<std::uint32_t> living;
  for (const auto& decision : m_decisions) living.insert(decision.target);
  for (const auto& entry : LettersGone(living)) {
    const bool goes = living.count(entry.target) == 0 && GoesWithLetter(entry.target);
    if (goes && m_target.GetDocument(entry.target)) CountRemoved();
  }
  m_archiver.OnProgress();
}

CMSFolder CMSBackupRun::CopyOf(std::uint32_t folder) const {
  const auto found = m_folders.find(folder);
  return found == m_folders.end() ? CMSFolder() : found->second;
}

// Copies that the map gives to folders which live are for these alone.
void CMSBackupRun::ReserveFolders() {
  for (const auto& entry : m_map->Entries()) {
    if (entry.kind == CMSObjectType::Folder && m_source.GetFolder(entry.source))
      m_reserved.insert(entry.target);
  }
}

void CMSBackupRun::PlaceFolders(const std::vector<CMSArchiver::CFolderEntry>& folders) {
  ReserveFolders();
  CMSFolder root = m_target.Root();
  CMSFolder nowhere;
  if (!Has(kBackupAddOnly)) Align(root, m_source.Root(), nowhere);
  m_folders.emplace(kRoot, root);
  m_taken.insert(root.ID());
  for (const auto& entry : folders) {
    const CMSFolder folder = m_source.GetFolder(entry.Folder);
    if (!folder) continue;
    try {
      PlaceFolder(folder, entry);
    } catch (const XKitStatus&) {
      if (folder) throw;  // else another thread has deleted it
    }
  }
  Settle();
}

// A folder belongs where it says, if that is backed up, else where it was found.
void CMSBackupRun::PlaceFolder(const CMSFolder& folder, const CMSArchiver::CFolderEntry& entry) {
  CMSFolder parent = CopyOf(static_cast<std::uint32_t>(folder.ParentID()));
  if (!parent) parent = CopyOf(entry.Under);
  if (!parent) return;
  CMSFolder copy = FindFolder(folder, parent);
  if (!copy) {
    copy = m_archiver.CloneFolder(folder, parent);
  } else if (!Has(kBackupAddOnly)) {
    Align(copy, folder, parent);
  }
  m_folders.emplace(entry.Folder, copy);
  m_taken.insert(copy.ID());
  if (Has(kBackupAddOnly)) return;
  m_map->Put({CMSObjectType::Folder, entry.Folder, static_cast<std::uint32_t>(copy.ID()), 0, 0});
}

CMSFolder CMSBackupRun::FindFolder(const CMSFolder& folder, const CMSFolder& parent) {
  const auto* entry = m_map->Find(CMSObjectType::Folder, static_cast<std::uint32_t>(folder.ID()));
  if (entry != nullptr && m_taken.count(entry->target) == 0) {
    if (CMSFolder copy = m_target.GetFolder(entry->target)) return copy;
  }
  return AmongChildren(folder, parent);
}

// A predefined folder is known by its type, any other by its name.
CMSFolder CMSBackupRun::AmongChildren(const CMSFolder& folder, const CMSFolder& parent) const {
  const long type = folder.Type();
  const bool isPredefined = parent.IsRoot() && MSF::IsPredefinedType(type);
  CMSFolder namesake;
  CMSFolder child;
  for (auto place = parent.GetFirstFolderPosition(); parent.GetNextFolder(child, place);) {
    if (m_taken.count(child.ID()) != 0 || m_reserved.count(child.ID()) != 0) continue;
    if (isPredefined && child.Type() == type) return child;
    const bool isBetter = !namesake || (child.Type() == type && namesake.Type() != type);
    if (child.Name() == folder.Name() && isBetter) namesake = child;
  }
  return namesake;
}

// No folder can get below itself here: all that lies above parent has been placed already.
void CMSBackupRun::Align(CMSFolder& copy, const CMSFolder& folder, CMSFolder& parent) {
  if (parent && copy.ParentID() != parent.ID()) copy.Move(parent);
  if (copy.Name() != folder.Name()) copy.Name(folder.Name());
  if (copy.Props() != folder.Props()) copy.Props(folder.Props());
  if (copy.Type() != folder.Type()) copy.Type(folder.Type());
}

void CMSBackupRun::NextLetter(CMSFolder& folder) {
  using Way = CMSBackupDecision::Way;
  const CMSArchiver::CBackupEntry& entry = m_list[m_next];
  const CMSBackupDecision& decision = m_decisions[m_next];
  ++m_next;
  if (decision.way == Way::Gone || !m_source.GetDocument(entry.Document)) {
    Count(&CMSArchiver::CStatus::Unchanged, entry.Size);
  } else if (!folder) {
    const XKitStatus failure(kit::kStatusInvalidHandle,
                             "the letter's folder went while it was being backed up");
    m_archiver.Report(kit::kStatusInvalidHandle, entry.Document, failure.what());
    m_archiver.NoteUntold(std::make_exception_ptr(failure));
    Count(&CMSArchiver::CStatus::Failed, entry.Size);
  } else if (decision.way == Way::Keep) {
    Keep(entry, decision, folder);
  } else {
    Copy(entry, decision, folder);
  }
  const std::uint32_t limit = m_settings.LettersPerPromise;
  if (m_unsettled >= (limit != 0 ? limit : kLettersPerPromise)) Settle();
}

void CMSBackupRun::Keep(const CMSArchiver::CBackupEntry& entry, const CMSBackupDecision& decision,
                        CMSFolder& folder) {
  CMSDocument copy = m_target.GetDocument(decision.target);
  const bool moves = !Has(kBackupAddOnly) && copy.ParentID() != folder.ID();
  if (moves) {
    copy.Move(folder);
    ++m_unsettled;
  }
  Remember(entry.Document, decision.target, decision.superseded, decision.stamp);
  Count(moves ? &CMSArchiver::CStatus::Moved : &CMSArchiver::CStatus::Unchanged, entry.Size);
}

void CMSBackupRun::Copy(const CMSArchiver::CBackupEntry& entry, const CMSBackupDecision& decision,
                        CMSFolder& folder) {
  const CMSDocument letter = m_source.GetDocument(entry.Document);
  if (!letter) return Count(&CMSArchiver::CStatus::Unchanged, entry.Size);
  const bool replaces = decision.way == CMSBackupDecision::Way::Replace;
  MarkBegun();
  std::uint64_t stamp = 0;
  auto copy = m_archiver.CloneDocument(letter, folder, replaces, stamp);
  if (!copy) {
    using Status = CMSArchiver::CStatus;
    return Count(letter ? &Status::Failed : &Status::Unchanged, entry.Size);
  }
  const auto id = static_cast<std::uint32_t>(copy->Letter().ID());
  m_unfinished.push_back(std::move(copy));
  if (m_copied != nullptr) *m_copied = true;
  ++m_unsettled;
  Remember(entry.Document, id, decision.superseded, stamp);
  Count(replaces ? &CMSArchiver::CStatus::Replaced : &CMSArchiver::CStatus::Copied, entry.Size);
}

void CMSBackupRun::Remember(std::uint32_t document, std::uint32_t copy, std::uint32_t superseded,
                            std::uint64_t stamp) {
  if (Has(kBackupAddOnly)) return;
  const CMSBackupMap::Entry entry{CMSObjectType::Document, document, copy, superseded, stamp};
  m_map->Put(entry);
  if (superseded != 0) m_stale.push_back(entry);
}

void CMSBackupRun::Count(std::uint32_t CMSArchiver::CStatus::*counter, std::uint64_t bytes) {
  {
    const CSharedLocker guard(m_archiver.m_lock);
    CMSArchiver::CStatus& status = m_archiver.m_status;
    ++(status.*counter);
    ++status.Done;
    status.DoneBytes += bytes;
  }
  m_archiver.OnProgress();
}

// What a crash leaves of a copy starts behind this mark.
void CMSBackupRun::MarkBegun() {
  if (Has(kBackupAddOnly) || m_map->UnfinishedSince() != 0) return;
  m_map->MarkUnfinished(StoreOf(m_target.Root()).LastID());
  m_map->Save();
}

// What cannot be deleted, since a crash has damaged it, is a repair's business; the backup goes on.
template <class Body>
bool CMSBackupRun::Try(Body body) {
  try {
    return body();
  } catch (const XKitMsg& error) {
    if (m_target.IsReadOnly()) throw;
    LogEvent(severity::Error, error.what(), "ms\\Source\\BackupRun", 2);
    return false;
  }
}

bool CMSBackupRun::Delete(std::uint32_t document) {
  return Try([&] {
    CMSDocument copy = m_target.GetDocument(document);
    CMSFolder folder = copy ? copy.Parent() : CMSFolder();
    if (!folder) return false;
    folder.DeleteDocument(copy);
    return true;
  });
}

bool CMSBackupRun::RemoveFolder(CMSFolder& folder) {
  return Try([&] {
    CMSFolder parent = folder.Parent();
    if (!parent || !folder.IsEmpty()) return false;
    parent.DeleteFolder(folder);
    return true;
  });
}

// The copies first, then their mark, then the map that names them, then what it has made
// superfluous.
void CMSBackupRun::Settle() {
  m_batch->Commit();
  for (const auto& copy : m_unfinished) copy->Finish();
  if (!m_unfinished.empty()) m_batch->Commit();
  for (const auto& copy : m_unfinished) copy->Keep();
  m_unfinished.clear();
  m_unsettled = 0;
  if (Has(kBackupAddOnly)) return;
  m_map->Save();
  for (CMSBackupMap::Entry& entry : m_stale) {
    Delete(entry.superseded);
    entry.superseded = 0;
    m_map->Put(entry);
  }
  m_stale.clear();
}

// Entries of letters that the source has no more; adds the copies of all others. One look at each:
// other threads may be deleting.
std::vector<CMSBackupMap::Entry> CMSBackupRun::LettersGone(
    std::unordered_set<std::uint32_t>& living) {
  std::vector<CMSBackupMap::Entry> gone;
  for (const auto& entry : m_map->Entries()) {
    if (entry.kind != CMSObjectType::Document) continue;
    if (m_source.GetDocument(entry.source))
      living.insert(entry.target);
    else
      gone.push_back(entry);
  }
  return gone;
}

void CMSBackupRun::CountRemoved() {
  const CSharedLocker guard(m_archiver.m_lock);
  ++m_archiver.m_status.Removed;
}

// A letter that was copied while another thread was making it, and was deleted before it was copied
// again, has never been whole, so its copy goes in any case.
bool CMSBackupRun::GoesWithLetter(std::uint32_t document) {
  if (Has(kBackupMirror)) return true;
  try {
    const CMSDocument copy = m_target.GetDocument(document);
    return copy && !copy.IsAction(docflag::Complete);
  } catch (const XKitMsg&) {
    return false;  // one that cannot be read is a repair's business
  }
}

// A copy that is another letter's by now stays.
void CMSBackupRun::RemoveLost() {
  std::unordered_set<std::uint32_t> living;
  for (const auto& entry : LettersGone(living)) {
    const bool isOthers = living.count(entry.target) != 0;
    const bool goes = !isOthers && GoesWithLetter(entry.target);
    if (goes && Delete(entry.target)) CountRemoved();
    if (goes || isOthers) m_map->Drop(entry.kind, entry.source);
  }
  if (Has(kBackupMirror)) RemoveLostFolders();
}

// From the leaves up: a folder goes once nothing is left in it.
void CMSBackupRun::RemoveLostFolders() {
  for (bool changed = true; changed;) {
    changed = false;
    for (const auto& entry : m_map->Entries()) {
      if (entry.kind != CMSObjectType::Folder || m_source.GetFolder(entry.source)) continue;
      CMSFolder copy = m_target.GetFolder(entry.target);
      if (copy && m_taken.count(copy.ID()) == 0 && !RemoveFolder(copy)) continue;
      m_map->Drop(entry.kind, entry.source);
      changed = true;
    }
  }
}

void CMSBackupRun::Finish() {
  Settle();
  if (Has(kBackupAddOnly)) return;
  for (const std::uint32_t letter : m_remains) Delete(letter);
  if (m_mayRemove) {
    RemoveLost();
    m_archiver.OnProgress();
  }
  m_map->MarkUnfinished(0);
  Settle();
}

void CMSBackupRun::Salvage() {
  try {
    Settle();
  } catch (const std::exception& error) {
    LogEvent(severity::Error, error.what(), "ms\\Source\\BackupRun", 1);
  }
}
