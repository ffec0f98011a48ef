// ls: the letters of a folder.
#include <algorithm>
#include <utility>
#include <vector>

#include "CommandLine.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Lookup.h"
#include "Objects.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"

namespace tool {
namespace {

constexpr std::size_t kSenderColumns = 24;

struct Options {
  std::string folder;
  bool json = false;
};

// (creation time, ID) of the folder's letters, newest last.
std::vector<std::pair<unsigned long, unsigned long>> ByTime(const CMSFolder& folder) {
  std::vector<std::pair<unsigned long, unsigned long>> order;
  folder.ForEachSummary([&](const CMSDocumentSummary& letter) {
    order.emplace_back(letter.CreationTime, letter.ID);
  });
  std::sort(order.begin(), order.end());
  return order;
}

std::string Mark(const CMSDocument& letter) {
  if (letter.IsUnread() || letter.IsMarkedAsUnread()) return "*";
  return letter.IsUndelivered() ? "!" : "";
}

void AddRow(Table& table, const CMSDocument& letter) {
  const int attachments = letter.GetAttachmentCount() - (letter.BodyID() != 0 ? 1 : 0);
  table.Row({Mark(letter), std::to_string(letter.ID()),
             DateText(static_cast<std::uint32_t>(letter.CreationTime())),
             FitWidth(Visible(letter.SenderUserName().str()), kSenderColumns),
             SizeText(letter.Size()), attachments > 0 ? std::to_string(attachments) : "",
             Visible(letter.Name().str())});
}

// Calls use(letter) in the order of time.
template <class Use>
void ForEachLetter(OpenStore& store, const CMSFolder& folder, const Use& use) {
  for (const auto& [time, id] : ByTime(folder)) {
    StopIfInterrupted();
    use(store->GetDocument(id));
  }
}

int Ls(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Read);
  const CMSFolder folder = FindFolder(*store, options.folder);
  if (options.json) {
    JsonStream out;
    out.BeginObject({{"format", 1}, {"folder", FolderJson(folder)}});
    out.BeginArray("letters");
    ForEachLetter(store, folder,
                  [&](const CMSDocument& letter) { out.Value(DocumentJson(letter)); });
    out.EndArray();
    out.EndObject();
    out.Finish();
    return kExitDone;
  }
  using enum Table::Align;
  Table table({Left, Right, Left, Left, Right, Right, Left});
  table.Row({"", "ID", "DATE", "FROM", "SIZE", "FILES", "SUBJECT"});
  ForEachLetter(store, folder, [&](const CMSDocument& letter) { AddRow(table, letter); });
  table.Print();
  return kExitDone;
}

}  // namespace

void AddLs(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("ls", "A folder's letters, newest last (* unread, ! undelivered)",
                             [&line, options] { return Ls(line.store, *options); });
  command.Word("FOLDER", options->folder, "Path or number");
  command.Flag("--json", options->json, "Print JSON");
}

}  // namespace tool
