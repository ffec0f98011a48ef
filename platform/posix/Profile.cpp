// Private-profile files over Files(): what ProfileText describes, brought to the disk safely.
#include "platform/Profile.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <string_view>
#include <vector>

#include "platform/Lasting.h"
#include "platform/posix/ProfileCache.h"

namespace platform {
namespace {

using posix::CachedProfile;
using Edit = ProfileText::Edit;
using Edits = ProfileText::Edits;
using EditMaker = std::function<Edits(const ProfileText&)>;

// What a medium writes whole or not at all, even when the power fails.
constexpr std::size_t kSector = 512;
// Each try is lost only to another process that put a new file in place meanwhile.
constexpr int kUpdateAttempts = 10'000;

std::mutex g_mutex;  // guards the cache, and orders the updates of this process

posix::ProfileCache& Cache() {
  static const Lasting<posix::ProfileCache> cache;
  return *cache;
}

bool WriteAll(File& file, std::uint64_t offset, std::string_view text) {
  std::size_t done = 0;
  return file.Write(offset, text.data(), text.size(), done).Ok();
}

// Writes a new file beside the old one and lets it take the old one's place. It is locked first, so
// that nobody changes it before its stamp is noted.
bool ReplaceWhole(CachedProfile& entry, std::string text) {
  const std::string temporary = entry.path + ".new";
  std::unique_ptr<File> file;
  const OpenOptions fresh{Access::ReadWrite, Disposition::CreateAlways, Sharing::All};
  if (!Files().Open(temporary, fresh, file).Ok()) return false;
  const bool replaced = WriteAll(*file, 0, text) && file->Sync().Ok() &&
                        file->LockForUpdate().Ok() && Files().Replace(temporary, entry.path).Ok();
  if (!replaced) {
    file.reset();
    // One that cannot be removed is emptied by the next write.
    static_cast<void>(Files().Remove(temporary));
    return false;
  }
  entry.text = ProfileText(std::move(text));
  Cache().Remember(entry, *file);
  return true;
}

// Narrows an edit that moves nothing to the characters that differ. False when they span two
// sectors.
bool FitsOneSector(const ProfileText& text, Edit& edit) {
  if (!edit.inPlace) return false;
  const std::string_view old = std::string_view(text.Text()).substr(edit.offset, edit.length);
  std::size_t begin = 0, end = old.size();
  while (begin < end && old[begin] == edit.text[begin]) ++begin;
  while (end > begin && old[end - 1] == edit.text[end - 1]) --end;
  edit.text = edit.text.substr(begin, end - begin);
  edit.offset += begin;
  edit.length = end - begin;
  return edit.length > 0 && edit.offset / kSector == (edit.offset + edit.length - 1) / kSector;
}

// A write that failed half-way is taken back, or, when even that fails, a whole copy of the text as
// it was before put in place.
bool WriteInPlace(CachedProfile& entry, File& file, const Edit& edit) {
  if (WriteAll(file, edit.offset, edit.text)) {
    entry.text.ApplyInPlace(edit);
    return true;
  }
  const std::string_view old = std::string_view(entry.text.Text()).substr(edit.offset, edit.length);
  if (!WriteAll(file, edit.offset, old)) ReplaceWhole(entry, entry.text.Text());
  return false;
}

bool WriteAllInPlace(CachedProfile& entry, File& file, const Edits& edits) {
  entry.stamp = {};  // of no file, so that what remains of a failure is read again
  for (const Edit& edit : edits) {
    if (!WriteInPlace(entry, file, edit)) return false;
  }
  Cache().Remember(entry, file);
  return true;
}

bool ChangeLocked(CachedProfile& entry, File& file, const EditMaker& make) {
  if (!Cache().Refresh(entry, file)) return false;
  Edits edits = make(entry.text);
  if (edits.empty()) return true;
  const auto fits = [&entry](Edit& edit) { return FitsOneSector(entry.text, edit); };
  if (std::all_of(edits.begin(), edits.end(), fits)) return WriteAllInPlace(entry, file, edits);
  return ReplaceWhole(entry, entry.text.Applied(edits));
}

// Whether the path still leads to the open file; another process may have replaced it while this
// one waited. A look that fails is no reason to try again.
Status Compare(const std::string& path, File& file, bool& isCurrent) {
  FileInfo there, open;
  if (const Status status = Files().GetInfo(path, there); !status.Ok()) return status;
  if (const Status status = file.GetInfo(open); !status.Ok()) return status;
  isCurrent = there.kind != FileKind::None && there.stamp.device == open.stamp.device &&
              there.stamp.file == open.stamp.file;
  return {};
}

Status OpenOrMake(const std::string& path, std::unique_ptr<File>& file, bool& made) {
  OpenOptions options{Access::ReadWrite, Disposition::OpenExisting, Sharing::All};
  made = false;
  Status status = Files().Open(path, options, file);
  if (status.Why() != Cause::NotFound) return status;
  options.disposition = Disposition::CreateNew;
  status = Files().Open(path, options, file);
  made = status.Ok();
  return status;
}

bool Exists(const std::string& path) {
  FileInfo info;
  return !Files().GetInfo(path, info).Ok() || info.kind != FileKind::None;
}

bool Change(const std::string& path, const EditMaker& make) {
  const std::lock_guard guard(g_mutex);
  // Removing something from a file that is not there does not make one.
  if (!Exists(path) && make(ProfileText()).empty()) return true;
  for (int attempt = 0; attempt < kUpdateAttempts; ++attempt) {
    std::unique_ptr<File> file;
    bool made = false, isCurrent = false;
    const Status status = OpenOrMake(path, file, made);
    if (status.Why() == Cause::AlreadyExists) continue;
    if (!status.Ok() || !file->LockForUpdate().Ok()) return false;
    if (!Compare(path, *file, isCurrent).Ok()) return false;
    if (!isCurrent) continue;
    const bool done = ChangeLocked(Cache().At(path), *file, make);
    // The empty file that was made to lock it; should it stay, it reads as no file does.
    if (!done && made) static_cast<void>(Files().Remove(path));
    return done;
  }
  return false;
}

std::optional<std::string> Read(const std::string& path, const std::string& section,
                                const std::string& key, ProfileWriter writer) {
  const std::lock_guard guard(g_mutex);
  const CachedProfile* entry = Cache().ForReading(path, writer);
  if (entry == nullptr) return std::nullopt;
  return entry->text.Find(section, key);
}

int LeadingNumber(std::string_view text) {
  std::size_t at = 0;
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) ++at;
  std::uint32_t number = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    number = number * 10 + static_cast<std::uint32_t>(text[at] - '0');
  }
  return static_cast<int>(negative ? 0U - number : number);
}

