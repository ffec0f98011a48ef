// How wide terminals show a character.
#pragma once

namespace tool {

// Columns that a visible character takes: 2 for the ideographs and letters of East Asia, 0 for
// marks that are put on the character before, else 1.
int CharacterWidth(char32_t code);

}  // namespace tool
