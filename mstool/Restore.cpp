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
  CLI::App* sub = line.Add(
      "restore", "Put letters of a backup back into a store",
      [&line, job] {
        job->from = line.store;
        job->settings.Options = kBackupAddOnly;
        job->settings.CountRule = true;
        return RunBackup(*job);
      },
      "TARGET");
  sub->get_option("TARGET")->description("The backup's directory");
  sub->add_option("STORE", job->to, "The directory of the store to restore to")
      ->required()
      ->type_name("");
  sub->add_option("--folder", job->folder, "Only this folder of TARGET with all below it")
      ->type_name("FOLDER");
  sub->add_flag("--json", job->json, "Print JSON");
  sub->footer(kRules);
}

}  // namespace tool
