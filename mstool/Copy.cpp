// cp: a letter, into a folder of the same store or of another one.
#include <filesystem>
#include <optional>

#include "CommandLine.h"
#include "Failure.h"
#include "Lookup.h"
#include "Open.h"
#include "Output.h"

namespace tool {
namespace {

struct Options {
  std::string letter;
  std::string target;
  bool missing = false;
};

struct Place {
  std::string store;
  std::string folder;
};

// What "OTHERSTORE:FOLDER" names, if the text can be that.
std::optional<Place> OtherPlace(const std::string& text) {
  const auto colon = text.rfind(':');
  if (colon == text.npos || colon == 0) return std::nullopt;
  Place place{text.substr(0, colon), text.substr(colon + 1)};
  if (!CMSMessageStore::IsMSDirectory(place.store.c_str())) return std::nullopt;
  return place;
}

bool IsSameDirectory(const std::string& a, const std::string& b) {
  std::error_code error;
  return std::filesystem::equivalent(a, b, error);
}

bool HasFolder(const std::string& directory, const std::string& text) {
  OpenStore store(directory, Purpose::Read);
  return LookForFolder(*store, text).IsValid();
}

int CopyLetter(const CMSDocument& letter, CMSMessageStore& store, const std::string& folder,
               bool missing) {
  CMSFolder target = FindFolder(store, folder);
  CMSBatch batch(store);
  unsigned long number = 0;
  try {
    number = letter.Clone(target, missing).ID();
  } catch (const XKitStatus& error) {
    if (error.Code() != kit::kStatusAttachmentMissing) throw;
    throw Failure(kExitDamaged,
                  std::string(error.what()) + "; --missing copies the letter without it");
  }
  batch.Commit();
  const std::string text = std::to_string(number);
  Print(PrintsOnTerminal() ? "the copy is letter " + text : text);
  return kExitDone;
}

int Copy(const std::string& directory, const Options& options) {
  std::optional<Place> other = OtherPlace(options.target);
  // A name of a folder may hold a colon, too.
  if (other && HasFolder(directory, options.target)) other.reset();
  if (!other || IsSameDirectory(other->store, directory)) {
    OpenStore store(directory, Purpose::Write);
    return CopyLetter(FindLetter(*store, options.letter), *store,
                      other ? other->folder : options.target, options.missing);
  }
  OpenStore store(directory, Purpose::Read);
  const CMSDocument letter = FindLetter(*store, options.letter);
  const std::unique_ptr<OpenStore> target = OpenOther(other->store, Purpose::Write);
  return CopyLetter(letter, **target, other->folder, options.missing);
}

}  // namespace

void AddCopy(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("cp", "Copy a letter into a folder",
                             [&line, options] { return Copy(line.store, *options); });
  command.Word("ID", options->letter, "Number of the letter");
  command.Word("FOLDER", options->target, "Where to; OTHERSTORE:FOLDER for another store's");
  command.Flag("--missing", options->missing,
               "Copy the letter without files of it that are missing in STORE");
  command.Footer(
      "The copy has a number of its own, which is printed, and is else the same in all: one of a\n"
      "letter in the trash is marked as deleted, too.");
}

}  // namespace tool
