#include "MasterFile.h"

#include <string_view>
#include <utility>

#include "corrupted.h"
#include "kit/KitFile.h"
#include "platform/Profile.h"

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

platform::Status StatusOf(bool done) {
  return done ? platform::Status() : platform::Status(platform::Cause::Io, 0);
}

}  // namespace

// All that the store itself keeps here can be worked out again; what cannot be (the state, clients'
// data) is brought to the medium by the call that writes it.
CMSMasterFile::CMSMasterFile(CMSDurability& durability, std::string directory, bool readOnly)
    : CMSSyncTarget(durability, Kind::Derived, CKitFile::Join(directory, kFileName)),
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

// Nobody else writes them while the store is open for writing, so a value that was written before
// need not be compared with the file again.
bool CMSMasterFile::SaveCounters(const Counters& counters) {
  bool saved = true;
  if (!m_saved || m_saved->lastID != counters.lastID) {
    const std::string lastID = std::to_string(static_cast<std::int32_t>(counters.lastID));
    saved = Write(kStoreSection, kLastIDKey, lastID.c_str());
  }
  if (!m_saved || m_saved->size != counters.size)
    saved = Write(kStoreSection, kSizeKey, std::to_string(counters.size).c_str()) && saved;
  m_saved = saved ? std::optional<Counters>(counters) : std::nullopt;
  return saved;
}

// At every level: a store that lost its "Active" to a power cut would pass for one that was closed,
// and nobody would repair it.
bool CMSMasterFile::SetState(const char* state) {
  return WriteThrough(MSF::szMaintenanceSection, MSF::szClosedStateKey, state);
}

std::string CMSMasterFile::ReadExtraFolderData(std::uint32_t folder) const {
  return platform::ReadProfileString(Path(), kFolderSection, std::to_string(folder), "", kCapacity);
}

bool CMSMasterFile::SaveExtraFolderData(std::uint32_t folder, const std::string& value) {
  if (m_readOnly || Owner().HasFailed()) return false;
  return Write(kFolderSection, std::to_string(folder), value.c_str());
}

bool CMSMasterFile::DropExtraFolderData(std::uint32_t folder) {
  if (m_readOnly || Owner().HasFailed()) return false;
  return Write(kFolderSection, std::to_string(folder), nullptr);
}

CKitString CMSMasterFile::GetCustomData(const char* section, const char* key) const {
  if (!IsName(section) || !IsName(key)) return {};
  return platform::ReadProfileString(Path(), section, key, "", kCapacity);
}

bool CMSMasterFile::WriteCustomData(const char* section, const char* key, const char* value) {
  const char* text = value != nullptr ? value : "";
  if (!IsName(section) || !IsName(key) || !CanBeRead(key) || HoldsLineBreak(text)) return false;
  return WriteThrough(section, key, text);
}

// A sync that failed must not pass for one that succeeds later.
bool CMSMasterFile::WriteThrough(const char* section, const char* key, const char* value) {
  if (!platform::WriteProfileString(Path(), section, key, value)) return false;
  if (platform::FlushProfile(Path())) return true;
  if (!m_readOnly) Owner().Refuse("cannot sync '" + Path() + "'");
  return false;
}

bool CMSMasterFile::Write(const char* section, const std::string& key, const char* value) {
  if (!platform::WriteProfileString(Path(), section, key.c_str(), value)) return false;
  Flushed([this] { return Sync(); });
  return true;
}

// No handle to the file is kept, so there is nothing to start early.
platform::Status CMSMasterFile::StartWriteOut() {
  return {};
}

platform::Status CMSMasterFile::Sync() {
  return StatusOf(platform::FlushProfile(Path()));
}
