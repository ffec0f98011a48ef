#include "platform/posix/OpenFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <limits>

namespace platform::posix {
namespace {

FileKind KindOf(mode_t mode) {
  if (S_ISREG(mode)) return FileKind::File;
  if (S_ISDIR(mode)) return FileKind::Directory;
  return S_ISLNK(mode) ? FileKind::Link : FileKind::Other;
}

std::uint32_t AttributesOf(mode_t mode) {
  std::uint32_t bits = S_ISDIR(mode) ? attribute::Directory : attribute::Archive;
  if ((mode & S_IWUSR) == 0) bits |= attribute::ReadOnly;
  return bits;
}

std::int64_t Nanoseconds(const struct timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// One write at the end, wherever other appenders have moved it to.
ssize_t AppendOnce(int fd, const char* data, std::size_t size) {
  struct iovec part {
    const_cast<char*>(data), size
  };
  const auto done = Retry([&] { return ::pwritev2(fd, &part, 1, 0, RWF_APPEND); });
  if (done != -1 || (errno != EOPNOTSUPP && errno != ENOSYS)) return done;
  // A file system without that call: the descriptor's own position, in append mode.
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags == -1 || ::fcntl(fd, F_SETFL, flags | O_APPEND) == -1) return -1;
  const auto written = Retry([&] { return ::write(fd, data, size); });
  const int error = errno;
  if (::fcntl(fd, F_SETFL, flags) == -1) return -1;
  errno = error;
  return written;
}

}  // namespace

FileInfo InfoOf(const struct stat& from) {
  FileInfo info;
  info.kind = KindOf(from.st_mode);
  info.length = static_cast<std::uint64_t>(from.st_size);
  info.modified = from.st_mtim.tv_sec;
  info.attributes = AttributesOf(from.st_mode);
  info.othersMayAccess = (from.st_mode & (S_IRWXG | S_IRWXO)) != 0;
  info.stamp = {from.st_dev, from.st_ino, info.length, Nanoseconds(from.st_mtim),
                Nanoseconds(from.st_ctim)};
  return info;
}

Status OpenFile::Read(std::uint64_t offset, void* data, std::size_t size, std::size_t& done) {
  done = 0;
  while (done < size) {
    char* to = static_cast<char*>(data) + done;
    const auto got = Retry([&] {
      return ::pread(m_handle.Get(), to, size - done, static_cast<off_t>(offset + done));
    });
    if (got == -1) return LastStatus();
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return {};
}

Status OpenFile::Write(std::uint64_t offset, const void* data, std::size_t size,
                       std::size_t& done) {
  done = 0;
  while (done < size) {
    const char* from = static_cast<const char*>(data) + done;
    const auto put = Retry([&] {
      return ::pwrite(m_handle.Get(), from, size - done, static_cast<off_t>(offset + done));
    });
    if (put == -1) return LastStatus();
    if (put == 0) return StatusOf(ENOSPC);
    done += static_cast<std::size_t>(put);
  }
  return {};
}

// Told of the whole at once, the kernel makes large pages in its cache: half the time of a call for
// each piece.
Status OpenFile::WriteZeros(std::uint64_t offset, std::uint64_t size) {
  constexpr std::size_t kPiecesAtOnce = 32;
  static std::array<std::byte, kZeroPiece> zeros{};
  std::array<iovec, kPiecesAtOnce> pieces;
  while (size > 0) {
    std::size_t count = 0;
    for (std::uint64_t left = size; left > 0 && count < pieces.size(); ++count) {
      const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(zeros.size(), left));
      pieces[count] = {zeros.data(), length};
      left -= length;
    }
    const auto put = Retry([&] {
      return ::pwritev(m_handle.Get(), pieces.data(), static_cast<int>(count),
                       static_cast<off_t>(offset));
    });
    if (put == -1) return LastStatus();
    if (put == 0) return StatusOf(ENOSPC);
    offset += static_cast<std::uint64_t>(put);
    size -= static_cast<std::uint64_t>(put);
  }
  return {};
}

Status OpenFile::Append(const void* data, std::size_t size) {
  const char* from = static_cast<const char*>(data);
  for (std::size_t done = 0; done < size;) {
    const auto put = AppendOnce(m_handle.Get(), from + done, size - done);
    if (put == -1) return LastStatus();
    if (put == 0) return StatusOf(ENOSPC);
    done += static_cast<std::size_t>(put);
  }
  return {};
}

Status OpenFile::GetInfo(FileInfo& info) {
  struct stat state;
  if (::fstat(m_handle.Get(), &state) != 0) return LastStatus();
  info = InfoOf(state);
  return {};
}

Status OpenFile::Truncate(std::uint64_t length) {
  return StatusOfCall(
      Retry([&] { return ::ftruncate(m_handle.Get(), static_cast<off_t>(length)); }));
}

Status OpenFile::StartWriteOut() {
  return StatusOfCall(
      Retry([&] { return ::sync_file_range(m_handle.Get(), 0, 0, SYNC_FILE_RANGE_WRITE); }));
}

Status OpenFile::Sync() {
  return StatusOfCall(Retry([&] { return ::fdatasync(m_handle.Get()); }));
}

// The length is checked, since touching a page behind the end of the file would end the process.
Status OpenFile::Map(std::uint64_t length, Access access, std::unique_ptr<View>& view) {
  FileInfo info;
  if (const Status status = GetInfo(info); !status.Ok()) return status;
  if (length > info.length) return StatusOf(EINVAL);
  if (length > std::numeric_limits<std::size_t>::max()) return StatusOf(ENOMEM);
  if (length == 0) {
    view = std::make_unique<MappedView>();
    return {};
  }
  // Before the mapping, which would keep the file and its lock if there were no view to end it.
  auto mapped = std::make_unique<MappedView>();
  const int protection = access == Access::Read ? PROT_READ : PROT_READ | PROT_WRITE;
  void* base =
      ::mmap(nullptr, static_cast<std::size_t>(length), protection, MAP_SHARED, m_handle.Get(), 0);
  if (base == MAP_FAILED) return LastStatus();
  mapped->Take(base, length);
  view = std::move(mapped);
  return {};
}

Status OpenFile::LockForUpdate() {
  return StatusOfCall(Retry([&] { return ::flock(m_handle.Get(), LOCK_EX); }));
}

MappedView::~MappedView() {
  if (m_base != nullptr) ::munmap(m_base, static_cast<std::size_t>(m_length));
}

Status MappedView::Flush(std::uint64_t offset, std::uint64_t length) {
  if (offset > m_length || length > m_length - offset) return StatusOf(EINVAL);
  if (length == 0) return {};
  static const auto pageSize = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  const std::uint64_t start = offset / pageSize * pageSize;
  const auto size = static_cast<std::size_t>(offset + length - start);
  return StatusOfCall(::msync(m_base + start, size, MS_SYNC));
}

}  // namespace platform::posix
