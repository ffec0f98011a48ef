// What the library takes from libgcrypt, with every result checked.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <span>

using CBytes = std::span<const unsigned char>;

inline CBytes BytesOf(const void* data, std::size_t size) {
  return {static_cast<const unsigned char*>(data), size};
}

namespace gcrypt {

// Initialises libgcrypt unless the application has. False when it is too old, or cannot be used.
bool Ready();

enum class Strength { Once, LongLived };
// Ready() must have been true.
void Random(void* data, std::size_t size, Strength strength);

enum class Hash { Sha256, Sha512 };

// The first bytes, as many as result takes, of the HMAC over the parts. The length of each part is
// hashed before it, so that no two lists of parts look alike.
bool Hmac(Hash hash, CBytes key, std::initializer_list<CBytes> parts,
          std::span<unsigned char> result);
// Whether they are those expected. How long it takes does not tell where they differ.
bool HmacIs(Hash hash, CBytes key, std::initializer_list<CBytes> parts, CBytes expected);

inline constexpr std::size_t kStreamKeySize = 32;
inline constexpr std::size_t kStreamNonceSize = 8;
// ChaCha20, which is its own inverse: out gets as many bytes as in has.
bool StreamCipher(CBytes key, CBytes nonce, CBytes in, void* out);

}  // namespace gcrypt
