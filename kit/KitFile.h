// One open file, and the questions about files that need none open. Failures are XKitFile, naming
// the file, what was tried and why it failed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/File.h"

// Throws the XKitFile for a failed call; tried completes "cannot ..." ("open", "write to").
void KitCheck(const platform::Status& status, const char* tried, const std::string& path);

class CKitFile {
 public:
  CKitFile(const std::string& path, const platform::OpenOptions& options);

  // Bytes read: fewer than size only at the end of the file.
  std::size_t Read(std::uint64_t offset, void* data, std::size_t size);
  // Writes all or throws; bytes may have been written before the throw.
  void Write(std::uint64_t offset, const void* data, std::size_t size);
  void Append(const void* data, std::size_t size);
  std::uint64_t Length();
  void Truncate(std::uint64_t length);
  void Sync();

  const std::string& Name() const { return m_path; }
  platform::File& Handle() { return *m_file; }

  static bool Exists(const std::string& path);
  // Whether something is there that can be looked at. Never throws.
  static bool IsVisible(const std::string& path);
  // Length, times, kind and attributes; kind None when there is no such file.
  static platform::FileInfo Info(const std::string& path);
  // Attribute bits of platform::attribute.
  static std::uint32_t Attributes(const std::string& path);
  static void SetAttributes(const std::string& path, std::uint32_t attributes);
  // Overwrites an existing target.
  static void Copy(const std::string& from, const std::string& to);
  static void Move(const std::string& from, const std::string& to);
  // Whether both files hold the same bytes.
  static bool HoldSameBytes(const std::string& one, const std::string& other);
  // Removes the file, also a write-protected one. False when there was none.
  static bool RemoveEx(const std::string& path);

  // Native separators, no doubled ones, no "." components, no separator at the end (except a root).
  // ".." stays: only the file system knows what it means. A path is normalised as text; nothing
  // needs to exist.
  static std::string NormalizeFileName(const std::string& path);
  // The normalised path from the root on, whatever the current directory becomes later.
  static std::string FullName(const std::string& path);
  // "a/b/c.tar.gz" is base name "c.tar" and extension ".gz"; a leading point starts no extension.
  static std::string BaseName(const std::string& path);
  static std::string Extension(const std::string& path);
  // What stands before the last component, without the separator (except a root's); "" when nothing
  // does. Like the two above it takes the path as it is: behind a separator comes an empty
  // component.
  static std::string DirectoryName(const std::string& path);
  // directory, one separator unless it ends in one, name.
  static std::string Join(const std::string& directory, const std::string& name);

 private:
  std::string m_path;
  std::unique_ptr<platform::File> m_file;
};

// Overwrites the file with zeros, waits until they have reached the medium, then removes it.
void ZeroAndDeleteFile(const std::string& path);
