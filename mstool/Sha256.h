// The checksum of files and letters.
#pragma once

#include <array>
#include <memory>
#include <string_view>

namespace tool {

class Sha256 {
 public:
  using Digest = std::array<unsigned char, 32>;

  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void Add(std::string_view bytes);
  // Of everything added; nothing is added afterwards.
  Digest Result();

 private:
  struct State;
  const std::unique_ptr<State> m_state;
};

}  // namespace tool
