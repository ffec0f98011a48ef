// The system's files, of which only those below one directory may be changed. It is in place while
// it lives.
//
// A change anywhere else is refused, so that no input can harm the machine; where it is none that
// the input could rightly ask for, it ends the process.
#pragma once

#include <string>

#include "platform/File.h"

namespace fuzz {

class GuardedFiles final : public platform::FileSystem {
 public:
  enum class Stray { Refuse, Abort };
  GuardedFiles(std::string directory, Stray stray);
  ~GuardedFiles() override;
  GuardedFiles(const GuardedFiles&) = delete;
  GuardedFiles& operator=(const GuardedFiles&) = delete;

  using Status = platform::Status;
  Status Open(const std::string& path, const platform::OpenOptions& options,
              std::unique_ptr<platform::File>& file) override;
  Status GetInfo(const std::string& path, platform::FileInfo& info) override;
  Status Copy(const std::string& from, const std::string& to, bool overwrite) override;
  Status Move(const std::string& from, const std::string& to) override;
  Status Replace(const std::string& from, const std::string& to) override;
  Status Remove(const std::string& path) override;
  Status SetAttributes(const std::string& path, std::uint32_t attributes) override;
  Status MakeDirectory(const std::string& path) override;
  Status RemoveDirectory(const std::string& path) override;
  Status List(const std::string& path, std::vector<platform::DirectoryEntry>& entries) override;
  Status SyncDirectory(const std::string& path) override;
  Status SyncVolume(const std::string& path) override;
  Status FreeSpace(const std::string& path, std::uint64_t& bytes) override;

 private:
  // Refuses a change of that path, unless it lies inside.
  Status Check(const std::string& path) const;

  const std::string m_directory;
  const Stray m_stray;
  platform::FileSystem& m_real;
  platform::FileSystem* const m_previous;
};

}  // namespace fuzz
