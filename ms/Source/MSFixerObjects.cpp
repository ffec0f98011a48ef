// Checks of objects: which of them stay, under which ID, and below which parent.
#include <algorithm>
#include <cstring>

#include "Attachment.h"
#include "AttachmentFiles.h"
#include "Doc.h"
#include "MSFixerJob.h"
#include "ObjectAccess.h"
#include "Roles.h"
#include "kit/KitFolder.h"
#include "kit/LogDispatcher.h"

namespace MSF {
namespace {

// In the order of the table of predefined folders; the index is the role's type code, and that of
// the root.
constexpr std::array kLabels{"MSROOT    ", "WMROOT    ", "INBOX     ", "OUTBOX    ",
                             "TRASH     ", "AUDIT     ", "TEMPLATES ", "DELETED   "};
constexpr std::size_t kRoot = 0;
constexpr char kRootName[] = "Root";

std::uint64_t KeyOf(EObjectType type, std::uint32_t id) {
  return static_cast<std::uint64_t>(type) << 32 | id;
}

CFixer::CUID Slot(const CFixer::CDBEntry& row) {
  return {row.ID, row.Type, row.Slot};
}

}  // namespace

// A counter of 0 stands at the root's ID, which is never issued.
std::uint32_t CFixer::CJob::IssueID() {
  if (m_lastID == 0) m_lastID = kRootID;
  if (m_lastID >= kNoID - 1) throw CTextError("object ID took invalid value 0xFFFFFFFF");
  return ++m_lastID;
}

// The counter goes on beyond the IDs that objects may have; a repair that gets there ends with the
// counter's own error.
std::uint32_t CFixer::CJob::IssueObjectID() {
  std::uint32_t id = 0;
  do {
    id = IssueID();
  } while (id > kMaxObjectID);
  return id;
}

void CFixer::CJob::EraseRows(EObjectType type, const std::vector<bool>& slots) {
  std::erase_if(m_table.Rows(), [&](const CDBEntry& row) {
    return row.Type == type && row.Slot < slots.size() && slots[row.Slot];
  });
}

// What belongs to such a letter becomes lost, and goes with the lost.
void CFixer::CJob::RollbackUncommited() {
  BeginStep("rolling back uncommited transactions");
  CMSDBFile& file = FileOf(eDocument);
  std::vector<bool> isWhole(file.SlotCount());
  file.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    isWhole[slot] = (RecordIn<CMSDocumentData>(bytes).Flag & docflag::Complete) != 0;
    return false;
  });
  std::vector<bool> rolledBack(isWhole.size());
  for (const CDBEntry& row : m_table.Rows()) {
    if (row.Type != eDocument || isWhole[row.Slot]) continue;
    rolledBack[row.Slot] = true;
    const std::string name = GetIDString(Slot(row));
    m_log.Detail("\t" + name + " : deleted.\n");
    Report({eDeleted, name, "partially created document", "", "deleted"},
           "partially created document is found (" + name + " deleted)", 120);
  }
  EraseRows(eDocument, rolledBack);
}

void CFixer::CJob::ProcessInvalidID() {
  BeginStep("checking msids");
  std::vector<CDBEntry>& rows = m_table.Rows();
  std::vector<CDBEntry> remapped;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const CDBEntry row = rows[i];
    const bool isRoot = row.Type == eFolder && row.PID == 0;
    if (row.ID == 0 || row.ID > kMaxObjectID) {
      Remap(row, row.ID, "\tinvalid msid: ", "invalid MSID object found", 121, remapped);
    } else if (row.ID == kRootID && !isRoot) {
      Remap(row, kNoID, "\tinvalid msid: ", "invalid MSID object found", 122, remapped);
    } else if (kept > 0 && rows[kept - 1].ID == row.ID) {
      Remap(row, row.ID, "\tduplicate msid: ", "duplicate MSID object found", 123, remapped);
    } else {
      rows[kept++] = row;
    }
  }
  rows.resize(kept);
  rows.insert(rows.end(), remapped.begin(), remapped.end());
  m_table.Sort();
}

