// The parts of the library's own encryption of document keys.
#pragma once

#include <array>
#include <cstdint>

#include "kit/Gcrypt.h"
#include "kit/MemoryEncryption.h"

// All that the keys for one letter depend on, besides the carrier's secret.
struct CKeyContext {
  CKeyContext(const CGroupID& groupID, const CryptAddInfo& info, const void* initValue);

  CBytes group;
  std::array<unsigned char, 8> values;  // three u16, low byte first, then two u8
  CBytes init;
};

// What MemoryEncryption() answers while no other encryption is in place.
CMemoryEncryption& OwnMemoryEncryption();
