#include "BackupRun.h"

#include "BackupTarget.h"
#include "Roles.h"
#include "kit/KitFile.h"
#include "kit/LogDispatcher.h"

namespace {

constexpr std::uint32_t kLettersPerPromise = 100;
constexpr std::uint32_t kRoot = 1;

// Whether the path is the directory or lies below it, by the identity of what is there.
bool LiesWithin(const std::string& path, const std::string& directory) {
  const auto ofDirectory = CKitFile::Info(directory).stamp;
  for (std::string at = CKitFile::FullName(path);;) {
    const auto here = CKitFile::Info(at);
    if (here.kind != platform::FileKind::None && here.stamp.device == ofDirectory.device &&
        here.stamp.file == ofDirectory.file) {
      return true;
    }
    std::string above = CKitFile::DirectoryName(at);
    if (above.empty() || above == at) return false;
    at = std::move(above);
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
  m_map = std::make_unique<CMSBackupMap>(isMapped ? m_target.GetMainFolder() : "");
  if (isPlan) return;
  m_batch = std::make_unique<CMSBatch>(m_target);
  FinishLastRun();
}

void CMSBackupRun::FinishLastRun() {
  for (CMSBackupMap::Entry entry : m_map->Entries()) {
    if (entry.superseded == 0) continue;
    if (entry.kind == CMSObjectType::Document && m_target.GetDocument(entry.target)) {
      Delete(entry.superseded);
    }
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
  for (const auto& decision : m_decisions) m_letters.insert(decision.target);
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
  if (!Has(kBackupMirror)) return;
  for (const auto& entry : m_map->Entries()) {
    if (IsLost(entry) && m_target.GetDocument(entry.target)) CountRemoved();
  }
  m_archiver.OnProgress();
}

CMSFolder CMSBackupRun::CopyOf(std::uint32_t folder) const {
  const auto found = m_folders.find(folder);
  return found == m_folders.end() ? CMSFolder() : found->second;
}

void CMSBackupRun::PlaceFolders(const std::vector<std::uint32_t>& folders) {
  for (const std::uint32_t id : folders) {
    if (const auto* entry = m_map->Find(CMSObjectType::Folder, id))
      m_reserved.insert(entry->target);
  }
  const CMSFolder sourceRoot = m_source.Root();
  CMSFolder root = m_target.Root();
  CMSFolder nowhere;
  if (!Has(kBackupAddOnly)) Align(root, sourceRoot, nowhere);
  m_folders.emplace(kRoot, root);
  m_taken.insert(root.ID());
  for (const std::uint32_t id : folders) {
    const CMSFolder folder = m_source.GetFolder(id);
    CMSFolder parent = folder ? CopyOf(static_cast<std::uint32_t>(folder.ParentID())) : CMSFolder();
    if (!parent) continue;
    CMSFolder copy = FindFolder(folder, parent);
    if (!copy) {
      copy = m_archiver.CloneFolder(folder, parent);
    } else if (!Has(kBackupAddOnly)) {
      Align(copy, folder, parent);
    }
    m_folders.emplace(id, copy);
    m_taken.insert(copy.ID());
    if (!Has(kBackupAddOnly)) {
      m_map->Put({CMSObjectType::Folder, id, static_cast<std::uint32_t>(copy.ID()), 0, 0});
    }
  }
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
  const bool isPredefined =
      parent.IsRoot() && type >= MSF::kRoleWmRoot && type <= MSF::kRoleDeleted;
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
  if (decision.way == Way::Gone || !folder) {
    Count(&CMSArchiver::CStatus::Unchanged, entry.Size);
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
  std::uint64_t stamp = 0;
  auto copy = m_archiver.CloneDocument(letter, folder, replaces, stamp);
  if (!copy) return Count(&CMSArchiver::CStatus::Failed, entry.Size);
  const auto id = static_cast<std::uint32_t>(copy->Letter().ID());
  m_unfinished.push_back(std::move(copy));
  if (m_copied != nullptr) *m_copied = true;
  ++m_unsettled;
  m_letters.insert(id);
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

bool CMSBackupRun::Delete(std::uint32_t document) {
  CMSDocument copy = m_target.GetDocument(document);
  CMSFolder folder = copy ? copy.Parent() : CMSFolder();
  if (!folder) return false;
  folder.DeleteDocument(copy);
  return true;
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

// The source has the letter no more, and no other letter of it was found to be the same.
bool CMSBackupRun::IsLost(const CMSBackupMap::Entry& entry) {
  return entry.kind == CMSObjectType::Document && !m_source.GetDocument(entry.source) &&
         m_letters.count(entry.target) == 0;
}

void CMSBackupRun::CountRemoved() {
  const CSharedLocker guard(m_archiver.m_lock);
  ++m_archiver.m_status.Removed;
}

void CMSBackupRun::RemoveLost() {
  for (const auto& entry : m_map->Entries()) {
    if (entry.kind != CMSObjectType::Document || m_source.GetDocument(entry.source)) continue;
    if (IsLost(entry) && Delete(entry.target)) CountRemoved();
    m_map->Drop(entry.kind, entry.source);
  }
  RemoveLostFolders();
}

// From the leaves up: a folder goes once nothing is left in it.
void CMSBackupRun::RemoveLostFolders() {
  for (bool changed = true; changed;) {
    changed = false;
    for (const auto& entry : m_map->Entries()) {
      if (entry.kind != CMSObjectType::Folder || m_source.GetFolder(entry.source)) continue;
      CMSFolder copy = m_target.GetFolder(entry.target);
      if (copy && m_taken.count(copy.ID()) == 0) {
        if (!copy.IsEmpty()) continue;
        copy.Parent().DeleteFolder(copy);
      }
      m_map->Drop(entry.kind, entry.source);
      changed = true;
    }
  }
}

void CMSBackupRun::Finish() {
  Settle();
  if (Has(kBackupAddOnly)) return;
  for (const std::uint32_t letter : m_remains) Delete(letter);
  if (Has(kBackupMirror)) {
    RemoveLost();
    m_archiver.OnProgress();
  }
  Settle();
}

void CMSBackupRun::Salvage() {
  try {
    Settle();
  } catch (const XKitMsg& error) {
    LogEvent(severity::Error, error.what(), "ms\\Source\\BackupRun", 1);
  }
}