// shown is the ID under which the object is known from now on as the old one: none for a false
// root, whose children stay with the true one.
void CFixer::CJob::Remap(CDBEntry row, std::uint32_t shown, const char* detail, const char* event,
                         int line, std::vector<CDBEntry>& remapped) {
  const CUID old{shown, row.Type, row.Slot};
  row.ID = IssueObjectID();
  if (row.PID == 0) row.PID = kNoID;
  m_remapped.emplace(KeyOf(old.Type, old.ID), row.ID);
  remapped.push_back(row);
  const std::string from = GetIDString(old);
  const std::string to = GetIDString(Slot(row));
  m_log.Detail(detail + from + " : mapping to " + to + "\n");
  Report({eRemapped, from, event, from, to},
         std::string(event) + " (" + from + " mapped to " + to + ")", line);
}

void CFixer::CJob::FindPredefinedFolders() {
  BeginStep("searching for predefined folders");
  m_predefined.fill({});
  CMSDBFile& file = FileOf(eFolder);
  std::vector<std::int32_t> types(file.SlotCount());
  file.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    types[slot] = RecordIn<CMSFolderData>(bytes).Type;
    return false;
  });
  for (const CDBEntry& row : m_table.Rows()) {
    if (row.Type != eFolder) continue;
    if (row.PID == 0 && row.ID != kRootID) {
      const std::string name = GetIDString(Slot(row));
      Report({eNothing, name, "duplicate root folder", "", "ignored"},
             "duplicate root folder is found (" + name + ", ignored)", 124);
    }
    const auto role = row.ID == kRootID ? kRoot : static_cast<std::size_t>(types[row.Slot]);
    const bool isRole = row.ID == kRootID || MSF::IsPredefinedType(types[row.Slot]);
    if (isRole && m_predefined.at(role).ID == 0) m_predefined.at(role) = Slot(row);
  }
  for (std::size_t role = 0; role < kLabels.size(); ++role) {
    const CUID& folder = m_predefined.at(role);
    m_log.Detail(std::string("\t") + kLabels.at(role) +
                 (folder.ID != 0 ? GetIDString(folder) : "[absent]") + "\n");
  }
  BeginStep("recreating predefined folders");
  for (std::size_t role = 0; role < kLabels.size(); ++role)
    if (m_predefined.at(role).ID == 0) CreateFolder(role);
}

void CFixer::CJob::CreateFolder(std::size_t role) {
  const auto* known =
      std::find_if(std::begin(kFolderRoles), std::end(kFolderRoles),
                   [=](const MSFolderRole& one) { return one.type == static_cast<long>(role); });
  if (role != kRoot && known == std::end(kFolderRoles))
    throw CTextError(KitFormat("Unable to determine name and props for folder of type #%u",
                               static_cast<unsigned>(role)));
  CMSFolderData record{};
  const std::string name = role == kRoot ? kRootName : known->name;
  CMSFieldAccess::PutText(record.Name, name);
  if (role != kRoot) CMSFieldAccess::PutText(record.Props, known->props);
  record.Type = static_cast<std::int32_t>(role);
  record.ParentID = role == kRoot ? 0 : kRootID;

  CMSDBFile& file = FileOf(eFolder);
  const auto rows = RowsBySlot(eFolder);
  const auto slot =
      static_cast<std::uint32_t>(std::find(rows.begin(), rows.end(), nullptr) - rows.begin());
  if (slot == rows.size()) file.Grow(kGrowthStep);
  const std::uint32_t id = role == kRoot ? kRootID : IssueObjectID();
  CMSContainerHead head;
  head.key = id;
  file.WriteHead(slot, head);
  file.WriteRecord(slot, &record);

  const CDBEntry row{id, eFolder, slot, record.ParentID};
  m_table.Insert(row);
  m_predefined.at(role) = Slot(row);
  const std::string text = GetIDString(Slot(row));
  Report({eCreated, text, "predefined folder", "absent", name},
         KitFormat("folder [%s, %u] is recreated (%s)", name.c_str(), static_cast<unsigned>(role),
                   text.c_str()),
         125);
}

namespace {

EObjectType ParentTypeOf(EObjectType type) {
  return type == eAttachment || type == eRecipient ? eDocument : eFolder;
}

}  // namespace

