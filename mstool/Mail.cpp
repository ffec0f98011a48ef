#include "Mail.h"

#include <gmime/gmime.h>

#include <algorithm>

#include "Addresses.h"
#include "Charset.h"
#include "Dates.h"
#include "Glib.h"
#include "MailParts.h"
#include "Mbox.h"
#include "Text.h"

namespace tool {
namespace {

std::string_view LineAt(std::string_view bytes, std::size_t at) {
  const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
  return bytes.substr(at, end - at);
}

bool IsBlank(std::string_view line) {
  return line.find_first_not_of(" \t\r") == line.npos;
}

bool IsWellKnown(std::string_view field) {
  static constexpr std::string_view kNames[] = {
      "from",        "to",         "cc",           "bcc",          "subject",
      "date",        "received",   "message-id",   "return-path",  "mime-version",
      "reply-to",    "sender",     "delivered-to", "content-type", "content-transfer-encoding",
      "in-reply-to", "references", "newsgroups",   "status",       "content-disposition"};
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [&](std::string_view name) { return EqualNoCase(name, field); }) ||
         (field.size() > 2 && EqualNoCase(field.substr(0, 2), "x-"));
}

// Where the header begins: at the first line that can be a field, before any blank line but those
// at the top. What stands above it is left out.
std::size_t HeaderStart(std::string_view bytes) {
  std::size_t start = bytes.npos;
  bool wellKnown = false;
  bool anyText = false;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::string_view line = LineAt(bytes, at);
    const std::string_view name = FieldName(line);
    if (IsBlank(line) && anyText) break;
    anyText = anyText || !IsBlank(line);
    if (!name.empty() && start == bytes.npos) start = at;
    wellKnown = wellKnown || IsWellKnown(name);
    at += line.size() + 1;
  }
  if (bytes.find_first_not_of(std::string_view(" \t\r\n\0", 5)) == bytes.npos) {
    throw NotALetter("there is nothing in it");
  }
  if (start == bytes.npos || !wellKnown) throw NotALetter("no header field of a letter was found");
  return start;
}

// The message as the mail library reads it best, with everything where it was: without NULs in the
// header, which would hide the rest of their line, and with one Content-Type, the first.
std::string Readable(std::string_view bytes) {
  std::string text(bytes);
  const std::size_t end = std::min({text.find("\n\n"), text.find("\n\r\n"), text.size()});
  std::replace(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\0', ' ');
  bool typed = false;
  for (std::size_t at = 0; at < end;) {
    const std::string_view line = LineAt(text, at);
    const std::size_t next = at + line.size() + 1;
    if (EqualNoCase(FieldName(line), "Content-Type")) {
      if (typed) text[at] = 'X';
      typed = true;
    }
    at = next;
  }
  return text;
}

class Header {
 public:
  Header(GMimeMessage* message, std::string textCharset)
      : m_list(g_mime_object_get_header_list(GMIME_OBJECT(message))),
        m_textCharset(std::move(textCharset)) {}

  // Calls use(raw value) for each field of the name.
  template <class Use>
  void ForEach(const char* name, const Use& use) const {
    const int count = g_mime_header_list_get_count(m_list);
    for (int i = 0; i < count; ++i) {
      GMimeHeader* header = g_mime_header_list_get_header_at(m_list, i);
      const char* raw = g_mime_header_get_raw_value(header);
      if (raw != nullptr && EqualNoCase(g_mime_header_get_name(header), name)) use(raw);
    }
  }
  std::string Text(const char* name) const {
    std::string text;
    ForEach(name, [&](const char* raw) {
      if (text.empty()) text = DecodeHeaderText(raw, m_textCharset);
    });
    return text;
  }
  std::vector<MailAddress> Addresses(const char* name) const {
    std::vector<MailAddress> all;
    ForEach(name, [&](const char* raw) {
      std::vector<MailAddress> some = ReadAddresses(raw, m_textCharset);
      std::move(some.begin(), some.end(), std::back_inserter(all));
    });
    return all;
  }

 private:
  GMimeHeaderList* m_list;
  std::string m_textCharset;
};

MailAddress Sender(const Header& header) {
  for (const char* field : {"From", "Sender"}) {
    const std::vector<MailAddress> found = header.Addresses(field);
    if (!found.empty()) return found.front();
  }
  return {};
}

}  // namespace

Mail ReadMail(std::string_view bytes) {
  const std::string text = Readable(bytes.substr(HeaderStart(bytes)));
  const GPtr<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(text.data(), text.size()));
  const GPtr<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
  g_mime_parser_set_persist_stream(parser.get(), TRUE);
  g_mime_parser_set_format(parser.get(), GMIME_FORMAT_MESSAGE);
  const GPtr<GMimeMessage> message(g_mime_parser_construct_message(parser.get(), nullptr));
  if (!message) throw NotALetter("its header cannot be read");

  const MailParts parts(message.get(), text);
  const Header header(message.get(), parts.TextCharset());
  Mail mail;
  mail.subject = header.Text("Subject");
  mail.date = ReadDate(header.Text("Date"));
  mail.sender = Sender(header);
  for (const auto& [field, role] :
       {std::pair{"To", MailRole::To}, {"Cc", MailRole::Cc}, {"Bcc", MailRole::Bcc}}) {
    for (MailAddress& who : header.Addresses(field)) {
      mail.recipients.push_back({role, std::move(who)});
    }
  }
  mail.body = parts.Body();
  mail.parts = parts.Others();
  mail.status = header.Text("Status") + header.Text("X-Status");
  return mail;
}

}  // namespace tool
