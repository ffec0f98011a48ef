#include "CrashCheck.h"

#include <algorithm>
#include <array>
#include <iostream>

#include "Failure.h"
#include "FixerRun.h"
#include "Interrupt.h"
#include "Open.h"
#include "Text.h"
#include "kit/KitFile.h"

namespace tool {
namespace {

constexpr std::uint64_t kHeaderLength = 48;
constexpr std::array<const char*, 4> kRecords{"docs3.db", "attach3.db", "rcpt3.db", "folders3.db"};

// Files are made one by one, and nothing is put into them before the last is there.
bool IsHalfMade(const std::string& directory) {
  const auto isThere = [&](const char* file) {
    return CKitFile::Exists(CKitFile::Join(directory, file));
  };
  const auto isBlank = [&](const char* file) {
    return CKitFile::Info(CKitFile::Join(directory, file)).length <= kHeaderLength;
  };
  if (!std::all_of(kRecords.begin(), kRecords.end(), isThere)) return true;
  return !std::all_of(std::begin(kStoreFiles), std::end(kStoreFiles), isThere) &&
         std::all_of(kRecords.begin(), kRecords.end(), isBlank);
}

std::string TellFindings(const std::vector<Finding>& findings) {
  std::string text = CountOf(findings.size(), "finding", "findings");
  text += findings.size() == 1 ? ": " : ", the first: ";
  return text + LineOf(findings.front());
}

void SayItIsGood(const std::string& directory) {
  std::cerr << "mstool: " << Visible(directory)
            << ": the store was not closed properly; it was checked and is good\n";
}

// Answers whether there is a store to look at.
template <class Job>
bool RunAfterCrash(const std::string& directory, FixerRun& run, Job job) {
  if (IsHalfMade(directory)) return false;
  try {
    job(run);
  } catch (const Failure& failure) {
    if (failure.ExitCode() != kExitCannotAccess) throw;
    throw Failure(kExitCannotAccess,
                  std::string("the store was not closed properly and ") + failure.what());
  }
  StopIfInterrupted();
  return true;
}

}  // namespace

void CheckAfterCrash(const std::string& directory) {
  FixerRun run(directory);
  if (!RunAfterCrash(directory, run, [](FixerRun& r) { r.Scan(nullptr); })) return;
  if (run.Findings().empty()) return SayItIsGood(directory);
  throw Failure(kExitDamaged, "the store was not closed properly and is damaged (" +
                                  TellFindings(run.Findings()) +
                                  "); nothing was changed; mend it with mstool repair " +
                                  directory);
}

void MendAfterCrash(const std::string& directory) {
  FixerRun run(directory);
  if (!RunAfterCrash(directory, run, [](FixerRun& r) { r.Repair(nullptr); })) return;
  if (run.Findings().empty()) return SayItIsGood(directory);
  std::cerr << "mstool: " << Visible(directory)
            << ": the store was not closed properly; it was repaired ("
            << Visible(TellFindings(run.Findings())) << ")";
  if (!run.OldFiles().empty()) std::cerr << "; the old files are in " << Visible(run.OldFiles());
  std::cerr << '\n';
}

}  // namespace tool
