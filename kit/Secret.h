// Bytes that must not outlive their use.
#pragma once

#include <cstddef>
#include <span>

// Overwrites with zeros; not left out by a compiler that sees nobody read them.
inline void Wipe(void* data, std::size_t size) {
  volatile unsigned char* const bytes = static_cast<unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = 0;
}

// A buffer that is wiped when it goes, and never copied.
template <std::size_t N>
class CSecretBytes {
 public:
  CSecretBytes() = default;
  ~CSecretBytes() { Wipe(m_bytes, N); }
  CSecretBytes(const CSecretBytes&) = delete;
  CSecretBytes& operator=(const CSecretBytes&) = delete;

  unsigned char* Data() { return m_bytes; }
  const unsigned char* Data() const { return m_bytes; }
  std::span<unsigned char, N> All() { return m_bytes; }
  static constexpr std::size_t Size() { return N; }

 private:
  unsigned char m_bytes[N] = {};
};
