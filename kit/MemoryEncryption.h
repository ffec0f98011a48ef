// The encryption of document keys, and how a client puts its own in place.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kit/Export.h"
#include "kit/Identifiers.h"
#include "kit/KeyCarrier.h"

// What goes into the encryption of a key besides the key itself. The meaning of the values is the
// encryption's; a letter keeps them.
struct CryptAddInfo {
  std::uint16_t Value1 = 0;
  std::uint16_t Value2 = 0;
  std::uint16_t Value3 = 0;
  std::uint8_t Value4 = 0;
  std::uint8_t Value5 = 0;
  CGroupID Group;
};

// Where value 5 says that nothing has been filled in yet, takes values 4 and 5 from the carrier's
// configuration. Without a carrier nothing happens.
inline void TakeOverConfig(const CKeyCarrier* carrier, CryptAddInfo& info) {
  if (info.Value5 != 0 || carrier == nullptr) return;
  const CSafeServiceConfig config = carrier->SafeServiceConfig();
  info.Value4 = config.Value4;
  info.Value5 = config.Value5;
}

inline constexpr std::size_t kDocumentKeySize = 32;
inline constexpr std::size_t kKeyIntegritySize = 4;
inline constexpr std::size_t kKeyInitSize = 8;

// A source of random bytes; see CMemoryEncryption::GetFixedKey.
class MS_API CRandomSource {
 public:
  virtual ~CRandomSource() = default;
  virtual void Fill(void* data, std::size_t size) = 0;
};

// Enciphers short secrets for a key carrier. Answers 0, or a code of its own; 73 alone reaches the
// client of a store as it is. Called with a letter's record held, from any thread: it must be
// thread-safe and must not call into the store. What it throws counts as a failure; of an
// XKitStatus the code counts.
class MS_API CMemoryEncryption {
 public:
  virtual ~CMemoryEncryption() = default;

  // The random source of the key that is built in and the same everywhere: it protects nothing.
  virtual CRandomSource& GetFixedKey() = 0;
  virtual void RandomFill(CRandomSource& source, void* data, std::size_t size) = 0;

  // Enciphers size bytes at plain to the size bytes at cipher, and writes kKeyIntegritySize bytes
  // that prove the result at integrity. init: kKeyInitSize fresh random bytes. carrier and asymm
  // may be null where the implementation can do without.
  virtual int EncryptMemoryEx(CKeyCarrier* carrier, CAbstractAsymmKey* asymm, const CGroupID& group,
                              const void* plain, std::size_t size, const void* init,
                              void* integrity, const CryptAddInfo& info, void* cipher) = 0;
  // The way back; writes nothing at plain unless everything is what it was.
  virtual int DecryptMemoryEx(const CKeyCarrier* carrier, CAbstractAsymmKey* asymm,
                              const CGroupID& group, const void* cipher, std::size_t size,
                              const void* init, const void* integrity, const CryptAddInfo& info,
                              void* plain) = 0;
};

// The encryption in use: the one that SetMemoryEncryption put in place, else the library's own
// (kit/SoftwareKeyCarrier.h), which works with its own carrier alone. Where the library was built
// without that, every call fails.
MS_API CMemoryEncryption& MemoryEncryption();
// Puts another in place (null: the library's own again) and answers the previous one, null for the
// library's own. The caller keeps ownership; set it before any store uses keys.
MS_API CMemoryEncryption* SetMemoryEncryption(CMemoryEncryption* encryption);
