// find: the recipient with a packet name.
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
  std::string packet;
  bool json = false;
};

int Find(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Read);
  CMSRecipient recipient = store->FindRecipient(options.packet.c_str(), true);
  if (!recipient) recipient = store->FindRecipient(options.packet.c_str(), false);
  if (!recipient) {
    throw Failure(kExitUsage, "no recipient has the packet name " + options.packet);
  }
  const CMSDocument letter = recipient.Document();
  if (options.json) {
    PrintJson({{"recipient", RecipientJson(recipient)}, {"letter", DocumentJson(letter)}});
    return kExitDone;
  }
  using enum Table::Align;
  Table table({Left, Left});
  table.Row({"Recipient:", std::to_string(recipient.ID())});
  table.Row({"Name:", Visible(recipient.UserName().str())});
  table.Row({"Address:", Visible(recipient.Annotation().str())});
  table.Row({"Letter:", std::to_string(letter.ID()) + " in " + Visible(PathOf(letter.Parent())) +
                            (letter.IsIncoming() ? " (incoming)" : " (outgoing)")});
  table.Row({"Subject:", Visible(letter.Name().str())});
  table.Print();
  return kExitDone;
}

}  // namespace

void AddFind(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("find", "The recipient with a packet name",
                             [&line, options] { return Find(line.store, *options); });
  command.Word("PACKET", options->packet, "Packet name; its first 12 characters count");
  command.Flag("--json", options->json, "Print JSON");
}

}  // namespace tool
