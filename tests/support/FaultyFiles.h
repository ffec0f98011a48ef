// A file system that fails on request and counts what it is asked for. It is in place while it
// lives.
//
//   FaultyFiles files;
//   files.Fail({.calls = call::kWrite, .nth = 3, .cause = platform::Cause::NoSpace, .written =
//   10}); files.Fail({.calls = call::kChanges, .nth = 7, .forGood = true});  // as if the process
//   ended here
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

#include "platform/File.h"

// Kinds of calls, to be joined by "|". Create is an opening that may make or empty a file; Stat is
// GetInfo of a path or a file; Flush is that of a view.
namespace call {
inline constexpr std::uint32_t kOpen = 1, kCreate = 2, kStat = 4, kCopy = 8, kMove = 0x10,
                               kReplace = 0x20, kRemove = 0x40, kAttributes = 0x80,
                               kDirectory = 0x100, kList = 0x200, kSyncDirectory = 0x400,
                               kSyncVolume = 0x800, kSpace = 0x1000, kRead = 0x2000,
                               kWrite = 0x4000, kAppend = 0x8000, kTruncate = 0x10000,
                               kStartWriteOut = 0x20000, kSync = 0x40000, kMap = 0x80000,
                               kLock = 0x100000, kFlush = 0x200000;
// All that leave something else on the disk than there was before.
inline constexpr std::uint32_t kChanges = kCreate | kCopy | kMove | kReplace | kRemove |
                                          kAttributes | kDirectory | kWrite | kAppend | kTruncate;
}  // namespace call

class FaultyFiles final : public platform::FileSystem {
 public:
  using Status = platform::Status;
  static constexpr std::size_t kHalf = ~std::size_t{0};
  struct Fault {
    std::uint32_t calls = 0;
    unsigned nth = 1;      // the first such call from now on that fails
    bool forGood = false;  // and all later ones too
    platform::Cause cause = platform::Cause::Io;
    std::size_t written = 0;  // what a failing Write or Append still writes; kHalf: of its bytes
    std::string path = {};    // only on paths that contain this
  };

  // A Write, Sync, Flush or Copy (path: the target), just before it is made.
  struct Call {
    std::uint32_t kind;
    const std::string& path;
    std::uint64_t offset = 0, length = 0;
    const std::byte* view = nullptr;  // of a Flush: the mapped file
  };

  FaultyFiles() : m_real(platform::Files()), m_previous(platform::SetFiles(this)) {}
  ~FaultyFiles() override { platform::SetFiles(m_previous); }

  void Fail(const Fault& fault) {
    const std::lock_guard guard(m_mutex);
    m_faults.push_back(fault);
  }
  void Heal() {
    const std::lock_guard guard(m_mutex);
    m_faults.clear();
  }
  // Lets file times tick every 10 ms only, as some systems' do.
  void CoarsenTimes() { m_tickNs = 10'000'000; }
  // What a volume answers instead of the truth.
  void SetFreeSpace(std::uint64_t bytes) { m_freeSpace = bytes; }
  // Called on the thread that makes the call. Set it, and take it back (null), while no other
  // thread uses the files.
  void Watch(std::function<void(const Call&)> watch) { m_watch = std::move(watch); }
  // What the last call that failed was about; "" when none has.
  std::string Struck() const {
    const std::lock_guard guard(m_mutex);
    return m_struck;
  }
  // How many calls of these kinds there were, failed ones included.
  unsigned Count(std::uint32_t calls) const {
    const std::lock_guard guard(m_mutex);
    unsigned sum = 0;
    for (std::size_t bit = 0; bit < m_counts.size(); ++bit) {
      if ((calls >> bit & 1) != 0) sum += m_counts[bit];
    }
    return sum;
  }

