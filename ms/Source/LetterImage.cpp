#include "LetterImage.h"

#include <algorithm>

#include "LetterSnapshot.h"
#include "ObjectAccess.h"
#include "StoreOf.h"
#include "Subject.h"
#include "kit/Hash64.h"
#include "kit/KitFile.h"
#include "platform/Time.h"

namespace {

using Access = CMSFieldAccess;

// Seconds: no file system tells times more roughly.
constexpr std::int64_t kCoarsestTick = 2;
constexpr std::int64_t kNanoseconds = 1'000'000'000;

// A text and numbers, each so that it ends where it says.
class CImageWriter {
 public:
  CImageWriter& Text(const std::string& text) {
    m_image += std::to_string(text.size()) + ':' + text;
    return *this;
  }
  template <std::size_t N>
  CImageWriter& Field(const char (&field)[N]) {
    return Text(Access::TextOf(field));
  }
  template <std::size_t N>
  CImageWriter& Bytes(const unsigned char (&field)[N]) {
    m_image.append(reinterpret_cast<const char*>(field), N);
    return *this;
  }
  CImageWriter& Number(std::int64_t number) {
    m_image += std::to_string(number) + ';';
    return *this;
  }
  std::string Take() { return std::move(m_image); }

 private:
  std::string m_image;
};

void PutDocument(CImageWriter& image, const CMSDocumentData& record) {
  const long flag = record.Flag & ~docflag::Encrypted;  // follows from the attachments
  image.Text(SubjectOf(record))
      .Field(record.RegNumber)
      .Field(record.LetterPath)
      .Number(record.CreationTime)
      .Field(record.ObsoleteSenderNetAddr)
      .Field(record.SenderIDWG)
      .Field(record.SenderIDU)
      .Field(record.SenderWSName)
      .Field(record.SenderWGName)
      .Field(record.SenderUserName)
      .Bytes(record.Key)
      .Bytes(record.KeyIntegrity)
      .Bytes(record.KeyInit)
      .Field(record.KeyGroup)
      .Number(flag)
      .Number(record.RegNum)
      .Number((flag & docflag::Deleted) != 0 ? std::int32_t{record.DeletedTime} : 0);
  for (const LittleU16 value : record.CryptInfo) image.Number(value);
}

void PutAttachment(CImageWriter& image, const CMSAttachmentData& record, std::int32_t flag,
                   std::uint64_t length) {
  image.Number(record.Attributes)
      .Number(record.DateTime)
      .Number(record.Size)
      .Number(flag)
      .Field(record.Name)
      .Field(record.AttachmentName)
      .Number(static_cast<std::int64_t>(length));
}

void PutRecipient(CImageWriter& image, const CMSRecipientData& record) {
  image.Number(record.Category)
      .Number(record.PackTime)
      .Field(record.TransEnvFileName)
      .Field(record.ObsoleteNetAddr)
      .Field(record.IDWS)
      .Field(record.IDWG)
      .Field(record.IDU)
      .Field(record.WSName)
      .Field(record.WGName)
      .Field(record.UserName)
      .Field(record.Annotation)
      .Field(record.Receiver)
      .Number(record.ReceiveTime)
      .Field(record.Reader)
      .Number(record.ReadTime)
      .Number(record.Flag);
}

}  // namespace

CMSLetterImage ImageOf(const CMSDocument& document) {
  const std::int64_t now = platform::Now().seconds;
  const CMSLetterSnapshot letter = SnapshotOf(document);
  CMSLetterImage result;
  CImageWriter image;
  PutDocument(image, letter.record);
  CHash64 stamp;
  std::int64_t newest = 0;
  image.Number(static_cast<std::int64_t>(letter.attachments.size()));
  for (const auto& attachment : letter.attachments) {
    std::int32_t flag = attachment.record.Flag;
    std::uint64_t length = 0;
    if ((flag & attachmentflag::FileRemoved) == 0) {
      const platform::FileInfo info =
          attachment.path.empty() ? platform::FileInfo() : CKitFile::Info(attachment.path);
      if (info.kind == platform::FileKind::File) {
        length = info.length;
        stamp.Add(length)
            .Add(static_cast<std::uint64_t>(info.stamp.modifiedNs))
            .Add(static_cast<std::uint64_t>(info.stamp.changedNs));
        newest = std::max({newest, info.stamp.modifiedNs, info.stamp.changedNs});
        result.files.push_back({attachment.path, length});
      } else {
        flag |= attachmentflag::FileRemoved;
      }
    }
    PutAttachment(image, attachment.record, flag, length);
  }
  image.Number(static_cast<std::int64_t>(letter.recipients.size()));
  for (const auto& recipient : letter.recipients) PutRecipient(image, recipient.record);
  result.fields = image.Take();
  if (newest / kNanoseconds + kCoarsestTick < now) result.stamp = stamp.Value();
  return result;
}

bool HoldSameBytes(const CMSLetterImage& one, const CMSLetterImage& other) {
  if (one.files.size() != other.files.size()) return false;
  for (std::size_t i = 0; i < one.files.size(); ++i) {
    if (one.files[i].length != other.files[i].length ||
        !CKitFile::HoldSameBytes(one.files[i].path, other.files[i].path)) {
      return false;
    }
  }
  return true;
}

CMSLetterTraits TraitsOf(const CMSDocument& document) {
  return Access::Read(document, [](const CMSDocumentData& record) {
    return CMSLetterTraits{record.CreationTime, SubjectOf(record),
                           Access::TextOf(record.SenderUserName)};
  });
}

// A common minute or a common subject alone are found in many letters.
bool MayBeOneLetter(const CMSLetterTraits& one, const CMSLetterTraits& other) {
  if (one.creationTime != other.creationTime) return false;
  const bool isSameSubject = one.subject == other.subject;
  const bool isSameSender = one.sender == other.sender;
  if (one.creationTime == 0) return isSameSubject && isSameSender && !one.subject.empty();
  return isSameSubject || (isSameSender && !one.sender.empty());
}
