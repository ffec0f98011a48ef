// A maintenance job of the library, as check and repair run it.
#pragma once

#include <ms/MSFixer.h>

#include <iosfwd>
#include <string>
#include <vector>

#include "Output.h"
#include "Progress.h"

namespace tool {

using Finding = MSF::CFixer::CFinding;

// What tells that a store may need a repair before anybody looks into its files.
struct StoreMarks {
  std::string state;  // how it was left; "" when nothing says so
  bool wasClosed = false;
  bool isRepairRequested = false;
  std::size_t journalEntries = 0;
  std::vector<std::string> missing;  // derived files

  bool AreGood() const { return wasClosed && !isRepairRequested && missing.empty(); }
};

StoreMarks ReadMarks(const std::string& directory);

// Runs one job with its progress on the terminal. Failure: the directory is none or has no record
// file; another process has the store open (for a scan: for writing), or runs a job on it; the user
// wants to stop, which leaves the store as it was; the job failed (kExitCannotAccess with the
// cause).
class FixerRun : private MSF::CFixer::CCallback {
 public:
  explicit FixerRun(std::string directory);

  // log may be null. A deep scan compares the attachments' files with their records as well.
  void Scan(std::ostream* log, bool deep = false);
  void Repair(std::ostream* log);
  // See CFixer::SetRenewHeaders. For the jobs after it.
  void RenewHeaders() { m_fixer.SetRenewHeaders(true); }

  // Each derived file that was missing is among them.
  const std::vector<Finding>& Findings() const { return m_findings; }
  // Of a deep scan: files that are missing or have another length, which no repair brings back.
  const std::vector<Finding>& FileFindings() const { return m_fixer.FileFindings(); }
  // Full paths of files in the store's directory that belong to no letter.
  const std::vector<std::string>& UnnamedFiles() const { return m_fixer.UnnamedFiles(); }
  // What the store holds, or would hold, after the job.
  const MSF::CFixer::CCounts& Kept() const { return m_fixer.Kept(); }
  // The marks as they were before the job.
  const StoreMarks& Marks() const { return m_marks; }
  // "" when no old files were kept.
  const std::string& OldFiles() const { return m_fixer.ReportDirectory(); }
  double Seconds() const { return m_progress.Seconds(); }

 private:
  enum class Job { Scan, Repair };
  bool OnProgress(const MSF::CFixer::CProgress& progress) override;
  void OnError(int source, int code, const char* text) override;
  void RequireNobody(Job job) const;
  void Run(Job job, std::ostream* log);
  void AddMissing();

  std::string m_directory;
  StoreMarks m_marks;
  MSF::CFixer m_fixer;
  Progress m_progress;
  std::string m_step;
  std::string m_file;
  bool m_isStopped = false;
  bool m_isHeaderRefused = false;
  std::vector<Finding> m_findings;
};

// "1 file", "2 files".
std::string CountOf(std::uint64_t count, const char* one, const char* many);
// "object: what, stored -> found".
std::string LineOf(const Finding& finding);
Json JsonOf(const Finding& finding);

}  // namespace tool
