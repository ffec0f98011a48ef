// What a store has to pass that was not closed properly, before anything writes to it.
#pragma once

#include <string>

namespace tool {

// For a store whose state says that it was not closed and that nobody has open: scans it, with the
// progress on the terminal, and says on standard error when it is good. Failure: it needs a repair
// (kExitDamaged), the scan failed or was interrupted. Does nothing with one whose making was cut
// off: opening it says what is missing. The state stays as it is in any case.
void CheckAfterCrash(const std::string& directory);
// The same for one that a backup goes to: what a backup that was cut off has left there is repaired
// instead, and said on standard error.
void MendAfterCrash(const std::string& directory);

}  // namespace tool
