#include "kit/KitFile.h"

#include <algorithm>
#include <array>

#include "kit/KitErrors.h"
#include "kit/KitString.h"

namespace {

XKitFile::Cause CauseOf(platform::Cause cause) {
  switch (cause) {
    case platform::Cause::NotFound:
      return XKitFile::Cause::NotFound;
    case platform::Cause::AlreadyExists:
      return XKitFile::Cause::AlreadyExists;
    case platform::Cause::AccessDenied:
      return XKitFile::Cause::AccessDenied;
    case platform::Cause::InUse:
      return XKitFile::Cause::InUse;
    case platform::Cause::NoSpace:
      return XKitFile::Cause::NoSpace;
    case platform::Cause::NotEmpty:
      return XKitFile::Cause::NotEmpty;
    case platform::Cause::Io:
      return XKitFile::Cause::Io;
    case platform::Cause::None:
    case platform::Cause::Unsupported:
    case platform::Cause::Other:
      break;
  }
  return XKitFile::Cause::Other;
}

platform::Status RemoveProtection(const std::string& path, std::uint32_t attributes) {
  return platform::Files().SetAttributes(path, attributes & ~platform::attribute::ReadOnly);
}

bool IsProtected(const std::string& path) {
  return (CKitFile::Attributes(path) & platform::attribute::ReadOnly) != 0;
}

}  // namespace

void KitCheck(const platform::Status& status, const char* tried, const std::string& path) {
  if (status.Ok()) return;
  throw XKitFile(CauseOf(status.Why()), status.Code(), path,
                 KitFormat("cannot %s '%s': %s", tried, path.c_str(), status.Text().c_str()));
}

CKitFile::CKitFile(const std::string& path, const platform::OpenOptions& options) : m_path(path) {
  KitCheck(platform::Files().Open(path, options, m_file), "open", path);
}

std::size_t CKitFile::Read(std::uint64_t offset, void* data, std::size_t size) {
  std::size_t done = 0;
  KitCheck(m_file->Read(offset, data, size, done), "read from", m_path);
  return done;
}

void CKitFile::Write(std::uint64_t offset, const void* data, std::size_t size) {
  std::size_t done = 0;
  KitCheck(m_file->Write(offset, data, size, done), "write to", m_path);
}

void CKitFile::Append(const void* data, std::size_t size) {
  KitCheck(m_file->Append(data, size), "append to", m_path);
}

std::uint64_t CKitFile::Length() {
  platform::FileInfo info;
  KitCheck(m_file->GetInfo(info), "look at", m_path);
  return info.length;
}

void CKitFile::Truncate(std::uint64_t length) {
  KitCheck(m_file->Truncate(length), "set the length of", m_path);
}

void CKitFile::Sync() {
  KitCheck(m_file->Sync(), "flush", m_path);
}

bool CKitFile::Exists(const std::string& path) {
  return Info(path).kind == platform::FileKind::File;
}

bool CKitFile::IsVisible(const std::string& path) {
  platform::FileInfo info;
  return platform::Files().GetInfo(path, info).Ok() && info.kind != platform::FileKind::None;
}

platform::FileInfo CKitFile::Info(const std::string& path) {
  platform::FileInfo info;
  KitCheck(platform::Files().GetInfo(path, info), "look at", path);
  return info;
}

std::uint32_t CKitFile::Attributes(const std::string& path) {
  return Info(path).attributes;
}

void CKitFile::SetAttributes(const std::string& path, std::uint32_t attributes) {
  KitCheck(platform::Files().SetAttributes(path, attributes), "set the attributes of", path);
}

void CKitFile::Copy(const std::string& from, const std::string& to) {
  const std::string tried = KitFormat("copy '%s' to", from.c_str());
  KitCheck(platform::Files().Copy(from, to, true), tried.c_str(), to);
}

void CKitFile::Move(const std::string& from, const std::string& to) {
  const std::string tried = KitFormat("move '%s' to", from.c_str());
  KitCheck(platform::Files().Move(from, to), tried.c_str(), to);
}

bool CKitFile::HoldSameBytes(const std::string& one, const std::string& other) {
  constexpr std::size_t kBlock = 1 << 16;
  const platform::OpenOptions toRead{platform::Access::Read, platform::Disposition::OpenExisting,
                                     platform::Sharing::All};
  CKitFile a(one, toRead);
  CKitFile b(other, toRead);
  if (a.Length() != b.Length()) return false;
  std::string x(kBlock, 0);
  std::string y(kBlock, 0);
  for (std::uint64_t offset = 0;; offset += kBlock) {
    const std::size_t read = a.Read(offset, x.data(), kBlock);
    if (b.Read(offset, y.data(), kBlock) != read || x.compare(0, read, y, 0, read) != 0) {
      return false;
    }
    if (read < kBlock) return true;
  }
}

bool CKitFile::RemoveEx(const std::string& path) {
  platform::Status status = platform::Files().Remove(path);
  if (status.Why() == platform::Cause::NotFound) return false;
  if (status.Why() == platform::Cause::AccessDenied && IsProtected(path)) {
    KitCheck(RemoveProtection(path, Attributes(path)), "remove", path);
    status = platform::Files().Remove(path);
  }
  KitCheck(status, "remove", path);
  return true;
}

void ZeroAndDeleteFile(const std::string& path) {
  static constexpr std::array<char, 64 * 1024> kZeros{};
  if (IsProtected(path)) KitCheck(RemoveProtection(path, CKitFile::Attributes(path)), "wipe", path);
  {
    CKitFile file(path, {platform::Access::ReadWrite, platform::Disposition::OpenExisting,
                         platform::Sharing::All});
    const std::uint64_t length = file.Length();
    for (std::uint64_t done = 0; done < length;) {
      const std::uint64_t step = std::min<std::uint64_t>(kZeros.size(), length - done);
      file.Write(done, kZeros.data(), static_cast<std::size_t>(step));
      done += step;
    }
    file.Sync();
  }
  KitCheck(platform::Files().Remove(path), "remove", path);
}
