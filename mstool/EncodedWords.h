// Encoded words of header fields: =?charset?B or Q?text?=.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// The text with every encoded word decoded. Words that follow each other are one text: their bytes
// are joined before the character set is looked at, since programs cut in the middle of a
// character, and the blanks between them are dropped.
std::string DecodeWords(std::string_view line);

// The same line with each run of several words as one word in UTF-8. Readers that stumble over runs
// and take a field apart before they decode it can be given this.
std::string JoinWords(std::string_view line);

}  // namespace tool
