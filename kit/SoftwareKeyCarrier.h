// A key carrier without a device: a secret in a file that its owner alone can read. The library's
// own memory encryption (kit/MemoryEncryption.h) works with it.
//
// Who has the file can recover every key that was stored with it; who has lost it, none. The layout
// of the file and the encryption are described in docs/format.md.
#pragma once

#include <array>
#include <span>
#include <string>

#include "kit/KeyCarrier.h"
#include "kit/MemoryEncryption.h"

struct CKeyContext;

// What the library's own encryption answers besides 0.
namespace softwareencryption {
inline constexpr int WrongCarrier = 1;   // none, or one of another type
inline constexpr int CheckFailed = 2;    // another carrier, group, crypto info, or changed bytes
inline constexpr int LibraryFailed = 3;  // libgcrypt cannot be used
}  // namespace softwareencryption

// Holds the secret in memory while it lives, and wipes it then. May be used from several threads.
class MS_API CSoftwareKeyCarrier final : public CKeyCarrier {
 public:
  // Makes a key file with a fresh secret, safe on the medium on return. XKitFile when it cannot, or
  // when there is such a file already, which stays as it is; no file is left after a failure.
  static void Create(const std::string& file);

  // Reads a key file. XKitFile when it is missing or damaged, is no key file, or when others than
  // its owner may read or write it.
  explicit CSoftwareKeyCarrier(const std::string& file);
  ~CSoftwareKeyCarrier() override;
  CSoftwareKeyCarrier(const CSoftwareKeyCarrier&) = delete;
  CSoftwareKeyCarrier& operator=(const CSoftwareKeyCarrier&) = delete;

  CSafeServiceConfig SafeServiceConfig() const override;

 private:
  friend class CSoftwareEncryption;

  static constexpr std::size_t kSecretSize = 32;
  static constexpr std::size_t kKeysSize = 64;

  // The keys for one letter: to encipher with, then to prove with. The secret itself stays here.
  bool DeriveKeys(const CKeyContext& context, std::span<unsigned char, kKeysSize> keys) const;

  std::array<unsigned char, kSecretSize> m_secret{};
};
