// mkdir: a new folder.
#include "CommandLine.h"
#include "Failure.h"
#include "Lookup.h"
#include "Open.h"
#include "Output.h"

namespace tool {
namespace {

struct Options {
  std::string path;
  bool parents = false;
};

int MakeDir(const std::string& directory, const Options& options) {
  std::vector<std::string> names = PathComponents(options.path);
  if (names.empty()) throw Failure(kExitUsage, "say the path of the new folder");
  OpenStore store(directory, Purpose::Write);
  const std::string last = names.back();
  names.pop_back();
  CMSFolder parent = store->Root();
  for (const std::string& name : names) {
    CMSFolder next =
        options.parents ? SubFolder(parent, name) : parent.OpenFolder(CKitString(name));
    if (!next) throw Failure(kExitUsage, "there is no folder " + name + "; -p makes it too");
    parent = next;
  }
  CMSFolder folder = parent.OpenFolder(CKitString(last));
  if (folder && !options.parents) {
    throw Failure(kExitUsage, "there is a folder " + options.path + " already");
  }
  const bool made = !folder;
  if (made) folder = parent.CreateFolder(last, "", 0);
  const std::string number = std::to_string(folder.ID());
  Print(PrintsOnTerminal() ? "folder " + number + (made ? " made" : " is there already") : number);
  return kExitDone;
}

}  // namespace

void AddMakeDir(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add(
      "mkdir", "Make a folder and print its number (the bare number when no terminal reads)",
      [&line, options] { return MakeDir(line.store, *options); });
  command.Word("PATH", options->path, "Such as INBOX/lists");
  command.Flag("-p,--parents", options->parents,
               "Make missing folders on the way too; be content when it is there");
}

}  // namespace tool
