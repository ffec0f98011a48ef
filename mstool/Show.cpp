// show: one letter.
#include <array>
#include <fstream>
#include <iostream>
#include <iterator>

#include "CommandLine.h"
#include "Failure.h"
#include "Lookup.h"
#include "Objects.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"

namespace tool {
namespace {

struct Options {
  std::string letter;
  bool json = false;
};

// The body's bytes; Failure when the store has lost its file.
std::string BodyText(const CMSDocument& letter) {
  const CMSAttachment body = letter.Body();
  if (!body || (body.Flag() & attachmentflag::FileRemoved) != 0) return {};
  const std::string path = body.InternalFileName().str();
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure(kExitDamaged, "the text of the letter cannot be read: " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Without the carriage returns of line ends.
std::string ForTerminal(const std::string& text) {
  std::string lines;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') lines += text[i];
  }
  return Visible(lines, true);
}

const char* CategoryName(long category) {
  static constexpr std::array<const char*, 4> kNames = {"", "To", "Cc", "Bcc"};
  return category > 0 && category < 4 ? kNames[static_cast<std::size_t>(category)] : "Recipient";
}

std::string States(const CMSDocument& letter) {
  std::string states = letter.IsIncoming() ? "incoming" : "outgoing";
  if (letter.IsUnread() || letter.IsMarkedAsUnread()) states += ", unread";
  if (letter.IsUndelivered()) states += ", undelivered";
  if (letter.IsAction(docflag::Encrypted)) states += ", encrypted";
  if (letter.IsAction(docflag::Deleted)) states += ", deleted";
  if (!letter.IsAction(docflag::Complete)) states += ", incomplete";
  return states;
}

// The store keeps the first bytes of a sender's address; where it has no room for more, more may
// have been there.
std::string Sender(const CMSDocument& letter) {
  constexpr std::size_t kRoom = 16;
  std::string name = letter.SenderUserName().str();
  std::string address = letter.ObsoleteSenderNetAddr().str();
  if (address.empty() || name.starts_with(address)) return name;
  if (address.size() >= kRoom) address += "…";
  return name.empty() ? address : name + " <" + address + ">";
}

void PrintHeader(const CMSDocument& letter) {
  using enum Table::Align;
  Table table({Left, Left});
  table.Row({"Letter:", std::to_string(letter.ID()) + " in " + Visible(PathOf(letter.Parent())) +
                            " (" + States(letter) + ")"});
  table.Row({"Subject:", Visible(letter.Name().str())});
  table.Row({"Date:", DateText(static_cast<std::uint32_t>(letter.CreationTime()))});
  table.Row({"From:", Visible(Sender(letter))});
  if (!letter.RegNumber().empty()) {
    table.Row({"Number:", Visible(letter.UniversalRegNumber().str())});
  }
  CMSRecipient recipient;
  for (auto place = letter.GetFirstRecipientPosition();
       letter.GetNextRecipient(recipient, place);) {
    std::string who = recipient.UserName().str();
    const std::string address = recipient.Annotation().str();
    if (!address.empty()) who += who.empty() ? address : " <" + address + ">";
    table.Row({std::string(CategoryName(recipient.Category())) + ":",
               Visible(who) + "  [" + Visible(recipient.TransEnvFileName().str()) + "]"});
  }
  table.Print();
}

void PrintAttachments(const CMSDocument& letter) {
  using enum Table::Align;
  Table table({Right, Right, Left});
  bool any = false;
  CMSAttachment attachment;
  for (auto place = letter.GetFirstAttachmentPosition();
       letter.GetNextAttachment(attachment, place);) {
    if (attachment.ID() == letter.BodyID()) continue;
    any = true;
    table.Row({std::to_string(attachment.ID()),
               SizeText(static_cast<std::uint64_t>(attachment.Size())),
               Visible(attachment.Name().str())});
  }
  if (!any) return;
  Print("");
  Print("Attachments:");
  table.Print();
}

int Show(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Read);
  const CMSDocument letter = FindLetter(*store, options.letter);
  const std::string text = BodyText(letter);
  if (options.json) {
    JsonStream out;
    out.BeginObject({{"format", 1}});
    out.Key("letter");
    WriteDocument(out, letter);
    out.Member("text", text);
    out.EndObject();
    out.Finish();
    return kExitDone;
  }
  PrintHeader(letter);
  PrintAttachments(letter);
  Print("");
  std::cout << ForTerminal(text);
  if (!text.empty() && text.back() != '\n') std::cout << '\n';
  return kExitDone;
}

}  // namespace

void AddShow(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("show", "One letter: header, recipients, attachments, text",
                             [&line, options] { return Show(line.store, *options); });
  command.Word("ID", options->letter, "Number of the letter");
  command.Flag("--json", options->json, "Print JSON");
}

}  // namespace tool
