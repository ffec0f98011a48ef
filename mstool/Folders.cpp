// folders: the tree with its counts.
#include "CommandLine.h"
#include "Failure.h"
#include "FolderWalk.h"
#include "Objects.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"

namespace tool {
namespace {

void AddRows(Table& table, const CMSFolder& root) {
  WalkFolders(root, [&](const CMSFolder& folder, std::size_t depth) {
    if (depth == 0) return;
    table.Row({std::to_string(folder.ID()), std::to_string(folder.GetDocumentCount()),
               std::to_string(folder.GetUnreadDocumentCount()),
               std::to_string(folder.GetUndeliveredDocumentCount()),
               std::string(2 * (depth - 1), ' ') + Visible(folder.Name().str())});
  });
}

void WriteTree(JsonStream& out, const CMSFolder& root) {
  const auto begin = [&](const CMSFolder& folder, std::size_t) {
    out.BeginObject(FolderJson(folder));
    out.BeginArray("Folders");
  };
  const auto end = [&](const CMSFolder&) {
    out.EndArray();
    out.EndObject();
  };
  WalkFolders(root, begin, end);
}

int Folders(const std::string& directory, bool json) {
  OpenStore store(directory, Purpose::Read);
  if (json) {
    JsonStream out;
    out.BeginObject({{"format", 1}});
    out.BeginArray("folders");
    WriteTree(out, store->Root());
    out.EndArray();
    out.EndObject();
    out.Finish();
    return kExitDone;
  }
  using enum Table::Align;
  Table table({Right, Right, Right, Right, Left});
  table.Row({"ID", "LETTERS", "UNREAD", "UNDELIVERED", "FOLDER"});
  AddRows(table, store->Root());
  table.Print();
  return kExitDone;
}

}  // namespace

void AddFolders(CommandLine& line) {
  const auto json = std::make_shared<bool>(false);
  Command command = line.Add("folders", "The tree of folders with its counts",
                             [&line, json] { return Folders(line.store, *json); });
  command.Flag("--json", *json, "Print JSON");
}

}  // namespace tool
