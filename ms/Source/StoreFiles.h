// Which files make a store, and what becomes of an incomplete set.
#pragma once

#include <array>
#include <string>

class CMSClientInformer;

namespace storefiles {

// In the order in which they are tested.
inline constexpr std::array<const char*, 11> kRequired{
    "docs3.db",    "docs3.idx",    "attach3.db", "attach3.idx", "rcpt3.db", "rcpt3.idx",
    "folders3.db", "folders3.idx", "rltns3.db",  "packets3.db", "ms3.db"};

// Whether the directory holds a whole set. None of the files there: false, the store is new. Some:
// they are moved into a dated quarantine directory after the informer has been told, then false;
// without an informer XKitStatus 4 with the first missing file's name, and nothing is moved.
// XKitFile when a move fails. A read-only opening moves nothing either (XKitStatus 4).
bool IsComplete(const std::string& directory, bool readOnly, CMSClientInformer* informer);

// Held by a maintenance job from its begin to its end. Its first byte tells a job that will replace
// the files from one that only looks, and, locked or not, a set that is replaced in part: the new
// files that are still temporary belong to those that are in place already.
inline constexpr char kGuard[] = "fixer3.tmp";
inline constexpr char kGuardReplaces = 'R';
inline constexpr char kGuardHalfReplaced = 'H';

bool IsUnderMaintenance(const std::string& directory);
// Whether a job is at work that replaces the store's files. It holds them locked until it does;
// who has opened them all and then hears no has opened files that stay.
bool IsBeingReplaced(const std::string& directory);
// Whether the set is replaced in part, by a job at work or by one that was cut off. The next repair
// moves the rest of the new files in; until then the set must not be used.
bool IsHalfReplaced(const std::string& directory);

}  // namespace storefiles
