#include "platform/Lasting.h"
#include "platform/System.h"
#include "platform/win32/OpenFile.h"

namespace platform {
namespace win32 {
namespace {

class Win32FileSystem final : public FileSystem {
 public:
  Status Open(const std::string& path, const OpenOptions& options,
              std::unique_ptr<File>& file) override;
  Status GetInfo(const std::string& path, FileInfo& info) override;
  Status Copy(const std::string& from, const std::string& to, bool overwrite) override;
  Status Move(const std::string& from, const std::string& to) override;
  Status Replace(const std::string& from, const std::string& to) override;
  Status Remove(const std::string& path) override;
  Status SetAttributes(const std::string& path, std::uint32_t attributes) override;
  Status MakeDirectory(const std::string& path) override;
  Status RemoveDirectory(const std::string& path) override;
  Status List(const std::string& path, std::vector<DirectoryEntry>& entries) override;
  Status SyncDirectory(const std::string& path) override;
  Status SyncVolume(const std::string& path) override;
  Status FreeSpace(const std::string& path, std::uint64_t& bytes) override;
};

struct CloseSearch {
  using pointer = HANDLE;
  void operator()(HANDLE search) const { ::FindClose(search); }
};

DWORD CreationOf(Disposition disposition) {
  switch (disposition) {
    case Disposition::OpenExisting:
      return OPEN_EXISTING;
    case Disposition::OpenOrCreate:
      return OPEN_ALWAYS;
    case Disposition::CreateNew:
      return CREATE_NEW;
    case Disposition::CreateAlways:
      return OPEN_ALWAYS;  // emptied after opening, which keeps the attributes of a hidden file
  }
  return OPEN_EXISTING;
}

DWORD SharingOf(Sharing sharing) {
  constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  return sharing == Sharing::ReadOnly ? FILE_SHARE_READ : kAll;
}

// Opens for asking the system something about the path, be it file or directory.
Handle OpenToAsk(const std::string& path) {
  constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  return Handle(::CreateFileA(path.c_str(), FILE_READ_ATTRIBUTES, kAll, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

FileKind KindOf(const WIN32_FIND_DATAA& entry) {
  if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return FileKind::Link;
  const bool directory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return directory ? FileKind::Directory : FileKind::File;
}

bool IsDots(const std::string& name) {
  return name == "." || name == "..";
}

Status Win32FileSystem::Open(const std::string& path, const OpenOptions& options,
                             std::unique_ptr<File>& file) {
  const bool empties = options.disposition == Disposition::CreateAlways;
  const bool writes = options.access == Access::ReadWrite || empties;
  const DWORD access = writes ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
  Handle handle(::CreateFileA(path.c_str(), access, SharingOf(options.sharing), nullptr,
                              CreationOf(options.disposition), FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!handle.Valid()) return LastStatus();
  auto opened = std::make_unique<OpenFile>(std::move(handle));
  if (empties) {
    if (const Status status = opened->Truncate(0); !status.Ok()) return status;
  }
  file = std::move(opened);
  return {};
}

Status Win32FileSystem::GetInfo(const std::string& path, FileInfo& info) {
  info = {};
  const Handle handle = OpenToAsk(path);
  if (!handle.Valid()) {
    const Status status = LastStatus();
    return status.Why() == Cause::NotFound ? Status() : status;
  }
  BY_HANDLE_FILE_INFORMATION state{};
  if (!::GetFileInformationByHandle(handle.Get(), &state)) return LastStatus();
  info = InfoOf(state);
  return {};
}

// The system copies the attributes as well, which a write-protected source would leave in the way
// of its copy.
Status Win32FileSystem::Copy(const std::string& from, const std::string& to, bool overwrite) {
  if (!::CopyFileA(from.c_str(), to.c_str(), !overwrite)) return LastStatus();
  return SetAttributes(to, attribute::Archive);
}

// A directory cannot be moved by copying, hence the two calls.
Status Win32FileSystem::Move(const std::string& from, const std::string& to) {
  if (::MoveFileA(from.c_str(), to.c_str())) return {};
  if (::GetLastError() != ERROR_NOT_SAME_DEVICE) return LastStatus();
  return StatusOfCall(
      ::MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH));
}

Status Win32FileSystem::Replace(const std::string& from, const std::string& to) {
  return StatusOfCall(
      ::MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
}

Status Win32FileSystem::Remove(const std::string& path) {
  return StatusOfCall(::DeleteFileA(path.c_str()));
}

Status Win32FileSystem::SetAttributes(const std::string& path, std::uint32_t attributes) {
  constexpr std::uint32_t kSettable = attribute::ReadOnly | attribute::Archive;
  const DWORD bits = attributes & kSettable;
  return StatusOfCall(::SetFileAttributesA(path.c_str(), bits != 0 ? bits : FILE_ATTRIBUTE_NORMAL));
}

Status Win32FileSystem::MakeDirectory(const std::string& path) {
  return StatusOfCall(::CreateDirectoryA(path.c_str(), nullptr));
}

Status Win32FileSystem::RemoveDirectory(const std::string& path) {
  return StatusOfCall(::RemoveDirectoryA(path.c_str()));
}

Status Win32FileSystem::List(const std::string& path, std::vector<DirectoryEntry>& entries) {
  entries.clear();
  WIN32_FIND_DATAA entry{};
  const HANDLE search = ::FindFirstFileA((path + "\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return LastStatus();
  const std::unique_ptr<HANDLE, CloseSearch> owner(search);
  do {
    if (!IsDots(entry.cFileName)) entries.push_back({entry.cFileName, KindOf(entry)});
  } while (::FindNextFileA(search, &entry));
  return ::GetLastError() == ERROR_NO_MORE_FILES ? Status() : LastStatus();
}

// The system's journal orders creations and renames itself; there is nothing to wait for but the
// path's existence.
Status Win32FileSystem::SyncDirectory(const std::string& path) {
  return StatusOfCall(::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES);
}

// Flushing a whole volume is for administrators: whoever is none gets the answer that the system
// gives.
Status Win32FileSystem::SyncVolume(const std::string& path) {
  char root[MAX_PATH];
  if (!::GetVolumePathNameA(path.c_str(), root, sizeof root)) return LastStatus();
  char name[MAX_PATH];
  if (!::GetVolumeNameForVolumeMountPointA(root, name, sizeof name)) return LastStatus();
  std::string volume(name);
  volume.pop_back();  // without its separator it is the volume, with it the root directory
  const Handle handle(::CreateFileA(volume.c_str(), GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                    nullptr));
  if (!handle.Valid()) return LastStatus();
  return StatusOfCall(::FlushFileBuffers(handle.Get()));
}

Status Win32FileSystem::FreeSpace(const std::string& path, std::uint64_t& bytes) {
  ULARGE_INTEGER available{};
  if (!::GetDiskFreeSpaceExA(path.c_str(), &available, nullptr, nullptr)) return LastStatus();
  bytes = available.QuadPart;
  return {};
}

}  // namespace
}  // namespace win32

FileSystem& SystemFiles() {
  static const Lasting<win32::Win32FileSystem> files;
  return *files;
}

std::string FullPath(const std::string& path) {
  if (path.empty()) return path;
  const DWORD needed = ::GetFullPathNameA(path.c_str(), 0, nullptr, nullptr);
  if (needed == 0) return path;
  std::string full(needed, '\0');
  full.resize(::GetFullPathNameA(path.c_str(), needed, full.data(), nullptr));
  return full;
}

char Separator() {
  return '\\';
}
bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

}  // namespace platform
