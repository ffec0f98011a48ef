#include "Checksum.h"
#include "kit/Hash64.h"

namespace tool {

const char* const Checksum::kName = "FNV-1a";

// Four hashes that begin differently.
struct Checksum::State {
  std::array<CHash64, 4> hashes;
};

Checksum::Checksum() : m_state(std::make_unique<State>()) {
  std::uint64_t seed = 0;
  for (CHash64& hash : m_state->hashes) hash.Add(seed++);
}
Checksum::~Checksum() = default;

void Checksum::Add(std::string_view bytes) {
  for (CHash64& hash : m_state->hashes) hash.Add(bytes);
}

Checksum::Digest Checksum::Result() {
  Digest digest{};
  for (std::size_t i = 0; i < digest.size(); ++i)
    digest[i] = static_cast<unsigned char>(m_state->hashes[i / 8].Value() >> (i % 8 * 8));
  return digest;
}

}  // namespace tool
