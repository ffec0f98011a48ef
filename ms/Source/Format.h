// The bytes of a record database file. docs/format.md tells the whole story.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

// A little-endian integer inside a file: alignment 1, so records can lie at any offset.
template <class T>
class CMSLittle {
 public:
  CMSLittle() = default;
  CMSLittle(T value) { *this = value; }
  operator T() const { return std::bit_cast<T>(Native(m_bytes)); }
  CMSLittle& operator=(T value) {
    m_bytes = Native(std::bit_cast<Bytes>(value));
    return *this;
  }

 private:
  using Bytes = std::array<unsigned char, sizeof(T)>;
  static Bytes Native(Bytes bytes) {
    if constexpr (std::endian::native == std::endian::big) std::reverse(bytes.begin(), bytes.end());
    return bytes;
  }
  Bytes m_bytes{};
};

using LittleU16 = CMSLittle<std::uint16_t>;
using LittleU32 = CMSLittle<std::uint32_t>;
using LittleI32 = CMSLittle<std::int32_t>;
using LittleU64 = CMSLittle<std::uint64_t>;

// "None" among container indexes and links.
inline constexpr std::uint32_t kNoContainer = 0xFFFFFFFF;
// IDs above this one are never issued and never believed.
inline constexpr std::uint32_t kMaxObjectID = 0xFFFFFF00;

// The first 48 bytes of a record file. The field names are those that maintenance prints.
struct CMSFileHeader {
  static constexpr std::uint32_t kSignature = 0x45674B21;  // "!KgE"
  static constexpr std::uint32_t kVersion = 5;
  static constexpr std::uint32_t kKeySize = 4;
  static constexpr std::uint32_t kZeroFreed = 1;  // in R1: free containers are all zero

  LittleU32 SI = kSignature;
  LittleU32 VE = kVersion;
  LittleU32 DO = 48;  // offset of container 0
  LittleU32 KS = kKeySize;
  LittleU32 DS = 0;             // bytes of one record
  LittleU32 TC = 0;             // containers in the file
  LittleU32 UC = 0;             // containers in use
  LittleU32 FI = kNoContainer;  // head of the chain of free containers
  LittleU32 DC = 0;             // write operations under way
  LittleU32 R1 = kZeroFreed;
  LittleU32 R2 = 0;
  LittleU32 R3 = 0;
};
static_assert(sizeof(CMSFileHeader) == 48 && alignof(CMSFileHeader) == 1);
static_assert(offsetof(CMSFileHeader, FI) == 28 && offsetof(CMSFileHeader, R1) == 36);

// What stands in front of every record. A container in use has no links; the free ones form one
// doubly linked chain.
struct CMSContainerHead {
  LittleU32 previous = kNoContainer;
  LittleU32 next = kNoContainer;
  LittleU32 key = 0;

  bool InUse() const { return previous == kNoContainer && next == kNoContainer; }
};
static_assert(sizeof(CMSContainerHead) == 12 && alignof(CMSContainerHead) == 1);

// Containers by which a record file grows.
inline constexpr std::uint32_t kGrowthStep = 100;
