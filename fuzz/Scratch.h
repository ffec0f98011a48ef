// Where a fuzz target works, and what all of them need.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "kit/KitErrors.h"

// Each target is this function; see CMakeLists.txt.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// What must hold whatever the input; ends the process when it does not.
inline void Expect(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what.c_str());
  std::abort();
}

// Whether body ended without one of the library's own exceptions; any other is a fault.
template <class Body>
bool Try(Body body) {
  try {
    body();
    return true;
  } catch (const XKitMsg&) {
    return false;
  }
}

// An empty directory, in memory where there is such a place. The same one for all inputs of a
// process; log and local time are out of the way from then on.
const std::string& EmptyScratch();

// The input, from front to back.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : m_at(reinterpret_cast<const char*>(data)), m_left(size) {}
  bool IsEmpty() const { return m_left == 0; }
  std::uint8_t Byte() {
    const std::string byte = Text(1);
    return byte.empty() ? 0 : static_cast<std::uint8_t>(byte[0]);
  }
  // Little-endian; what is missing is zero.
  std::uint32_t Word();
  // Fewer bytes at the end.
  std::string Text(std::size_t size);
  std::string Rest() { return Text(m_left); }
  // A length byte, then as many bytes.
  Input Part();

 private:
  const char* m_at;
  std::size_t m_left;
};

}  // namespace fuzz
