#include "kit/Gcrypt.h"

#include <gcrypt.h>

#include <array>
#include <memory>
#include <type_traits>

namespace gcrypt {
namespace {

constexpr const char* kOldestVersion = "1.8.0";
constexpr int kSecureMemory = 16384;

// An application that uses libgcrypt itself has chosen all this already. One that does not is not
// to be warned on standard error of memory that cannot be locked.
bool Initialise() {
  if (gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P) != 0)
    return gcry_check_version(kOldestVersion) != nullptr;
  return gcry_check_version(kOldestVersion) != nullptr &&
         gcry_control(GCRYCTL_DISABLE_SECMEM_WARN) == 0 &&
         gcry_control(GCRYCTL_INIT_SECMEM, kSecureMemory, 0) == 0 &&
         gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0) == 0;
}

// Both wipe what they were given.
struct CloseMac {
  void operator()(gcry_mac_hd_t mac) const { gcry_mac_close(mac); }
};
struct CloseCipher {
  void operator()(gcry_cipher_hd_t cipher) const { gcry_cipher_close(cipher); }
};
using Mac = std::unique_ptr<std::remove_pointer_t<gcry_mac_hd_t>, CloseMac>;
using Cipher = std::unique_ptr<std::remove_pointer_t<gcry_cipher_hd_t>, CloseCipher>;

bool AddPart(const Mac& mac, CBytes part) {
  std::array<unsigned char, 8> length;
  for (std::size_t i = 0; i < length.size(); ++i)
    length[i] = static_cast<unsigned char>(std::uint64_t{part.size()} >> 8 * i);
  return gcry_mac_write(mac.get(), length.data(), length.size()) == 0 &&
         gcry_mac_write(mac.get(), part.data(), part.size()) == 0;
}

// With all the parts in it; null after a failure.
Mac Hashed(Hash hash, CBytes key, std::initializer_list<CBytes> parts) {
  if (!Ready()) return nullptr;
  const int algorithm = hash == Hash::Sha256 ? GCRY_MAC_HMAC_SHA256 : GCRY_MAC_HMAC_SHA512;
  gcry_mac_hd_t opened = nullptr;
  if (gcry_mac_open(&opened, algorithm, 0, nullptr) != 0) return nullptr;
  Mac mac(opened);
  if (gcry_mac_setkey(opened, key.data(), key.size()) != 0) return nullptr;
  for (const CBytes part : parts) {
    if (!AddPart(mac, part)) return nullptr;
  }
  return mac;
}

}  // namespace

bool Ready() {
  static const bool ready = Initialise();
  return ready;
}

void Random(void* data, std::size_t size, Strength strength) {
  gcry_randomize(data, size,
                 strength == Strength::LongLived ? GCRY_VERY_STRONG_RANDOM : GCRY_STRONG_RANDOM);
}

bool Hmac(Hash hash, CBytes key, std::initializer_list<CBytes> parts,
          std::span<unsigned char> result) {
  const Mac mac = Hashed(hash, key, parts);
  std::size_t size = result.size();
  return mac != nullptr && gcry_mac_read(mac.get(), result.data(), &size) == 0 &&
         size == result.size();
}

bool HmacIs(Hash hash, CBytes key, std::initializer_list<CBytes> parts, CBytes expected) {
  const Mac mac = Hashed(hash, key, parts);
  return mac != nullptr && gcry_mac_verify(mac.get(), expected.data(), expected.size()) == 0;
}

bool StreamCipher(CBytes key, CBytes nonce, CBytes in, void* out) {
  gcry_cipher_hd_t opened = nullptr;
  if (!Ready() ||
      gcry_cipher_open(&opened, GCRY_CIPHER_CHACHA20, GCRY_CIPHER_MODE_STREAM, 0) != 0) {
    return false;
  }
  const Cipher cipher(opened);
  return gcry_cipher_setkey(opened, key.data(), key.size()) == 0 &&
         gcry_cipher_setiv(opened, nonce.data(), nonce.size()) == 0 &&
         gcry_cipher_encrypt(opened, out, in.size(), in.data(), in.size()) == 0;
}

}  // namespace gcrypt
