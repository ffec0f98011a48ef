// One job of the repair tool: its state between the steps, and the steps.
//
// The steps stand in several sources, in the order in which they run: MSFixer.cpp (the order, and
// what becomes of errors), MSFixerMount.cpp (temporary copies, the master table),
// MSFixerObjects.cpp (IDs, predefined folders, references), MSFixerData.cpp (counts, bodies,
// sizes), MSFixerFiles.cpp (attachments' files), MSFixerRebuild.cpp (headers, indexes, links,
// names, master file), MSFixerAccept.cpp (putting the new set in place).
#pragma once

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "MSFixer.h"
#include "MSFixerFile.h"
#include "MSFixerTable.h"
#include "MSFixerTree.h"
#include "MaintenanceLog.h"
#include "RecordTypes.h"
#include "Records.h"
#include "Relations.h"

namespace MSF {

inline constexpr std::uint32_t kNoID = 0xFFFFFFFF;  // declared invalid
inline constexpr std::uint32_t kRootID = 1;
inline constexpr int kFileCount = 11;
inline constexpr int kRecordFiles = 4;
inline constexpr int kMasterFile = 10;
// Within the store's directory: files of attachments that lost their letter.
inline constexpr char kSavedDirectory[] = "ALIEN";

// Ends a job with a text.
class CTextError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
// The same because a record file is none of its kind.
class CRefusedFile : public CTextError {
 public:
  using CTextError::CTextError;
};
// Ends a job because the callback said so.
class CStopped : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The chain's links at a slot that is free.
struct CFreeLinks {
  std::uint32_t slot;
  std::uint32_t previous;
  std::uint32_t next;
  bool operator<(const CFreeLinks& other) const { return slot < other.slot; }
};

class CFixer::CJob {
 public:
  CJob(CFixer& fixer, EJob job, const char* directory);

  // False when the job failed; the temporary files are gone then.
  bool Run();

 private:
  // What is found out about one letter from its children.
  struct CSums {
    std::uint32_t attachments = 0;
    std::uint32_t recipients = 0;
    std::uint32_t size = 0;
    std::uint32_t body = 0;        // the first attachment that says so
    std::uint32_t storedBody = 0;  // as the letter says
    bool keepsBody = false;        // the two agree
    bool isEncrypted = false;
  };

  // The file of an attachment that goes.
  struct CSavedFile {
    std::string stored;  // as the record had it
    std::string from;    // full paths
    std::string to;
  };
  // Why an attachment has no file of its own.
  struct CFileTrouble {
    std::uint32_t slot;
    enum { Missing, Nowhere, Shared } kind;
  };
  static constexpr bool kLasting = true;

  void RunSteps();
  void SetDirectories();
  void Fail(const std::string& text, int code);
  void OnProgress(const char* file, std::uint64_t done, std::uint64_t total);
  void BeginStep(const char* name);
  // A defect: a finding, an event, and nothing else.
  void Report(const CFinding& finding, const std::string& event, int line);
  std::string Path(int index, EBaseType kind) const;
  bool Exists(int index, EBaseType kind) const;
  CMSDBFile& FileOf(EObjectType type);
  // The operative file that the temporary one is a copy of.
  std::string OwnPath(const CMSDBFile& file) const;

  void LockOperativeFiles();
  void LockRecordFiles();
  void MarkGuard(char kind);
  void FinishReplacing();
  void ReleaseGuard();
  void MakeTemporaryDB();
  // With progress. lasting: until it has reached the medium.
  void CopyFile(const std::string& from, const std::string& to, bool lasting);
  void OpenDataBase();
  void OpenDBFile(CMSDBFile& file, const std::string& path);
  void RenewHeader(CMSDBFile& file);
  std::uint32_t AddToMasterTable(CMSDBFile& file, EObjectType type);
  void ReportCounts(const CMSDBFile& file, const CMSFileHeader& header,
                    const CMaintenanceLog::Counts& found);

