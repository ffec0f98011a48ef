// The commands and what they were given.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tool {

// What one command takes, in the order of its help. The values live as long as the command line.
// The option parser is for CommandLine.cpp alone: a source that includes its headers takes longer
// to compile than everything else here.
class Command {
 public:
  explicit Command(CLI::App* app) : m_app(app) {}

  // A word by its place, which has to be given; an optional one need not.
  Command& Word(const char* name, std::string& value, const char* about);
  Command& Word(const char* name, std::optional<std::string>& value, const char* about);
  // One or more, all that are left.
  Command& Words(const char* name, std::vector<std::string>& values, const char* about);
  // "--name TYPE".
  Command& Option(const char* name, const char* type, std::string& value, const char* about);
  Command& Option(const char* name, const char* type, std::uint64_t& value, const char* about);
  Command& Option(const char* name, const char* type, std::optional<std::uint32_t>& value,
                  const char* about);
  // "--name"; not together with the flag that is named otherThan.
  Command& Flag(const char* name, bool& value, const char* about, const char* otherThan = nullptr);
  // Takes and ignores whatever is given.
  Command& Anything();
  // Paragraphs below the help.
  void Footer(const char* text);

 private:
  CLI::App* m_app;
};

class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine();

  std::string store;         // the directory, first argument of every command
  std::function<int()> run;  // the chosen command; answers the exit code

  // A command "NAME STORE ...", where the help may call the store by another word (first). What is
  // given runs when the command is chosen.
  Command Add(const char* name, const char* about, std::function<int()> command,
              const char* first = "STORE", const char* firstIs = "the store's directory");

  // Reads the words after the program's name. What it answers is the exit code of a run that ends
  // here: help was asked for and printed, or the words were wrong, which it said.
  std::optional<int> Parse(const std::vector<std::string>& words);

 private:
  std::unique_ptr<CLI::App> m_app;
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
