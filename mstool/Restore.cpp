// restore: letters of a backup, back into a store.
#include "BackupJob.h"
#include "CommandLine.h"

namespace tool {
namespace {

constexpr const char* kRules =
    "STORE is made when it is not there, with the folders of TARGET. One that is there keeps all\n"
    "that it holds, as it is: only letters are added that it does not hold, or holds in another\n"
    "state. TARGET is only read. Running it again goes on where it was interrupted.";

}  // namespace

void AddRestore(CommandLine& line) {
  const auto job = std::make_shared<BackupJob>();
  Command command = line.Add(
      "restore", "Put letters of a backup back into a store",
      [&line, job] {
        job->from = line.store;
        job->settings.Options = kBackupAddOnly;
        job->settings.CountRule = true;
        return RunBackup(*job);
      },
      "TARGET", "The backup's directory");
  command.Word("STORE", job->to, "The directory of the store to restore to");
  command.Option("--folder", "FOLDER", job->folder, "Only this folder of TARGET with all below it");
  command.Flag("--json", job->json, "Print JSON");
  command.Footer(kRules);
}

}  // namespace tool
