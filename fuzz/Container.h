// A whole store as one input: the eleven files one after another, each behind its length in four
// little-endian bytes; 0xFFFFFFFF stands for a file that is not there. What the input is too short
// for is not there either.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "Scratch.h"
#include "support/StoreChecker.h"

namespace fuzz {

// In the order of storecheck::kFiles.
using StoreFiles = std::array<std::optional<std::string>, storecheck::kFiles.size()>;

StoreFiles Unpack(const std::uint8_t* data, std::size_t size);
std::string Pack(const StoreFiles& files);

// Makes "<base>/store" of the input, with files for attachments ("f1\a.txt" to "f4\a.txt", of 1 to
// 4 bytes, as records name them), and beside it a file for adding.
std::string MakeStore(const std::string& base, const StoreFiles& files);
std::string SourceFile(const std::string& base);

// All files below the directory by their path.
std::map<std::string, std::string> ReadTree(const std::string& directory);

}  // namespace fuzz
