// check: whether a store needs a repair, and what would be mended.
#include "CommandLine.h"
#include "Failure.h"
#include "FixerRun.h"
#include "Text.h"

namespace tool {
namespace {

constexpr const char* kRules =
    "Runs all checks of a repair on temporary copies beside the store's files, which are removed\n"
    "again; the store itself is not written. Its disk must have room for the files of records and\n"
    "indexes once more. Each finding gets a line: the object, what is wrong, the stored and the\n"
    "right value.\n\n"
    "With --deep the files of attachments are looked at as well: one that is missing, or is not "
    "as\n"
    "long as its record says, is a finding, too, though no repair brings it back. Files in the\n"
    "directory that belong to no letter are only counted (listed with --deep); they may be "
    "deleted\n"
    "when nobody misses them.\n\n"
    "The exit code is 0 when nothing is wrong; 2 with any finding, when the store was not closed\n"
    "properly, or when a repair was requested; 4 when the files cannot be read, or the copies not\n"
    "be made; 5 while another process has the store open for writing.";

struct Options {
  bool deep = false;
  bool json = false;
};

void PrintHead(const FixerRun& run) {
  const StoreMarks& marks = run.Marks();
  using enum Table::Align;
  Table table({Left, Left});
  const std::string state = marks.state.empty() ? "(none)" : Visible(marks.state);
  table.Row({"State:", state + (marks.wasClosed ? "" : ", not closed properly")});
  table.Row({"Repair requested:", marks.isRepairRequested ? "yes" : "no"});
  table.Row({"Journal entries:", std::to_string(marks.journalEntries)});
  for (const std::string& path : marks.missing) table.Row({"Missing:", Visible(path)});
  const std::size_t unnamed = run.UnnamedFiles().size();
  if (unnamed != 0) table.Row({"Files without letter:", std::to_string(unnamed)});
  table.Print();
}

// The last line.
std::string Verdict(const FixerRun& run) {
  const std::size_t files = run.FileFindings().size();
  const std::size_t count = run.Findings().size() + files;
  if (count == 0)
    return run.Marks().AreGood() ? "nothing to repair" : "no damage found in the files";
  std::string text = CountOf(count, "finding", "findings");
  if (files != 0) text += " (" + std::to_string(files) + " of files, which no repair brings back)";
  return text;
}

void PrintReport(const FixerRun& run, bool deep) {
  PrintHead(run);
  for (const Finding& finding : run.Findings()) Print(LineOf(finding));
  for (const Finding& finding : run.FileFindings()) Print(LineOf(finding));
  if (deep) {
    for (const std::string& path : run.UnnamedFiles()) Print(Visible(path) + ": without letter");
  }
  Print(Verdict(run));
  FlushOutput();
}

void PrintFindings(JsonStream& out, const char* key, const std::vector<Finding>& findings) {
  out.BeginArray(key);
  for (const Finding& finding : findings) out.Value(JsonOf(finding));
  out.EndArray();
}

void PrintReportJson(const FixerRun& run, bool deep) {
  const StoreMarks& marks = run.Marks();
  JsonStream out;
  out.BeginObject({{"format", 1},
                   {"state", marks.state},
                   {"repairRequested", marks.isRepairRequested},
                   {"journalEntries", marks.journalEntries},
                   {"missing", marks.missing}});
  PrintFindings(out, "findings", run.Findings());
  if (deep) PrintFindings(out, "fileFindings", run.FileFindings());
  out.BeginArray("unnamedFiles");
  for (const std::string& path : run.UnnamedFiles()) out.Value(path);
  out.EndArray();
  out.Member("seconds", run.Seconds());
  out.EndObject();
  out.Finish();
}

int Check(const std::string& directory, const Options& options) {
  FixerRun run(directory);
  run.Scan(nullptr, options.deep);
  options.json ? PrintReportJson(run, options.deep) : PrintReport(run, options.deep);
  const bool isGood = run.Marks().AreGood() && run.Findings().empty() && run.FileFindings().empty();
  return isGood ? kExitDone : kExitDamaged;
}

}  // namespace

void AddCheck(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("check", "Whether the store needs a repair, without changing it",
                             [&line, options] { return Check(line.store, *options); });
  command.Flag("--deep", options->deep, "Look at the files of attachments, too");
  command.Flag("--json", options->json, "Print JSON");
  command.Footer(kRules);
}

}  // namespace tool
