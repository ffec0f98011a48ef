// The bytes of an entry file: key index, relations set, packet table.
#pragma once

#include "Format.h"

// Behind a header of 12 or 16 bytes come entries of (state byte, payload), unaligned.
inline constexpr unsigned char kEntryLive = 0;
inline constexpr unsigned char kEntryDeleted =
    0xFF;                                          // written; any other value but 0 means the same
inline constexpr std::uint32_t kEntryVersion = 2;  // written; 0 and 1 are read as well

// What tells the three kinds apart.
struct CMSEntryFormat {
  const char* kind;  // as it stands in messages
  std::uint32_t signature;
  std::uint32_t keySize;    // of an index; of a set the element
  std::uint32_t valueSize;  // 0: the header has no such field
  const char* extension;

  constexpr std::uint32_t HeaderSize() const { return valueSize == 0 ? 12 : 16; }
  constexpr std::uint32_t PayloadSize() const { return keySize + valueSize; }
  constexpr std::uint32_t EntrySize() const { return 1 + PayloadSize(); }
};

inline constexpr CMSEntryFormat kIndexFormat{"Index", 0x46584449, 4, 4, ".idx"};   // "IDXF"
inline constexpr CMSEntryFormat kSetFormat{"Set", 0x46584453, 12, 0, ".db"};       // "SDXF"
inline constexpr CMSEntryFormat kPacketFormat{"Index", 0x46584449, 13, 4, ".db"};  // "IDXF"
static_assert(kIndexFormat.EntrySize() == 9 && kSetFormat.EntrySize() == 13 &&
              kPacketFormat.EntrySize() == 18);
