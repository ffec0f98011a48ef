#include "Open.h"

#include <ms/MSFixer.h>
#include <ms/Roles.h>
#include <ms/corrupted.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "CrashCheck.h"
#include "Failure.h"
#include "Text.h"
#include "kit/KitFile.h"
#include "kit/LogDispatcher.h"
#include "platform/File.h"
#include "platform/Profile.h"

namespace tool {
namespace fs = std::filesystem;

const char* const kStoreFiles[11] = {"docs3.db",  "docs3.idx",   "attach3.db",  "attach3.idx",
                                     "rcpt3.db",  "rcpt3.idx",   "folders3.db", "folders3.idx",
                                     "rltns3.db", "packets3.db", "ms3.db"};

// Says on standard error what the library finds wrong while the store is open. What ends the
// opening is told by its exception.
class OpenStore::Log : public CLogSink {
 public:
  explicit Log(std::string store) : m_store(std::move(store)), m_previous(SetLogSink(this)) {}
  ~Log() override { SetLogSink(m_previous); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void Speak() { m_quiet = false; }
  void WriteLogFormatted(const char* text, const char*, int severity) override {
    if (severity < severity::Error || m_quiet) return;
    std::cerr << "mstool: " << Visible(m_store) << ": " << Visible(text) << '\n';
  }
  int ReportLog(int, const char*, const char*, int) override { return 0; }

 private:
  std::string m_store;
  CLogSink* m_previous;
  bool m_quiet = true;
};

namespace {

bool IsThere(const std::string& directory, const char* file) {
  return CKitFile::Exists(CKitFile::Join(directory, file));
}

bool HoldsNothing(const std::string& directory) {
  return std::none_of(std::begin(kStoreFiles), std::end(kStoreFiles),
                      [&](const char* file) { return IsThere(directory, file); });
}

// The first file of the store that this user may not use; null when there is none.
const char* ForbiddenFile(const std::string& directory, Purpose purpose) {
  const auto mode = purpose == Purpose::Write ? std::ios::in | std::ios::out : std::ios::in;
  for (const char* file : kStoreFiles) {
    std::fstream stream(CKitFile::Join(directory, file), mode | std::ios::binary);
    if (!stream && IsThere(directory, file)) return file;
  }
  return nullptr;
}

Failure CannotOpen(const std::string& directory, Purpose purpose, const CMSDBException& error) {
  if (const char* file = ForbiddenFile(directory, purpose)) {
    return {kExitCannotAccess, std::string("cannot ") +
                                   (purpose == Purpose::Write ? "write " : "read ") + file +
                                   "; see to the permissions"};
  }
  if (error.IsInUse() || IsInUse(directory)) {
    return {kExitInUse, kInUse};
  }
  return {kExitCannotAccess, error.what()};
}

}  // namespace

StateMark::StateMark(const std::string& directory)
    : m_master(CKitFile::Join(directory, "ms3.db")),
      m_text(platform::ReadProfileString(m_master, MSF::szMaintenanceSection, MSF::szClosedStateKey,
                                         "", 64)) {}

bool StateMark::SaysClosed() const {
  return m_text == MSF::szClosedStateKeyValue;
}

void StateMark::PutBack() const {
  if (!CKitFile::Exists(m_master)) return;
  platform::WriteProfileString(m_master, MSF::szMaintenanceSection, MSF::szClosedStateKey,
                               m_text.empty() ? nullptr : m_text.c_str());
}

OpenStore::OpenStore(const std::string& directory, Purpose purpose)
    : m_directory(directory), m_found(directory) {
  LookBeforeOpening(purpose);
  m_log = std::make_unique<Log>(directory);
  try {
    Open(purpose);
  } catch (const std::exception&) {
    // The attempt has left its mark, unless somebody else's stands there.
    if (!IsInUse(m_directory)) m_found.PutBack();
    throw;
  }
  if (purpose == Purpose::Read && (m_keepState || m_found.SaysClosed())) m_found.PutBack();
  m_log->Speak();
}

OpenStore::~OpenStore() {
  m_store = CMSMessageStore();
  if (m_keepState) m_found.PutBack();
}

void RequireDirectory(const std::string& directory) {
  std::error_code error;
  const fs::file_status status = fs::status(directory, error);
  if (status.type() == fs::file_type::not_found) {
    throw Failure(kExitCannotAccess,
                  "there is no such directory; see that the name is right, or make a store with "
                  "mstool create");
  }
  if (error) throw Failure(kExitCannotAccess, "cannot be read: " + error.message());
  if (!fs::is_directory(status)) throw Failure(kExitCannotAccess, "this is not a directory");
}

void OpenStore::LookBeforeOpening(Purpose purpose) {
  RequireDirectory(m_directory);
  if (HoldsNothing(m_directory) && !CMSMessageStore::IsMSDirectory(m_directory.c_str())) {
    throw Failure(kExitCannotAccess, "this directory holds no store; make one with mstool create");
  }

  // While somebody has the store open its state says nothing. A scan is no such opening.
  const bool isScanned = purpose == Purpose::Read && MSF::CFixer::IsAtWork(m_directory.c_str());
  if (m_found.SaysClosed() || (!isScanned && IsInUse(m_directory))) return;
  m_keepState = purpose == Purpose::Read;
  if (!IsThere(m_directory, "ms3.db")) return;
  if (purpose == Purpose::Write) return CheckAfterCrash(m_directory);
  std::cerr << "mstool: " << Visible(m_directory)
            << ": the store was not closed properly; it may need a repair\n";
}

void OpenStore::Open(Purpose purpose) {
  CKeyCarrier keys;
  CGroupID group;
  try {
    m_store = CMSMessageStore(m_directory.c_str(), keys, nullptr, group, false,
                              purpose == Purpose::Read, nullptr, "");
  } catch (const CMSDBException& error) {
    if (error.Code() != CMSDBException::kCannotOpen) throw;
    throw CannotOpen(m_directory, purpose, error);
  } catch (const XKitStatus& error) {
    if (error.Code() != kit::kStatusFileMissing) throw;
    throw Failure(kExitDamaged, error.what());
  }
}

bool IsInUse(const std::string& directory, Purpose purpose) {
  if (purpose == Purpose::Write && MSF::CFixer::IsAtWork(directory.c_str())) return true;
  const auto access =
      purpose == Purpose::Write ? platform::Access::ReadWrite : platform::Access::Read;
  std::unique_ptr<platform::File> file;
  const platform::Status status = platform::Files().Open(
      CKitFile::Join(directory, "docs3.db"),
      {access, platform::Disposition::OpenExisting, platform::Sharing::ReadOnly}, file);
  return status.Why() == platform::Cause::InUse;
}

std::unique_ptr<OpenStore> OpenOther(const std::string& directory, Purpose purpose) {
  try {
    return std::make_unique<OpenStore>(directory, purpose);
  } catch (const std::exception& error) {
    const Failure failure = Explain(error);
    throw Failure(failure.ExitCode(), directory + ": " + failure.what());
  }
}

void CreateStore(const std::string& directory) {
  if (CMSMessageStore::IsMSDirectory(directory.c_str()) || !HoldsNothing(directory)) {
    throw Failure(kExitUsage, "there is a store already; choose another directory");
  }
  CKeyCarrier keys;
  CGroupID group;
  CMSMessageStore store(directory.c_str(), keys, nullptr, group, false, false, nullptr, "");
  CMSFolder root = store.Root();
  CMSBatch batch(store);
  for (const MSF::MSFolderRole& role : MSF::kFolderRoles) {
    root.CreateFolder(role.name, role.props, role.type);
  }
  batch.Commit();
}

}  // namespace tool
