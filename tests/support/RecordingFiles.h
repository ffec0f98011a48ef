// A file system that keeps one ordered list of all that changes files below one directory. It is
// in place while it lives, over the real one.
//
// Bytes are recorded as 512-byte blocks, each with what the whole block holds after the step.
// Mapped views tell nobody of a change: they are compared with what is known of the file before
// every other step, so that their changes stand in the list where they were made, to within the
// library's own sequence of calls. At level Immediate that is each single flush.
#pragma once

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "StoreChecker.h"
#include "platform/File.h"

namespace crash {

inline constexpr std::uint64_t kBlock = 512;
inline constexpr int kNoFile = -1;

struct Step {
  enum Kind {
    Block,       // offset, bytes
    Length,      // offset: the new length
    Create,      // path, file
    Rename,      // from, path
    Remove,      // path
    MakeDir,     // path
    RemoveDir,   // path
    SyncFile,    // all of the file
    SyncRange,   // offset, length
    SyncDir,     // path
    SyncVolume,  // everything
    Mark         // something was acknowledged
  };
  Kind kind;
  int file = kNoFile;
  std::uint64_t offset = 0, length = 0;
  std::string path = {};  // below the directory; "" is the directory itself
  std::string from = {};
  std::string bytes = {};
  bool isPart = false;  // of one call, and not its last
};
using Trace = std::vector<Step>;

// What lies below the directory when recording begins, all of it on the medium.
struct Base {
  std::map<std::string, int> files;
  std::set<std::string> directories;
  std::map<int, std::string> bytes;
};

class RecordingFiles final : public platform::FileSystem {
 public:
  using Status = platform::Status;

