#include "platform/win32/OpenFile.h"

#include <algorithm>

namespace platform::win32 {
namespace {

constexpr std::size_t kLongestCall = std::size_t{1} << 30;
constexpr std::int64_t kTicks = 10'000'000;      // of 100 ns in a second
constexpr std::int64_t kEpoch = 11'644'473'600;  // seconds from 1601 to 1970
constexpr std::int64_t kNanoseconds = 1'000'000'000;
// Update locks lie far behind any content, so that they keep nobody from reading or writing.
constexpr DWORD kLockHigh = 0x7FFFFFFF;

std::uint64_t Joined(DWORD high, DWORD low) {
  return std::uint64_t{high} << 32 | low;
}
DWORD Low(std::uint64_t value) {
  return static_cast<DWORD>(value);
}
DWORD High(std::uint64_t value) {
  return static_cast<DWORD>(value >> 32);
}

std::int64_t SinceEpochNs(LONGLONG ticks) {
  return (ticks - kEpoch * kTicks) * (kNanoseconds / kTicks);
}

FileKind KindOf(DWORD attributes) {
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return FileKind::Directory;
  return (attributes & FILE_ATTRIBUTE_DEVICE) != 0 ? FileKind::Other : FileKind::File;
}

OVERLAPPED At(std::uint64_t offset) {
  OVERLAPPED position{};
  position.Offset = Low(offset);
  position.OffsetHigh = High(offset);
  return position;
}

DWORD Step(std::size_t left) {
  return static_cast<DWORD>(std::min(left, kLongestCall));
}

}  // namespace

Status InfoOf(const Handle& file, FileInfo& info) {
  BY_HANDLE_FILE_INFORMATION from{};
  FILE_BASIC_INFO times{};
  if (!::GetFileInformationByHandle(file.Get(), &from)) return LastStatus();
  if (!::GetFileInformationByHandleEx(file.Get(), FileBasicInfo, &times, sizeof times)) {
    return LastStatus();
  }
  info = {};
  info.kind = KindOf(from.dwFileAttributes);
  info.length = Joined(from.nFileSizeHigh, from.nFileSizeLow);
  const std::int64_t modifiedNs = SinceEpochNs(times.LastWriteTime.QuadPart);
  info.modified = modifiedNs / kNanoseconds;
  info.attributes =
      from.dwFileAttributes & (attribute::ReadOnly | attribute::Directory | attribute::Archive);
  info.othersMayAccess = false;  // access lists are the administrator's business
  info.stamp = {from.dwVolumeSerialNumber, Joined(from.nFileIndexHigh, from.nFileIndexLow),
                info.length, modifiedNs, SinceEpochNs(times.ChangeTime.QuadPart)};
  return {};
}

bool IsLink(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

Status OpenFile::Read(std::uint64_t offset, void* data, std::size_t size, std::size_t& done) {
  done = 0;
  while (done < size) {
    OVERLAPPED position = At(offset + done);
    DWORD got = 0;
    char* to = static_cast<char*>(data) + done;
    if (!::ReadFile(m_handle.Get(), to, Step(size - done), &got, &position)) {
      return ::GetLastError() == ERROR_HANDLE_EOF ? Status() : LastStatus();
    }
    if (got == 0) break;
    done += got;
  }
  return {};
}

Status OpenFile::Write(std::uint64_t offset, const void* data, std::size_t size,
                       std::size_t& done) {
  done = 0;
  while (done < size) {
    OVERLAPPED position = At(offset + done);
    DWORD put = 0;
    const char* from = static_cast<const char*>(data) + done;
    if (!::WriteFile(m_handle.Get(), from, Step(size - done), &put, &position)) return LastStatus();
    if (put == 0) return StatusOf(ERROR_DISK_FULL);
    done += put;
  }
  return {};
}

// All ones as the position means the end of the file at the time of the write.
Status OpenFile::Append(const void* data, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    OVERLAPPED position = At(~std::uint64_t{0});
    DWORD put = 0;
    const char* from = static_cast<const char*>(data) + done;
    if (!::WriteFile(m_handle.Get(), from, Step(size - done), &put, &position)) return LastStatus();
    if (put == 0) return StatusOf(ERROR_DISK_FULL);
    done += put;
  }
  return {};
}

Status OpenFile::GetInfo(FileInfo& info) {
  return InfoOf(m_handle, info);
}

Status OpenFile::Truncate(std::uint64_t length) {
  const std::lock_guard guard(m_position);
  LARGE_INTEGER to;
  to.QuadPart = static_cast<LONGLONG>(length);
  if (!::SetFilePointerEx(m_handle.Get(), to, nullptr, FILE_BEGIN)) return LastStatus();
  return StatusOfCall(::SetEndOfFile(m_handle.Get()));
}

// What was written is on its way; what was changed through a view is sent on it.
Status OpenFile::StartWriteOut() {
  return m_views->WriteOut();
}

Status OpenFile::Sync() {
  if (const Status status = m_views->WriteOut(); !status.Ok()) return status;
  return StatusOfCall(::FlushFileBuffers(m_handle.Get()));
}

Status OpenFile::Map(std::uint64_t length, Access access, std::unique_ptr<View>& view) {
  FileInfo info;
  if (const Status status = GetInfo(info); !status.Ok()) return status;
  if (length > info.length) return StatusOf(ERROR_INVALID_PARAMETER);
  if (length > SIZE_MAX) return StatusOf(ERROR_NOT_ENOUGH_MEMORY);
  if (length == 0) {
    view = std::make_unique<MappedView>(Handle(), Mapping(), 0, m_views);
    return {};
  }
  const bool writes = access == Access::ReadWrite;
  const Handle mapping(::CreateFileMappingW(m_handle.Get(), nullptr,
                                            writes ? PAGE_READWRITE : PAGE_READONLY, High(length),
                                            Low(length), nullptr));
  if (!mapping.Valid()) return LastStatus();
  Mapping base(::MapViewOfFile(mapping.Get(), writes ? FILE_MAP_WRITE : FILE_MAP_READ, 0, 0,
                               static_cast<SIZE_T>(length)));
  if (base == nullptr) return LastStatus();
  HANDLE twin = nullptr;
  const HANDLE self = ::GetCurrentProcess();
  if (!::DuplicateHandle(self, m_handle.Get(), self, &twin, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
    return LastStatus();
  }
  view = std::make_unique<MappedView>(Handle(twin), std::move(base), length, m_views);
  return {};
}

Status OpenFile::LockForUpdate() {
  OVERLAPPED position{};
  position.OffsetHigh = kLockHigh;
  return StatusOfCall(::LockFileEx(m_handle.Get(), LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &position));
}

void ViewList::Add(MappedView& view) {
  const std::lock_guard guard(m_mutex);
  m_views.push_back(&view);
}

void ViewList::Remove(MappedView& view) {
  const std::lock_guard guard(m_mutex);
  std::erase(m_views, &view);
}

Status ViewList::WriteOut() {
  const std::lock_guard guard(m_mutex);
  for (MappedView* view : m_views) {
    if (const Status status = view->WriteOut(); !status.Ok()) return status;
  }
  return {};
}

MappedView::MappedView(Handle file, Mapping base, std::uint64_t length,
                       std::shared_ptr<ViewList> all)
    : m_file(std::move(file)), m_mapping(std::move(base)), m_all(std::move(all)) {
  m_base = static_cast<std::byte*>(m_mapping.get());
  m_length = length;
  m_all->Add(*this);
}

MappedView::~MappedView() {
  m_all->Remove(*this);
}

Status MappedView::WriteOut() {
  return m_base == nullptr ? Status() : StatusOfCall(::FlushViewOfFile(m_base, 0));
}

Status MappedView::Flush(std::uint64_t offset, std::uint64_t length) {
  if (offset > m_length || length > m_length - offset) return StatusOf(ERROR_INVALID_PARAMETER);
  if (length == 0) return {};
  if (!::FlushViewOfFile(m_base + offset, static_cast<SIZE_T>(length))) return LastStatus();
  return StatusOfCall(::FlushFileBuffers(m_file.Get()));
}

}  // namespace platform::win32
