// The checksum of files and letters, to tell whether they are the same.
#pragma once

#include <array>
#include <memory>
#include <string_view>

namespace tool {

// SHA-256 where libgcrypt is there. Where it is not: plain hashes, which tell damage but not
// forgery. Checksums of different builds are not compared with each other.
class Checksum {
 public:
  using Digest = std::array<unsigned char, 32>;
  static const char* const kName;

  Checksum();
  ~Checksum();
  Checksum(const Checksum&) = delete;
  Checksum& operator=(const Checksum&) = delete;

  void Add(std::string_view bytes);
  // Of everything added; nothing is added afterwards.
  Digest Result();

 private:
  struct State;
  const std::unique_ptr<State> m_state;
};

}  // namespace tool
