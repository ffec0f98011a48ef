// The user's key carrier and asymmetric key, as far as a store needs to know them.
//
// A store never sees a key of either: it hands both on, to the encryption of document keys
// (kit/MemoryEncryption.h) and to the conversion of earlier formats. A client derives its own, or
// takes the carrier of kit/SoftwareKeyCarrier.h.
#pragma once

#include <cstdint>

#include "kit/Export.h"

// How a carrier's security service enciphers: crypto info values 4 and 5 of the letters whose keys
// it takes. Value5 of 0 says nothing.
struct CSafeServiceConfig {
  std::uint8_t Value4 = 0;
  std::uint8_t Value5 = 0;
};

class MS_API CKeyCarrier {
 public:
  virtual ~CKeyCarrier() = default;
  virtual CSafeServiceConfig SafeServiceConfig() const { return {}; }
};

class MS_API CAbstractAsymmKey {
 public:
  virtual ~CAbstractAsymmKey() = default;
};
