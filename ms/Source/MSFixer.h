// Offline maintenance of a store.
//
//   MSF::CFixer fixer;
//   fixer.SetLog(&std::cout);
//   bool healthy = fixer.ScanMS("mail");       // changes nothing
//   if (!healthy) fixer.RepairMS("mail");
//
// No process may have the store open. A job works on temporary copies of the four record files
// ("docs3.db.tmp" and so on, beside the store's own), mends what is in them, and builds all other
// files anew. A repair puts the new set in place only at its end, with the old set kept in a dated
// report directory, unless nothing had to be changed. A job that fails deletes its temporary files
// and leaves the store as it was; but a repair that fails or dies while it puts the new set in
// place leaves it so, marked. Scans and openings refuse such a store, and the next repair first
// finishes what that one began.
#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "kit/Export.h"
#include "kit/KitString.h"

namespace MSF {

enum EObjectType : std::int32_t { eAttachment = 1, eRecipient = 2, eDocument = 3, eFolder = 4 };

class MS_API CFixer {
 public:
  enum EBaseType { eOperative = 0, eTemporary = 1 };
  enum EJob { eBackup = 0, eScan = 1, eRepair = 2 };

  // An object.
  struct COID {
    std::uint32_t ID = 0;
    EObjectType Type = eDocument;
  };
  // One slot of a record file. Two slots of a damaged file may bear one ID.
  struct CUID {
    std::uint32_t ID = 0;
    EObjectType Type = eDocument;
    std::uint32_t Slot = 0;
  };
  // A slot in use, as the master table holds it.
  struct CDBEntry {
    std::uint32_t ID = 0;
    EObjectType Type = eDocument;
    std::uint32_t Slot = 0;
    std::uint32_t PID = 0;  // the parent's ID
    auto operator<=>(const CDBEntry&) const = default;
  };

  // What a repair does about a defect.
  enum EFix {
    eMended,    // a field, a count, a text, a header gets its right value
    eRemapped,  // an object gets another ID
    eRebound,   // an object gets another parent
    eDeleted,   // an object goes
    eCreated,   // a predefined folder is made
    eRebuilt,   // a file, or the chain of free slots in one, is built anew
    eNothing    // it is only told: another finding sees to it, or no repair can
  };
  // A defect: of what, what it is, the value that was stored and the one that was found to be right
  // (both may be empty).
  struct CFinding {
    EFix Fix = eMended;
    std::string Object;
    std::string What;
    std::string Stored;
    std::string Found;
  };

  // The error code of a job that ended at the header of a record file (see SetRenewHeaders).
  static constexpr int kRefusedHeader = 74;

  struct CCounts {
    std::uint32_t Folders = 0;
    std::uint32_t Documents = 0;
    std::uint32_t Attachments = 0;
    std::uint32_t Recipients = 0;
  };

  struct CProgress {
    const char* Step = "";  // the name of the step, as it stands in the log
    const char* File = "";  // of the file at work, or ""
    std::uint64_t Done = 0;
    std::uint64_t Total = 0;
  };
  class MS_API CCallback {
   public:
    virtual ~CCallback();
    // Now and then during each step. False stops the job, which then fails.
    virtual bool OnProgress(const CProgress& progress) = 0;
    // What ended the job. source: 0 to 6 for a record file, a letter, an attachment, a recipient, a
    // folder, the master file, the relations. code: the system's, kRefusedHeader, or 0.
    virtual void OnError(int source, int code, const char* text) = 0;
  };

  explicit CFixer(CCallback* callback = nullptr);
  virtual ~CFixer();
  CFixer(const CFixer&) = delete;
  CFixer& operator=(const CFixer&) = delete;

  // Each answers the previous one. The caller keeps ownership; null is none.
  CCallback* SetCallback(CCallback* callback);
  std::ostream* SetLog(std::ostream* log);
  // Whether jobs also compare each attachment's file with its record (see FileFindings), which
  // costs a look at each file. False at first. Answers the previous value.
  bool SetDeep(bool deep);
  // Whether a record file whose header is no such file's, or that is not there, gets a new header
  // instead of ending the job. What its slots hold decides then; that it is a record file of its
  // kind is taken on trust, so a person should have a reason to. False at first. Answers the
  // previous value.
  bool SetRenewHeaders(bool renew);

  // Makes the store consistent, and asks for no repair any more. True on success, also when there
  // was nothing to do. Null is the current directory.
  bool RepairMS(const char* directory);
  // All checks of a repair. True when a repair would change nothing. Only temporary files are
  // written, and they are deleted again.
  bool ScanMS(const char* directory);

  // Of the last job: its findings, what made it fail ("": nothing), and the directory that holds
  // the files of the store as they were ("": a scan, or nothing was changed).
  const std::vector<CFinding>& Findings() const { return m_findings; }
  const std::string& Error() const { return m_error; }
  const std::string& ReportDirectory() const { return m_reportDirectory; }
  // Of the last job: the objects that are in the store after it; of a deep job, attachments whose
  // file is missing or has another length than the record says (an encrypted one's length is not
  // the file's, and is not compared); and the full paths of files in the store's directory that no
  // record names. None of these is a reason for a repair, and no repair deletes such a file.
  const CCounts& Kept() const { return m_kept; }
  const std::vector<CFinding>& FileFindings() const { return m_fileFindings; }
  const std::vector<std::string>& UnnamedFiles() const { return m_unnamedFiles; }

  // Whether a derived file of the store is missing (a key index, the relations, the packet names or
  // the master file). Null is the current directory. Looks at no file's content.
  static bool IsRequiresRepair(const char* directory);
  // Whether the directory holds the four record files of a store. Null is the current directory.
  static bool IsMSDirectory(const char* directory);

  // Whether a job is running on the store, in any process.
  static bool IsAtWork(const char* directory);

  // The path of one of the eleven files, by its index: record files of letters, attachments,
  // recipients, folders (0 to 3), their indexes (4 to 7), relations, packet names, master file.
  static CKitString GetDBFilePath(int index, const char* directory, EBaseType kind);

 private:
  class CJob;
  bool Run(EJob job, const char* directory);

  CCallback* m_callback;
  std::ostream* m_log = nullptr;
  bool m_deep = false;
  bool m_renewHeaders = false;
  std::vector<CFinding> m_findings;
  std::vector<CFinding> m_fileFindings;
  std::vector<std::string> m_unnamedFiles;
  CCounts m_kept;
  std::string m_error;
  std::string m_reportDirectory;
};

}  // namespace MSF
