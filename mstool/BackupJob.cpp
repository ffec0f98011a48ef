#include "BackupJob.h"

#include <ms/Roles.h>

#include <optional>
#include <unordered_set>

#include "BackupWatcher.h"
#include "CrashCheck.h"
#include "Failure.h"
#include "FolderWalk.h"
#include "Interrupt.h"
#include "Lookup.h"
#include "Open.h"

namespace tool {
namespace {

// Lets the chosen folder pass with all below it, on the way there the folders alone, and of the
// letters those that are new enough. The predefined folders pass as well, without their letters: a
// store that lacks one needs a repair.
class Filter : public CMSArchiver::CBackupFilter {
 public:
  Filter(CMSMessageStore& store, const BackupJob& job) : m_since(job.since) {
    const CMSFolder chosen = job.folder.empty() ? store.Root() : FindFolder(store, job.folder);
    WalkFolders(chosen, [&](const CMSFolder& folder, std::size_t) { m_tree.insert(folder.ID()); });
    AddWayTo(chosen.Parent());
    WalkFolders(store.Root(), [&](const CMSFolder& folder, std::size_t) {
      if (MSF::IsPredefinedType(folder.Type())) AddWayTo(folder);
    });
  }

  bool IsBackupNeeded(const CMSFolder& folder) override {
    return m_tree.count(folder.ID()) != 0 || m_way.count(folder.ID()) != 0;
  }
  bool IsBackupNeeded(const CMSDocument& letter) override {
    return m_tree.count(letter.ParentID()) != 0 && letter.CreationTime() >= m_since;
  }

 private:
  void AddWayTo(CMSFolder folder) {
    while (folder && m_way.insert(folder.ID()).second) folder = folder.Parent();
  }

  std::uint32_t m_since;
  std::unordered_set<unsigned long> m_tree;
  std::unordered_set<unsigned long> m_way;
};

// A plan opens the target, if there is one, and leaves no trace of that.
class TargetMark {
 public:
  TargetMark(const std::string& directory, bool isPlan) {
    if (isPlan && !IsInUse(directory)) m_mark.emplace(directory);
  }
  ~TargetMark() {
    if (m_mark) m_mark->PutBack();
  }
  TargetMark(const TargetMark&) = delete;
  TargetMark& operator=(const TargetMark&) = delete;

 private:
  std::optional<StateMark> m_mark;
};

class Run {
 public:
  explicit Run(const BackupJob& job)
      : m_job(job),
        m_source(job.from, Purpose::Read),
        m_filter(*m_source, job),
        m_watcher(*m_source, job.from, job.to) {}

  int Go() {
    const bool isDue = Archive();
    m_watcher.Hide();
    Summary(isDue);
    return m_watcher.Errors().empty() ? kExitDone : kExitDamaged;
  }

 private:
  bool Has(std::uint32_t option) const { return (m_job.settings.Options & option) != 0; }

  // Answers whether there was something to do.
  bool Archive() {
    CMSArchiver archiver;
    archiver.SetStatusCallback(&m_watcher);
    archiver.SetBackupFilter(&m_filter);
    const TargetMark mark(m_job.to, Has(kBackupPlanOnly));
    if (!Has(kBackupPlanOnly)) LookAtTarget();
    try {
      archiver.Backup(*m_source, m_job.to.c_str(), &m_job.settings, nullptr);
      return true;
    } catch (const CMSArchiver::XInterrupted&) {
      if (m_watcher.NoRoom()) throw Failure(*m_watcher.NoRoom());
      if (!Interrupted()) return false;
      EndEarly({kExitInterrupted, "interrupted; run it again to go on"});
    } catch (const std::exception& error) {
      const Failure failure = Explain(error);
      EndEarly({failure.ExitCode(), m_job.to + ": " + failure.what()});
    }
  }

  void LookAtTarget() const {
    if (CMSArchiver::IsHalfMade(m_job.to.c_str())) return;
    const StateMark mark(m_job.to);
    if (mark.Text().empty() || mark.SaysClosed() || IsInUse(m_job.to)) return;
    try {
      // What a backup was doing when it was cut off is nothing that a person would decide on.
      Has(kBackupAddOnly) ? CheckAfterCrash(m_job.to) : MendAfterCrash(m_job.to);
    } catch (const Failure& failure) {
      throw Failure(failure.ExitCode(), m_job.to + ": " + failure.what());
    }
  }

  [[noreturn]] void EndEarly(const Failure& failure) {
    m_watcher.Hide();
    if (m_watcher.Last().Done != 0) Summary(true);
    throw Failure(failure);
  }

  void Summary(bool isDue) const {
    if (m_job.json) {
      PrintJson(Figures(isDue));
    } else if (!isDue) {
      const CMSArchiver::CStatus& last = m_watcher.Last();
      Print(KitFormat("nothing to do: %u letters, %s, are less than asked for", last.Listed,
                      SizeText(last.ListedBytes).c_str()));
    } else {
      PrintTable();
    }
    FlushOutput();
  }

  Json Figures(bool isDue) const {
    const CMSArchiver::CStatus& last = m_watcher.Last();
    return {{"Due", isDue},
            {"PlanOnly", Has(kBackupPlanOnly)},
            {"Copied", last.Copied},
            {"Replaced", last.Replaced},
            {"Moved", last.Moved},
            {"Unchanged", last.Unchanged},
            {"Removed", last.Removed},
            {"Failed", last.Failed},
            {"Listed", last.Listed},
            {"ListedBytes", last.ListedBytes},
            {"Done", last.Done},
            {"DoneBytes", last.DoneBytes},
            {"Seconds", m_watcher.Seconds()},
            {"Errors", m_watcher.Errors()}};
  }

  void PrintTable() const {
    const CMSArchiver::CStatus& last = m_watcher.Last();
    const bool restores = Has(kBackupAddOnly);
    const bool plans = Has(kBackupPlanOnly);
    using enum Table::Align;
    Table table({Right, Left});
    const auto row = [&](std::uint32_t count, const char* what) {
      table.Row({std::to_string(count), what});
    };
    row(last.Copied, restores ? "letters restored" : plans ? "letters to copy" : "letters copied");
    if (!restores) {
      row(last.Replaced,
          plans ? "to replace, since they have changed" : "replaced, since they had changed");
      row(last.Moved, plans ? "to move" : "moved");
    }
    row(last.Unchanged, restores ? "there already" : "unchanged");
    if (Has(kBackupMirror)) row(last.Removed, plans ? "to remove" : "removed");
    row(last.Failed, "failed");
    table.Print();
    Print(KitFormat("%s in %.1f s%s", SizeText(last.DoneBytes).c_str(), m_watcher.Seconds(),
                    plans ? "; nothing was written" : ""));
  }

  const BackupJob& m_job;
  OpenStore m_source;
  Filter m_filter;
  BackupWatcher m_watcher;
};

}  // namespace

int RunBackup(const BackupJob& job) {
  return Run(job).Go();
}

}  // namespace tool
