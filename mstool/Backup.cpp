// backup: the letters of a store, kept in a second one.
#include <charconv>
#include <limits>
#include <optional>

#include "BackupJob.h"
#include "CommandLine.h"
#include "Failure.h"
#include "Text.h"
#include "platform/Time.h"

namespace tool {
namespace {

constexpr const char* kRules =
    "TARGET is the directory of a store of its own, made when it is not there; every reading\n"
    "command works on it. STORE is only read. The first backup copies all letters, each later one\n"
    "what is new or has changed since; renamed and moved folders and letters are renamed and\n"
    "moved in TARGET, too. What was deleted in STORE stays in TARGET unless --mirror is given. A\n"
    "backup that was interrupted, or killed, is finished by running it again; what a kill has "
    "left\n"
    "half written in TARGET is repaired first.\n\n"
    "With --min-count or --min-size (with both, one is enough) nothing is done while STORE, or\n"
    "the part of it that is asked for, holds less. A SIZE is in bytes; K, M or G behind it stand\n"
    "for thousands, millions, billions. Letters without a date are left out by --since.\n\n"
    "TARGET's disk must have room for four times the letters. A letter that cannot be copied is\n"
    "listed with its cause; then the exit code is 2. The way back is mstool restore; mstool\n"
    "verify compares the two.";

struct Options {
  BackupJob job;
  std::string since;
  std::string minSize;
  std::optional<std::uint32_t> minCount;
  std::optional<std::uint32_t> batch;
  bool planOnly = false;
  bool mirror = false;
};

template <class Value>
bool ReadNumber(std::string_view text, Value& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

std::uint32_t ReadSize(const std::string& text) {
  static constexpr std::string_view kUnits = "KMGkmg";
  std::string_view digits = text;
  std::uint64_t unit = 1;
  if (!digits.empty()) {
    const auto power = kUnits.find(digits.back());
    if (power != kUnits.npos) {
      digits.remove_suffix(1);
      for (std::size_t i = 0; i <= power % 3; ++i) unit *= 1000;
    }
  }
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t value = 0;
  if (!ReadNumber(digits, value) || value > kLargest / unit) {
    throw Failure(kExitUsage, "--min-size " + text +
                                  " is no size; say a number of bytes such as 500000, 500K, 20M or "
                                  "4G, 4294967295 at most");
  }
  return static_cast<std::uint32_t>(value * unit);
}

// The local midnight with which the day begins.
std::uint32_t ReadDay(const std::string& text) {
  int year = 0;
  int month = 0;
  int day = 0;
  const std::string_view view = text;
  const bool hasForm = text.size() == 10 && text[4] == '-' && text[7] == '-' &&
                       ReadNumber(view.substr(0, 4), year) &&
                       ReadNumber(view.substr(5, 2), month) && ReadNumber(view.substr(8, 2), day);
  std::int64_t seconds = 0;
  const bool isDay =
      hasForm && platform::FromLocal({.year = year, .month = month, .day = day}, seconds);
  if (!isDay || seconds <= 0 || seconds > std::numeric_limits<std::uint32_t>::max()) {
    throw Failure(kExitUsage, "--since " + text + " is no date; say one such as 2024-03-31");
  }
  return static_cast<std::uint32_t>(seconds);
}

int Backup(const std::string& directory, const Options& options) {
  BackupJob job = options.job;
  job.from = directory;
  if (!options.since.empty()) job.since = ReadDay(options.since);
  CMSBackupSettings& settings = job.settings;
  if (options.mirror) settings.Options |= kBackupMirror;
  if (options.planOnly) settings.Options |= kBackupPlanOnly;
  settings.SizeRule = !options.minSize.empty();
  if (settings.SizeRule) settings.Size = ReadSize(options.minSize);
  // Without rules a backup is always due: that of a store without letters makes the folders.
  settings.CountRule = options.minCount || !settings.SizeRule;
  if (options.minCount) settings.Count = *options.minCount;
  if (options.batch) settings.LettersPerPromise = *options.batch;
  return RunBackup(job);
}

}  // namespace

void AddBackup(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("backup", "Bring a second store, the backup, up to date",
                             [&line, options] { return Backup(line.store, *options); });
  command.Word("TARGET", options->job.to, "The backup's directory");
  command.Option("--folder", "FOLDER", options->job.folder, "Only this folder with all below it");
  command.Option("--since", "YYYY-MM-DD", options->since,
                 "Only letters created on that day or later");
  command.Flag("--dry-run", options->planOnly, "Tell what would be done, and do nothing");
  command.Flag("--mirror", options->mirror, "Remove from TARGET what is gone from STORE");
  command.Option("--min-count", "N", options->minCount, "Only when there are so many letters");
  command.Option("--min-size", "SIZE", options->minSize, "Only when they take so many bytes");
  command.Option("--batch", "N", options->batch, "Letters per promise to the medium (100)");
  command.Flag("--json", options->job.json, "Print JSON");
  command.Footer(kRules);
}

}  // namespace tool
