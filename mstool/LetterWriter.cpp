#include "LetterWriter.h"

#include <glib.h>

#include <fstream>
#include <iostream>
#include <system_error>

#include "Failure.h"
#include "Glib.h"
#include "Text.h"
#include "kit/KitDateTime.h"

namespace tool {
namespace fs = std::filesystem;
namespace {

// Widths of the fields in a store, without their terminators.
constexpr std::size_t kSubject = 354;
constexpr std::size_t kSenderUserName = 56;
constexpr std::size_t kSenderAddress = 16;
constexpr std::size_t kUserName = 57;
constexpr std::size_t kAnnotation = 255;
constexpr std::size_t kAttachmentName = 259;
constexpr std::size_t kDisplayName = 200;
// Leaves the path of a stored file room for the store's own directory.
constexpr std::size_t kFileName = 100;

void WriteFile(const fs::path& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  if (!out) {
    throw Failure(kExitCannotAccess, "cannot write " + path.string() +
                                         "; see that the directory for temporary files has room");
  }
}

// Removes a letter that was not finished.
class HalfMade {
 public:
  HalfMade(CMSFolder& folder, CMSDocument& letter) : m_folder(folder), m_letter(letter) {}
  HalfMade(const HalfMade&) = delete;
  HalfMade& operator=(const HalfMade&) = delete;
  ~HalfMade() {
    if (m_kept) return;
    try {
      m_folder.DeleteDocument(m_letter);
    } catch (const std::exception& error) {
      // The letter is not marked as complete: a repair takes it away.
      std::cerr << "mstool: a half-made letter could not be removed: " << error.what() << '\n';
    }
  }
  void Keep() { m_kept = true; }

 private:
  CMSFolder& m_folder;
  CMSDocument& m_letter;
  bool m_kept = false;
};

std::string Base36(std::uint64_t value, std::size_t digits) {
  std::string text(digits, '0');
  for (std::size_t i = digits; i > 0; --i, value /= 36) {
    text[i - 1] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"[value % 36];
  }
  return text;
}

}  // namespace

std::string PacketName(unsigned long letter, std::size_t recipient) {
  return Base36(letter, 7) + Base36(recipient, 5);
}

LetterWriter::LetterWriter() {
  GError* error = nullptr;
  const GText path(g_dir_make_tmp("mstool-XXXXXX", &error));
  if (!path) {
    const std::string text = error->message;
    g_error_free(error);
    throw Failure(kExitCannotAccess, "cannot make a temporary directory: " + text);
  }
  m_directory = path.get();
}

LetterWriter::~LetterWriter() {
  std::error_code error;
  fs::remove_all(m_directory, error);
  if (error) {
    std::cerr << "mstool: cannot remove " << m_directory.string() << ": " << error.message()
              << '\n';
  }
}

std::string LetterWriter::Fit(const std::string& text, std::size_t bytes) {
  if (text.size() > bytes) ++m_counts.cutTexts;
  return CutUtf8(text, bytes);
}

// As the store reads dates: local time to the minute. A date beyond its years counts as none.
std::string LetterWriter::Date(const Mail& mail) {
  if (mail.date) {
    std::string text = CKitDateTime(*mail.date).Text();
    try {
      if (CKitDateTime::Parse(text).Seconds() != 0) return text;
    } catch (const XKitStatus& error) {
      if (error.Code() != kit::kStatusInvalidArgument) throw;
    }
  }
  ++m_counts.undated;
  return {};
}

CMSDocument LetterWriter::Create(CMSFolder& folder, const Mail& mail) {
  const MailAddress& from = mail.sender;
  const std::string sender = from.name.empty() ? from.address : from.name;
  CMSDocument letter = folder.CreateDocument(Fit(mail.subject, kSubject), "", Date(mail),
                                             CutUtf8(from.address, kSenderAddress), "", "", "", "",
                                             Fit(sender, kSenderUserName), 0, 0);
  if (!letter) throw Failure(kExitCannotAccess, "the store took no new letter");
  return letter;
}

void LetterWriter::Attach(CMSDocument& letter, const MailPart& part, long flags) {
  const fs::path path = m_directory / SafeFileName(part.name, kFileName);
  WriteFile(path, part.content);
  if (part.name.size() > kDisplayName) ++m_counts.cutTexts;
  letter.AddAttachment(path.string(), false, CutUtf8(part.name, kDisplayName),
                       CutUtf8(part.name, kAttachmentName), flags);
  fs::remove(path);
}

void LetterWriter::Fill(CMSDocument& letter, const Mail& mail, bool read) {
  const long readFlag = read ? attachmentflag::Read : 0;
  if (mail.body) Attach(letter, *mail.body, readFlag | attachmentflag::Body);
  for (const MailPart& part : mail.parts) Attach(letter, part, readFlag);
  for (std::size_t i = 0; i < mail.recipients.size(); ++i) {
    const auto& [role, who] = mail.recipients[i];
    letter.AddRecipient("", PacketName(letter.ID(), i), "", "", "", "", "", "",
                        Fit(who.name, kUserName), Fit(who.address, kAnnotation), "", "", "", "", 0,
                        static_cast<long>(role));
  }
}

void LetterWriter::Write(CMSFolder& folder, const Mail& mail, const LetterState& state) {
  CMSDocument letter = Create(folder, mail);
  HalfMade half(folder, letter);
  Fill(letter, mail, state.read);
  // All at once and last: the folder counts a letter as it becomes an incoming one.
  letter.Flag(docflag::Incoming | docflag::Complete | (state.deleted ? docflag::Deleted : 0));
  half.Keep();
}

}  // namespace tool
