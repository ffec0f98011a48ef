#include "platform/win32/FileSystem.h"

#include "platform/Lasting.h"
#include "platform/System.h"
#include "platform/win32/OpenFile.h"
#include "platform/win32/Wide.h"

namespace platform {
namespace win32 {
namespace {

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
Handle OpenToAsk(const std::wstring& path) {
  constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  return Handle(::CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kAll, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

FileKind KindOf(const WIN32_FIND_DATAW& entry) {
  if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return FileKind::Link;
  const bool directory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return directory ? FileKind::Directory : FileKind::File;
}

bool IsDots(const std::string& name) {
  return name == "." || name == "..";
}

// Only an administrator may flush a volume, and not every kind of volume can be.
Status OfVolume(DWORD error) {
  switch (error) {
    case ERROR_ACCESS_DENIED:
    case ERROR_INVALID_FUNCTION:
    case ERROR_NOT_SUPPORTED:
      return {Cause::Unsupported, static_cast<int>(error)};
    default:
      return StatusOf(error);
  }
}

}  // namespace

Status Win32FileSystem::Open(const std::string& path, const OpenOptions& options,
                             std::unique_ptr<File>& file) {
  const bool empties = options.disposition == Disposition::CreateAlways;
  const bool writes = options.access == Access::ReadWrite || empties;
  const std::wstring wide = WidePath(path);
  if (empties && IsLink(wide)) return StatusOf(ERROR_CANT_RESOLVE_FILENAME);
  const DWORD access = writes ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
  const DWORD through = options.writeThrough ? FILE_FLAG_WRITE_THROUGH : 0;
  Handle handle(::CreateFileW(wide.c_str(), access, SharingOf(options.sharing), nullptr,
                              CreationOf(options.disposition), FILE_ATTRIBUTE_NORMAL | through,
                              nullptr));
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
  const std::wstring wide = WidePath(path);
  const bool isLink = IsLink(wide);
  const Handle handle = OpenToAsk(wide);
  const Status status = handle.Valid() ? InfoOf(handle, info) : LastStatus();
  if (!status.Ok() && status.Why() != Cause::NotFound) return status;
  if (isLink && !handle.Valid()) info.kind = FileKind::Link;
  info.isLink = isLink;
  return {};
}

Status Win32FileSystem::SetAttributes(const std::string& path, std::uint32_t attributes) {
  constexpr std::uint32_t kSettable = attribute::ReadOnly | attribute::Archive;
  const DWORD bits = attributes & kSettable;
  return StatusOfCall(
      ::SetFileAttributesW(WidePath(path).c_str(), bits != 0 ? bits : FILE_ATTRIBUTE_NORMAL));
}

Status Win32FileSystem::MakeDirectory(const std::string& path) {
  return StatusOfCall(::CreateDirectoryW(WidePath(path).c_str(), nullptr));
}

Status Win32FileSystem::RemoveDirectory(const std::string& path) {
  const std::wstring directory = WidePath(path);
  return StatusOfCall(::RemoveDirectoryW(directory.c_str()));
}

Status Win32FileSystem::List(const std::string& path, std::vector<DirectoryEntry>& entries) {
  entries.clear();
  WIN32_FIND_DATAW entry{};
  const HANDLE search = ::FindFirstFileW(WidePath(path + "\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return LastStatus();
  const std::unique_ptr<HANDLE, CloseSearch> owner(search);
  do {
    std::string name = Narrow(entry.cFileName);
    if (!IsDots(name)) entries.push_back({std::move(name), KindOf(entry)});
  } while (::FindNextFileW(search, &entry));
  return ::GetLastError() == ERROR_NO_MORE_FILES ? Status() : LastStatus();
}

// The system's journal orders creations and renames itself; there is nothing to wait for but the
// path's existence.
Status Win32FileSystem::SyncDirectory(const std::string& path) {
  return StatusOfCall(::GetFileAttributesW(WidePath(path).c_str()) != INVALID_FILE_ATTRIBUTES);
}

Status Win32FileSystem::SyncVolume(const std::string& path) {
  wchar_t root[MAX_PATH];
  if (!::GetVolumePathNameW(WidePath(path).c_str(), root, std::size(root))) return LastStatus();
  wchar_t name[MAX_PATH];
  // A network's drive, or one that stands for a directory, is no volume that could be flushed.
  if (!::GetVolumeNameForVolumeMountPointW(root, name, std::size(name)))
    return {Cause::Unsupported, static_cast<int>(::GetLastError())};
  std::wstring volume(name);
  volume.pop_back();  // without its separator it is the volume, with it the root directory
  const Handle handle(::CreateFileW(volume.c_str(), GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                    nullptr));
  if (!handle.Valid()) return OfVolume(::GetLastError());
  return ::FlushFileBuffers(handle.Get()) ? Status() : OfVolume(::GetLastError());
}

Status Win32FileSystem::FreeSpace(const std::string& path, std::uint64_t& bytes) {
  ULARGE_INTEGER available{};
  if (!::GetDiskFreeSpaceExW(WidePath(path).c_str(), &available, nullptr, nullptr))
    return LastStatus();
  bytes = available.QuadPart;
  return {};
}

}  // namespace win32

FileSystem& SystemFiles() {
  static const Lasting<win32::Win32FileSystem> files;
  return *files;
}

bool OpenFilesCanBeRemoved() {
  return false;
}

std::string FullPath(const std::string& path) {
  if (path.empty()) return path;
  const std::wstring wide = win32::WidePath(path);
  const DWORD needed = ::GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  std::wstring full(needed, L'\0');
  const DWORD length = ::GetFullPathNameW(wide.c_str(), needed, full.data(), nullptr);
  if (length == 0 || length >= needed) return path;
  full.resize(length);
  return win32::Narrow(full);
}

char Separator() {
  return '\\';
}
bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

}  // namespace platform
