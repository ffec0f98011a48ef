// A 64-bit hash for telling bytes apart that nobody forges: checks against torn writes, lookups.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// FNV-1a; one value can be continued with more bytes.
class CHash64 {
 public:
  CHash64& Add(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < size; ++i) m_value = (m_value ^ bytes[i]) * 0x100000001B3;
    return *this;
  }
  CHash64& Add(std::string_view text) { return Add(text.data(), text.size()); }
  // The same number on every platform, whatever its byte order.
  CHash64& Add(std::uint64_t number) {
    for (int shift = 0; shift < 64; shift += 8)
      m_value = (m_value ^ ((number >> shift) & 0xFF)) * 0x100000001B3;
    return *this;
  }
  std::uint64_t Value() const { return m_value; }

 private:
  std::uint64_t m_value = 0xCBF29CE484222325;
};
