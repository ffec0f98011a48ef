#include "FixerRun.h"

#include <ms/corrupted.h>

#include <algorithm>
#include <iostream>

#include "Failure.h"
#include "Interrupt.h"
#include "Open.h"
#include "RepairJournal.h"
#include "Text.h"
#include "kit/KitFile.h"
#include "kit/LogDispatcher.h"
#include "platform/Profile.h"

namespace tool {
namespace {

constexpr int kRecordFiles = 4;
constexpr int kFiles = 11;
constexpr std::size_t kProgressColumns = 48;

// Keeps the library's error events. Those of a job that failed say no more than its failure.
class Events : public CLogSink {
 public:
  Events() : m_previous(SetLogSink(this)) {}
  ~Events() override { SetLogSink(m_previous); }
  Events(const Events&) = delete;
  Events& operator=(const Events&) = delete;

  void WriteLogFormatted(const char* text, const char*, int severity) override {
    if (severity >= severity::Error) m_errors.emplace_back(text);
  }
  int ReportLog(int, const char*, const char*, int) override { return 0; }
  void Tell(const std::string& store) const {
    for (const std::string& text : m_errors) {
      std::cerr << "mstool: " << Visible(store) << ": " << Visible(text) << '\n';
    }
  }

 private:
  CLogSink* m_previous;
  std::vector<std::string> m_errors;
};

std::string PathOf(int index, const std::string& directory) {
  return MSF::CFixer::GetDBFilePath(index, directory.c_str(), MSF::CFixer::eOperative).str();
}

// A repair of a directory without any would make a new store there.
void RequireRecords(const std::string& directory) {
  RequireDirectory(directory);
  for (int index = 0; index < kRecordFiles; ++index) {
    if (CKitFile::Exists(PathOf(index, directory))) return;
  }
  throw Failure(kExitCannotAccess, "this directory holds no store, not even a damaged one");
}

std::string Maintenance(const std::string& directory, const char* key) {
  constexpr std::size_t kLongest = 64;
  return platform::ReadProfileString(CKitFile::Join(directory, "ms3.db"), MSF::szMaintenanceSection,
                                     key, "", kLongest);
}

}  // namespace

StoreMarks ReadMarks(const std::string& directory) {
  StoreMarks marks;
  marks.state = Maintenance(directory, MSF::szClosedStateKey);
  marks.wasClosed = marks.state == MSF::szClosedStateKeyValue;
  marks.isRepairRequested =
      Maintenance(directory, MSF::szRepairRequestKey) == MSF::szRepairRequestKeyValue;
  marks.journalEntries = ReadJournal(directory).size();
  if (!MSF::CFixer::IsRequiresRepair(directory.c_str())) return marks;
  for (int index = kRecordFiles; index < kFiles; ++index) {
    const std::string path = PathOf(index, directory);
    if (!CKitFile::IsVisible(path)) marks.missing.push_back(path);
  }
  return marks;
}

FixerRun::FixerRun(std::string directory) : m_directory(std::move(directory)), m_fixer(this) {
  RequireRecords(m_directory);
}

void FixerRun::Scan(std::ostream* log, bool deep) {
  m_fixer.SetDeep(deep);
  Run(Job::Scan, log);
}

void FixerRun::Repair(std::ostream* log) {
  Run(Job::Repair, log);
}

void FixerRun::RequireNobody(Job job) const {
  if (MSF::CFixer::IsAtWork(m_directory.c_str()) ||
      IsInUse(m_directory, job == Job::Scan ? Purpose::Read : Purpose::Write)) {
    throw Failure(kExitInUse, kInUse);
  }
}

void FixerRun::Run(Job job, std::ostream* log) {
  RequireNobody(job);
  m_marks = ReadMarks(m_directory);
  m_fixer.SetLog(log);
  const Events events;
  // A scan that finds something answers false as well; only a failure has a text.
  if (job == Job::Scan) {
    static_cast<void>(m_fixer.ScanMS(m_directory.c_str()));
  } else {
    static_cast<void>(m_fixer.RepairMS(m_directory.c_str()));
  }
  m_fixer.SetLog(nullptr);
  m_progress.Hide();
  m_findings = m_fixer.Findings();
  AddMissing();
  if (m_fixer.Error().empty()) {
    events.Tell(m_directory);
    return;
  }
  if (m_isStopped) throw Failure(kExitInterrupted, "interrupted; nothing was changed");
  RequireNobody(job);
  std::string text = job == Job::Scan ? "cannot be checked: " : "cannot be repaired: ";
  text += m_fixer.Error();
  if (m_isHeaderRefused) text += "; mstool repair --renew-headers writes a new header";
  if (!OldFiles().empty()) text += "; the files as they were are in " + OldFiles();
  throw Failure(kExitCannotAccess, text);
}

void FixerRun::AddMissing() {
  for (const std::string& path : m_marks.missing) {
    const auto isTold = [&](const Finding& finding) { return finding.Object == path; };
    if (std::none_of(m_findings.begin(), m_findings.end(), isTold)) {
      m_findings.push_back({MSF::CFixer::eRebuilt, path, "file", "missing", "rebuilt"});
    }
  }
}

bool FixerRun::OnProgress(const MSF::CFixer::CProgress& progress) {
  const bool isNewPart = m_step != progress.Step || m_file != progress.File;
  if (isNewPart) {
    m_progress.Begin();
    m_step = progress.Step;
    m_file = progress.File;
  }
  if (m_progress.IsDue()) {
    const std::string text = m_step + (m_file.empty() ? "" : "  " + CKitFile::BaseName(m_file));
    m_progress.Draw(FitWidth(Visible(text), kProgressColumns), progress.Done,
                    std::max<std::uint64_t>(progress.Total, 1));
  }
  m_isStopped = Interrupted();
  return !m_isStopped;
}

// The job's answer has the text.
void FixerRun::OnError(int, int code, const char*) {
  m_isHeaderRefused = code == MSF::CFixer::kRefusedHeader;
}

std::string CountOf(std::uint64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string LineOf(const Finding& finding) {
  std::string line = finding.Object + ": " + finding.What;
  if (finding.Stored.empty() && finding.Found.empty()) return Visible(line);
  line += ", " + finding.Stored;
  if (!finding.Stored.empty() && !finding.Found.empty()) line += " -> ";
  return Visible(line + finding.Found);
}

Json JsonOf(const Finding& finding) {
  return {{"object", finding.Object},
          {"what", finding.What},
          {"stored", finding.Stored},
          {"found", finding.Found}};
}

}  // namespace tool
