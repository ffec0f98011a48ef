#include "MailParts.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "Base64.h"
#include "Charset.h"
#include "EncodedWords.h"
#include "Glib.h"
#include "Text.h"

namespace tool {
namespace {

std::string Parameter(const char* value) {
  return value != nullptr ? value : "";
}

// A parameter of one of a part's own fields. The rest of the field's value may be anything: what a
// file is called is said clearly in many fields that are otherwise broken.
std::string FieldParameter(GMimeObject* object, const char* field, const char* name) {
  GMimeHeader* header = g_mime_header_list_get_header(g_mime_object_get_header_list(object), field);
  const char* raw = header != nullptr ? g_mime_header_get_raw_value(header) : nullptr;
  if (raw == nullptr) return {};
  const std::string value = JoinWords(DecodeHeaderBytes(raw, ""));
  const std::size_t end = std::min(value.find(';'), value.size());
  const bool startsWithParameter = value.find('=') < end;
  const std::string readable =
      "attachment;" + (startsWithParameter ? value : value.substr(std::min(end + 1, value.size())));
  const GPtr<GMimeContentDisposition> parsed(
      g_mime_content_disposition_parse(nullptr, readable.c_str()));
  return Parameter(g_mime_content_disposition_get_parameter(parsed.get(), name));
}

std::string NameOf(GMimeObject* object) {
  const std::string name = FieldParameter(object, "Content-Disposition", "filename");
  return CleanUtf8(name.empty() ? FieldParameter(object, "Content-Type", "name") : name);
}

bool IsAttachment(GMimeObject* object) {
  const char* disposition = g_mime_object_get_disposition(object);
  return disposition != nullptr && EqualNoCase(disposition, GMIME_DISPOSITION_ATTACHMENT);
}

// Whether a part has a type that cannot be read. The mail library calls it plain bytes then, yet
// makes an object for text of it, unless only the first half is missing.
bool HasNoType(GMimeObject* object) {
  GMimeContentType* type = g_mime_object_get_content_type(object);
  return *g_mime_content_type_get_media_type(type) == '\0' ||
         (GMIME_IS_TEXT_PART(object) && g_mime_content_type_is_type(type, "text", "*") == 0);
}

std::string Charset(GMimeObject* object) {
  if (HasNoType(object)) return FieldParameter(object, "Content-Type", "charset");
  return Parameter(g_mime_object_get_content_type_parameter(object, "charset"));
}

std::string StreamBytes(GMimeStream* stream) {
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream));
  if (bytes->len == 0) return {};
  return {reinterpret_cast<const char*>(bytes->data), bytes->len};
}

std::string Written(GMimeObject* object) {
  const GPtr<GMimeStream> stream(g_mime_stream_mem_new());
  g_mime_object_write_to_stream(object, nullptr, stream.get());
  return StreamBytes(stream.get());
}

// An extension for a part that has no name.
std::string ExtensionOf(GMimeObject* object) {
  static constexpr std::array<std::pair<const char*, const char*>, 18> kKnown = {{
      {"text/html", ".html"},
      {"text/calendar", ".ics"},
      {"text/csv", ".csv"},
      {"text/x-patch", ".patch"},
      {"text/rtf", ".rtf"},
      {"image/jpeg", ".jpg"},
      {"image/png", ".png"},
      {"image/gif", ".gif"},
      {"application/pdf", ".pdf"},
      {"application/zip", ".zip"},
      {"application/pgp-signature", ".asc"},
      {"application/pgp-encrypted", ".asc"},
      {"application/pkcs7-signature", ".p7s"},
      {"application/x-pkcs7-signature", ".p7s"},
      {"application/pkcs7-mime", ".p7m"},
      {"application/x-pkcs7-mime", ".p7m"},
      {"application/ms-tnef", ".dat"},
      {"message/rfc822", ".eml"},
  }};
  GMimeContentType* type = g_mime_object_get_content_type(object);
  const GText text(g_mime_content_type_get_mime_type(type));
  for (const auto& [known, extension] : kKnown) {
    if (EqualNoCase(text.get(), known)) return extension;
  }
  if (GMIME_IS_MESSAGE_PART(object)) return ".eml";
  const bool readable = HasNoType(object) || g_mime_content_type_is_type(type, "text", "*") != 0 ||
                        g_mime_content_type_is_type(type, "message", "*") != 0;
  return readable ? ".txt" : ".bin";
}

