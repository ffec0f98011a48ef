// rm: letters and folders, to the trash or for good.
#include <ms/Roles.h>

#include "CommandLine.h"
#include "Failure.h"
#include "Lookup.h"
#include "Open.h"
#include "kit/KitDateTime.h"

namespace tool {
namespace {

struct Options {
  std::vector<std::string> what;
  bool purge = false;
};

class Remover {
 public:
  Remover(CMSMessageStore& store, bool purge) : m_store(store), m_purge(purge) {
    if (m_purge) return;
    m_trash = FolderOfRole(store, MSF::kRoleTrash);
    if (!m_trash) {
      throw Failure(kExitUsage, "the store has no trash folder; --purge removes for good");
    }
  }

  void Remove(const std::string& what) {
    if (CMSDocument letter = LookForLetter(m_store, what)) {
      RemoveLetter(letter, what);
    } else if (CMSFolder folder = LookForFolder(m_store, what)) {
      RemoveFolder(folder, what);
    } else {
      throw Failure(kExitUsage, "there is no letter and no folder " + what);
    }
  }

 private:
  void RemoveLetter(CMSDocument& letter, const std::string& what) {
    CMSFolder parent = letter.Parent();
    if (m_purge) {
      parent.DeleteDocument(letter);
      return;
    }
    RefuseWhatIsTrashed(parent, what);
    letter.Move(m_trash);
    letter.Flag(letter.Flag() | docflag::Deleted);
    letter.DeletedTime(static_cast<long>(CKitDateTime::Now().Seconds()));
  }

  void RemoveFolder(CMSFolder& folder, const std::string& what) {
    if (IsPredefined(folder)) {
      throw Failure(kExitUsage, what + " is a predefined folder and cannot be removed");
    }
    CMSFolder parent = folder.Parent();
    if (m_purge) {
      parent.DeleteFolder(folder);
      return;
    }
    RefuseWhatIsTrashed(parent, what);
    folder.Move(m_trash);
  }

  void RefuseWhatIsTrashed(const CMSFolder& parent, const std::string& what) const {
    if (LiesIn(parent, m_trash)) {
      throw Failure(kExitUsage, what + " is in the trash already; --purge removes it for good");
    }
  }

  CMSMessageStore& m_store;
  bool m_purge;
  CMSFolder m_trash;
};

int Remove(const std::string& directory, const Options& options) {
  OpenStore store(directory, Purpose::Write);
  Remover remover(*store, options.purge);
  CMSBatch batch(*store);
  for (const std::string& what : options.what) remover.Remove(what);
  batch.Commit();
  return kExitDone;
}

}  // namespace

void AddRemove(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("rm", "Move letters and folders to the trash, or remove them",
                             [&line, options] { return Remove(line.store, *options); });
  command.Words("WHAT", options->what, "Numbers of letters; paths or numbers of folders");
  command.Flag("--purge", options->purge, "Remove for good, with everything below a folder");
}

}  // namespace tool
