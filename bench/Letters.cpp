#include "bench/Letters.h"

namespace {

void Attach(CMSDocument& letter, const std::string& source, long flags) {
  if (source.empty()) flags |= attachmentflag::FileRemoved;
  letter.AddAttachment(source.empty() ? "report.pdf" : source, false, "report.pdf", "report.pdf",
                       flags);
}

void Address(CMSDocument& letter, const std::string& packet, const std::string& user) {
  letter.AddRecipient("07.03.2024 09:31", packet, "", "WS0000017", "GROUP0000001", "U0000042",
                      "reception", "head office", user, user + "@example.org", "", "", "", "", 0,
                      1);
}

}  // namespace

// An odd factor permutes the numbers of 48 bits, which is what twelve hexadecimal digits hold.
std::string PacketName(std::size_t letter, std::size_t recipient) {
  constexpr std::uint64_t kOddFactor = 0x9E3779B97F4B;
  constexpr std::uint64_t kMask = (std::uint64_t{1} << 48) - 1;
  const std::uint64_t number = letter * kRecipients + recipient + 1;
  return KitFormat("%012llX", static_cast<unsigned long long>(number * kOddFactor & kMask));
}

std::string Subject(std::size_t letter) {
  return KitFormat("Figures of the week, number %zu", letter);
}

std::int32_t LetterFlag(std::size_t letter) {
  return docflag::Incoming | docflag::Complete |
         static_cast<std::int32_t>(letter % 64) * kUnreadBit;
}

CMSDocument PutLetter(CMSFolder& folder, std::size_t number, const std::string& source) {
  CMSDocument letter =
      folder.CreateDocument(Subject(number), "IN-2024/17", "07.03.2024 09:30", "", "GROUP0000001",
                            "U0000042", "reception", "head office", "Accounts Desk", 0, 0);
  const long read = number % 2 == 0 ? attachmentflag::Read : 0;
  for (std::size_t i = 0; i < kAttachments; ++i)
    Attach(letter, source, i == 0 && !source.empty() ? read | attachmentflag::Body : read);
  for (std::size_t i = 0; i < kRecipients; ++i)
    Address(letter, PacketName(number, i), KitFormat("user%zu", number % 500));
  letter.Flag(LetterFlag(number));
  return letter;
}
