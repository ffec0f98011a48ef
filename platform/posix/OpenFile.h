// An open file and a mapped view of it.
#pragma once

#include <sys/stat.h>

#include "platform/File.h"
#include "platform/posix/Handle.h"

namespace platform::posix {

FileInfo InfoOf(const struct stat& from);

class OpenFile final : public File {
 public:
  explicit OpenFile(Handle handle) : m_handle(std::move(handle)) {}

  Status Read(std::uint64_t offset, void* data, std::size_t size, std::size_t& done) override;
  Status Write(std::uint64_t offset, const void* data, std::size_t size,
               std::size_t& done) override;
  Status WriteZeros(std::uint64_t offset, std::uint64_t size) override;
  Status Append(const void* data, std::size_t size) override;
  Status GetInfo(FileInfo& info) override;
  Status Truncate(std::uint64_t length) override;
  Status StartWriteOut() override;
  Status Sync() override;
  Status Map(std::uint64_t length, Access access, std::unique_ptr<View>& view) override;
  Status LockForUpdate() override;

 private:
  Handle m_handle;
};

class MappedView final : public View {
 public:
  // Nothing yet.
  MappedView() = default;
  void Take(void* base, std::uint64_t length) {
    m_base = static_cast<std::byte*>(base);
    m_length = length;
  }
  ~MappedView() override;
  Status Flush(std::uint64_t offset, std::uint64_t length) override;
};

}  // namespace platform::posix
