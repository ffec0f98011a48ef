#include "LetterFields.h"

#include <ms/kit/MemoryEncryption.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>

#include "Checksum.h"
#include "Interrupt.h"

namespace tool {

const char* const kNoFile = "missing";

namespace {

constexpr std::size_t kBlock = 64 * 1024;
constexpr std::size_t kGroupSize = 13;

template <std::size_t kSize>
std::string Hex(const std::array<unsigned char, kSize>& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

// None when the file is not there or cannot be read to its end.
std::optional<std::string> HashFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  Checksum sum;
  std::vector<char> block(kBlock);
  do {
    StopIfInterrupted();
    in.read(block.data(), static_cast<std::streamsize>(block.size()));
    sum.Add({block.data(), static_cast<std::size_t>(in.gcount())});
  } while (in);
  if (in.bad() || !in.eof()) return std::nullopt;
  return Hex(sum.Result());
}

std::string Quoted(const std::string& text) {
  return '"' + text + '"';
}

// Names of children's fields: "Attachment 2 Flag".
class ChildFields {
 public:
  ChildFields(const FieldReader& field, const char* kind, std::size_t number)
      : m_field(field), m_prefix(std::string(kind) + " " + std::to_string(number) + " ") {}
  void Text(const char* name, const CKitString& value) const {
    m_field(m_prefix + name, Quoted(value.str()));
  }
  template <class Number>
  void Value(const char* name, Number value) const {
    m_field(m_prefix + name, std::to_string(value));
  }
  void Raw(const char* name, const std::string& value) const { m_field(m_prefix + name, value); }

 private:
  const FieldReader& m_field;
  std::string m_prefix;
};

void ReadHeader(const CMSDocument& letter, const FieldReader& field) {
  const auto text = [&](const char* name, const CKitString& value) {
    field(name, Quoted(value.str()));
  };
  text("Name", letter.Name());
  text("RegNumber", letter.RegNumber());
  text("LetterPath", letter.LetterPath());
  text("ObsoleteSenderNetAddr", letter.ObsoleteSenderNetAddr());
  text("SenderIDWG", letter.SenderIDWG());
  text("SenderIDU", letter.SenderIDU());
  text("SenderWSName", letter.SenderWSName());
  text("SenderWGName", letter.SenderWGName());
  text("SenderUserName", letter.SenderUserName());
  field("CreationTime", std::to_string(letter.CreationTime()));
  field("RegNum", std::to_string(letter.RegNum()));
  field("Flag", std::to_string(letter.Flag()));
  // What a letter that was taken out of the trash still says of that is no part of it.
  const bool isDeleted = letter.IsAction(docflag::Deleted);
  field("DeletedTime", std::to_string(isDeleted ? letter.DeletedTime() : 0));
  field("Size", std::to_string(letter.Size()));
}

void ReadKey(const CMSDocument& letter, const FieldReader& field) {
  std::array<unsigned char, kDocumentKeySize> block{};
  std::array<unsigned char, kKeyIntegritySize> integrity{};
  std::array<unsigned char, kKeyInitSize> init{};
  std::array<unsigned char, kGroupSize> group{};
  letter.GetRawKeys(block.data(), integrity.data(), init.data(), group.data());
  field("Key", Hex(block));
  field("KeyIntegrity", Hex(integrity));
  field("KeyInit", Hex(init));
  const auto end = std::find(group.begin(), group.end(), '\0');
  field("KeyGroup", Quoted({group.begin(), end}));
  CryptAddInfo info;
  letter.GetCryptInfoEx(info);
  field("CryptInfo", std::to_string(info.Value1) + " " + std::to_string(info.Value2) + " " +
                         std::to_string(info.Value3) + " " + std::to_string(info.Value4) + " " +
                         std::to_string(info.Value5));
}

void ReadAttachments(const CMSDocument& letter, const FieldReader& field,
                     const MissingFileReader& missing) {
  std::size_t count = 0;
  std::size_t body = 0;
  CMSAttachment attachment;
  for (auto place = letter.GetFirstAttachmentPosition();
       letter.GetNextAttachment(attachment, place);) {
    const ChildFields fields(field, "Attachment", ++count);
    if (attachment.ID() == letter.BodyID()) body = count;
    fields.Text("Name", attachment.Name());
    fields.Text("AttachmentName", attachment.AttachmentName());
    fields.Value("Attributes", attachment.Attributes());
    fields.Value("DateTime", attachment.DateTime().Seconds());
    fields.Value("Size", attachment.Size());
    fields.Value("Flag", attachment.Flag());
    if ((attachment.Flag() & attachmentflag::FileRemoved) != 0) continue;
    const std::optional<std::string> sum = HashFile(attachment.InternalFileName());
    if (!sum) missing(count, attachment.Name());
    fields.Raw(Checksum::kName, sum.value_or(kNoFile));
  }
  field("Attachments", std::to_string(count));
  field("Body", "attachment " + std::to_string(body));
}

void ReadRecipients(const CMSDocument& letter, const FieldReader& field) {
  std::size_t count = 0;
  CMSRecipient recipient;
  for (auto place = letter.GetFirstRecipientPosition();
       letter.GetNextRecipient(recipient, place);) {
    const ChildFields fields(field, "Recipient", ++count);
    fields.Value("Category", recipient.Category());
    fields.Value("PackTime", recipient.PackTime());
    fields.Text("TransEnvFileName", recipient.TransEnvFileName());
    fields.Text("ObsoleteNetAddr", recipient.ObsoleteNetAddr());
    fields.Text("IDWS", recipient.IDWS());
    fields.Text("IDWG", recipient.IDWG());
    fields.Text("IDU", recipient.IDU());
    fields.Text("WSName", recipient.WSName());
    fields.Text("WGName", recipient.WGName());
    fields.Text("UserName", recipient.UserName());
    fields.Text("Annotation", recipient.Annotation());
    fields.Text("Receiver", recipient.Receiver());
    fields.Value("ReceiveTime", recipient.ReceiveTime());
    fields.Text("Reader", recipient.Reader());
    fields.Value("ReadTime", recipient.ReadTime());
    fields.Value("Flag", recipient.Flag());
  }
  field("Recipients", std::to_string(count));
}

}  // namespace

void ReadLetter(const CMSDocument& letter, const FieldReader& field,
                const MissingFileReader& missing) {
  ReadHeader(letter, field);
  ReadKey(letter, field);
  ReadAttachments(letter, field, missing);
  ReadRecipients(letter, field);
}

LetterDigest DigestOf(const CMSDocument& letter, const MissingFileReader& missing) {
  Checksum sum;
  const auto add = [&](const std::string& text) {
    sum.Add(std::to_string(text.size()) + ":");
    sum.Add(text);
  };
  ReadLetter(
      letter,
      [&](const std::string& name, const std::string& value) {
        add(name);
        add(value);
      },
      missing);
  return sum.Result();
}

std::vector<LetterField> FieldsOf(const CMSDocument& letter) {
  std::vector<LetterField> fields;
  ReadLetter(
      letter,
      [&](const std::string& name, const std::string& value) {
        fields.push_back({name, value});
      },
      [](std::size_t, const std::string&) {});
  return fields;
}

}  // namespace tool
