// The file system that Windows gives.
#pragma once

#include "platform/File.h"

namespace platform::win32 {

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

}  // namespace platform::win32
