#include "MasterFile.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "corrupted.h"
#include "kit/KitFile.h"

namespace {

constexpr char kFileName[] = "ms3.db";
constexpr char kStoreSection[] = "MessageStore";
constexpr char kLastIDKey[] = "LastID";
constexpr char kSizeKey[] = "Size";
constexpr char kFolderSection[] = "ExtraFolderData";
constexpr std::size_t kCapacity = 1024;

bool HoldsLineBreak(std::string_view text) {
  return text.find_first_of("\r\n") != std::string_view::npos;
}

bool IsBlank(std::string_view text) {
  return text.find_first_not_of(" \t") == std::string_view::npos;
}

// A reader takes the key to end at its first "=", and a line that begins like a comment or a header
// for one.
bool CanBeRead(std::string_view key) {
  const auto first = key.find_first_not_of(" \t");
  return key.find('=') == std::string_view::npos && key[first] != ';' && key[first] != '[';
}

bool IsName(const char* text) {
  return text != nullptr && !IsBlank(text) && !HoldsLineBreak(text);
}

// As the file's reader compares names.
bool IsFolderSection(std::string_view name) {
  const std::string_view own(kFolderSection);
  const auto first = name.find_first_not_of(" \t");
  name = name.substr(first, name.find_last_not_of(" \t") - first + 1);
  const auto folded = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c + 0; };
  return std::equal(name.begin(), name.end(), own.begin(), own.end(),
                    [&](char a, char b) { return folded(a) == folded(b); });
}

platform::Status StatusOf(bool done) {
  return done ? platform::Status() : platform::Status(platform::Cause::Io, 0);
}

}  // namespace

// All that the store itself keeps here can be worked out again; what cannot be (the state, clients'
// data) is brought to the medium by the call that writes it.
CMSMasterFile::CMSMasterFile(CMSDurability& durability, std::string directory, bool readOnly)
    : CMSSyncTarget(durability, CKitFile::Join(directory, kFileName)),
      m_directory(std::move(directory)),
      m_readOnly(readOnly) {}

std::string CMSMasterFile::Path() const {
  return CKitFile::Join(m_directory, kFileName);
}

void CMSMasterFile::CheckReadable() const {
  CKitFile file(Path(), {});
  char first = 0;
  file.Read(0, &first, 1);
}

CMSMasterFile::Counters CMSMasterFile::ReadCounters() const {
  const std::string path = Path();
  return {static_cast<std::uint32_t>(platform::ReadProfileInt(path, kStoreSection, kLastIDKey, 1)),
          static_cast<std::uint32_t>(platform::ReadProfileInt(path, kStoreSection, kSizeKey, 0))};
}

// In this order: an ID that no longer counted as issued would come again and find an entry there.
bool CMSMasterFile::SaveCounters(const Counters& counters) {
  return SaveNumbers(counters) && SaveEntries();
}

// Nobody else writes them while the store is open for writing, so a value that was written before
// need not be compared with the file again.
bool CMSMasterFile::SaveNumbers(const Counters& counters) {
  std::vector<platform::ProfileKey> changed;
  if (!m_saved || m_saved->lastID != counters.lastID)
    changed.push_back({kLastIDKey, std::to_string(static_cast<std::int32_t>(counters.lastID))});
  if (!m_saved || m_saved->size != counters.size)
    changed.push_back({kSizeKey, std::to_string(counters.size)});
  if (changed.empty()) return true;
  m_saved.reset();
  if (!Write(kStoreSection, changed)) return false;
  m_saved = counters;
  return true;
}

// What cannot be written waits for the next time.
bool CMSMasterFile::SaveEntries() {
  if (m_waiting.empty()) return true;
  if (Owner().HasFailed()) return false;
  std::vector<platform::ProfileKey> keys;
  keys.reserve(m_waiting.size());
  for (const auto& [folder, entry] : m_waiting) keys.push_back({std::to_string(folder), entry});
  if (!Write(kFolderSection, keys)) return false;
  m_waiting.clear();
  return true;
}

// At every level: a store that lost its "Active" to a power cut would pass for one that was closed,
// and nobody would repair it.
bool CMSMasterFile::SetState(const char* state) {
  return WriteThrough(MSF::szMaintenanceSection, MSF::szClosedStateKey, state);
}

std::string CMSMasterFile::ReadState() const {
  return platform::ReadProfileString(Path(), MSF::szMaintenanceSection, MSF::szClosedStateKey, "",
                                     kCapacity);
}

std::string CMSMasterFile::ReadExtraFolderData(std::uint32_t folder) const {
  if (const auto found = m_waiting.find(folder); found != m_waiting.end())
    return found->second.value_or("");
  if (m_without.count(folder) != 0) return {};
  // Whoever has the store open for writing has it alone, and no other process writes the section.
  const auto writer =
      m_readOnly ? platform::ProfileWriter::Anyone : platform::ProfileWriter::ThisProcess;
  std::string entry = platform::ReadProfileString(Path(), kFolderSection, std::to_string(folder),
                                                  "", kCapacity, writer);
  if (!m_readOnly && entry.empty()) m_without.insert(folder);
  return entry;
}

bool CMSMasterFile::SaveExtraFolderData(std::uint32_t folder, std::string value) {
  return Keep(folder, std::move(value));
}

bool CMSMasterFile::DropExtraFolderData(std::uint32_t folder) {
  return Keep(folder, std::nullopt);
}

bool CMSMasterFile::DropAllExtraFolderData() {
  m_waiting.clear();
  if (!platform::WriteProfileSection(Path(), kFolderSection, "")) return false;
  Flushed(Kind::Derived, [this] { return Sync(); });
  return true;
}

bool CMSMasterFile::Keep(std::uint32_t folder, std::optional<std::string> entry) {
  if (m_readOnly) return false;
  m_without.erase(folder);
  m_waiting.insert_or_assign(folder, std::move(entry));
  return true;
}

CKitString CMSMasterFile::GetCustomData(const char* section, const char* key) {
  if (!IsName(section) || !IsName(key)) return {};
  // Should that fail, what is in the file is what there is to read.
  if (IsFolderSection(section)) static_cast<void>(SaveEntries());
  return platform::ReadProfileString(Path(), section, key, "", kCapacity);
}

bool CMSMasterFile::WriteCustomData(const char* section, const char* key, const char* value) {
  const char* text = value != nullptr ? value : "";
  if (!IsName(section) || !IsName(key) || !CanBeRead(key) || HoldsLineBreak(text)) return false;
  if (IsFolderSection(section)) {
    if (!SaveEntries()) return false;
    m_without.clear();
  }
  return WriteThrough(section, key, text);
}

// A sync that failed must not pass for one that succeeds later.
bool CMSMasterFile::WriteThrough(const char* section, const char* key, const char* value) {
  if (!platform::WriteProfileString(Path(), section, key, value)) return false;
  if (platform::FlushProfile(Path())) return true;
  if (!m_readOnly) Owner().Refuse("cannot sync '" + Path() + "'");
  return false;
}

bool CMSMasterFile::Write(const char* section, const std::vector<platform::ProfileKey>& keys) {
  if (!platform::WriteProfileKeys(Path(), section, keys)) return false;
  Flushed(Kind::Derived, [this] { return Sync(); });
  return true;
}

// No handle to the file is kept, so there is nothing to start early.
platform::Status CMSMasterFile::StartWriteOut() {
  return {};
}

platform::Status CMSMasterFile::Sync() {
  return StatusOf(platform::FlushProfile(Path()));
}
