// Building what follows from the records: chains and counts of the record files, indexes, links,
// packet names, the master file.
#include <algorithm>
#include <cstring>

#include "EntryFormat.h"
#include "MSFixerJob.h"
#include "PacketTable.h"
#include "corrupted.h"
#include "kit/LogDispatcher.h"
#include "platform/Profile.h"

namespace MSF {
namespace {

// Whether the chain of the free slots goes through all of them, once and both ways, as the file has
// it. A slot that was in use is in no chain.
bool IsGoodChain(const std::vector<CFreeLinks>& links, std::uint32_t first,
                 const std::vector<const CFixer::CDBEntry*>& rows) {
  const auto freeSlots = static_cast<std::size_t>(std::count(rows.begin(), rows.end(), nullptr));
  std::uint32_t previous = kNoContainer;
  std::uint32_t at = first;
  std::size_t passed = 0;
  for (; at != kNoContainer && passed < freeSlots; ++passed) {
    if (at >= rows.size() || rows[at] != nullptr) return false;
    const auto found = std::lower_bound(links.begin(), links.end(), CFreeLinks{at, 0, 0});
    if (found == links.end() || found->slot != at || found->previous != previous) return false;
    previous = at;
    at = found->next;
  }
  return passed == freeSlots && at == kNoContainer;
}

// All free slots in their order.
std::vector<CFreeLinks> NewChain(const std::vector<const CFixer::CDBEntry*>& rows) {
  std::vector<CFreeLinks> links;
  for (std::uint32_t slot = 0; slot < rows.size(); ++slot) {
    if (rows[slot] != nullptr) continue;
    if (!links.empty()) links.back().next = slot;
    links.push_back({slot, links.empty() ? kNoContainer : links.back().slot, kNoContainer});
  }
  return links;
}

bool Put(std::byte* at, const void* wanted, std::size_t size) {
  if (std::memcmp(at, wanted, size) == 0) return false;
  std::memcpy(at, wanted, size);
  return true;
}

bool IsZero(const std::byte* bytes, std::size_t size) {
  return std::all_of(bytes, bytes + size, [](std::byte byte) { return byte == std::byte{0}; });
}

}  // namespace

void CFixer::CJob::FixDataBase() {
  for (const EObjectType type : {eDocument, eAttachment, eRecipient, eFolder}) {
    CMSDBFile& file = FileOf(type);
    FixDBFile(file);
    OnProgress(file.Path().c_str(), 1, 1);
  }
}

// A chain that is good stays as it is, so that a healthy file keeps all its bytes.
void CFixer::CJob::FixDBFile(CMSDBFile& file) {
  file.Trim();
  const auto rows = RowsBySlot(file.Type());
  const CMSFileHeader stored = file.ReadHeader();
  CMSFileHeader header = stored;
  std::vector<CFreeLinks> links =
      std::move(m_freeLinks.at(static_cast<std::size_t>(&file - m_files.data())));
  std::uint32_t first = stored.FI;
  if (!IsGoodChain(links, first, rows)) {
    links = NewChain(rows);
    first = links.empty() ? kNoContainer : links.front().slot;
    Report({eRebuilt, OwnPath(file), "free chain", "", "rebuilt"},
           "chain of free objects is rebuilt (" + file.Path() + ")", 140);
  }
  const auto used =
      rows.size() - static_cast<std::size_t>(std::count(rows.begin(), rows.end(), nullptr));
  header.DO = sizeof header;
  header.TC = static_cast<std::uint32_t>(rows.size());
  header.UC = static_cast<std::uint32_t>(used);
  header.FI = used == rows.size() ? kNoContainer : first;
  header.DC = 0;
  const bool zeroes = (header.R1 & CMSFileHeader::kZeroFreed) != 0;
  auto link = links.begin();
  file.ForEachSlot([&](std::uint32_t slot, std::byte* bytes) {
    const std::size_t body = file.SlotSize() - sizeof(CMSContainerHead);
    CMSContainerHead head;
    std::memcpy(&head, bytes, sizeof head);
    if (const CDBEntry* row = rows[slot]) {
      head.previous = head.next = kNoContainer;
      head.key = row->ID;
      const LittleU32 parent = row->PID;
      const bool isHeadNew = Put(bytes, &head, sizeof head);
      return Put(bytes + sizeof head, &parent, sizeof parent) || isHeadNew;
    }
    while (link->slot != slot) ++link;
    head.previous = link->previous;
    head.next = link->next;
    if (zeroes) head.key = 0;
    const bool isHeadNew = Put(bytes, &head, sizeof head);
    if (!zeroes || IsZero(bytes + sizeof head, body)) return isHeadNew;
    std::memset(bytes + sizeof head, 0, body);
    return true;
  });
  if (std::memcmp(&header, &stored, sizeof header) == 0) return;
  if (header.TC == stored.TC && header.UC == stored.UC)
    Report({eMended, OwnPath(file), "file header", "", "mended"},
           "file header is mended (" + file.Path() + ")", 141);
  file.WriteHeader(header);
}

void CFixer::CJob::WriteState(const char* section, const char* key, const std::string& value) {
  const std::string path = Path(kMasterFile, eTemporary);
  if (platform::WriteProfileString(path, section, key, value.c_str())) return;
  throw XKitFile(XKitFile::Cause::Other, 0, path, "cannot write to '" + path + "'");
}

// From a copy of the old one, so that clients keep what they have there.
void CFixer::CJob::FixDBState() {
  BeginStep("fixing master db");
  const std::string path = Path(kMasterFile, eTemporary);
  if (Exists(kMasterFile, eOperative)) {
    CKitFile::Copy(Path(kMasterFile, eOperative), path);
    CKitFile::SetAttributes(path, platform::attribute::Archive);
  }
  CompareSize();
  WriteState("RegInfo", "LastRegNumber", std::to_string(m_lastRegNumber));
  WriteState("MessageStore", "LastID", std::to_string(m_lastID));
  WriteState("MessageStore", "Size", std::to_string(m_totalSize));
  if (!platform::WriteProfileSection(path, "ExtraFolderData", "\0") ||
      !platform::FlushProfile(path)) {
    throw XKitFile(XKitFile::Cause::Other, 0, path, "cannot write to '" + path + "'");
  }
}

// The last ID may be that of an object that is gone, the last registration number is the client's.
void CFixer::CJob::CompareSize() {
  const std::string path = Path(kMasterFile, eOperative);
  if (!CKitFile::Exists(path)) return;
  constexpr std::size_t kLongest = 16;
  const std::string stored =
      platform::ReadProfileString(path, "MessageStore", "Size", "0", kLongest);
  const std::string found = std::to_string(m_totalSize);
  if (stored == found) return;
  Report({eMended, path, "store size", stored, found},
         "store size mismatch is detected (" + path + ", " + stored + " -> " + found + ")", 145);
}

void CFixer::CJob::MarkDataBaseFixed() {
  BeginStep("dealing off DB repair requests");
  WriteState(szMaintenanceSection, szClosedStateKey, szClosedStateKeyValue);
  WriteState(szMaintenanceSection, szRepairRequestKey, "");
  const std::string path = Path(kMasterFile, eTemporary);
  if (!platform::FlushProfile(path))
    throw XKitFile(XKitFile::Cause::Other, 0, path, "cannot write to '" + path + "'");
}

void CFixer::CJob::CloseDataBase() {
  m_step = "unmounting message store";
  m_log.Step(m_step);
  for (CMSDBFile& file : m_files) file.Close();
}

namespace {

constexpr int kFolderIndex = 7;
constexpr int kRelations = 8;
constexpr int kPackets = 9;

// An entry file in the making: header, then entries in the order in which they come.
class CEntryWriter {
 public:
  CEntryWriter(const std::string& path, const CMSEntryFormat& format)
      : m_format(format),
        m_file(path, {platform::Access::ReadWrite, platform::Disposition::CreateAlways,
                      platform::Sharing::All}) {
    const LittleU32 header[] = {format.signature, kEntryVersion, format.keySize, format.valueSize};
    Add(header, format.HeaderSize());
  }
  void Entry(const void* payload) {
    const unsigned char state = kEntryLive;
    Add(&state, sizeof state);
    Add(payload, m_format.PayloadSize());
    if (m_buffer.size() >= kFlushAt) Flush();
  }
  void Finish() {
    Flush();
    m_file.Sync();
  }

