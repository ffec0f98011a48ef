// The commands and what they were given.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace tool {

struct CommandLine {
  CLI::App app{"Folders of letters in one directory: make, fill, read and look after a store."};
  std::string store;         // the directory, first argument of every command
  std::function<int()> run;  // the chosen command; answers the exit code

  // A command "NAME STORE ...", where the help may call the store by another word (first). What is
  // given runs when the command is chosen.
  CLI::App* Add(const std::string& name, const std::string& about, std::function<int()> command,
                const std::string& first = "STORE");
};

// One function per command, in the file of its name. Each adds the command with its options.
void AddCreate(CommandLine& line);
void AddImport(CommandLine& line);
void AddFolders(CommandLine& line);
void AddLs(CommandLine& line);
void AddShow(CommandLine& line);
void AddExtract(CommandLine& line);
void AddFind(CommandLine& line);
void AddMark(CommandLine& line);
void AddMove(CommandLine& line);
void AddCopy(CommandLine& line);
void AddMakeDir(CommandLine& line);
void AddRemove(CommandLine& line);
void AddBackup(CommandLine& line);
void AddRestore(CommandLine& line);
void AddVerify(CommandLine& line);
void AddCheck(CommandLine& line);
void AddRepair(CommandLine& line);
void AddJournal(CommandLine& line);
void AddStat(CommandLine& line);
void AddCustom(CommandLine& line);
void AddDump(CommandLine& line);

}  // namespace tool
