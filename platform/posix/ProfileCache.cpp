#include "platform/posix/ProfileCache.h"

#include <algorithm>
#include <chrono>

namespace platform::posix {
namespace {

constexpr std::size_t kCapacity = 16;
// Several ticks of the coarse clock that file times are taken from.
constexpr std::int64_t kTickNs = 50'000'000;
constexpr int kReadAttempts = 8;

// Whether another change could still leave the same stamp. Stamps of the future (a clock set back)
// count as such.
bool IsRecent(const FileInfo::Stamp& stamp) {
  using std::chrono::nanoseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t nowNs = std::chrono::duration_cast<nanoseconds>(now).count();
  return nowNs - std::max(stamp.modifiedNs, stamp.changedNs) < kTickNs;
}

bool ReadAll(File& file, std::uint64_t length, std::string& text) {
  text.resize(static_cast<std::size_t>(length));
  std::size_t done = 0;
  if (!file.Read(0, text.data(), text.size(), done).Ok()) return false;
  text.resize(done);
  return true;
}

void Accept(CachedProfile& entry, std::string text, const FileInfo::Stamp& stamp, bool settled) {
  if (text != entry.text.Text()) entry.text = ProfileText(std::move(text));
  entry.stamp = stamp;
  entry.settled = settled;
}

// A writer changes a value in place only under the update lock, and the system moves the file's
// time before the bytes. So bytes read between two equal, old stamps are whole; otherwise reading
// waits for the writer.
bool ReadWhole(CachedProfile& entry, File& file) {
  std::string text;
  FileInfo before, after;
  bool locked = false;
  for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
    if (!file.GetInfo(before).Ok()) return false;
    if (!locked && (attempt > 0 || IsRecent(before.stamp))) {
      // A file system without locks has no writer that relies on them either.
      locked = file.LockForUpdate().Ok();
      if (locked && !file.GetInfo(before).Ok()) return false;
    }
    const bool recent = IsRecent(before.stamp);
    if (!ReadAll(file, before.length, text) || !file.GetInfo(after).Ok()) return false;
    if (before.stamp == after.stamp) {
      Accept(entry, std::move(text), before.stamp, !recent);
      return true;
    }
  }
  return false;
}

}  // namespace

CachedProfile& ProfileCache::At(const std::string& path) {
  const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                  [&](const CachedProfile& e) { return e.path == path; });
  if (found != m_entries.end()) {
    m_entries.splice(m_entries.begin(), m_entries, found);
  } else {
    m_entries.push_front({path, {}, {}, false});
    if (m_entries.size() > kCapacity) m_entries.pop_back();
  }
  return m_entries.front();
}

void ProfileCache::Forget(const std::string& path) {
  m_entries.remove_if([&](const CachedProfile& e) { return e.path == path; });
}

CachedProfile* ProfileCache::ForReading(const std::string& path, ProfileWriter writer) {
  FileInfo info;
  std::unique_ptr<File> file;
  if (!Files().GetInfo(path, info).Ok() || info.kind == FileKind::None) {
    Forget(path);
    return nullptr;
  }
  CachedProfile& entry = At(path);
  const bool trusted = entry.settled || writer == ProfileWriter::ThisProcess;
  if (trusted && entry.stamp == info.stamp) return &entry;
  if (Files().Open(path, {}, file).Ok() && ReadWhole(entry, *file)) return &entry;
  Forget(path);
  return nullptr;
}

bool ProfileCache::Refresh(CachedProfile& entry, File& locked) {
  FileInfo info;
  if (!locked.GetInfo(info).Ok()) return false;
  if (entry.settled && entry.stamp == info.stamp) return true;
  return ReadWhole(entry, locked);
}

void ProfileCache::Remember(CachedProfile& entry, File& locked) {
  FileInfo info;
  entry.settled = locked.GetInfo(info).Ok() && !IsRecent(info.stamp);
  entry.stamp = info.stamp;
}

}  // namespace platform::posix
