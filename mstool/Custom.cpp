// custom: client data in the master file.
#include <optional>

#include "CommandLine.h"
#include "Failure.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"

namespace tool {
namespace {

struct Options {
  std::string section;
  std::string key;
  std::optional<std::string> value;
  bool json = false;
};

int Write(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Write);
  if (!store->WriteCustomData(options.section.c_str(), options.key.c_str(),
                              options.value->c_str())) {
    throw Failure(kExitCannotAccess,
                  "the value was not written: see that ms3.db can be written, that section and key "
                  "are not empty and that nothing holds a line break");
  }
  return kExitDone;
}

int Read(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Read);
  const std::string value =
      store->GetCustomData(options.section.c_str(), options.key.c_str()).str();
  if (options.json) {
    PrintJson({{"section", options.section}, {"key", options.key}, {"value", value}});
  } else {
    Print(Visible(value));
  }
  return kExitDone;
}

// What the store keeps for itself is not for clients.
void RefuseReserved(const Options& options) {
  for (const char* section : {"MessageStore", "Maintenance", "RegInfo", "ExtraFolderData"}) {
    if (EqualNoCase(options.section, section)) {
      throw Failure(kExitUsage, "section " + options.section +
                                    " belongs to the store; choose another one for your data");
    }
  }
}

}  // namespace

void AddCustom(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("custom", "Read or write client data of the store", [&line, options] {
    if (!options->value) return Read(line.store, *options);
    RefuseReserved(*options);
    return Write(line.store, *options);
  });
  command.Word("SECTION", options->section, "Section");
  command.Word("KEY", options->key, "Key");
  command.Word("VALUE", options->value, "Value to write; without it the value is printed");
  command.Flag("--json", options->json, "Print JSON");
}

}  // namespace tool
