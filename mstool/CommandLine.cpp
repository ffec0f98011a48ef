#include "CommandLine.h"

#include <CLI/CLI.hpp>

#include "Failure.h"

namespace tool {
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

}  // namespace

Command& Command::Word(const char* name, std::string& value, const char* about) {
  m_app->add_option(name, value, about)->required()->type_name("");
  return *this;
}

Command& Command::Word(const char* name, std::optional<std::string>& value, const char* about) {
  m_app->add_option(name, value, about)->type_name("");
  return *this;
}

Command& Command::Words(const char* name, std::vector<std::string>& values, const char* about) {
  m_app->add_option(name, values, about)->required()->type_name("");
  return *this;
}

Command& Command::Option(const char* name, const char* type, std::string& value,
                         const char* about) {
  m_app->add_option(name, value, about)->type_name(type);
  return *this;
}

Command& Command::Option(const char* name, const char* type, std::uint64_t& value,
                         const char* about) {
  m_app->add_option(name, value, about)->type_name(type);
  return *this;
}

Command& Command::Option(const char* name, const char* type, std::optional<std::uint32_t>& value,
                         const char* about) {
  m_app->add_option(name, value, about)->type_name(type);
  return *this;
}

Command& Command::Flag(const char* name, bool& value, const char* about, const char* otherThan) {
  CLI::Option* flag = m_app->add_flag(name, value, about);
  if (otherThan != nullptr) flag->excludes(m_app->get_option(otherThan));
  return *this;
}

Command& Command::Anything() {
  m_app->allow_extras();
  return *this;
}

void Command::Footer(const char* text) {
  m_app->footer(text);
}

CommandLine::CommandLine()
    : m_app(std::make_unique<CLI::App>(
          "Folders of letters in one directory: make, fill, read and look after a store.")) {
  m_app->name("mstool");
  m_app->set_version_flag("--version", "mstool " MS_VERSION);
  m_app->require_subcommand(1);
  m_app->footer(kFooter);
  m_app->failure_message(WrongUse);
}

CommandLine::~CommandLine() = default;

Command CommandLine::Add(const char* name, const char* about, std::function<int()> command,
                         const char* first, const char* firstIs) {
  CLI::App* sub = m_app->add_subcommand(name, about);
  sub->callback([this, command = std::move(command)] { run = command; });
  Command added(sub);
  added.Word(first, store, firstIs);
  return added;
}

std::optional<int> CommandLine::Parse(const std::vector<std::string>& words) {
  try {
    // The parser takes them from the back.
    m_app->parse(std::vector<std::string>(words.rbegin(), words.rend()));
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return m_app->exit(error) == 0 ? kExitDone : kExitUsage;
  }
}

}  // namespace tool
