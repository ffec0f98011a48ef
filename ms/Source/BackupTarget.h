// Opening the store that a backup goes to.
#pragma once

#include <string>

#include "MessageStore.h"

// Opens the store in the directory for writing, making it when there is none. What a process that
// died while it made one here has left goes first: a file "archive3.start" stands in the directory
// until a new store is whole, before any letter comes into it. Raises what opening a store raises.
CMSMessageStore OpenBackupTarget(const std::string& directory);
// Whether that file stands there.
bool IsHalfMadeTarget(const std::string& directory);
