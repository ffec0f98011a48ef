// Texts as the program reads, stores and shows them: UTF-8 throughout.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

// Stands for what cannot be decoded or must not be shown.
inline constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

bool IsUtf8(std::string_view text);
// Every byte that belongs to no well-formed character becomes U+FFFD, and so does a NUL, which no
// field of a store can hold.
std::string CleanUtf8(std::string_view text);

// The longest beginning of at most maxBytes that ends between two characters; the text is UTF-8.
std::string CutUtf8(std::string_view text, std::size_t maxBytes);

// A name that can be given to a file in any directory on any system and says the same to a reader:
// no path, no control characters, not empty, at most maxBytes with its extension kept.
std::string SafeFileName(std::string_view name, std::size_t maxBytes);

// Text that cannot act on a terminal: control characters become their pictures or U+FFFD, and so
// do marks that reverse the writing direction. With keepLines, line ends and tabs stay.
std::string Visible(std::string_view text, bool keepLines = false);

// Columns that a visible text takes on a terminal.
std::size_t DisplayWidth(std::string_view text);
// Cut to so many columns, the last of them a dot row when something was left out.
std::string FitWidth(std::string_view text, std::size_t columns);

// ASCII letters without regard to case.
bool EqualNoCase(std::string_view a, std::string_view b);
bool EndsWithNoCase(std::string_view text, std::string_view end);

}  // namespace tool
