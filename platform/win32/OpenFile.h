// An open file and a mapped view of it.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "platform/File.h"
#include "platform/win32/Handle.h"

namespace platform::win32 {

class MappedView;

struct Unmap {
  void operator()(void* base) const { ::UnmapViewOfFile(base); }
};
using Mapping = std::unique_ptr<void, Unmap>;

Status InfoOf(const Handle& file, FileInfo& info);
// Whether the last step of the path is one, wherever it leads.
bool IsLink(const std::wstring& path);

// The views of one open file. The system writes out what was changed through a view only when it is
// asked to for that view; flushing the file does not do it.
class ViewList {
 public:
  void Add(MappedView& view);
  void Remove(MappedView& view);
  Status WriteOut();

 private:
  std::mutex m_mutex;
  std::vector<MappedView*> m_views;
};

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
  const std::shared_ptr<ViewList> m_views = std::make_shared<ViewList>();
  std::mutex m_position;  // Truncate moves the one file pointer
};

// Views keep the mapping alive, so its handle is closed as soon as the view is there.
class MappedView final : public View {
 public:
  // base maps length bytes; it is null for none.
  MappedView(Handle file, Mapping base, std::uint64_t length, std::shared_ptr<ViewList> all);
  ~MappedView() override;
  MappedView(const MappedView&) = delete;
  MappedView& operator=(const MappedView&) = delete;
  Status Flush(std::uint64_t offset, std::uint64_t length) override;
  // Hands the changed bytes to the file.
  Status WriteOut();

 private:
  Handle m_file;  // flushing a view hands the bytes to the file only; it is synced through this
  const Mapping m_mapping;
  const std::shared_ptr<ViewList> m_all;
};

}  // namespace platform::win32
