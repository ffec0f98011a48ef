// Repair of a whole store: what it does not refuse is consistent afterwards, and stays as it is in
// a second repair. See Container.h for the input.
#include "Container.h"
#include "GuardedFiles.h"
#include "ms/Source/MSFixer.h"
#include "support/OpenStore.h"
#include "support/Walk.h"

namespace {

// A whole path may be a client's own, of one record or of several, which a repair leaves alone.
bool IsOfWholePath(const std::string& finding) {
  for (const std::string mark : {": path outside of the store: ", ": file of another: "}) {
    const std::size_t at = finding.find(mark);
    if (at == finding.npos) continue;
    const std::string path = finding.substr(at + mark.size());
    return path.starts_with('\\') || path.substr(1, 1) == ":";
  }
  return false;
}

std::string FindingsIn(const std::string& directory) {
  std::string findings;
  for (const std::string& one : CheckStore(directory))
    if (!IsOfWholePath(one)) findings += one + "; ";
  return findings;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzz::Expect;
  const std::string& base = fuzz::EmptyScratch();
  const std::string directory = fuzz::MakeStore(base, fuzz::Unpack(data, size));
  const fuzz::GuardedFiles guard(base, fuzz::GuardedFiles::Stray::Abort);
  const auto before = fuzz::ReadTree(base);

  MSF::CFixer fixer;
  fixer.SetDeep(true);
  (void)fixer.ScanMS(directory.c_str());
  Expect(fuzz::ReadTree(base) == before, "a scan has changed something");
  // One input in two may get new headers: most that are changed would end the job otherwise.
  fixer.SetRenewHeaders(size % 2 == 0);
  if (!fixer.RepairMS(directory.c_str())) {
    Expect(!fixer.Error().empty(), "a repair fails without a word");
    Expect(fuzz::ReadTree(base) == before, "a failed repair has changed something");
    return 0;
  }
  const std::string repaired = FindingsIn(directory);
  Expect(repaired.empty(), repaired);
  Expect(fixer.RepairMS(directory.c_str()), "a second repair: " + fixer.Error());
  Expect(fixer.Findings().empty() && fixer.ReportDirectory().empty(), "a second repair finds more");
  {
    CMSMessageStore store = OpenStore(directory);
    const Walk walk(store);
    Expect(walk.letters == store.GetDocumentCount(), "letters of a walk");
  }
  const std::string opened = FindingsIn(directory);
  Expect(opened.empty(), "after opening: " + opened);
  return 0;
}
