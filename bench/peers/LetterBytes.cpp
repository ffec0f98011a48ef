#include "bench/peers/LetterBytes.h"

#include <cstring>
#include <vector>

#include "kit/KitFile.h"
#include "kit/KitFolder.h"

namespace {

template <std::size_t Size>
void Put(char (&field)[Size], std::string_view text) {
  std::memcpy(field, text.data(), text.size());
  field[text.size()] = 0;
}

}  // namespace

LetterBytes::LetterBytes() {
  constexpr std::uint32_t kTime = 1'709'803'800;
  Put(document.RegNumber, "IN-2024/17");
  Put(document.SenderIDWG, "GROUP0000001");
  Put(document.SenderIDU, "U0000042");
  Put(document.SenderWSName, "reception");
  Put(document.SenderWGName, "head office");
  Put(document.SenderUserName, "Accounts Desk");
  document.CreationTime = kTime;
  document.AttachmentCount = static_cast<std::int32_t>(kAttachments);
  document.RecipientCount = static_cast<std::int32_t>(kRecipients);
  for (CMSAttachmentData& attachment : attachments) {
    Put(attachment.Name, "report.pdf");
    Put(attachment.AttachmentName, "report.pdf");
  }
  for (CMSRecipientData& recipient : recipients) {
    Put(recipient.IDWS, "WS0000017");
    Put(recipient.IDWG, "GROUP0000001");
    Put(recipient.IDU, "U0000042");
    Put(recipient.WSName, "reception");
    Put(recipient.WGName, "head office");
    recipient.PackTime = kTime;
    recipient.Category = 1;
  }
}

void LetterBytes::Become(std::size_t number) {
  Put(document.Name, Subject(number));
  document.Flag = LetterFlag(number);
  const std::string user = KitFormat("user%zu", number % 500);
  for (std::size_t i = 0; i < kRecipients; ++i) {
    Put(recipients[i].TransEnvFileName, PacketName(number, i));
    Put(recipients[i].UserName, user);
    Put(recipients[i].Annotation, user + "@example.org");
  }
}

void WriteLetterFiles(const std::string& base, std::size_t number) {
  static const std::vector<char> content(kFileBytes, 'x');
  for (std::size_t i = 0; i < kAttachments; ++i) {
    const std::string directory = CKitFile::Join(base, KitFormat("files%zu_%zu", number, i));
    KitCheck(platform::Files().MakeDirectory(directory), "make", directory);
    CKitFile file(CKitFile::Join(directory, "report.pdf"),
                  {platform::Access::ReadWrite, platform::Disposition::CreateNew});
    file.Write(0, content.data(), content.size());
  }
}
