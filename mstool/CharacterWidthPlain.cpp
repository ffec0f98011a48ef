// Where there is no library that knows all characters: the blocks that matter for lists of letters.
#include <algorithm>
#include <iterator>

#include "CharacterWidth.h"

namespace tool {
namespace {

struct Range {
  char32_t first, last;
};

constexpr Range kMarks[] = {{0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x0610, 0x061A},
                            {0x064B, 0x065F}, {0x200B, 0x200F}, {0x2060, 0x2064}, {0x20D0, 0x20F0},
                            {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF}};
constexpr Range kWide[] = {
    {0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0xA4CF},  {0xA960, 0xA97C}, {0xAC00, 0xD7A3},
    {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF01, 0xFF60},  {0xFFE0, 0xFFE6}, {0x1F300, 0x1F64F},
    {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};

template <class Ranges>
bool Holds(const Ranges& ranges, char32_t code) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [code](const Range& r) { return code >= r.first && code <= r.last; });
}

}  // namespace

int CharacterWidth(char32_t code) {
  if (Holds(kMarks, code)) return 0;
  return Holds(kWide, code) ? 2 : 1;
}

}  // namespace tool