  Status Open(const std::string& path, const platform::OpenOptions& options,
              std::unique_ptr<platform::File>& file) override {
    const bool opens = options.disposition == platform::Disposition::OpenExisting;
    if (Status s = Check(opens ? call::kOpen : call::kCreate, path); !s.Ok()) return s;
    std::unique_ptr<platform::File> real;
    if (Status s = m_real.Open(path, options, real); !s.Ok()) return s;
    file = std::make_unique<OpenFile>(*this, path, std::move(real));
    return {};
  }
  Status GetInfo(const std::string& path, platform::FileInfo& info) override {
    return Do(call::kStat, path, [&] { return Coarse(m_real.GetInfo(path, info), info); });
  }
  Status Copy(const std::string& from, const std::string& to, bool overwrite) override {
    Tell({call::kCopy, to});
    return Do(call::kCopy, to, [&] { return m_real.Copy(from, to, overwrite); });
  }
  Status Move(const std::string& from, const std::string& to) override {
    return Do(call::kMove, to, [&] { return m_real.Move(from, to); });
  }
  Status Replace(const std::string& from, const std::string& to) override {
    return Do(call::kReplace, to, [&] { return m_real.Replace(from, to); });
  }
  Status Remove(const std::string& path) override {
    return Do(call::kRemove, path, [&] { return m_real.Remove(path); });
  }
  Status SetAttributes(const std::string& path, std::uint32_t attributes) override {
    return Do(call::kAttributes, path, [&] { return m_real.SetAttributes(path, attributes); });
  }
  Status MakeDirectory(const std::string& path) override {
    return Do(call::kDirectory, path, [&] { return m_real.MakeDirectory(path); });
  }
  Status RemoveDirectory(const std::string& path) override {
    return Do(call::kDirectory, path, [&] { return m_real.RemoveDirectory(path); });
  }
  Status List(const std::string& path, std::vector<platform::DirectoryEntry>& entries) override {
    return Do(call::kList, path, [&] { return m_real.List(path, entries); });
  }
  Status SyncDirectory(const std::string& path) override {
    return Do(call::kSyncDirectory, path, [&] { return m_real.SyncDirectory(path); });
  }
  Status SyncVolume(const std::string& path) override {
    return Do(call::kSyncVolume, path, [&] { return m_real.SyncVolume(path); });
  }
  Status FreeSpace(const std::string& path, std::uint64_t& bytes) override {
    return Do(call::kSpace, path, [&] {
      const Status status = m_real.FreeSpace(path, bytes);
      if (m_freeSpace) bytes = *m_freeSpace;
      return status;
    });
  }

  // The number that the system gives for a cause.
  static int CodeOf(platform::Cause cause) {
#ifdef _WIN32
    constexpr int kNotFound = 2, kExists = 183, kDenied = 5, kInUse = 32, kNoSpace = 112,
                  kNotEmpty = 145, kIo = 1117;
#else
    constexpr int kNotFound = ENOENT, kExists = EEXIST, kDenied = EACCES, kInUse = EAGAIN,
                  kNoSpace = ENOSPC, kNotEmpty = ENOTEMPTY, kIo = EIO;
#endif
    switch (cause) {
      case platform::Cause::NotFound:
        return kNotFound;
      case platform::Cause::AlreadyExists:
        return kExists;
      case platform::Cause::AccessDenied:
        return kDenied;
      case platform::Cause::InUse:
        return kInUse;
      case platform::Cause::NoSpace:
        return kNoSpace;
      case platform::Cause::NotEmpty:
        return kNotEmpty;
      default:
        return kIo;
    }
  }

 private:
  class MappedView final : public platform::View {
   public:
    MappedView(FaultyFiles& files, std::string path, std::unique_ptr<platform::View> real)
        : m_files(files), m_path(std::move(path)), m_real(std::move(real)) {
      m_base = m_real->Base();
      m_length = m_real->Length();
    }
    Status Flush(std::uint64_t offset, std::uint64_t length) override {
      m_files.Tell({call::kFlush, m_path, offset, length, m_base});
      return m_files.Do(call::kFlush, m_path, [&] { return m_real->Flush(offset, length); });
    }

   private:
    FaultyFiles& m_files;
    const std::string m_path;
    const std::unique_ptr<platform::View> m_real;
  };

