// extract: the files of a letter.
#include <filesystem>
#include <iostream>
#include <system_error>

#include "CommandLine.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Lookup.h"
#include "Objects.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"

namespace tool {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kNameBytes = 200;

struct Options {
  std::string letter;
  std::string directory;
  bool json = false;
};

// A path in the directory that nothing has yet: "a.txt", "a (2).txt", ...
fs::path FreePath(const fs::path& directory, const std::string& name) {
  const fs::path wanted = directory / name;
  fs::path path = wanted;
  for (int i = 2; fs::exists(fs::symlink_status(path)); ++i) {
    path = directory /
           (wanted.stem().string() + " (" + std::to_string(i) + ")" + wanted.extension().string());
  }
  return path;
}

// Where the file went; empty when the store has none for the attachment.
std::string ExtractOne(const CMSAttachment& attachment, const fs::path& directory) {
  const fs::path stored = attachment.InternalFileName().str();
  std::error_code missing;
  if (!fs::is_regular_file(stored, missing)) return {};
  const fs::path target = FreePath(directory, SafeFileName(attachment.Name().str(), kNameBytes));
  std::error_code error;
  fs::copy_file(stored, target, error);
  if (error) {
    throw Failure(kExitCannotAccess, "cannot write " + target.string() + ": " + error.message());
  }
  return target.string();
}

int Extract(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Read);
  const CMSDocument letter = FindLetter(*store, options.letter);
  std::error_code error;
  fs::create_directories(options.directory, error);
  if (error) {
    throw Failure(kExitCannotAccess, "cannot make " + options.directory + ": " + error.message());
  }
  int code = kExitDone;
  Json files = Json::array();
  CMSAttachment attachment;
  for (auto place = letter.GetFirstAttachmentPosition();
       letter.GetNextAttachment(attachment, place);) {
    StopIfInterrupted();
    if ((attachment.Flag() & attachmentflag::FileRemoved) != 0) continue;
    const std::string path = ExtractOne(attachment, options.directory);
    if (path.empty()) {
      code = kExitDamaged;
      std::cerr << "mstool: " << Visible(directory) << ": the file of attachment "
                << attachment.ID() << " (" << Visible(attachment.Name().str())
                << ") is missing; the store needs a repair\n";
      continue;
    }
    files.push_back({{"ID", attachment.ID()}, {"path", path}});
    if (!options.json) Print(Visible(path));
  }
  if (options.json) PrintJson({{"files", files}});
  return code;
}

}  // namespace

void AddExtract(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command =
      line.Add("extract", "Copy a letter's files, its text among them, into a directory",
               [&line, options] { return Extract(line.store, *options); });
  command.Word("ID", options->letter, "Number of the letter");
  command.Word("DIR", options->directory,
               "Directory, made when missing; files in it are never overwritten");
  command.Flag("--json", options->json, "Print JSON");
}

}  // namespace tool
