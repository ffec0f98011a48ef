// Character sets of letters.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// Text in the named set as UTF-8; what cannot be decoded becomes U+FFFD. complete, when given, says
// whether everything could be. Sets that mail programs commonly name for a larger one are read as
// that larger one. Without a name, or with one that says nothing, the text is UTF-8 if it can be
// and windows-1252 otherwise.
std::string DecodeCharset(std::string_view bytes, const std::string& charset,
                          bool* complete = nullptr);

// A header field's raw value without line breaks, its encoded words decoded. Bytes beyond ASCII
// that no encoded word announces are UTF-8 or, failing that, of the set in which the letter's text
// is written (textCharset, may be empty) or, where neither fits, windows-1252.
std::string DecodeHeaderBytes(std::string_view raw, const std::string& textCharset);
std::string DecodeHeaderText(std::string_view raw, const std::string& textCharset);

}  // namespace tool
