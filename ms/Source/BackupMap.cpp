#include "BackupMap.h"

#include <algorithm>
#include <cstring>

#include "Format.h"
#include "kit/Hash64.h"
#include "kit/KitFile.h"

namespace {

constexpr char kFileName[] = "archive3.map";
constexpr char kNewFileName[] = "archive3.new";
constexpr char kHeader[] = "ms backup map 1\n";
constexpr std::size_t kHeaderSize = sizeof kHeader - 1;
// The kind of the one entry that tells of a backup under way.
constexpr CMSObjectType kRunMark{0};
// Outdated entries that are not worth a rewriting.
constexpr std::size_t kSlack = 1024;
constexpr std::size_t kBlockEntries = 4096;

struct Slot {
  LittleU32 kind;
  LittleU32 source;
  LittleU32 target;
  LittleU32 superseded;
  LittleU64 stamp;
  LittleU64 check;
};
static_assert(kHeaderSize == 16 && sizeof(Slot) == 32);

// With its place, so that no entry passes for another.
std::uint64_t CheckOf(const Slot& slot, std::size_t number) {
  return CHash64().Add(std::uint64_t{number}).Add(&slot, offsetof(Slot, check)).Value();
}

Slot Encode(const CMSBackupMap::Entry& entry, std::size_t number) {
  Slot slot{static_cast<std::uint32_t>(entry.kind),
            entry.source,
            entry.target,
            entry.superseded,
            entry.stamp,
            0};
  slot.check = CheckOf(slot, number);
  return slot;
}

bool Decode(const Slot& slot, std::size_t number, CMSBackupMap::Entry& entry) {
  if (slot.check != CheckOf(slot, number)) return false;
  entry = {static_cast<CMSObjectType>(std::uint32_t{slot.kind}), slot.source, slot.target,
           slot.superseded, slot.stamp};
  return entry.kind == CMSObjectType::Document || entry.kind == CMSObjectType::Folder ||
         entry.kind == kRunMark;
}

std::uint64_t Key(CMSObjectType kind, std::uint32_t id) {
  return static_cast<std::uint64_t>(kind) << 32 | id;
}

void WriteSlots(CKitFile& file, const std::vector<CMSBackupMap::Entry>& entries,
                std::size_t first) {
  std::vector<Slot> slots;
  slots.reserve(entries.size());
  for (const auto& entry : entries) slots.push_back(Encode(entry, first + slots.size()));
  file.Write(kHeaderSize + first * sizeof(Slot), slots.data(), slots.size() * sizeof(Slot));
}

}  // namespace

CMSBackupMap::CMSBackupMap(const std::string& directory)
    : m_directory(directory), m_path(CKitFile::Join(directory, kFileName)) {
  if (CKitFile::Exists(m_path)) Read();
}

void CMSBackupMap::Read() {
  CKitFile file(m_path, {platform::Access::Read, platform::Disposition::OpenExisting,
                         platform::Sharing::All});
  char header[kHeaderSize];
  if (file.Read(0, header, sizeof header) != sizeof header ||
      std::memcmp(header, kHeader, sizeof header) != 0) {
    return;
  }
  m_isWhole = true;
  std::vector<Slot> block(kBlockEntries);
  for (;;) {
    const std::size_t bytes =
        file.Read(kHeaderSize + m_slots * sizeof(Slot), block.data(), block.size() * sizeof(Slot));
    const std::size_t count = bytes / sizeof(Slot);
    for (std::size_t i = 0; i < count; ++i, ++m_slots) {
      Entry entry;
      if (!Decode(block[i], m_slots, entry)) return;
      Apply(entry);
    }
    if (count < block.size()) return;
  }
}

