// Directories as values, and settings of a test.
#pragma once

#include <cstdlib>
#include <map>
#include <string>

#include "StoreChecker.h"
#include "TempDir.h"

namespace crash {

using Files = std::map<std::string, std::string>;  // by path; directories end in "/"

inline unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

inline Files ReadTree(const std::string& directory) {
  Files files;
  namespace fs = std::filesystem;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    const std::string name = entry.path().lexically_relative(directory).generic_string();
    if (entry.is_directory())
      files[name + "/"];
    else
      files[name] = storecheck::ReadWhole(entry.path());
  }
  return files;
}

inline void WriteTree(const std::string& directory, const Files& files) {
  namespace fs = std::filesystem;
  for (const auto& entry : fs::directory_iterator(directory)) fs::remove_all(entry.path());
  for (const auto& [name, bytes] : files)
    if (name.ends_with('/')) fs::create_directories(directory + "/" + name);
  for (const auto& [name, bytes] : files)
    if (!name.ends_with('/')) WriteBytes(directory + "/" + name, bytes);
}

}  // namespace crash