std::vector<std::string_view> SplitLines(const char* lines) {
  std::vector<std::string_view> result;
  while (*lines != '\0') {
    result.emplace_back(lines);
    lines += result.back().size() + 1;
  }
  return result;
}

std::string ParentOf(const std::string& path) {
  std::size_t end = path.size();
  while (end > 0 && !IsSeparator(path[end - 1])) --end;
  return end == 0 ? std::string(".") : path.substr(0, end);
}

}  // namespace

std::string ReadProfileString(const std::string& path, const std::string& section,
                              const std::string& key, const std::string& fallback,
                              std::size_t capacity, ProfileWriter writer) {
  std::optional<std::string> value = Read(path, section, key, writer);
  if (!value) value = fallback.substr(0, fallback.find_last_not_of(' ') + 1);
  return value->substr(0, capacity == 0 ? 0 : capacity - 1);
}

int ReadProfileInt(const std::string& path, const std::string& section, const std::string& key,
                   int fallback) {
  const std::optional<std::string> value = Read(path, section, key, ProfileWriter::Anyone);
  return value ? LeadingNumber(*value) : fallback;
}

bool WriteProfileString(const std::string& path, const char* section, const char* key,
                        const char* value) {
  if (section == nullptr) return false;
  if (key == nullptr)
    return Change(path, [=](const ProfileText& text) { return text.RemoveSection(section); });
  ProfileKey changed{key, {}};
  if (value != nullptr) changed.value = value;
  return WriteProfileKeys(path, section, {changed});
}

bool WriteProfileKeys(const std::string& path, const std::string& section,
                      const std::vector<ProfileKey>& keys) {
  return Change(path, [&](const ProfileText& text) { return text.SetKeys(section, keys); });
}

bool WriteProfileSection(const std::string& path, const char* section, const char* lines) {
  if (section == nullptr || lines == nullptr) return false;
  return Change(
      path, [=](const ProfileText& text) { return text.FillSection(section, SplitLines(lines)); });
}

bool FlushProfile(const std::string& path) {
  std::unique_ptr<File> file;
  const Status opened = Files().Open(path, {}, file);
  const bool missing = opened.Why() == Cause::NotFound;
  if (!missing && !(opened.Ok() && file->Sync().Ok())) return false;
  return Files().SyncDirectory(ParentOf(path)).Ok();
}

}  // namespace platform
