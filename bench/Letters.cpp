#include "bench/Letters.h"

#include <cstdint>

namespace {

void Attach(CMSDocument& letter, long flags) {
  letter.AddAttachment("report.pdf", false, "report.pdf", "report.pdf",
                       flags | attachmentflag::FileRemoved);
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

CMSDocument PutLetter(CMSFolder& folder, std::size_t number) {
  CMSDocument letter = folder.CreateDocument(
      KitFormat("Figures of the week, number %zu", number), "IN-2024/17", "07.03.2024 09:30", "",
      "GROUP0000001", "U0000042", "reception", "head office", "Accounts Desk", 0, 0);
  const long read = number % 2 == 0 ? attachmentflag::Read : 0;
  for (std::size_t i = 0; i < kAttachments; ++i) Attach(letter, read);
  for (std::size_t i = 0; i < kRecipients; ++i)
    Address(letter, PacketName(number, i), KitFormat("user%zu", number % 500));
  letter.Flag(docflag::Incoming | docflag::Complete);
  return letter;
}