  std::uint32_t IssueID();
  std::uint32_t IssueObjectID();
  void RollbackUncommited();
  void ProcessInvalidID();
  void Remap(CDBEntry row, std::uint32_t shown, const char* detail, const char* event, int line,
             std::vector<CDBEntry>& remapped);
  void FindPredefinedFolders();
  void CreateFolder(std::size_t role);
  void ProcessInvalidLinks();
  std::uint32_t ParentOf(const CDBEntry& row, EObjectType parentType);
  const CUID& RoleFor(const CDBEntry& row);
  void Rebind(CDBEntry& row);
  void BreakLoops();
  void DropLost(const CDBEntry& row);
  void EraseRows(EObjectType type, const std::vector<bool>& slots);

  void BuildIndexes();
  void FixData();
  void FixDocumentData();
  void FixFolderData();
  bool FixNumber(const CDBEntry& row, const char* field, const char* event, std::uint32_t& stored,
                 std::uint32_t found, int line);
  bool FixDocument(const CDBEntry& row, CMSDocumentData& record);
  void SumAttachments();

  CFileTree& Tree();
  void SaveFile(const CDBEntry& row);
  void FixAttachmentFiles();
  void ClaimFile(std::uint32_t slot, const CMSAttachmentData& record,
                 std::vector<CFileTrouble>& troubles);
  void MendPath(const CDBEntry& row, const CFileTrouble& trouble,
                std::vector<std::string>& unclaimed);
  std::string TakeLike(const CMSAttachmentData& record, std::vector<std::string>& unclaimed);
  std::string CopyOf(const std::string& stored);
  void CompareFiles();
  void DropFile(const std::string& path);
  void DropCopies();
  void SyncCopies();
  void RemoveSavedFiles();

  template <class T>
  void EndTextsOf(EObjectType type);
  std::vector<const CDBEntry*> RowsBySlot(EObjectType type);

  void FixDataBase();
  void FixDBFile(CMSDBFile& file);
  void FixDBState();
  void CompareSize();
  void CreateIndexes();
  void CreateIndex(int index, EObjectType type);
  void CreatePacketDB();
  void CreateRelationDB();
  void MarkDataBaseFixed();
  void WriteState(const char* section, const char* key, const std::string& value);
  void CloseDataBase();

  void CompareWithOperative();
  void AcceptFixedBase();
  void CopyOldSet();
  void MoveNewSet();
  void DropOldSet();
  bool HasChanged();
  void DeleteDBFiles(const std::string& directory, EBaseType kind);

  CFixer& m_fixer;
  const EJob m_job;
  const std::string m_directory;  // as it was given
  const std::string m_store;      // the same as a full path
  std::string m_reportDirectory;
  CMaintenanceLog m_log;
  const char* m_step = "";

  std::unique_ptr<CKitFile> m_guard;  // held by one job at a time
  bool m_isReplacing = false;
  bool m_isHalfReplaced = false;  // as the guard says
  std::array<std::unique_ptr<CKitFile>, kRecordFiles> m_locks;
  std::array<CMSDBFile, kRecordFiles> m_files;                    // by file index
  std::array<std::vector<CFreeLinks>, kRecordFiles> m_freeLinks;  // sorted, as they were found
  CMasterTable m_table;
  std::uint32_t m_lastID = 0;
  std::uint32_t m_lastRegNumber = 0;
  std::uint32_t m_totalSize = 0;
  std::array<CUID, 8> m_predefined{};
  std::unordered_map<std::uint64_t, std::uint32_t> m_remapped;  // new IDs, by old type and ID
  std::unique_ptr<CFileTree> m_tree;
  std::vector<CSavedFile> m_savedFiles;  // to be removed once the repair is in place
  std::vector<std::string> m_madeFiles;  // full paths of copies that attachments got
  // Lookup tables: sums by a letter's ID, children by a folder's ID.
  std::unordered_map<std::uint32_t, CSums> m_sums;
  std::unordered_map<std::uint32_t, std::array<std::uint32_t, 2>> m_children;
};

}  // namespace MSF