void LowestOffset(GMimeObject* object, gint64& lowest) {
  GMimeHeaderList* headers = g_mime_object_get_header_list(object);
  const int count = g_mime_header_list_get_count(headers);
  for (int i = 0; i < count; ++i) {
    const gint64 at = g_mime_header_get_offset(g_mime_header_list_get_header_at(headers, i));
    if (at >= 0) lowest = std::min(lowest, at);
  }
}

bool IsBoundaryLine(std::string_view line, const std::vector<std::string>& boundaries) {
  if (!line.starts_with("--")) return false;
  line.remove_prefix(2);
  return std::any_of(boundaries.begin(), boundaries.end(), [&](const std::string& boundary) {
    if (!line.starts_with(boundary)) return false;
    std::string_view rest = line.substr(boundary.size());
    if (rest.starts_with("--")) rest.remove_prefix(2);
    return rest.find_first_not_of(" \t\r") == rest.npos;
  });
}

// Where the part that begins at a place ends: before the line break that belongs to the next
// boundary.
std::size_t PartEnd(std::string_view bytes, std::size_t begin,
                    const std::vector<std::string>& boundaries) {
  for (std::size_t at = begin; at < bytes.size();) {
    const std::size_t lineEnd = std::min(bytes.find('\n', at), bytes.size());
    if (IsBoundaryLine(bytes.substr(at, lineEnd - at), boundaries)) {
      if (at > begin && bytes[at - 1] == '\n') --at;
      if (at > begin && bytes[at - 1] == '\r') --at;
      return at;
    }
    at = lineEnd + 1;
  }
  return bytes.size();
}

}  // namespace

MailParts::MailParts(GMimeMessage* message, std::string_view bytes) : m_bytes(bytes) {
  std::vector<std::string> boundaries;
  GMimeObject* root = g_mime_message_get_mime_part(message);
  if (root != nullptr) Walk(root, boundaries);

  if (!m_body && m_leaves.size() == 1 && m_leaves[0].object == nullptr) m_body = 0;
}

void MailParts::Walk(GMimeObject* object, std::vector<std::string>& boundaries) {
  if (GMIME_IS_MULTIPART(object)) {
    WalkMultipart(GMIME_MULTIPART(object), boundaries);
    return;
  }
  m_leaves.push_back({object, "", boundaries});
  const MailLeaf& leaf = m_leaves.back();
  if (!m_body && (IsText(leaf, "plain") || IsText(leaf, "html"))) m_body = m_leaves.size() - 1;
}

void MailParts::WalkMultipart(GMimeMultipart* multipart, std::vector<std::string>& boundaries) {
  const int count = g_mime_multipart_get_count(multipart);
  if (count == 0) {
    // Not one boundary line: what the letter says stands in front of them.
    const std::string text = Parameter(g_mime_multipart_get_prologue(multipart));
    if (!text.empty() || m_leaves.empty()) m_leaves.push_back({nullptr, text, boundaries});
    return;
  }
  const bool hadBody = m_body.has_value();
  const std::size_t first = m_leaves.size();
  boundaries.push_back(Parameter(g_mime_multipart_get_boundary(multipart)));
  for (int i = 0; i < count; ++i) Walk(g_mime_multipart_get_part(multipart, i), boundaries);
  boundaries.pop_back();

  GMimeContentType* type = g_mime_object_get_content_type(GMIME_OBJECT(multipart));
  if (!hadBody && g_mime_content_type_is_type(type, "multipart", "alternative") != 0) {
    PreferPlain(first);
  }
}

// Among alternatives from a leaf on, plain text is the body wherever it stands.
void MailParts::PreferPlain(std::size_t from) {
  for (std::size_t i = from; i < m_leaves.size(); ++i) {
    if (!IsText(m_leaves[i], "plain")) continue;
    m_body = i;
    return;
  }
}

// A part without a readable type is plain text. Such a part, or one with a file's name, may be any
// file all the same: with a NUL in it, it is kept as one, byte for byte.
bool MailParts::IsText(const MailLeaf& leaf, const char* subtype) const {
  if (leaf.object == nullptr || !GMIME_IS_PART(leaf.object) || IsAttachment(leaf.object)) {
    return false;
  }
  const bool typeless = HasNoType(leaf.object);
  GMimeContentType* type = g_mime_object_get_content_type(leaf.object);
  if (typeless ? !EqualNoCase(subtype, "plain")
               : g_mime_content_type_is_type(type, "text", subtype) == 0) {
    return false;
  }
  const bool mayBeAnything = typeless || !NameOf(leaf.object).empty();
  return !mayBeAnything || Content(leaf).find('\0') == std::string::npos;
}

