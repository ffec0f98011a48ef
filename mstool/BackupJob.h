// A run of the archiver, as backup and restore make it.
#pragma once

#include <ms/Archiver.h>

#include <cstdint>
#include <string>

#include "Output.h"

namespace tool {

struct BackupJob {
  std::string from;
  std::string to;
  std::string folder;       // with all below it; empty: everything
  std::uint32_t since = 0;  // letters created then or later
  CMSBackupSettings settings;
  bool json = false;
};

// Runs it and prints the summary; answers the exit code. What ends it early is a Failure, told
// after the summary of what was done by then.
int RunBackup(const BackupJob& job);

}  // namespace tool