 private:
  static constexpr std::size_t kFlushAt = 1 << 20;

  void Add(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const std::byte*>(data);
    m_buffer.insert(m_buffer.end(), bytes, bytes + size);
  }
  void Flush() {
    m_file.Append(m_buffer.data(), m_buffer.size());
    m_buffer.clear();
  }

  const CMSEntryFormat m_format;
  CKitFile m_file;
  std::vector<std::byte> m_buffer;
};

void TellBuilt(const char* what, const std::string& file, int line) {
  Dispatch(severity::Information, KitFormat("Repairing MS - %s is built (%s)", what, file.c_str()),
           line);
}

}  // namespace

void CFixer::CJob::CreateIndexes() {
  BeginStep("rebuilding indexes");
  CreateIndex(kFolderIndex, eFolder);
  CreateIndex(4, eDocument);
  CreateIndex(5, eAttachment);
  CreateIndex(6, eRecipient);
  CreatePacketDB();
  CreateRelationDB();
}

void CFixer::CJob::CreateIndex(int index, EObjectType type) {
  const std::string path = Path(index, eTemporary);
  CEntryWriter writer(path, kIndexFormat);
  for (const CDBEntry& row : m_table.Rows()) {
    if (row.Type != type) continue;
    const LittleU32 payload[] = {row.ID, row.Slot};
    writer.Entry(payload);
  }
  writer.Finish();
  TellBuilt("index", path, 142);
}

void CFixer::CJob::CreatePacketDB() {
  const std::string path = Path(kPackets, eTemporary);
  CEntryWriter writer(path, kPacketFormat);
  CMSDBFile& file = FileOf(eRecipient);
  const auto rows = RowsBySlot(eRecipient);
  file.ForEachSlot([&](std::uint32_t slot, const std::byte* bytes) {
    if (rows[slot] == nullptr) return false;
    CMSRecipientData record;
    std::memcpy(&record, bytes + sizeof(CMSContainerHead), sizeof record);
    if (record.TransEnvFileName[0] == '\0') return false;
    std::byte payload[kPacketFormat.PayloadSize()] = {};
    CPacketNameCodec::Encode(CPacketName::Known(record.TransEnvFileName), payload);
    const LittleU32 id = rows[slot]->ID;
    std::memcpy(payload + kPacketFormat.keySize, &id, sizeof id);
    writer.Entry(payload);
    return false;
  });
  writer.Finish();
  TellBuilt("packet DB", path, 143);
}

// The root has no parent, and no link.
void CFixer::CJob::CreateRelationDB() {
  const std::string path = Path(kRelations, eTemporary);
  std::vector<SIDInfo> links;
  links.reserve(m_table.Rows().size());
  for (const CDBEntry& row : m_table.Rows())
    if (row.ID != kRootID) links.push_back({row.PID, row.Type, row.ID});
  std::sort(links.begin(), links.end());
  CEntryWriter writer(path, kSetFormat);
  for (const SIDInfo& link : links) {
    const LittleU32 payload[] = {link.parent, static_cast<std::uint32_t>(link.type), link.child};
    writer.Entry(payload);
  }
  writer.Finish();
  TellBuilt("relation DB", path, 144);
}

}  // namespace MSF
