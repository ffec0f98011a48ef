#include "StoreFiles.h"

#include <list>
#include <memory>

#include "Listeners.h"
#include "kit/KitErrors.h"
#include "kit/KitFile.h"
#include "kit/KitFolder.h"
#include "kit/KitString.h"
#include "platform/File.h"
#include "platform/Time.h"

namespace {

std::list<CKitString> MissingFiles(const std::string& directory) {
  std::list<CKitString> missing;
  for (const char* name : storefiles::kRequired) {
    if (!CKitFile::Exists(CKitFile::Join(directory, name))) missing.emplace_back(name);
  }
  return missing;
}

[[noreturn]] void RefuseIncomplete(const std::string& directory, const CKitString& missing) {
  throw XKitStatus(
      kit::kStatusFileMissing,
      KitFormat("the store in '%s' is incomplete: '%s' is missing; put the file back or repair the "
                "store (opened for writing and with a client informer, the remaining files would "
                "be set aside and a new store made)",
                directory.c_str(), missing.c_str()));
}

bool IsTaken(const std::string& path) {
  return CKitFile::Info(path).kind != platform::FileKind::None;
}

// The first free name of today.
std::string QuarantinePath(const std::string& directory) {
  const platform::LocalTime today = platform::LocalNow();
  const std::string date = KitFormat("~%02d%02d%04d", today.day, today.month, today.year);
  std::string path = CKitFile::Join(directory, date + ".BAD");
  for (int counter = 1; IsTaken(path); ++counter)
    path = CKitFile::Join(directory, KitFormat("%s_%d.BAD", date.c_str(), counter));
  return path;
}

// A set that another process holds open is incomplete only because that process is making it just
// now.
void CheckNotInUse(const std::string& path) {
  std::unique_ptr<platform::File> file;
  const auto status =
      platform::Files().Open(path,
                             {platform::Access::ReadWrite, platform::Disposition::OpenExisting,
                              platform::Sharing::ReadOnly},
                             file);
  if (status.Why() == platform::Cause::InUse) KitCheck(status, "set aside", path);
}

std::list<CKitString> PresentFiles(const std::string& directory) {
  std::list<CKitString> present;
  for (const char* name : storefiles::kRequired) {
    const std::string path = CKitFile::Join(directory, name);
    if (!CKitFile::Exists(path)) continue;
    // The master file is locked for moments only, and by anybody.
    if (name != storefiles::kRequired.back()) CheckNotInUse(path);
    present.emplace_back(name);
  }
  return present;
}

void MoveAside(const std::string& directory, const std::list<CKitString>& present,
               const std::string& quarantine) {
  if (!CKitFolder::MakeFolder(quarantine))
    throw XKitFile(XKitFile::Cause::AlreadyExists, 0, quarantine,
                   "cannot make '" + quarantine + "': the name has just been taken");
  std::list<CKitString> moved;
  try {
    for (const CKitString& name : present) {
      CKitFile::Move(CKitFile::Join(directory, name), CKitFile::Join(quarantine, name));
      moved.push_back(name);
    }
  } catch (const XKitFile&) {
    // Half a set in each place would be worse than what there was.
    for (const CKitString& name : moved)
      CKitFile::Move(CKitFile::Join(quarantine, name), CKitFile::Join(directory, name));
    CKitFolder::RemoveFolder(quarantine);
    throw;
  }
  for (const std::string& changed : {quarantine, directory})
    KitCheck(platform::Files().SyncDirectory(changed), "sync", changed);
}

// 0 when there is no guard, or an empty one.
char GuardKind(const std::string& directory) {
  std::unique_ptr<platform::File> guard;
  const platform::Status status = platform::Files().Open(
      CKitFile::Join(directory, storefiles::kGuard),
      {platform::Access::Read, platform::Disposition::OpenExisting, platform::Sharing::All}, guard);
  char kind = 0;
  std::size_t done = 0;
  const bool isRead = status.Ok() && guard->Read(0, &kind, 1, done).Ok() && done == 1;
  return isRead ? kind : '\0';
}

}  // namespace

bool storefiles::IsComplete(const std::string& directory, bool readOnly,
                            CMSClientInformer* informer) {
  const std::list<CKitString> missing = MissingFiles(directory);
  if (missing.empty()) return true;
  if (missing.size() == kRequired.size()) return false;
  if (readOnly || informer == nullptr) RefuseIncomplete(directory, missing.front());
  const std::list<CKitString> present = PresentFiles(directory);
  const std::string quarantine = QuarantinePath(directory);
  informer->OnIncompleteStore(missing, quarantine);
  MoveAside(directory, present, quarantine);
  return false;
}

bool storefiles::IsUnderMaintenance(const std::string& directory) {
  std::unique_ptr<platform::File> guard;
  const platform::Status status = platform::Files().Open(
      CKitFile::Join(directory, kGuard),
      {platform::Access::Read, platform::Disposition::OpenExisting, platform::Sharing::ReadOnly},
      guard);
  return status.Why() == platform::Cause::InUse;
}

bool storefiles::IsBeingReplaced(const std::string& directory) {
  return IsHalfReplaced(directory) ||
         (IsUnderMaintenance(directory) && GuardKind(directory) == kGuardReplaces);
}

bool storefiles::IsHalfReplaced(const std::string& directory) {
  return GuardKind(directory) == kGuardHalfReplaced;
}
