#include <ms/Archiver.h>

#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Output.h"
#include "Text.h"
#include "platform/Program.h"

namespace tool {

namespace {

int Tell(const CommandLine& line, const Failure& failure) {
  std::cout.flush();
  std::cerr << "mstool: " << Visible(line.store) << ": " << Visible(failure.what()) << '\n';
  return failure.ExitCode();
}

int Run(CommandLine& line) {
  try {
    const int code = line.run();
    FlushOutput();
    return code;
  } catch (const CMSDocument::XCloneError&) {
    return Tell(line, {kExitDamaged, "the letter could not be copied: its record was refused"});
  } catch (const CMSArchiver::XInterrupted&) {
    return Tell(line, {kExitInterrupted, "interrupted"});
  } catch (const std::exception& error) {
    return Tell(line, Explain(error));
  }
}

int Main(const std::vector<std::string>& words) {
  platform::PrepareOutput();
  CommandLine line;
  for (const auto add :
       {AddCreate, AddImport, AddFolders, AddLs,      AddShow,   AddExtract, AddFind,
        AddMark,   AddMove,   AddCopy,    AddMakeDir, AddRemove, AddBackup,  AddRestore,
        AddVerify, AddCheck,  AddRepair,  AddJournal, AddStat,   AddCustom,  AddDump}) {
    add(line);
  }
  if (const std::optional<int> code = line.Parse({words.begin() + 1, words.end()})) return *code;
  WatchInterrupts();
  return Run(line);
}

}  // namespace
}  // namespace tool

int main(int count, char** words) {
  try {
    return tool::Main(platform::ProgramWords(count, words));
  } catch (const std::exception& error) {
    std::cerr << "mstool: " << error.what() << '\n';
    return tool::kExitCannotAccess;
  }
}
