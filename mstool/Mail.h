// A letter as it arrives: header, text and parts, taken out of its message format.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct MailAddress {
  std::string name;     // display name, decoded; may be empty
  std::string address;  // may be empty when only a name was given
};

enum class MailRole { To = 1, Cc = 2, Bcc = 3 };

struct MailRecipient {
  MailRole role;
  MailAddress who;
};

struct MailPart {
  std::string name;     // as the letter gives it, or made up from place and type
  std::string content;  // transfer encoding removed, otherwise byte for byte
};

struct Mail {
  std::string subject;
  std::optional<std::uint32_t>
      date;  // seconds since 1970; none when missing, unreadable or outside
  MailAddress sender;
  std::vector<MailRecipient> recipients;
  std::optional<MailPart> body;  // UTF-8
  std::vector<MailPart> parts;   // in their order
  std::string status;            // the letters of Status and X-Status
};

// What is not a letter at all: nothing in it that could be a header. what() says why.
class NotALetter : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads one message; a leading "From " line is passed over. Broken structure is read as well as
// possible. Raises NotALetter.
Mail ReadMail(std::string_view bytes);

}  // namespace tool
