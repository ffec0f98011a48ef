#include <ms/Archiver.h>

#include <iostream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Output.h"
#include "Text.h"
#include "platform/Program.h"

namespace tool {

CLI::App* CommandLine::Add(const std::string& name, const std::string& about,
                           std::function<int()> command, const std::string& first) {
  CLI::App* sub = app.add_subcommand(name, about);
  sub->add_option(first, store, "the store's directory")->required()->type_name("");
  sub->callback([this, command = std::move(command)] { run = command; });
  return sub;
}

namespace {

constexpr const char* kFooter =
    "STORE is the directory of a store. A FOLDER is a path such as INBOX/lists, or the folder's\n"
    "number; a letter is known by its number (ls shows it). Reading commands take --json: one\n"
    "object, \"format\" first.\n\n"
    "Exit codes: 0 done; 1 wrong use, or no such letter or folder; 2 the store is damaged, some\n"
    "input was refused, a letter could not be backed up, verify found differences, or check\n"
    "something to repair; 3 a repair changed the store; 4 cannot read, write or repair; 5 the\n"
    "store is in use by another process; 130 interrupted.";

std::string WrongUse(const CLI::App* app, const CLI::Error& error) {
  std::string command = app->get_name();
  for (const CLI::App* sub : app->get_subcommands()) command += " " + sub->get_name();
  return "mstool: " + std::string(error.what()) + "; see " + command + " --help\n";
}

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
  line.app.name("mstool");
  line.app.set_version_flag("--version", "mstool " MS_VERSION);
  line.app.require_subcommand(1);
  line.app.footer(kFooter);
  line.app.failure_message(WrongUse);
  for (const auto add :
       {AddCreate, AddImport, AddFolders, AddLs,      AddShow,   AddExtract, AddFind,
        AddMark,   AddMove,   AddCopy,    AddMakeDir, AddRemove, AddBackup,  AddRestore,
        AddVerify, AddCheck,  AddRepair,  AddJournal, AddStat,   AddCustom,  AddDump}) {
    add(line);
  }
  try {
    line.app.parse(std::vector<std::string>(words.rbegin(), words.rend() - 1));
  } catch (const CLI::ParseError& error) {
    return line.app.exit(error) == 0 ? kExitDone : kExitUsage;
  }
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
