// The system's files, of which only those below one directory may be changed. It is in place while
// it lives.
//
// A change anywhere else is refused, so that no input can harm the machine; where it is none that
// the input could rightly ask for, it ends the process.
#pragma once

#include <cerrno>
#include <string>

#include "Scratch.h"
#include "platform/File.h"

namespace fuzz {

class GuardedFiles final : public platform::FileSystem {
 public:
  enum class Stray { Refuse, Abort };
  using Status = platform::Status;

  GuardedFiles(std::string directory, Stray stray)
      : m_directory(std::move(directory)),
        m_stray(stray),
        m_real(platform::Files()),
        m_previous(platform::SetFiles(this)) {}
  ~GuardedFiles() override { platform::SetFiles(m_previous); }
  GuardedFiles(const GuardedFiles&) = delete;
  GuardedFiles& operator=(const GuardedFiles&) = delete;

  Status Open(const std::string& path, const platform::OpenOptions& options,
              std::unique_ptr<platform::File>& file) override {
    const bool changes = options.access == platform::Access::ReadWrite ||
                         options.disposition != platform::Disposition::OpenExisting;
    if (!changes) return m_real.Open(path, options, file);
    return Changing(path, [&] { return m_real.Open(path, options, file); });
  }
  Status Copy(const std::string& from, const std::string& to, bool overwrite) override {
    return Changing(to, [&] { return m_real.Copy(from, to, overwrite); });
  }
  Status Move(const std::string& from, const std::string& to) override {
    return Changing(from, [&] { return Changing(to, [&] { return m_real.Move(from, to); }); });
  }
  Status Replace(const std::string& from, const std::string& to) override {
    return Changing(from, [&] { return Changing(to, [&] { return m_real.Replace(from, to); }); });
  }
  Status Remove(const std::string& path) override {
    return Changing(path, [&] { return m_real.Remove(path); });
  }
  Status SetAttributes(const std::string& path, std::uint32_t attributes) override {
    return Changing(path, [&] { return m_real.SetAttributes(path, attributes); });
  }
  Status MakeDirectory(const std::string& path) override {
    return Changing(path, [&] { return m_real.MakeDirectory(path); });
  }
  Status RemoveDirectory(const std::string& path) override {
    return Changing(path, [&] { return m_real.RemoveDirectory(path); });
  }
  Status GetInfo(const std::string& path, platform::FileInfo& info) override {
    return m_real.GetInfo(path, info);
  }
  Status List(const std::string& path, std::vector<platform::DirectoryEntry>& entries) override {
    return m_real.List(path, entries);
  }
  Status SyncDirectory(const std::string& path) override { return m_real.SyncDirectory(path); }
  Status SyncVolume(const std::string& path) override { return m_real.SyncVolume(path); }
  Status FreeSpace(const std::string& path, std::uint64_t& bytes) override {
    return m_real.FreeSpace(path, bytes);
  }

 private:
  template <class Change>
  Status Changing(const std::string& path, Change change) const {
    const bool climbs = (path + "/").find("/../") != path.npos;
    const bool isInside = path.starts_with(m_directory) && !climbs &&
                          (path.size() == m_directory.size() || path[m_directory.size()] == '/');
    if (isInside) return change();
    // A whole path may be one that a client has stored; half of one never is.
    Expect(m_stray == Stray::Refuse && path.starts_with("/") && !climbs,
           "a change outside of the store: '" + path + "'");
    return {platform::Cause::AccessDenied, EACCES};
  }

  const std::string m_directory;
  const Stray m_stray;
  platform::FileSystem& m_real;
  platform::FileSystem* const m_previous;
};

}  // namespace fuzz
