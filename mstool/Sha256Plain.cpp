// Where there is no library for it: the algorithm of FIPS 180-4.
#include "Sha256.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace tool {
namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kRounds = 64;

// The first 32 bits behind the point of the square roots of the first 8 prime numbers.
constexpr std::array<std::uint32_t, 8> kStart = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
// The same of the cube roots of the first 64.
constexpr std::array<std::uint32_t, kRounds> kRound = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

std::uint32_t BigEndian(const unsigned char* bytes) {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | bytes[i];
  return value;
}

using Words = std::array<std::uint32_t, kRounds>;

Words Spread(const unsigned char* block) {
  Words w{};
  for (std::size_t i = 0; i < 16; ++i) w[i] = BigEndian(block + 4 * i);
  for (std::size_t i = 16; i < kRounds; ++i) {
    const std::uint32_t a = w[i - 15], b = w[i - 2];
    const std::uint32_t low = std::rotr(a, 7) ^ std::rotr(a, 18) ^ a >> 3;
    const std::uint32_t high = std::rotr(b, 17) ^ std::rotr(b, 19) ^ b >> 10;
    w[i] = w[i - 16] + low + w[i - 7] + high;
  }
  return w;
}

void Mix(std::array<std::uint32_t, 8>& hash, const unsigned char* block) {
  const Words words = Spread(block);
  auto [a, b, c, d, e, f, g, h] = hash;
  for (std::size_t i = 0; i < kRounds; ++i) {
    const std::uint32_t choice = (e & f) ^ (~e & g);
    const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
    const std::uint32_t one =
        h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) + choice + kRound[i] + words[i];
    const std::uint32_t two = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + majority;
    h = g;
    g = f;
    f = e;
    e = d + one;
    d = c;
    c = b;
    b = a;
    a = one + two;
  }
  const std::array<std::uint32_t, 8> added = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < hash.size(); ++i) hash[i] += added[i];
}

}  // namespace

struct Sha256::State {
  std::array<std::uint32_t, 8> hash = kStart;
  std::array<unsigned char, kBlock> block{};
  std::size_t filled = 0;
  std::uint64_t length = 0;

  void Add(std::string_view bytes) {
    length += bytes.size();
    while (!bytes.empty()) {
      const std::size_t step = std::min(bytes.size(), kBlock - filled);
      std::memcpy(block.data() + filled, bytes.data(), step);
      bytes.remove_prefix(step);
      filled += step;
      if (filled < kBlock) break;
      Mix(hash, block.data());
      filled = 0;
    }
  }
};

Sha256::Sha256() : m_state(std::make_unique<State>()) {}
Sha256::~Sha256() = default;

void Sha256::Add(std::string_view bytes) {
  m_state->Add(bytes);
}

Sha256::Digest Sha256::Result() {
  const std::uint64_t bits = m_state->length * 8;
  static constexpr std::array<char, kBlock> kPadding = {'\x80'};
  constexpr std::size_t kLengthAt = kBlock - sizeof bits;
  const std::size_t room = (kLengthAt + kBlock - m_state->filled - 1) % kBlock + 1;
  m_state->Add({kPadding.data(), room});
  std::array<char, sizeof bits> tail{};
  for (std::size_t i = 0; i < tail.size(); ++i) tail[i] = static_cast<char>(bits >> (56 - 8 * i));
  m_state->Add({tail.data(), tail.size()});
  Digest digest{};
  for (std::size_t i = 0; i < digest.size(); ++i) {
    digest[i] = static_cast<unsigned char>(m_state->hash[i / 4] >> (24 - 8 * (i % 4)));
  }
  return digest;
}

}  // namespace tool
