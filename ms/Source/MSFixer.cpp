#include "MSFixer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include "MSFixerJob.h"
#include "StoreFiles.h"
#include "kit/KitErrors.h"
#include "kit/KitFile.h"
#include "kit/LogDispatcher.h"
#include "platform/Time.h"

namespace MSF {
namespace {

constexpr std::array<const char*, kFileCount> kFiles{
    "docs3.db",  "attach3.db",   "rcpt3.db",  "folders3.db", "docs3.idx", "attach3.idx",
    "rcpt3.idx", "folders3.idx", "rltns3.db", "packets3.db", "ms3.db"};
constexpr std::size_t kLongestSystemText = 1024;
// The sources of errors.
constexpr int kFromFile = 0;

template <std::size_t N>
bool AllExist(const char* directory, const std::array<const char*, N>& names) {
  const std::string in = CKitFile::NormalizeFileName(directory != nullptr ? directory : ".");
  return std::all_of(names.begin(), names.end(), [&](const char* name) {
    return CKitFile::IsVisible(CKitFile::Join(in, name));
  });
}

std::string HereText() {
  return std::string(".") + platform::Separator();
}

}  // namespace

CFixer::CCallback::~CCallback() = default;

CFixer::CFixer(CCallback* callback) : m_callback(callback) {}
CFixer::~CFixer() = default;

CFixer::CCallback* CFixer::SetCallback(CCallback* callback) {
  return std::exchange(m_callback, callback);
}

std::ostream* CFixer::SetLog(std::ostream* log) {
  return std::exchange(m_log, log);
}

bool CFixer::SetDeep(bool deep) {
  return std::exchange(m_deep, deep);
}

bool CFixer::SetRenewHeaders(bool renew) {
  return std::exchange(m_renewHeaders, renew);
}

bool CFixer::IsAtWork(const char* directory) {
  return storefiles::IsUnderMaintenance(directory != nullptr ? directory : HereText());
}

bool CFixer::IsRequiresRepair(const char* directory) {
  constexpr std::array kDerived{"docs3.idx", "attach3.idx", "rcpt3.idx", "folders3.idx",
                                "rltns3.db", "packets3.db", "ms3.db"};
  return !AllExist(directory, kDerived);
}

bool CFixer::IsMSDirectory(const char* directory) {
  constexpr std::array kRecords{"docs3.db", "attach3.db", "folders3.db", "rcpt3.db"};
  return AllExist(directory, kRecords);
}

CKitString CFixer::GetDBFilePath(int index, const char* directory, EBaseType kind) {
  std::string path = directory != nullptr ? directory : HereText();
  if (path.empty() || !platform::IsSeparator(path.back())) path += platform::Separator();
  path += kFiles.at(static_cast<std::size_t>(index));
  return kind == eTemporary ? path + ".tmp" : path;
}

bool CFixer::RepairMS(const char* directory) {
  return Run(eRepair, directory);
}

bool CFixer::ScanMS(const char* directory) {
  return Run(eScan, directory) && m_findings.empty();
}

bool CFixer::Run(EJob job, const char* directory) {
  m_findings.clear();
  m_fileFindings.clear();
  m_unnamedFiles.clear();
  m_kept = {};
  m_error.clear();
  m_reportDirectory.clear();
  return CJob(*this, job, directory).Run();
}

CFixer::CJob::CJob(CFixer& fixer, EJob job, const char* directory)
    : m_fixer(fixer),
      m_job(job),
      m_directory(directory != nullptr ? std::string(directory) : HereText()),
      m_store(CKitFile::FullName(m_directory)),
      m_log(fixer.m_log),
      m_files{CMSDBFile(eDocument, sizeof(CMSDocumentData)),
              CMSDBFile(eAttachment, sizeof(CMSAttachmentData)),
              CMSDBFile(eRecipient, sizeof(CMSRecipientData)),
              CMSDBFile(eFolder, sizeof(CMSFolderData))} {}

bool CFixer::CJob::Run() {
  SetDirectories();
  m_log.JobBegin(m_job, m_directory, m_reportDirectory);
  try {
    RunSteps();
  } catch (const std::bad_alloc&) {
    Fail("out of memory", 0);
  } catch (const CStopped& error) {
    Fail(error.what(), 0);
  } catch (const CTextError& error) {
    const bool isRefused = dynamic_cast<const CRefusedFile*>(&error) != nullptr;
    Fail(KitFormat("message store file corrupted (%s)", error.what()),
         isRefused ? kRefusedHeader : 0);
  } catch (const XKitStatus& error) {
    const std::string text = error.what();
    Fail(text.empty()
             ? KitFormat("message store file corrupted (%u)", static_cast<unsigned>(error.Code()))
             : text.substr(0, kLongestSystemText),
         error.Code());
  } catch (const XKitFile& error) {
    Fail(std::string(error.what()).substr(0, kLongestSystemText), error.SystemCode());
  } catch (const std::exception& error) {
    Fail(std::string(error.what()).substr(0, kLongestSystemText), 0);
  } catch (...) {
    Fail(KitFormat("unexpected error (OS error = %u)", static_cast<unsigned>(errno)), errno);
  }
  ReleaseGuard();
  m_log.JobEnd(m_directory);
  return m_fixer.m_error.empty();
}

void CFixer::CJob::RunSteps() {
  LockOperativeFiles();
  MakeTemporaryDB();
  OpenDataBase();
  RollbackUncommited();
  ProcessInvalidID();
  FindPredefinedFolders();
  ProcessInvalidLinks();
  BuildIndexes();
  FixData();
  FixDataBase();
  FixDBState();
  CreateIndexes();
  MarkDataBaseFixed();
  CloseDataBase();
  CompareWithOperative();
  if (m_job == eScan) {
    DeleteDBFiles(m_directory, eTemporary);
  } else {
    AcceptFixedBase();
    RemoveSavedFiles();
  }
}

// The name follows the directory as it was given: one with a separator at its end gets the report
// inside, one without beside it.
void CFixer::CJob::SetDirectories() {
  if (m_job == eScan) return;
  const platform::LocalTime today = platform::LocalNow();
  const std::string name =
      m_directory + KitFormat("~%02d%02d%04d", today.day, today.month, today.year);
  m_reportDirectory = name + ".REP";
  for (int n = 1; CKitFile::IsVisible(m_reportDirectory); ++n)
    m_reportDirectory = name + KitFormat("_%d.REP", n);
  m_reportDirectory += platform::Separator();
}

void CFixer::CJob::Fail(const std::string& text, int code) {
  m_fixer.m_error = text;
  m_log.Error(text);
  if (m_fixer.m_callback != nullptr) m_fixer.m_callback->OnError(kFromFile, code, text.c_str());
  for (CMSDBFile& file : m_files) file.Discard();
  // Without the guard they are another job's; once the new files take their places, they are what a
  // person may need.
  if (m_guard == nullptr || m_isReplacing || m_isHalfReplaced) return;
  DropCopies();
  try {
    DeleteDBFiles(m_directory, eTemporary);
  } catch (const XKitFile& error) {
    Dispatch(severity::Error, error.what(), 104);
  }
}

void CFixer::CJob::OnProgress(const char* file, std::uint64_t done, std::uint64_t total) {
  CCallback* const callback = m_fixer.m_callback;
  if (callback != nullptr && !callback->OnProgress({m_step, file, done, total}))
    throw CStopped("stopped on request");
}

void CFixer::CJob::BeginStep(const char* name) {
  m_step = name;
  m_log.Step(name);
  OnProgress("", 0, 0);
}

void CFixer::CJob::Report(const CFinding& finding, const std::string& event, int line) {
  m_fixer.m_findings.push_back(finding);
  Dispatch(severity::Repaired, "Repairing MS - " + event, line);
}

std::string CFixer::CJob::Path(int index, EBaseType kind) const {
  return GetDBFilePath(index, m_directory.c_str(), kind);
}

bool CFixer::CJob::Exists(int index, EBaseType kind) const {
  return CKitFile::Exists(Path(index, kind));
}

std::string CFixer::CJob::OwnPath(const CMSDBFile& file) const {
  return Path(static_cast<int>(&file - m_files.data()), eOperative);
}

CMSDBFile& CFixer::CJob::FileOf(EObjectType type) {
  const auto is = [=](const CMSDBFile& file) { return file.Type() == type; };
  const auto found = std::find_if(m_files.begin(), m_files.end(), is);
  return found != m_files.end() ? *found : m_files.front();
}

}  // namespace MSF
