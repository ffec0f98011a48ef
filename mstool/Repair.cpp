// repair: a damaged store made consistent.
#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <iterator>
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
    "STORE (inside it, when STORE is given with a separator at its end), unless no record\n"
    "changed. Files of attachments whose letter is gone are put into STORE/ALIEN; other files "
    "that\n"
    "belong to no letter stay where they are. Nobody may have the store open.\n\n"
    "A record file whose header is destroyed, or that is not there, ends the repair. With\n"
    "--renew-headers it gets a new header, and a missing file becomes an empty one: what is still\n"
    "there is saved then.\n\n"
    "The exit code is 3 when something was changed, 0 when nothing needed to be; 4 when the store\n"
    "cannot be repaired; 5 while another process has it open. With --dry-run nothing is changed,\n"
    "and it is 2 when a repair would change something.";

struct Options {
  std::string log;
  bool renewHeaders = false;
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

using Kinds = std::map<std::string, std::uint64_t>;

// What is said of the findings that one way of mending sees to.
struct FixWords {
  MSF::CFixer::EFix fix;
  const char* verb;
  const char* one;
  const char* many;
  bool tellsKinds;
};

constexpr std::array<FixWords, 7> kFixes{{
    {MSF::CFixer::eMended, "mended", "counter or field", "counters and fields", true},
    {MSF::CFixer::eRemapped, "remapped", "object, to a free number", "objects, to free numbers",
     true},
    {MSF::CFixer::eRebound, "rebound", "object, to another parent", "objects, to other parents",
     true},
    {MSF::CFixer::eDeleted, "deleted", "object", "objects", true},
    {MSF::CFixer::eCreated, "created", "folder", "folders", false},
    {MSF::CFixer::eRebuilt, "rebuilt", "file", "files", false},
    {MSF::CFixer::eNothing, "noted", "finding", "findings", true},
}};

bool AsksForWork(const Finding& finding) {
  return finding.Fix != MSF::CFixer::eNothing;
}

bool HasWork(const FixerRun& run) {
  return std::any_of(run.Findings().begin(), run.Findings().end(), AsksForWork) ||
         !run.Marks().AreGood() || !run.OldFiles().empty();
}

// By what was found.
Kinds CountKinds(const std::vector<Finding>& findings) {
  Kinds kinds;
  for (const Finding& finding : findings) ++kinds[finding.What];
  return kinds;
}

std::vector<Finding> Pick(const std::vector<Finding>& findings, MSF::CFixer::EFix fix) {
  std::vector<Finding> picked;
  const auto is = [=](const Finding& finding) { return finding.Fix == fix; };
  std::copy_if(findings.begin(), findings.end(), std::back_inserter(picked), is);
  return picked;
}

std::string KindsText(const Kinds& kinds) {
  std::string text;
  for (const auto& [kind, count] : kinds) {
    text += (text.empty() ? " (" : ", ") + kind;
    if (kinds.size() > 1) text += " " + std::to_string(count);
  }
  return Visible(text + ")");
}

std::string KeptText(const MSF::CFixer::CCounts& kept) {
  return CountOf(kept.Folders, "folder", "folders") + ", " +
         CountOf(kept.Documents, "letter", "letters") + ", " +
         CountOf(kept.Attachments, "attachment", "attachments") + ", " +
         CountOf(kept.Recipients, "recipient", "recipients");
}

// A line for each thing that was done, or in a dry run would be.
void PrintDeeds(const FixerRun& run, bool dryRun) {
  using enum Table::Align;
  Table table({Left, Left});
  const auto row = [&](const std::string& verb, const std::string& what) {
    table.Row({(dryRun ? "would be " : "") + verb + ":", what});
  };
  row("kept", KeptText(run.Kept()));
  for (const FixWords& words : kFixes) {
    const std::vector<Finding> findings = Pick(run.Findings(), words.fix);
    if (findings.empty()) continue;
    std::string text = CountOf(findings.size(), words.one, words.many);
    if (words.tellsKinds) text += KindsText(CountKinds(findings));
    row(words.verb, text);
  }
  if (!run.Marks().wasClosed) row("closed", "the store, which was not closed properly");
  if (run.Marks().isRepairRequested) row("settled", "the request for a repair");
  table.Print();
}

void PrintSummary(const FixerRun& run, bool dryRun) {
  if (!HasWork(run)) Print(dryRun ? "nothing would be changed" : "nothing needed to be changed");
  PrintDeeds(run, dryRun);
  if (!run.UnnamedFiles().empty()) {
    Print(CountOf(run.UnnamedFiles().size(), "file in the directory belongs",
                  "files in the directory belong") +
          " to no letter; none " + (dryRun ? "would be" : "was") +
          " deleted (mstool check --deep lists them)");
  }
  if (!HasWork(run)) return;
  if (dryRun) {
    Print("nothing was changed");
  } else if (run.OldFiles().empty()) {
    Print("the record files stay as they were");
  } else {
    Print("the old files are in " + Visible(run.OldFiles()));
  }
}

Json KeptJson(const MSF::CFixer::CCounts& kept) {
  return {{"folders", kept.Folders},
          {"letters", kept.Documents},
          {"attachments", kept.Attachments},
          {"recipients", kept.Recipients}};
}

void PrintSummaryJson(const FixerRun& run, bool dryRun) {
  JsonStream out;
  out.BeginObject({{"format", 1},
                   {"dryRun", dryRun},
                   {"changed", HasWork(run) && !dryRun},
                   {"state", run.Marks().state},
                   {"repairRequested", run.Marks().isRepairRequested},
                   {"kept", KeptJson(run.Kept())}});
  for (const FixWords& words : kFixes) {
    out.Member(words.verb, Pick(run.Findings(), words.fix).size());
  }
  out.Member("kinds", CountKinds(run.Findings()));
  out.BeginArray("findings");
  for (const Finding& finding : run.Findings()) out.Value(JsonOf(finding));
  out.EndArray();
  out.Member("unnamedFiles", run.UnnamedFiles());
  out.Member("oldFiles", run.OldFiles());
  out.Member("seconds", run.Seconds());
  out.EndObject();
  out.Finish();
}

int Repair(const std::string& directory, const Options& options) {
  FixerRun run(directory);
  LogFile log(options.log);
  if (options.renewHeaders) run.RenewHeaders();
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
  Command command = line.Add("repair", "Mend a damaged store; the old files are kept",
                             [&line, options] { return Repair(line.store, *options); });
  command.Option("--log", "FILE", options->log, "Append the log of the repair to this file");
  command.Flag("--renew-headers", options->renewHeaders,
               "Replace destroyed headers of record files");
  command.Flag("--dry-run", options->dryRun, "Tell what would be mended, and change nothing");
  command.Flag("--json", options->json, "Print JSON");
  command.Footer(kRules);
}

}  // namespace tool
