// Checks of what records say about each other: counts, sizes, bodies; and of their texts.
#include <cstring>

#include "Attachment.h"
#include "Doc.h"
#include "MSFixerJob.h"
#include "RecordTexts.h"

namespace MSF {
namespace {

std::string NameOf(const CFixer::CDBEntry& row) {
  return GetIDString(CFixer::COID{row.ID, row.Type});
}

}  // namespace

// Null for a slot that is free by now.
std::vector<const CFixer::CDBEntry*> CFixer::CJob::RowsBySlot(EObjectType type) {
  std::vector<const CDBEntry*> rows(FileOf(type).SlotCount());
  for (const CDBEntry& row : m_table.Rows())
    if (row.Type == type) rows[row.Slot] = &row;
  return rows;
}

void CFixer::CJob::BuildIndexes() {
  for (const CDBEntry& row : m_table.Rows()) {
    switch (row.Type) {
      case eAttachment:
        ++m_sums[row.PID].attachments;
        break;
      case eRecipient:
        ++m_sums[row.PID].recipients;
        break;
      case eDocument:
        ++m_children[row.PID][0];
        break;
      case eFolder:
        if (row.ID != kRootID) ++m_children[row.PID][1];
        break;
    }
  }
}

void CFixer::CJob::FixData() {
  BeginStep("fixing data");
  EndTextsOf<CMSRecipientData>(eRecipient);
  EndTextsOf<CMSAttachmentData>(eAttachment);
  FixAttachmentFiles();
  SumAttachments();
  FixDocumentData();
  FixFolderData();
}

template <class T>
void CFixer::CJob::EndTextsOf(EObjectType type) {
  CMSDBFile& file = FileOf(type);
  const auto rows = RowsBySlot(type);
  file.ForEachSlot([&](std::uint32_t slot, std::byte* bytes) {
    if (rows[slot] == nullptr) return false;
    T record = RecordIn<T>(bytes);
    if (!EndTexts(record)) return false;
    const std::string name = NameOf(*rows[slot]);
    m_log.Detail("\t" + name + " text without end\n");
    Report({eMended, name, "text without end", "", ""},
           "text without end is detected (" + name + ")", 130);
    PutRecord(bytes, record);
    return true;
  });
  OnProgress(file.Path().c_str(), rows.size(), rows.size());
}

void CFixer::CJob::SumAttachments() {
  CMSDBFile& letters = FileOf(eDocument);
  const auto letterRows = RowsBySlot(eDocument);
  letters.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    if (letterRows[slot] != nullptr)
      m_sums[letterRows[slot]->ID].storedBody = RecordIn<CMSDocumentData>(bytes).BodyID;
    return false;
  });
  CMSDBFile& file = FileOf(eAttachment);
  const auto rows = RowsBySlot(eAttachment);
  file.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    const CDBEntry* row = rows[slot];
    if (row == nullptr) return false;
    const auto record = RecordIn<CMSAttachmentData>(bytes);
    CSums& sums = m_sums[row->PID];
    sums.size += static_cast<std::uint32_t>(std::int32_t{record.Size});
    if ((record.Flag & attachmentflag::Encrypted) != 0) sums.isEncrypted = true;
    if ((record.Flag & attachmentflag::Body) == 0) return false;
    if (row->ID == sums.storedBody) sums.keepsBody = true;
    if (sums.body == 0 || row->ID < sums.body) sums.body = row->ID;
    return false;
  });
}

bool CFixer::CJob::FixNumber(const CDBEntry& row, const char* field, const char* event,
                             std::uint32_t& stored, std::uint32_t found, int line) {
  const std::uint32_t value = stored;
  if (value == found) return false;
  const std::string name = NameOf(row);
  m_log.Detail(KitFormat("\t%s %s(%u -> %u)\n", name.c_str(), field, value, found));
  Report({eMended, name, event, std::to_string(value), std::to_string(found)},
         KitFormat("%s mismatch is detected (%s, %u -> %u)", event, name.c_str(), value, found),
         line);
  stored = found;
  return true;
}