  class OpenFile final : public platform::File {
   public:
    OpenFile(FaultyFiles& files, std::string path, std::unique_ptr<platform::File> real)
        : m_files(files), m_path(std::move(path)), m_real(std::move(real)) {}

    Status Read(std::uint64_t offset, void* data, std::size_t size, std::size_t& done) override {
      done = 0;
      return Do(call::kRead, [&] { return m_real->Read(offset, data, size, done); });
    }
    Status Write(std::uint64_t offset, const void* data, std::size_t size,
                 std::size_t& done) override {
      done = 0;
      m_files.Tell({call::kWrite, m_path, offset, size});
      std::size_t part = size;
      const Status failure = m_files.Check(call::kWrite, m_path, &part);
      const Status status = m_real->Write(offset, data, std::min(part, size), done);
      return failure.Ok() ? status : failure;
    }
    Status Append(const void* data, std::size_t size) override {
      std::size_t part = size;
      const Status failure = m_files.Check(call::kAppend, m_path, &part);
      const Status status = m_real->Append(data, std::min(part, size));
      return failure.Ok() ? status : failure;
    }
    Status GetInfo(platform::FileInfo& info) override {
      return Do(call::kStat, [&] { return m_files.Coarse(m_real->GetInfo(info), info); });
    }
    Status Truncate(std::uint64_t length) override {
      return Do(call::kTruncate, [&] { return m_real->Truncate(length); });
    }
    Status StartWriteOut() override {
      return Do(call::kStartWriteOut, [&] { return m_real->StartWriteOut(); });
    }
    Status Sync() override {
      m_files.Tell({call::kSync, m_path});
      return Do(call::kSync, [&] { return m_real->Sync(); });
    }
    Status Map(std::uint64_t length, platform::Access access,
               std::unique_ptr<platform::View>& view) override {
      std::unique_ptr<platform::View> real;
      const Status status = Do(call::kMap, [&] { return m_real->Map(length, access, real); });
      if (status.Ok()) view = std::make_unique<MappedView>(m_files, m_path, std::move(real));
      return status;
    }
    Status LockForUpdate() override {
      return Do(call::kLock, [&] { return m_real->LockForUpdate(); });
    }

   private:
    template <class Real>
    Status Do(std::uint32_t kind, Real real) {
      return m_files.Do(kind, m_path, real);
    }

    FaultyFiles& m_files;
    const std::string m_path;
    const std::unique_ptr<platform::File> m_real;
  };

  void Tell(const Call& call) const {
    if (m_watch) m_watch(call);
  }

  template <class Real>
  Status Do(std::uint32_t kind, const std::string& path, Real real) {
    const Status status = Check(kind, path);
    return status.Ok() ? real() : status;
  }

  // Counts the call; the failure when it is to fail, and how much of a write still happens then.
  Status Check(std::uint32_t kind, const std::string& path, std::size_t* written = nullptr) {
    const std::lock_guard guard(m_mutex);
    ++m_counts[static_cast<std::size_t>(std::countr_zero(kind))];
    for (Fault& fault : m_faults) {
      if ((fault.calls & kind) == 0 || path.find(fault.path) == std::string::npos) continue;
      if (fault.nth > 1) {
        --fault.nth;
        continue;
      }
      if (!fault.forGood) fault.calls = 0;
      m_struck = path;
      if (written != nullptr) *written = fault.written == kHalf ? *written / 2 : fault.written;
      return {fault.cause, CodeOf(fault.cause)};
    }
    return {};
  }

  Status Coarse(const Status& status, platform::FileInfo& info) const {
    info.stamp.modifiedNs -= info.stamp.modifiedNs % m_tickNs;
    info.stamp.changedNs -= info.stamp.changedNs % m_tickNs;
    return status;
  }

  platform::FileSystem& m_real;
  platform::FileSystem* const m_previous;
  std::atomic<std::int64_t> m_tickNs{1};
  std::function<void(const Call&)> m_watch;
  std::optional<std::uint64_t> m_freeSpace;
  mutable std::mutex m_mutex;  // guards what follows
  std::vector<Fault> m_faults;
  std::string m_struck;
  std::array<unsigned, 32> m_counts{};
};
