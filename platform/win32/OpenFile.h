// An open file and a mapped view of it.
#pragma once

#include <mutex>

#include "platform/File.h"
#include "platform/win32/Handle.h"

namespace platform::win32 {

FileInfo InfoOf(const BY_HANDLE_FILE_INFORMATION& from);

class OpenFile final : public File {
 public:
  explicit OpenFile(Handle handle) : m_handle(std::move(handle)) {}

  Status Read(std::uint64_t offset, void* data, std::size_t size, std::size_t& done) override;
  Status Write(std::uint64_t offset, const void* data, std::size_t size,
               std::size_t& done) override;
  Status Append(const void* data, std::size_t size) override;
  Status GetInfo(FileInfo& info) override;
  Status Truncate(std::uint64_t length) override;
  Status StartWriteOut() override;
  Status Sync() override;
  Status Map(std::uint64_t length, Access access, std::unique_ptr<View>& view) override;
  Status LockForUpdate() override;

 private:
  Handle m_handle;
  std::mutex m_position;  // Truncate moves the one file pointer
};

// Views keep the mapping alive, so its handle is closed as soon as the view is there.
class MappedView final : public View {
 public:
  MappedView(Handle file, void* base, std::uint64_t length) : m_file(std::move(file)) {
    m_base = static_cast<std::byte*>(base);
    m_length = length;
  }
  ~MappedView() override;
  Status Flush(std::uint64_t offset, std::uint64_t length) override;

 private:
  Handle m_file;  // flushing a view hands the bytes to the file only; it is synced through this
};

}  // namespace platform::win32
