// The parts of a message: its text and everything else.
#pragma once

#include <gmime/gmime.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Mail.h"

namespace tool {

// A part that holds no other parts. An attached letter is one, whatever is in it.
struct MailLeaf {
  GMimeObject* object = nullptr;  // null for text that stands where parts should be
  std::string strayText;
  std::vector<std::string> boundaries;  // of all that it lies in
};

class MailParts {
 public:
  // bytes is what message was read from; both must outlive this object.
  MailParts(GMimeMessage* message, std::string_view bytes);

  // The set in which the first text says that it is written; empty when it does not say.
  std::string TextCharset() const;
  // The text meant to be read first, as UTF-8: plain text rather than its alternatives, nothing
  // that the letter calls an attachment.
  std::optional<MailPart> Body() const;
  // Everything else, in order.
  std::vector<MailPart> Others() const;

 private:
  void Walk(GMimeObject* object, std::vector<std::string>& boundaries);
  void WalkMultipart(GMimeMultipart* multipart, std::vector<std::string>& boundaries);
  void PreferPlain(std::size_t from);
  bool IsText(const MailLeaf& leaf, const char* subtype) const;
  std::string Content(const MailLeaf& leaf) const;
  std::string Decoded(const MailLeaf& leaf) const;
  std::string AttachedLetter(const MailLeaf& leaf) const;

  std::string_view m_bytes;
  std::vector<MailLeaf> m_leaves;
  std::optional<std::size_t> m_body;
};

}  // namespace tool
