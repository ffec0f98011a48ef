// folders: the tree with its counts.
#include "CommandLine.h"
#include "Failure.h"
#include "Objects.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"

namespace tool {
namespace {

void AddRows(Table& table, const CMSFolder& folder, std::size_t depth) {
  CMSFolder child;
  for (auto place = folder.GetFirstFolderPosition(); folder.GetNextFolder(child, place);) {
    table.Row({std::to_string(child.ID()), std::to_string(child.GetDocumentCount()),
               std::to_string(child.GetUnreadDocumentCount()),
               std::to_string(child.GetUndeliveredDocumentCount()),
               std::string(2 * depth, ' ') + Visible(child.Name().str())});
    AddRows(table, child, depth + 1);
  }
}

void WriteTree(JsonStream& out, const CMSFolder& folder) {
  out.BeginObject(FolderJson(folder));
  out.BeginArray("Folders");
  CMSFolder child;
  for (auto place = folder.GetFirstFolderPosition(); folder.GetNextFolder(child, place);) {
    WriteTree(out, child);
  }
  out.EndArray();
  out.EndObject();
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
  AddRows(table, store->Root(), 0);
  table.Print();
  return kExitDone;
}

}  // namespace

void AddFolders(CommandLine& line) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* sub = line.Add("folders", "The tree of folders with its counts",
                           [&line, json] { return Folders(line.store, *json); });
  sub->add_flag("--json", *json, "Print JSON");
}

}  // namespace tool
