#include "Container.h"

#include <filesystem>

#include "support/TempDir.h"

namespace fuzz {

namespace fs = std::filesystem;

StoreFiles Unpack(const std::uint8_t* data, std::size_t size) {
  StoreFiles files;
  Input in(data, size);
  for (auto& file : files) {
    if (in.IsEmpty()) break;
    const std::uint32_t length = in.Word();
    if (length != storecheck::kNone) file = in.Text(length);
  }
  return files;
}

std::string Pack(const StoreFiles& files) {
  std::string packed;
  for (const auto& file : files) {
    std::string length(4, '\0');
    storecheck::PutU32(length, 0,
                       file ? static_cast<std::uint32_t>(file->size()) : storecheck::kNone);
    packed += length + file.value_or("");
  }
  return packed;
}

std::string MakeStore(const std::string& base, const StoreFiles& files) {
  const fs::path store = fs::path(base) / "store";
  for (std::size_t n = 1; n <= 4; ++n) {
    const fs::path directory = store / ("f" + std::to_string(n));
    fs::create_directories(directory);
    WriteBytes((directory / "a.txt").string(), std::string(n, 'a'));
  }
  for (std::size_t i = 0; i < files.size(); ++i)
    if (files[i]) WriteBytes((store / storecheck::kFiles[i]).string(), *files[i]);
  WriteBytes(SourceFile(base), "new file");
  return store.string();
}

std::string SourceFile(const std::string& base) {
  return base + "/source.txt";
}

std::map<std::string, std::string> ReadTree(const std::string& directory) {
  std::map<std::string, std::string> tree;
  for (const auto& entry : fs::recursive_directory_iterator(directory))
    if (entry.is_regular_file())
      tree[entry.path().lexically_relative(directory).generic_string()] =
          storecheck::ReadWhole(entry.path());
  return tree;
}

}  // namespace fuzz
