// check: whether a store needs a repair, and what would be mended.
#include "CommandLine.h"
#include "Failure.h"
#include "FixerRun.h"
#include "Text.h"

namespace tool {
namespace {

constexpr const char* kRules =
    "Runs all checks of a repair on temporary copies beside the store's files, which are removed\n"
    "again; the store itself is not written. Its disk must have room for the record files once\n"
    "more. Each finding gets a line: the object, what is wrong, the stored and the right value.\n"
    "The exit code is 0 when nothing needs a repair, 2 with any finding, when the store was not\n"
    "closed properly, or when a repair was requested; 4 when the files cannot be read.";

void PrintMarks(const StoreMarks& marks) {
  using enum Table::Align;
  Table table({Left, Left});
  const std::string state = marks.state.empty() ? "(none)" : Visible(marks.state);
  table.Row({"State:", state + (marks.wasClosed ? "" : ", not closed properly")});
  table.Row({"Repair requested:", marks.isRepairRequested ? "yes" : "no"});
  table.Row({"Journal entries:", std::to_string(marks.journalEntries)});
  for (const std::string& path : marks.missing) table.Row({"Missing:", Visible(path)});
  table.Print();
}

void PrintReport(const FixerRun& run) {
  PrintMarks(run.Marks());
  for (const Finding& finding : run.Findings()) Print(LineOf(finding));
  const std::size_t count = run.Findings().size();
  if (count != 0) {
    Print(std::to_string(count) + (count == 1 ? " finding" : " findings"));
  } else {
    Print(run.Marks().AreGood() ? "nothing to repair" : "no damage found in the files");
  }
  FlushOutput();
}

void PrintReportJson(const FixerRun& run) {
  const StoreMarks& marks = run.Marks();
  JsonStream out;
  out.BeginObject({{"format", 1},
                   {"state", marks.state},
                   {"repairRequested", marks.isRepairRequested},
                   {"journalEntries", marks.journalEntries},
                   {"missing", marks.missing}});
  out.BeginArray("findings");
  for (const Finding& finding : run.Findings()) out.Value(JsonOf(finding));
  out.EndArray();
  out.Member("seconds", run.Seconds());
  out.EndObject();
  out.Finish();
}

int Check(const std::string& directory, bool json) {
  FixerRun run(directory);
  run.Scan(nullptr);
  json ? PrintReportJson(run) : PrintReport(run);
  return run.Marks().AreGood() && run.Findings().empty() ? kExitDone : kExitDamaged;
}

}  // namespace

void AddCheck(CommandLine& line) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* sub = line.Add("check", "Whether the store needs a repair, without changing it",
                           [&line, json] { return Check(line.store, *json); });
  sub->add_flag("--json", *json, "Print JSON");
  sub->footer(kRules);
}

}  // namespace tool