  explicit RecordingFiles(const std::string& directory)
      : m_root(directory), m_real(platform::Files()), m_previous(platform::SetFiles(this)) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
      const std::string name = Name(entry.path().string());
      if (entry.is_directory()) {
        m_base.directories.insert(name);
        continue;
      }
      m_base.files[name] = m_next;
      m_base.bytes[m_next++] = storecheck::ReadWhole(entry.path());
    }
    m_files = m_base.files;
    m_known = m_base.bytes;
  }
  ~RecordingFiles() override { platform::SetFiles(m_previous); }

  const Base& Before() const { return m_base; }
  // Complete only once all views are gone or marked.
  const Trace& Steps() const { return m_trace; }
  void Mark() {
    const std::lock_guard guard(m_mutex);
    Add({.kind = Step::Mark});
  }

  Status Open(const std::string& path, const platform::OpenOptions& options,
              std::unique_ptr<platform::File>& file) override {
    const std::lock_guard guard(m_mutex);
    std::unique_ptr<platform::File> real;
    const Status status = m_real.Open(path, options, real);
    if (!status.Ok()) return status;
    if (!IsBelow(path)) {
      file = std::move(real);
      return status;
    }
    const std::string name = Name(path);
    const bool isNew = m_files.count(name) == 0;
    if (isNew) Made(name);
    const int id = m_files.at(name);
    if (!isNew && options.disposition == platform::Disposition::CreateAlways) SetLength(id, 0);
    file = std::make_unique<OpenFile>(*this, id, std::move(real));
    return status;
  }
  Status GetInfo(const std::string& path, platform::FileInfo& info) override {
    return m_real.GetInfo(path, info);
  }
  Status Copy(const std::string& from, const std::string& to, bool overwrite) override {
    const std::lock_guard guard(m_mutex);
    const Status status = m_real.Copy(from, to, overwrite);
    if (!status.Ok() || !IsBelow(to)) return status;
    const std::string name = Name(to);
    if (m_files.count(name) == 0) Made(name);
    SetLength(m_files.at(name), 0);
    const std::string bytes = storecheck::ReadWhole(to);
    Wrote(m_files.at(name), 0, bytes.data(), bytes.size());
    return status;
  }
  Status Move(const std::string& from, const std::string& to) override {
    return Renamed(from, to, [&] { return m_real.Move(from, to); });
  }
  Status Replace(const std::string& from, const std::string& to) override {
    return Renamed(from, to, [&] { return m_real.Replace(from, to); });
  }
  Status Remove(const std::string& path) override {
    return Named(path, Step::Remove, [&] { return m_real.Remove(path); });
  }
  Status SetAttributes(const std::string& path, std::uint32_t attributes) override {
    return m_real.SetAttributes(path, attributes);
  }
  Status MakeDirectory(const std::string& path) override {
    return Named(path, Step::MakeDir, [&] { return m_real.MakeDirectory(path); });
  }
  Status RemoveDirectory(const std::string& path) override {
    return Named(path, Step::RemoveDir, [&] { return m_real.RemoveDirectory(path); });
  }
  Status List(const std::string& path, std::vector<platform::DirectoryEntry>& entries) override {
    return m_real.List(path, entries);
  }
  // A sync covers what was done before it began; whether the medium here really waits matters not.
  Status SyncDirectory(const std::string& path) override {
    return Named(path, Step::SyncDir, [&] { return m_real.SyncDirectory(path); });
  }
  Status SyncVolume(const std::string& path) override {
    const std::lock_guard guard(m_mutex);
    Add({.kind = Step::SyncVolume});
    static_cast<void>(path);
    return {};
  }
  Status FreeSpace(const std::string& path, std::uint64_t& bytes) override {
    return m_real.FreeSpace(path, bytes);
  }

 private:
  class MappedView final : public platform::View {
   public:
    MappedView(RecordingFiles& files, int id, std::unique_ptr<platform::View> real)
        : m_files(files), m_id(id), m_real(std::move(real)) {
      m_base = m_real->Base();
      m_length = m_real->Length();
      const std::lock_guard guard(m_files.m_mutex);
      m_files.m_views.push_back(this);
    }
    ~MappedView() override {
      const std::lock_guard guard(m_files.m_mutex);
      m_files.Compare(*this);
      std::erase(m_files.m_views, this);
    }
    Status Flush(std::uint64_t offset, std::uint64_t length) override {
      const std::lock_guard guard(m_files.m_mutex);
      m_files.Add({.kind = Step::SyncRange, .file = m_id, .offset = offset, .length = length});
      return m_real->Flush(offset, length);
    }
    int ID() const { return m_id; }

   private:
    RecordingFiles& m_files;
    const int m_id;
    const std::unique_ptr<platform::View> m_real;
  };

  class OpenFile final : public platform::File {
   public:
    OpenFile(RecordingFiles& files, int id, std::unique_ptr<platform::File> real)
        : m_files(files), m_id(id), m_real(std::move(real)) {}
    Status Read(std::uint64_t offset, void* data, std::size_t size, std::size_t& done) override {
      return m_real->Read(offset, data, size, done);
    }
    Status Write(std::uint64_t offset, const void* data, std::size_t size,
                 std::size_t& done) override {
      const std::lock_guard guard(m_files.m_mutex);
      m_files.CompareAll();
      const Status status = m_real->Write(offset, data, size, done);
      m_files.Wrote(m_id, offset, data, done);
      return status;
    }
    Status Append(const void* data, std::size_t size) override {
      const std::lock_guard guard(m_files.m_mutex);
      m_files.CompareAll();
      const Status status = m_real->Append(data, size);
      if (status.Ok()) m_files.Wrote(m_id, m_files.m_known[m_id].size(), data, size);
      return status;
    }
    Status GetInfo(platform::FileInfo& info) override { return m_real->GetInfo(info); }
    Status Truncate(std::uint64_t length) override {
      const std::lock_guard guard(m_files.m_mutex);
      m_files.CompareAll();
      const Status status = m_real->Truncate(length);
      if (status.Ok()) m_files.SetLength(m_id, length);
      return status;
    }
    Status StartWriteOut() override { return {}; }
    Status Sync() override {
      const std::lock_guard guard(m_files.m_mutex);
      m_files.Add({.kind = Step::SyncFile, .file = m_id});
      return m_real->Sync();
    }
    Status Map(std::uint64_t length, platform::Access access,
               std::unique_ptr<platform::View>& view) override {
      std::unique_ptr<platform::View> real;
      const Status status = m_real->Map(length, access, real);
      if (status.Ok()) view = std::make_unique<MappedView>(m_files, m_id, std::move(real));
      return status;
    }
    Status LockForUpdate() override { return m_real->LockForUpdate(); }

   private:
    RecordingFiles& m_files;
    const int m_id;
    const std::unique_ptr<platform::File> m_real;
  };

  static std::string Plain(const std::string& path) {
    std::string plain = std::filesystem::path(path).lexically_normal().string();
    if (plain.size() > 1 && plain.back() == '/') plain.pop_back();
    return plain;
  }
  bool IsBelow(const std::string& path) const {
    const std::string plain = Plain(path);
    return plain == m_root || plain.starts_with(m_root + "/");
  }
  std::string Name(const std::string& path) const {
    const std::string plain = Plain(path);
    return plain.size() > m_root.size() ? plain.substr(m_root.size() + 1) : "";
  }

  void Add(Step step) {
    CompareAll();
    m_trace.push_back(std::move(step));
  }
  void Made(const std::string& name) {
    m_files[name] = m_next;
    m_known[m_next];
    Add({.kind = Step::Create, .file = m_next++, .path = name});
  }
  template <class Real>
  Status Named(const std::string& path, Step::Kind kind, Real real) {
    const std::lock_guard guard(m_mutex);
    CompareAll();
    const Status status = real();
    if (!status.Ok() || !IsBelow(path)) return status;
    if (kind == Step::Remove) m_files.erase(Name(path));
    Add({.kind = kind, .path = Name(path)});
    return status;
  }
  template <class Real>
  Status Renamed(const std::string& from, const std::string& to, Real real) {
    const std::lock_guard guard(m_mutex);
    CompareAll();
    const Status status = real();
    if (!status.Ok() || !IsBelow(to)) return status;
    if (m_files.count(Name(from)) == 0) throw std::logic_error("renamed, never seen: " + from);
    m_files[Name(to)] = m_files.at(Name(from));
    m_files.erase(Name(from));
    Add({.kind = Step::Rename, .path = Name(to), .from = Name(from)});
    return status;
  }

  void SetLength(int id, std::uint64_t length) {
    if (m_known[id].size() == length) return;
    m_known[id].resize(static_cast<std::size_t>(length));
    m_trace.push_back({.kind = Step::Length, .file = id, .offset = length});
  }
  void Wrote(int id, std::uint64_t offset, const void* data, std::size_t size) {
    if (size == 0) return;
    const std::size_t first = m_trace.size();
    SetLength(id, std::max<std::uint64_t>(offset + size, m_known[id].size()));
    std::memcpy(m_known[id].data() + offset, data, size);
    for (std::uint64_t at = offset / kBlock * kBlock; at < offset + size; at += kBlock)
      AddBlock(id, at);
    for (std::size_t at = first; at + 1 < m_trace.size(); ++at) m_trace[at].isPart = true;
  }
  void AddBlock(int id, std::uint64_t at) {
    m_trace.push_back({.kind = Step::Block,
                       .file = id,
                       .offset = at,
                       .bytes = m_known[id].substr(static_cast<std::size_t>(at), kBlock)});
  }
  void Compare(const MappedView& view) {
    std::string& known = m_known[view.ID()];
    const std::size_t end = std::min(static_cast<std::size_t>(view.Length()), known.size());
    for (std::size_t at = 0; at < end; at += kBlock) {
      const std::size_t size = std::min<std::size_t>(kBlock, end - at);
      if (std::memcmp(known.data() + at, view.Base() + at, size) == 0) continue;
      std::memcpy(known.data() + at, view.Base() + at, size);
      AddBlock(view.ID(), at);
    }
  }
  void CompareAll() {
    for (const MappedView* view : m_views) Compare(*view);
  }

  const std::string m_root;
  platform::FileSystem& m_real;
  platform::FileSystem* const m_previous;
  std::mutex m_mutex;  // guards what follows
  Base m_base;
  Trace m_trace;
  int m_next = 0;
  std::map<std::string, int> m_files;
  std::map<int, std::string> m_known;  // what the files hold, but for changes still in views
  std::vector<MappedView*> m_views;
};

}  // namespace crash
