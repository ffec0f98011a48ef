#include <glib.h>

#include "CharacterWidth.h"

namespace tool {

int CharacterWidth(char32_t code) {
  if (g_unichar_iszerowidth(code) != 0) return 0;
  return g_unichar_iswide(code) != 0 ? 2 : 1;
}

}  // namespace tool
