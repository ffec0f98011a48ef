// import, where there is no library that reads mail.
#include "CommandLine.h"
#include "Failure.h"

namespace tool {
namespace {

[[noreturn]] int Refuse() {
  throw Failure(kExitCannotAccess,
                "this mstool cannot import: it was built without the mail library GMime. Import "
                "with one that has it; the store can be used on any system");
}

}  // namespace

void AddImport(CommandLine& line) {
  Command command = line.Add("import", "Not in this build: importing needs the mail library GMime",
                             [] { return Refuse(); });
  command.Anything();
}

}  // namespace tool
