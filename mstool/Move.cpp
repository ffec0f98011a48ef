// mv: letters and folders to another folder.
#include <ms/Roles.h>

#include "CommandLine.h"
#include "Failure.h"
#include "Lookup.h"
#include "Open.h"

namespace tool {
namespace {

struct Options {
  std::string what;
  std::string target;
};

void MoveLetter(CMSDocument& letter, CMSFolder& target, const CMSFolder& trash) {
  const bool leavesTrash =
      trash.IsValid() && LiesIn(letter.Parent(), trash) && !LiesIn(target, trash);
  letter.Move(target);
  if (!leavesTrash || !letter.IsAction(docflag::Deleted)) return;
  letter.Flag(letter.Flag() & ~docflag::Deleted);
  letter.DeletedTime(0);
}

int Move(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Write);
  CMSFolder target = FindFolder(*store, options.target);
  CMSBatch batch(*store);
  if (CMSDocument letter = LookForLetter(*store, options.what)) {
    MoveLetter(letter, target, FolderOfRole(*store, MSF::kRoleTrash));
  } else {
    CMSFolder folder = LookForFolder(*store, options.what);
    if (!folder) {
      throw Failure(kExitUsage, "there is no letter and no folder " + options.what);
    }
    if (IsPredefined(folder)) {
      throw Failure(kExitUsage, PathOf(folder) + " is a predefined folder and stays where it is");
    }
    folder.Move(target);
  }
  batch.Commit();
  return kExitDone;
}

}  // namespace

void AddMove(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("mv", "Move a letter or a folder into a folder",
                             [&line, options] { return Move(line.store, *options); });
  command.Word("WHAT", options->what, "Number of a letter; path or number of a folder");
  command.Word("FOLDER", options->target, "Where to; / is the top level");
}

}  // namespace tool
