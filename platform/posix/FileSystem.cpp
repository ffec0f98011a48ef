#include "platform/posix/FileSystem.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "platform/Lasting.h"
#include "platform/System.h"
#include "platform/posix/OpenFile.h"

namespace platform {
namespace posix {
namespace {

constexpr mode_t kFileMode = S_IRUSR | S_IWUSR;
constexpr mode_t kDirectoryMode = S_IRWXU;
constexpr mode_t kAnyWrite = S_IWUSR | S_IWGRP | S_IWOTH;

// O_TRUNC is never among them: a file is emptied only once the sharing check has passed.
int OpenFlags(const OpenOptions& options) {
  // Without O_NONBLOCK, opening a pipe that lies in the place of a file would wait for ever.
  int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  const bool writes = options.access == Access::ReadWrite;
  flags |= writes || options.disposition == Disposition::CreateAlways ? O_RDWR : O_RDONLY;
  if (options.disposition != Disposition::OpenExisting) flags |= O_CREAT;
  if (options.disposition == Disposition::CreateNew) flags |= O_EXCL;
  if (options.writeThrough) flags |= O_DSYNC;
  if (options.disposition == Disposition::CreateAlways) flags |= O_NOFOLLOW;
  return flags;
}

Status TakeSharing(int fd, const OpenOptions& options) {
  if (options.sharing == Sharing::All) return {};
  const int kind = options.access == Access::ReadWrite ? LOCK_EX : LOCK_SH;
  return StatusOfCall(Retry([&] { return ::flock(fd, kind | LOCK_NB); }));
}

// Opens for asking the system something about the path, be it file or directory.
Handle OpenToAsk(const std::string& path, int flags) {
  return Handle(Retry(
      [&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | flags); }));
}

}  // namespace

Status PosixFileSystem::Open(const std::string& path, const OpenOptions& options,
                             std::unique_ptr<File>& file) {
  Handle handle(Retry([&] { return ::open(path.c_str(), OpenFlags(options), kFileMode); }));
  if (!handle.Valid()) return LastStatus();
  struct stat state;
  if (::fstat(handle.Get(), &state) != 0) return LastStatus();
  if (S_ISDIR(state.st_mode)) return StatusOf(EISDIR);
  if (const Status status = TakeSharing(handle.Get(), options); !status.Ok()) return status;
  auto opened = std::make_unique<OpenFile>(std::move(handle));
  if (options.disposition == Disposition::CreateAlways) {
    if (const Status status = opened->Truncate(0); !status.Ok()) return status;
  }
  file = std::move(opened);
  return {};
}

Status PosixFileSystem::GetInfo(const std::string& path, FileInfo& info) {
  info = {};
  struct stat state;
  if (::lstat(path.c_str(), &state) != 0) {
    const Status status = LastStatus();
    return status.Why() == Cause::NotFound ? Status() : status;
  }
  const bool isLink = S_ISLNK(state.st_mode);
  // What a dangling one leads to leaves the link's own state in place.
  if (struct stat target; isLink && ::stat(path.c_str(), &target) == 0) state = target;
  info = InfoOf(state);
  info.isLink = isLink;
  return {};
}

Status PosixFileSystem::Replace(const std::string& from, const std::string& to) {
  return StatusOfCall(::rename(from.c_str(), to.c_str()));
}

Status PosixFileSystem::Remove(const std::string& path) {
  return StatusOfCall(::unlink(path.c_str()));
}

Status PosixFileSystem::SetAttributes(const std::string& path, std::uint32_t attributes) {
  struct stat state;
  if (::stat(path.c_str(), &state) != 0) return LastStatus();
  const mode_t mode = state.st_mode & 07777;
  const bool readOnly = (attributes & attribute::ReadOnly) != 0;
  const mode_t wanted = readOnly ? mode & ~kAnyWrite : mode | S_IWUSR;
  // Nothing to change is no failure, also where the caller could not change it.
  if (readOnly == ((mode & S_IWUSR) == 0)) return {};
  return StatusOfCall(::chmod(path.c_str(), wanted));
}

Status PosixFileSystem::MakeDirectory(const std::string& path) {
  return StatusOfCall(::mkdir(path.c_str(), kDirectoryMode));
}

Status PosixFileSystem::RemoveDirectory(const std::string& path) {
  if (::rmdir(path.c_str()) == 0) return {};
  // Some file systems say "exists" where they mean "not empty".
  return StatusOf(errno == EEXIST ? ENOTEMPTY : errno);
}

Status PosixFileSystem::SyncDirectory(const std::string& path) {
  const Handle handle = OpenToAsk(path, O_DIRECTORY);
  if (!handle.Valid()) return LastStatus();
  return StatusOfCall(Retry([&] { return ::fsync(handle.Get()); }));
}

Status PosixFileSystem::SyncVolume(const std::string& path) {
  const Handle handle = OpenToAsk(path, 0);
  if (!handle.Valid()) return LastStatus();
  return StatusOfCall(Retry([&] { return ::syncfs(handle.Get()); }));
}

Status PosixFileSystem::FreeSpace(const std::string& path, std::uint64_t& bytes) {
  struct statvfs state;
  if (Retry([&] { return ::statvfs(path.c_str(), &state); }) != 0) return LastStatus();
  bytes = std::uint64_t{state.f_bavail} * state.f_frsize;
  return {};
}

}  // namespace posix

FileSystem& SystemFiles() {
  static const Lasting<posix::PosixFileSystem> files;
  return *files;
}

bool OpenFilesCanBeRemoved() {
  return true;
}

std::string FullPath(const std::string& path) {
  if (path.empty() || path[0] == '/') return path;
  std::error_code failed;
  const std::filesystem::path here = std::filesystem::current_path(failed);
  // Where the current directory is gone, a relative path means nothing, and opening it says so.
  return failed ? path : (here / path).string();
}

char Separator() {
  return '/';
}
bool IsSeparator(char c) {
  return c == '/';
}

}  // namespace platform
