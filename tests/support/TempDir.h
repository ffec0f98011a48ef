// A directory for one test, removed with all that is in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kit/KitFile.h"
#include "kit/KitFolder.h"

class TempDir {
 public:
  // Under the system's temporary directory unless another parent is named.
  explicit TempDir(std::string parent = "") {
    if (parent.empty()) parent = std::filesystem::temp_directory_path().string();
    do {
      m_path = CKitFolder::UniqueDirectoryName(parent);
    } while (!CKitFolder::MakeFolder(m_path));
  }
  ~TempDir() {
    std::error_code ignored;  // what is left over lies in the system's temporary directory
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return m_path; }
  // The name may have slashes, whatever separates native ones.
  std::string operator/(const std::string& name) const {
    return name.empty() ? CKitFile::Join(m_path, name)
                        : CKitFile::Join(m_path, CKitFile::NormalizeFileName(name));
  }

 private:
  std::string m_path;
};

// Where a test that syncs very often is quick: in memory. "" where there is no such place.
inline std::string InMemory() {
#ifdef __linux__
  if (std::filesystem::exists("/dev/shm")) return "/dev/shm";
#endif
  return {};
}

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}
