// Copying, and moving without ever overwriting.
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>

#include "platform/posix/FileSystem.h"
#include "platform/posix/OpenFile.h"

namespace platform::posix {
namespace {

constexpr std::size_t kBlock = 64 * 1024;
constexpr std::size_t kKernelStep = 64 * 1024 * 1024;

Handle OpenPath(const std::string& path, int flags) {
  constexpr mode_t kMode = S_IRUSR | S_IWUSR;
  return Handle(Retry(
      [&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, kMode); }));
}

// Lets the kernel copy as far as it can between these two file systems. Failures are left to the
// plain loop, which goes on from where this stopped and meets a real one again.
off_t CopyInKernel(int from, int to) {
  off_t in = 0, out = 0;
  while (Retry([&] { return ::copy_file_range(from, &in, to, &out, kKernelStep, 0); }) > 0) {
  }
  return out;
}

Status CopyContent(int from, OpenFile& to, off_t offset) {
  std::array<char, kBlock> block;
  for (;;) {
    const auto got = Retry([&] { return ::pread(from, block.data(), block.size(), offset); });
    if (got == -1) return LastStatus();
    if (got == 0) return {};
    std::size_t done = 0;
    const Status status = to.Write(static_cast<std::uint64_t>(offset), block.data(),
                                   static_cast<std::size_t>(got), done);
    if (!status.Ok()) return status;
    offset += got;
  }
}

Status Fill(const Handle& from, const struct stat& source, Handle to) {
  struct stat target;
  if (::fstat(to.Get(), &target) != 0) return LastStatus();
  if (target.st_dev == source.st_dev && target.st_ino == source.st_ino) return StatusOf(EBUSY);
  const int fd = to.Get();
  OpenFile file(std::move(to));
  Status status = target.st_size != 0 ? file.Truncate(0) : Status();
  if (status.Ok()) status = CopyContent(from.Get(), file, CopyInKernel(from.Get(), fd));
  if (!status.Ok()) return status;
  const struct timespec times[2] = {{0, UTIME_OMIT}, source.st_mtim};
  return StatusOfCall(::futimens(fd, times));
}

// Takes from away and keeps to, or the other way round when from cannot be removed.
Status Settle(const std::string& from, const std::string& to, const Status& copied) {
  if (copied.Ok() && ::unlink(from.c_str()) == 0) return {};
  const Status failure = copied.Ok() ? LastStatus() : copied;
  if (::unlink(to.c_str()) != 0) return LastStatus();
  return failure;
}

Status MoveAcross(PosixFileSystem& files, const std::string& from, const std::string& to) {
  if (const Status status = files.Copy(from, to, false); !status.Ok()) return status;
  const Handle made = OpenPath(to, O_RDONLY);
  if (!made.Valid()) return Settle(from, to, LastStatus());
  return Settle(from, to, StatusOfCall(Retry([&] { return ::fdatasync(made.Get()); })));
}

// For file systems that cannot rename without overwriting: a second name, then the first one away.
// What has no second names (a directory) is looked for and renamed, which only another process
// could come between.
Status MoveByLink(const std::string& from, const std::string& to) {
  if (::link(from.c_str(), to.c_str()) == 0) return Settle(from, to, Status());
  if (errno == EEXIST) return LastStatus();
  struct stat there;
  if (::lstat(to.c_str(), &there) == 0) return StatusOf(EEXIST);
  return StatusOfCall(::rename(from.c_str(), to.c_str()));
}

}  // namespace

Status PosixFileSystem::Copy(const std::string& from, const std::string& to, bool overwrite) {
  const Handle source = OpenPath(from, O_RDONLY);
  if (!source.Valid()) return LastStatus();
  struct stat state;
  if (::fstat(source.Get(), &state) != 0) return LastStatus();
  if (S_ISDIR(state.st_mode)) return StatusOf(EISDIR);

  Handle target = OpenPath(to, O_WRONLY | O_CREAT | O_EXCL);
  const bool made = target.Valid();
  if (!made && errno == EEXIST && overwrite) target = OpenPath(to, O_WRONLY | O_NOFOLLOW);
  if (!target.Valid()) return LastStatus();
  const Status status = Fill(source, state, std::move(target));
  if (!status.Ok() && made && ::unlink(to.c_str()) != 0) return LastStatus();
  return status;
}

Status PosixFileSystem::Move(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
  struct stat state;
  const int error = errno;
  if (error == EXDEV && ::stat(from.c_str(), &state) == 0 && !S_ISDIR(state.st_mode)) {
    return MoveAcross(*this, from, to);
  }
  if (error == EINVAL || error == ENOSYS) return MoveByLink(from, to);
  return StatusOf(error);
}

}  // namespace platform::posix
