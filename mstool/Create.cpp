// create: a new store with the predefined folders.
#include "CommandLine.h"
#include "Failure.h"
#include "Open.h"
#include "Output.h"
#include "Text.h"

namespace tool {

void AddCreate(CommandLine& line) {
  line.Add("create", "Make a new store with the predefined folders", [&line] {
    CreateStore(line.store);
    Print("made " + Visible(line.store));
    return kExitDone;
  });
}

}  // namespace tool
