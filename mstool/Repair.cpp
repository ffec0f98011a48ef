// repair: a damaged store made consistent.
#include <fstream>
#include <iostream>
#include <map>

#include "CommandLine.h"
#include "Failure.h"
#include "FixerRun.h"
#include "Text.h"

namespace tool {
namespace {

constexpr const char* kRules =
    "Mends what mstool check lists and builds the indexes anew. All work is done on temporary\n"
    "copies; a repair that fails, or is interrupted, before the new files are complete leaves the\n"
    "store as it was. The old files are kept in the directory that is named at the end, beside\n"
    "STORE (inside it, when STORE is given with a separator at its end), unless no record "
    "changed.\n"
    "Files of attachments whose letter is gone are put into STORE/ALIEN. Nobody may have the "
    "store\n"
    "open.\n\n"
    "The exit code is 3 when something was changed, 0 when nothing needed to be; 4 when the store\n"
    "cannot be repaired. With --dry-run nothing is changed, and it is 2 when a repair would "
    "change\n"
    "something.";

struct Options {
  std::string log;
  bool dryRun = false;
  bool json = false;
};

// The maintenance log at the end of a file; none without a name.
class LogFile {
 public:
  explicit LogFile(const std::string& name) : m_name(name) {
    if (m_name.empty()) return;
    m_stream.open(m_name, std::ios::app | std::ios::binary);
    if (!m_stream) {
      throw Failure(kExitCannotAccess,
                    "the log " + m_name + " cannot be written; nothing was changed");
    }
  }
  std::ostream* Stream() { return m_name.empty() ? nullptr : &m_stream; }
  // The job does not look after its log.
  void Close() {
    if (m_name.empty()) return;
    m_stream.close();
    if (!m_stream) std::cerr << "mstool: the log " << Visible(m_name) << " is not complete\n";
  }

 private:
  std::string m_name;
  std::ofstream m_stream;
};

std::map<std::string, std::uint64_t> CountKinds(const std::vector<Finding>& findings) {
  std::map<std::string, std::uint64_t> kinds;
  for (const Finding& finding : findings) ++kinds[finding.What];
  return kinds;
}

bool HasWork(const FixerRun& run) {
  return !run.Findings().empty() || !run.Marks().AreGood() || !run.OldFiles().empty();
}

void PrintSummary(const FixerRun& run, bool dryRun) {
  if (!HasWork(run)) {
    Print(dryRun ? "nothing would be changed" : "nothing needed to be changed");
    return;
  }
  Print(dryRun ? "a repair would mend" : "mended");
  using enum Table::Align;
  Table table({Right, Left});
  for (const auto& [kind, count] : CountKinds(run.Findings())) {
    table.Row({"  " + std::to_string(count), Visible(kind)});
  }
  if (!run.Marks().wasClosed) table.Row({"  1", "state of the store, not closed properly"});
  if (run.Marks().isRepairRequested) table.Row({"  1", "repair request"});
  table.Print();
  if (dryRun) {
    Print("nothing was changed");
  } else if (run.OldFiles().empty()) {
    Print("the record files stay as they were");
  } else {
    Print("the old files are in " + Visible(run.OldFiles()));
  }
}

void PrintSummaryJson(const FixerRun& run, bool dryRun) {
  JsonStream out;
  out.BeginObject({{"format", 1},
                   {"dryRun", dryRun},
                   {"changed", HasWork(run) && !dryRun},
                   {"state", run.Marks().state},
                   {"repairRequested", run.Marks().isRepairRequested},
                   {"kinds", CountKinds(run.Findings())}});
  out.BeginArray("findings");
  for (const Finding& finding : run.Findings()) out.Value(JsonOf(finding));
  out.EndArray();
  out.Member("oldFiles", run.OldFiles());
  out.Member("seconds", run.Seconds());
  out.EndObject();
  out.Finish();
}

int Repair(const std::string& directory, const Options& options) {
  FixerRun run(directory);
  LogFile log(options.log);
  options.dryRun ? run.Scan(log.Stream()) : run.Repair(log.Stream());
  log.Close();
  if (options.json) {
    PrintSummaryJson(run, options.dryRun);
  } else {
    PrintSummary(run, options.dryRun);
    FlushOutput();
  }
  if (!HasWork(run)) return kExitDone;
  return options.dryRun ? kExitDamaged : kExitRepaired;
}

}  // namespace

void AddRepair(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* sub = line.Add("repair", "Mend a damaged store; the old files are kept",
                           [&line, options] { return Repair(line.store, *options); });
  sub->add_option("--log", options->log, "Append the log of the repair to this file")
      ->type_name("FILE");
  sub->add_flag("--dry-run", options->dryRun, "Tell what would be mended, and change nothing");
  sub->add_flag("--json", options->json, "Print JSON");
  sub->footer(kRules);
}

}  // namespace tool
