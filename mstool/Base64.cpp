#include "Base64.h"

#include <cstdint>

namespace tool {
namespace {

int Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  return c == '/' ? 63 : -1;
}

}  // namespace

std::string DecodeBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  unsigned count = 0;
  for (const char c : text) {
    if (c == '=' && count > 0) break;  // the bits left over fill no byte
    const int value = Value(c);
    if (value < 0) continue;
    bits = (bits << 6 | static_cast<std::uint32_t>(value)) & 0xFFFF;
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xFF);
  }
  return bytes;
}

}  // namespace tool