// 0 when there is no such parent.
std::uint32_t CFixer::CJob::ParentOf(const CDBEntry& row, EObjectType parentType) {
  const auto mapped = m_remapped.find(KeyOf(parentType, row.PID));
  if (mapped != m_remapped.end() && mapped->second != row.ID) return mapped->second;
  return m_table.FindObject({row.PID, parentType}) != nullptr ? row.PID : 0;
}

// Parents are no part of the order of rows, save between rows with one ID, which there are none of
// any more.
void CFixer::CJob::ProcessInvalidLinks() {
  BeginStep("checking references");
  std::vector<CDBEntry>& rows = m_table.Rows();
  std::vector<bool> goes(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    CDBEntry& row = rows[i];
    if (row.PID == row.ID) row.PID = kNoID;
    if (row.ID == kRootID) {
      row.PID = 0;
    } else if (const std::uint32_t parent = ParentOf(row, ParentTypeOf(row.Type)); parent != 0) {
      row.PID = parent;
    } else if (row.Type == eFolder || row.Type == eDocument) {
      Rebind(row);
    } else {
      DropLost(row);
      goes[i] = true;
    }
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i < rows.size(); ++i)
    if (!goes[i]) rows[kept++] = rows[i];
  rows.resize(kept);
  BreakLoops();
  m_fixer.m_kept = {m_table.Count(eFolder), m_table.Count(eDocument), m_table.Count(eAttachment),
                    m_table.Count(eRecipient)};
}

// By the letter's flags; a folder goes to the root.
const CFixer::CUID& CFixer::CJob::RoleFor(const CDBEntry& row) {
  if (row.Type == eFolder) return m_predefined.at(kRoot);
  CMSDocumentData record;
  FileOf(eDocument).ReadRecord(row.Slot, &record);
  const std::int32_t flag = record.Flag;
  if ((flag & docflag::Audit) != 0) return m_predefined.at(kRoleAudit);
  if ((flag & docflag::Deleted) != 0) return m_predefined.at(kRoleTrash);
  if ((flag & docflag::Incoming) != 0) return m_predefined.at(kRoleWmRoot);
  return m_predefined.at(kRoleInbox);
}

void CFixer::CJob::Rebind(CDBEntry& row) {
  const CUID& home = RoleFor(row);
  const std::string name = GetIDString(Slot(row));
  const std::string old = GetIDString(COID{row.PID, eFolder});
  const std::string now = GetIDString(home);
  m_log.Detail("\tinvalid reference: " + name + " : object PID=" + old + " rebound to " + now +
               "\n");
  Report({eRebound, name, "lost object", old, now},
         "lost object found (" + name + ", PID = " + old + " rebound to " + now + ")", 126);
  row.PID = home.ID;
}

// Folders below themselves are as lost as those below nothing: of each circle one goes to the root.
void CFixer::CJob::BreakLoops() {
  std::unordered_map<std::uint32_t, std::uint32_t> parents;
  for (const CDBEntry& row : m_table.Rows())
    if (row.Type == eFolder) parents.emplace(row.ID, row.PID);
  std::unordered_map<std::uint32_t, std::uint32_t> passedBy;  // the folder that the climb began at
  for (CDBEntry& row : m_table.Rows()) {
    if (row.Type != eFolder) continue;
    std::uint32_t at = row.ID;
    while (at != kRootID && passedBy.emplace(at, row.ID).second) at = parents[at];
    if (at == kRootID || passedBy[at] != row.ID) continue;
    // The climb came round to where it had been: at lies on a circle.
    CDBEntry* const member = m_table.FindObject({at, eFolder});
    Rebind(*member);
    parents[at] = kRootID;
  }
}

// An attachment or recipient without its letter.
void CFixer::CJob::DropLost(const CDBEntry& row) {
  const std::string name = GetIDString(Slot(row));
  const std::string parent = GetIDString(COID{row.PID, eDocument});
  m_log.Detail("\tinvalid reference: " + name + " : object PID=" + parent + " deleted\n");
  Report({eDeleted, name, "lost object", parent, "deleted"},
         "lost object found (" + name + ", PID = " + parent + " deleted)", 127);
  if (row.Type == eAttachment && m_job == eRepair) SaveFile(row);
}

}  // namespace MSF