void CMSBackupMap::Apply(const Entry& entry) {
  if (entry.kind == kRunMark) {
    m_unfinishedSince = entry.target;
    return;
  }
  const std::uint64_t key = Key(entry.kind, entry.source);
  const auto count = [&](const Entry& one, bool add) {
    for (const std::uint32_t id : {one.target, one.superseded}) {
      if (id == 0) continue;
      const std::uint64_t target = Key(one.kind, id);
      if (add)
        m_targets.insert(target);
      else
        m_targets.erase(m_targets.find(target));
    }
  };
  if (const auto old = m_entries.find(key); old != m_entries.end()) {
    count(old->second, false);
    m_entries.erase(old);
  }
  if (entry.target == 0) return;
  m_entries.emplace(key, entry);
  count(entry, true);
}

const CMSBackupMap::Entry* CMSBackupMap::Find(CMSObjectType kind, std::uint32_t source) const {
  const auto found = m_entries.find(Key(kind, source));
  return found == m_entries.end() ? nullptr : &found->second;
}

bool CMSBackupMap::NamesTarget(CMSObjectType kind, std::uint32_t target) const {
  return m_targets.count(Key(kind, target)) != 0;
}

std::vector<CMSBackupMap::Entry> CMSBackupMap::Entries() const {
  std::vector<Entry> entries;
  entries.reserve(m_entries.size());
  for (const auto& [key, entry] : m_entries) entries.push_back(entry);
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return Key(a.kind, a.source) < Key(b.kind, b.source);
  });
  return entries;
}

std::uint32_t CMSBackupMap::GreatestSource(CMSObjectType kind) const {
  std::uint32_t greatest = 0;
  for (const auto& [key, entry] : m_entries) {
    if (entry.kind == kind) greatest = std::max(greatest, entry.source);
  }
  return greatest;
}

void CMSBackupMap::MarkUnfinished(std::uint32_t since) {
  if (since == m_unfinishedSince) return;
  m_unsaved.push_back({kRunMark, 0, since, 0, 0});
  m_unfinishedSince = since;
}

void CMSBackupMap::Put(const Entry& entry) {
  if (const Entry* known = Find(entry.kind, entry.source); known && *known == entry) return;
  m_unsaved.push_back(entry);
  Apply(entry);
}

void CMSBackupMap::Drop(CMSObjectType kind, std::uint32_t source) {
  if (Find(kind, source) != nullptr) Put({kind, source, 0, 0, 0});
}

void CMSBackupMap::Clear() {
  m_entries.clear();
  m_targets.clear();
  m_unsaved.clear();
  m_isWhole = false;
}

void CMSBackupMap::Save() {
  if (m_directory.empty()) return;
  const std::size_t slots = m_slots + m_unsaved.size();
  if (!m_isWhole || slots > 2 * m_entries.size() + kSlack) {
    Rewrite();
  } else if (!m_unsaved.empty()) {
    Append();
  }
  m_unsaved.clear();
}

// What an earlier, failed attempt may have left there goes first.
void CMSBackupMap::Append() {
  CKitFile file(m_path, {platform::Access::ReadWrite, platform::Disposition::OpenExisting,
                         platform::Sharing::All});
  const std::uint64_t end = kHeaderSize + m_slots * sizeof(Slot);
  if (file.Length() > end) file.Truncate(end);
  WriteSlots(file, m_unsaved, m_slots);
  file.Sync();
  m_slots += m_unsaved.size();
}

void CMSBackupMap::Rewrite() {
  const std::string made = CKitFile::Join(m_directory, kNewFileName);
  std::vector<Entry> entries = Entries();
  if (m_unfinishedSince != 0) entries.push_back({kRunMark, 0, m_unfinishedSince, 0, 0});
  {
    CKitFile file(made, {platform::Access::ReadWrite, platform::Disposition::CreateAlways,
                         platform::Sharing::All});
    file.Write(0, kHeader, kHeaderSize);
    WriteSlots(file, entries, 0);
    file.Sync();
  }
  KitCheck(platform::Files().Replace(made, m_path), "replace", m_path);
  KitCheck(platform::Files().SyncDirectory(m_directory), "sync", m_directory);
  m_slots = entries.size();
  m_isWhole = true;
}