// The body that a letter names stays, if it is one of its own that says so itself.
bool CFixer::CJob::FixDocument(const CDBEntry& row, CMSDocumentData& record) {
  const CSums& sums = m_sums[row.ID];
  bool changed = EndTexts(record);
  if (changed) {
    m_log.Detail("\t" + NameOf(row) + " text without end\n");
    Report({eMended, NameOf(row), "text without end", "", ""},
           "text without end is detected (" + NameOf(row) + ")", 131);
  }
  const std::uint32_t body = sums.keepsBody ? sums.storedBody : sums.body;
  std::uint32_t bodyID = record.BodyID;
  std::uint32_t size = record.Size;
  std::uint32_t attachments = static_cast<std::uint32_t>(std::int32_t{record.AttachmentCount});
  std::uint32_t recipients = static_cast<std::uint32_t>(std::int32_t{record.RecipientCount});
  std::uint32_t flag = static_cast<std::uint32_t>(std::int32_t{record.Flag});
  constexpr auto kEncrypted = static_cast<std::uint32_t>(docflag::Encrypted);
  const std::uint32_t wantedFlag = (flag & ~kEncrypted) | (sums.isEncrypted ? kEncrypted : 0U);
  const bool fixed[] = {
      FixNumber(row, "body", "document body", bodyID, body, 132),
      FixNumber(row, "size", "object size", size, sums.size, 133),
      FixNumber(row, "attachment_count", "attachment count", attachments, sums.attachments, 134),
      FixNumber(row, "recipient_count", "recipient count", recipients, sums.recipients, 135),
      FixNumber(row, "flag", "document flag", flag, wantedFlag, 136)};
  for (const bool one : fixed) changed = changed || one;
  record.BodyID = bodyID;
  record.Size = size;
  record.AttachmentCount = static_cast<std::int32_t>(attachments);
  record.RecipientCount = static_cast<std::int32_t>(recipients);
  record.Flag = static_cast<std::int32_t>(flag);
  return changed;
}

void CFixer::CJob::FixDocumentData() {
  CMSDBFile& file = FileOf(eDocument);
  const auto rows = RowsBySlot(eDocument);
  file.ForEachSlot([&](std::uint32_t slot, std::byte* bytes) {
    if (rows[slot] == nullptr) return false;
    auto record = RecordIn<CMSDocumentData>(bytes);
    const bool changed = FixDocument(*rows[slot], record);
    if (changed) PutRecord(bytes, record);
    m_totalSize += record.Size;
    const std::int32_t number = record.RegNum;
    if (number > 0) m_lastRegNumber = std::max(m_lastRegNumber, static_cast<std::uint32_t>(number));
    return changed;
  });
  OnProgress(file.Path().c_str(), rows.size(), rows.size());
}

void CFixer::CJob::FixFolderData() {
  EndTextsOf<CMSFolderData>(eFolder);
  CMSDBFile& file = FileOf(eFolder);
  const auto rows = RowsBySlot(eFolder);
  file.ForEachSlot([&](std::uint32_t slot, std::byte* bytes) {
    if (rows[slot] == nullptr) return false;
    auto record = RecordIn<CMSFolderData>(bytes);
    const auto& found = m_children[rows[slot]->ID];
    auto documents = static_cast<std::uint32_t>(std::int32_t{record.DocumentCount});
    auto folders = static_cast<std::uint32_t>(std::int32_t{record.FolderCount});
    const bool fixedDocuments =
        FixNumber(*rows[slot], "document_count", "document count", documents, found[0], 137);
    const bool fixedFolders =
        FixNumber(*rows[slot], "folder_count", "folder count", folders, found[1], 138);
    if (!fixedDocuments && !fixedFolders) return false;
    record.DocumentCount = static_cast<std::int32_t>(documents);
    record.FolderCount = static_cast<std::int32_t>(folders);
    PutRecord(bytes, record);
    return true;
  });
}

}  // namespace MSF
