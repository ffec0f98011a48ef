#include "GuardedFiles.h"

#include <cerrno>

#include "Scratch.h"

namespace fuzz {

using platform::Status;

GuardedFiles::GuardedFiles(std::string directory, Stray stray)
    : m_directory(std::move(directory)),
      m_stray(stray),
      m_real(platform::Files()),
      m_previous(platform::SetFiles(this)) {}

GuardedFiles::~GuardedFiles() {
  platform::SetFiles(m_previous);
}

Status GuardedFiles::Check(const std::string& path) const {
  const bool climbs = (path + "/").find("/../") != path.npos;
  const bool isInside = path.starts_with(m_directory) &&
                        (path.size() == m_directory.size() || path[m_directory.size()] == '/') &&
                        !climbs;
  if (isInside) return {};
  // A whole path may be one that a client has stored; half of one never is.
  Expect(m_stray == Stray::Refuse && path.starts_with("/") && !climbs,
         "a change outside of the store: '" + path + "'");
  return {platform::Cause::AccessDenied, EACCES};
}

Status GuardedFiles::Open(const std::string& path, const platform::OpenOptions& options,
                          std::unique_ptr<platform::File>& file) {
  const bool changes = options.access == platform::Access::ReadWrite ||
                       options.disposition != platform::Disposition::OpenExisting;
  if (const Status status = changes ? Check(path) : Status(); !status.Ok()) return status;
  return m_real.Open(path, options, file);
}
Status GuardedFiles::GetInfo(const std::string& path, platform::FileInfo& info) {
  return m_real.GetInfo(path, info);
}
Status GuardedFiles::Copy(const std::string& from, const std::string& to, bool overwrite) {
  const Status status = Check(to);
  return status.Ok() ? m_real.Copy(from, to, overwrite) : status;
}
Status GuardedFiles::Move(const std::string& from, const std::string& to) {
  for (const std::string& path : {from, to})
    if (const Status status = Check(path); !status.Ok()) return status;
  return m_real.Move(from, to);
}
Status GuardedFiles::Replace(const std::string& from, const std::string& to) {
  for (const std::string& path : {from, to})
    if (const Status status = Check(path); !status.Ok()) return status;
  return m_real.Replace(from, to);
}
Status GuardedFiles::Remove(const std::string& path) {
  const Status status = Check(path);
  return status.Ok() ? m_real.Remove(path) : status;
}
Status GuardedFiles::SetAttributes(const std::string& path, std::uint32_t attributes) {
  const Status status = Check(path);
  return status.Ok() ? m_real.SetAttributes(path, attributes) : status;
}
Status GuardedFiles::MakeDirectory(const std::string& path) {
  const Status status = Check(path);
  return status.Ok() ? m_real.MakeDirectory(path) : status;
}
Status GuardedFiles::RemoveDirectory(const std::string& path) {
  const Status status = Check(path);
  return status.Ok() ? m_real.RemoveDirectory(path) : status;
}
Status GuardedFiles::List(const std::string& path, std::vector<platform::DirectoryEntry>& entries) {
  return m_real.List(path, entries);
}
Status GuardedFiles::SyncDirectory(const std::string& path) {
  return m_real.SyncDirectory(path);
}
Status GuardedFiles::SyncVolume(const std::string& path) {
  return m_real.SyncVolume(path);
}
Status GuardedFiles::FreeSpace(const std::string& path, std::uint64_t& bytes) {
  return m_real.FreeSpace(path, bytes);
}

}  // namespace fuzz
