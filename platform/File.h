// Files, mapped views and directories, as the operating system gives them.
//
// Every access that the library makes to a disk goes through the one FileSystem that Files()
// returns, so that a test can put a recording or failing one in its place (SetFiles) and see or
// break each call.
//
// Paths are native 8-bit strings (UTF-8). No call throws; each says its outcome as a Status, and
// output arguments are only meaningful after success unless a call says otherwise.
//
// Threads: a FileSystem may be used from any number of threads. A File or View may be used from
// several threads as long as the caller keeps conflicting ranges apart; closing one is the owner's
// business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Status.h"

namespace platform {

enum class Access { Read, ReadWrite };

enum class Disposition {
  OpenExisting,  // NotFound when there is none
  OpenOrCreate,
  CreateNew,     // AlreadyExists when there is one
  CreateAlways,  // an existing file is emptied (after the sharing check, not before it); fails
                 // where a link has the name
};

// What others may do with the file while it is open. Never waits: a conflict answers InUse at once.
enum class Sharing {
  ReadOnly,  // other readers are welcome; one writer excludes everybody else, in this process too
  All,       // no restriction (journals, attachment files, the master file)
};

struct OpenOptions {
  Access access = Access::Read;
  Disposition disposition = Disposition::OpenExisting;
  Sharing sharing = Sharing::All;
  bool writeThrough = false;  // every write has reached the medium when it returns
};

enum class FileKind : std::uint8_t { None, File, Directory, Link, Other };

// File attribute bits, with their Windows values. On POSIX, ReadOnly mirrors the owner's write
// permission, Directory the kind, and Archive is always reported for files; setting them changes
// the permission only.
namespace attribute {
inline constexpr std::uint32_t ReadOnly = 0x1;
inline constexpr std::uint32_t Directory = 0x10;
inline constexpr std::uint32_t Archive = 0x20;
}  // namespace attribute

struct FileInfo {
  FileKind kind = FileKind::None;  // None: there is nothing under that path (not an error)
  std::uint64_t length = 0;
  std::int64_t modified = 0;  // seconds since 1970-01-01 UTC
  std::uint32_t attributes = 0;
  // The path itself names a link; all else tells of what that leads to (nothing: kind is Link).
  bool isLink = false;
  // Others than the owner may read, write or run it. Only POSIX tells; false elsewhere.
  bool othersMayAccess = false;
  // Changes whenever another file stands under the path or the content was written through the
  // system.
  struct Stamp {
    std::uint64_t device = 0, file = 0, length = 0;
    std::int64_t modifiedNs = 0, changedNs = 0;
    bool operator==(const Stamp&) const = default;
  } stamp;
};

struct DirectoryEntry {
  std::string name;                // without the directory; "." and ".." are left out
  FileKind kind = FileKind::None;  // of the entry itself: a link is a Link, wherever it leads
};

// A mapped range of a file, from offset 0. Unmapped on destruction, without a flush.
class View {
 public:
  virtual ~View() = default;
  std::byte* Base() const { return m_base; }
  std::uint64_t Length() const { return m_length; }
  // Returns when the changed bytes of the range have reached the medium.
  virtual Status Flush(std::uint64_t offset, std::uint64_t length) = 0;

 protected:
  std::byte* m_base = nullptr;
  std::uint64_t m_length = 0;
};

// An open file. Closed, and its sharing given up, on destruction.
class File {
 public:
  virtual ~File() = default;
  // Reads up to size bytes; done < size only at the end of the file.
  virtual Status Read(std::uint64_t offset, void* data, std::size_t size, std::size_t& done) = 0;
  // Writes size bytes. After a failure, done says how many of them were written (a full disk may
  // cut a write short).
  virtual Status Write(std::uint64_t offset, const void* data, std::size_t size,
                       std::size_t& done) = 0;
  // Writes size zero bytes, and really writes them, in pieces of at most 4,096; as many pieces at a
  // time as the system takes.
  virtual Status WriteZeros(std::uint64_t offset, std::uint64_t size);
  // One write at the end of the file, wherever that is by then; other appenders' bytes stay whole.
  virtual Status Append(const void* data, std::size_t size) = 0;
  virtual Status GetInfo(FileInfo& info) = 0;
  // Cuts or extends. No view may be there when a file is cut: Windows refuses, POSIX would take the
  // bytes away under it.
  virtual Status Truncate(std::uint64_t length) = 0;
  // Asks the system to begin writing what is dirty; returns without waiting.
  virtual Status StartWriteOut() = 0;
  // Returns when everything written or changed through a view has reached the medium. After a
  // failure the state of the file on the medium is unknown, and a later success proves nothing.
  virtual Status Sync() = 0;
  // Maps the first length bytes, which the file must have.
  virtual Status Map(std::uint64_t length, Access access, std::unique_ptr<View>& view) = 0;
  // Waits for, then holds, the one inter-process writer lock of this file until it is closed.
  virtual Status LockForUpdate() = 0;

 protected:
  static constexpr std::size_t kZeroPiece = 4096;
};

class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // Files are created readable and writable by their owner only.
  virtual Status Open(const std::string& path, const OpenOptions& options,
                      std::unique_ptr<File>& file) = 0;
  // kind None when there is nothing; links are followed except for kind Link of a dangling one.
  virtual Status GetInfo(const std::string& path, FileInfo& info) = 0;
  // Bytes and last-write time; attributes are the target's own business. Fails where a link has the
  // target's name.
  virtual Status Copy(const std::string& from, const std::string& to, bool overwrite) = 0;
  // AlreadyExists when the target is there. Copies and removes when the two are on different
  // volumes.
  virtual Status Move(const std::string& from, const std::string& to) = 0;
  // Puts from in the place of to in one step: nobody ever sees neither of them. This, Move and
  // Remove want files that nobody has open or mapped: Windows answers InUse, after having waited a
  // moment for another program to let go.
  virtual Status Replace(const std::string& from, const std::string& to) = 0;
  virtual Status Remove(const std::string& path) = 0;
  virtual Status SetAttributes(const std::string& path, std::uint32_t attributes) = 0;

  // The parent must exist; AlreadyExists when the name is taken. Accessible to the owner only.
  virtual Status MakeDirectory(const std::string& path) = 0;
  virtual Status RemoveDirectory(const std::string& path) = 0;
  // Unsorted.
  virtual Status List(const std::string& path, std::vector<DirectoryEntry>& entries) = 0;
  // Returns when creations, renames and removals in the directory have reached the medium.
  virtual Status SyncDirectory(const std::string& path) = 0;
  // Returns when everything written to the volume that holds path has reached the medium.
  // Unsupported where only an administrator may ask for that (Windows).
  virtual Status SyncVolume(const std::string& path) = 0;
  // Bytes that this process may still write on the volume that holds path.
  virtual Status FreeSpace(const std::string& path, std::uint64_t& bytes) = 0;
};

// The file system in use: the operating system's unless SetFiles put another in its place.
FileSystem& Files();
// Puts another file system in place (null: the operating system's again) and returns the previous
// one. The caller keeps ownership and makes sure that no file of the previous one is still in use.
FileSystem* SetFiles(FileSystem* files);

// Whether a file can be removed while it is open, as on POSIX. Where it cannot, nobody can take
// away what another has open either.
bool OpenFilesCanBeRemoved();

// The path from the root on: a relative one is taken from the current directory, as text. "" stays.
std::string FullPath(const std::string& path);

// The native separator, and what of it a path may end in.
char Separator();
bool IsSeparator(char c);

}  // namespace platform
