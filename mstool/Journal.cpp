// journal: what was found broken while the store was in use.
#include "CommandLine.h"
#include "Failure.h"
#include "Open.h"
#include "Output.h"
#include "RepairJournal.h"
#include "Text.h"

namespace tool {
namespace {

constexpr const char* kRules =
    "Each line is one report of damage: when, and what was found. The newest is the last. What is\n"
    "left of an entry that was cut short is shown as it is, without a time. The store is not\n"
    "opened. A repair leaves the journal alone: it is the store's history.";

std::string LineOf(const JournalEntry& entry) {
  return entry.time.empty() ? Visible(entry.text) : entry.time + "  " + Visible(entry.text);
}

int Journal(const std::string& directory, bool json) {
  RequireDirectory(directory);
  const std::vector<JournalEntry> entries = ReadJournal(directory);
  if (json) {
    JsonStream out;
    out.BeginObject({{"format", 1}});
    out.BeginArray("entries");
    for (const JournalEntry& entry : entries) {
      out.Value(entry.time.empty() ? Json{{"text", entry.text}}
                                   : Json{{"time", entry.time}, {"reason", entry.text}});
    }
    out.EndArray();
    out.EndObject();
    out.Finish();
    return kExitDone;
  }
  for (const JournalEntry& entry : entries) Print(LineOf(entry));
  if (entries.empty()) Print("no journal: no damage was ever reported");
  FlushOutput();
  return kExitDone;
}

}  // namespace

void AddJournal(CommandLine& line) {
  const auto json = std::make_shared<bool>(false);
  Command command = line.Add("journal", "The reports of damage, oldest first",
                             [&line, json] { return Journal(line.store, *json); });
  command.Flag("--json", *json, "Print JSON");
  command.Footer(kRules);
}

}  // namespace tool