std::string MailParts::AttachedLetter(const MailLeaf& leaf) const {
  GMimeMessage* message = g_mime_message_part_get_message(GMIME_MESSAGE_PART(leaf.object));
  if (message == nullptr) return {};
  gint64 begin = std::numeric_limits<gint64>::max();
  LowestOffset(GMIME_OBJECT(message), begin);
  GMimeObject* root = g_mime_message_get_mime_part(message);
  if (root != nullptr) LowestOffset(root, begin);
  // Without a header there is no trace of where it stood.
  if (begin >= static_cast<gint64>(m_bytes.size())) return Written(GMIME_OBJECT(message));
  const auto at = static_cast<std::size_t>(begin);
  return std::string(m_bytes.substr(at, PartEnd(m_bytes, at, leaf.boundaries) - at));
}

// The part's bytes without their transfer encoding.
std::string MailParts::Decoded(const MailLeaf& leaf) const {
  GMimeDataWrapper* content = g_mime_part_get_content(GMIME_PART(leaf.object));
  if (content == nullptr) return {};
  const GMimeStream* source = g_mime_data_wrapper_get_stream(content);
  const auto begin = std::min(static_cast<std::size_t>(source->bound_start), m_bytes.size());
  auto end = source->bound_end < 0 ? m_bytes.size() : static_cast<std::size_t>(source->bound_end);
  end = std::clamp(end, begin, m_bytes.size());
  // The line end in front of a boundary belongs to the boundary, with both of its characters.
  if (!leaf.boundaries.empty() && end > begin && end < m_bytes.size() && m_bytes[end] == '\n' &&
      m_bytes[end - 1] == '\r') {
    --end;
  }
  const std::string_view raw = m_bytes.substr(begin, end - begin);
  const GMimeContentEncoding encoding = g_mime_data_wrapper_get_encoding(content);
  if (encoding == GMIME_CONTENT_ENCODING_BASE64) return DecodeBase64(raw);

  const GPtr<GMimeStream> in(g_mime_stream_mem_new_with_buffer(raw.data(), raw.size()));
  const GPtr<GMimeDataWrapper> wrapper(g_mime_data_wrapper_new_with_stream(in.get(), encoding));
  const GPtr<GMimeStream> out(g_mime_stream_mem_new());
  g_mime_data_wrapper_write_to_stream(wrapper.get(), out.get());
  return StreamBytes(out.get());
}

std::string MailParts::Content(const MailLeaf& leaf) const {
  if (leaf.object == nullptr) return leaf.strayText;
  if (GMIME_IS_MESSAGE_PART(leaf.object)) return AttachedLetter(leaf);
  if (GMIME_IS_PART(leaf.object)) return Decoded(leaf);
  return Written(leaf.object);
}

std::string MailParts::TextCharset() const {
  for (const MailLeaf& leaf : m_leaves) {
    if (leaf.object == nullptr || !GMIME_IS_TEXT_PART(leaf.object)) continue;
    if (std::string charset = Charset(leaf.object); !charset.empty()) return charset;
  }
  return {};
}

std::optional<MailPart> MailParts::Body() const {
  if (!m_body) return std::nullopt;
  const MailLeaf& leaf = m_leaves[*m_body];
  if (leaf.object == nullptr) return MailPart{"body.txt", DecodeCharset(leaf.strayText, "")};
  GMimeContentType* type = g_mime_object_get_content_type(leaf.object);
  const bool html = g_mime_content_type_is_type(type, "text", "html") != 0;
  std::string name = NameOf(leaf.object);
  if (name.empty()) name = html ? "body.html" : "body.txt";
  return MailPart{std::move(name), DecodeCharset(Content(leaf), Charset(leaf.object))};
}

std::vector<MailPart> MailParts::Others() const {
  std::vector<MailPart> parts;
  for (std::size_t i = 0; i < m_leaves.size(); ++i) {
    if (m_body == i) continue;
    const MailLeaf& leaf = m_leaves[i];
    std::string name = leaf.object != nullptr ? NameOf(leaf.object) : "";
    if (name.empty()) {
      name = "part-" + std::to_string(i + 1) +
             (leaf.object != nullptr ? ExtensionOf(leaf.object) : std::string(".txt"));
    }
    parts.push_back({std::move(name), Content(leaf)});
  }
  return parts;
}

}  // namespace tool
