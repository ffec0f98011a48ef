// Backup: the letters of one open store, kept in a second one.
//
//   CMSArchiver archiver;
//   bool copied = false;
//   archiver.Backup(store, "backup", nullptr, &copied);
//
// The target is a store like any other: it can be opened, listed, searched, and backed up in turn,
// and the same call with the two stores exchanged (and kBackupAddOnly) is the way back. It holds
// the source's tree of folders with their names, types and properties, and every letter under an ID
// of its own. A file "archive3.map" in its directory tells which object of the source each of them
// is a copy of; nothing is ever written to the source.
//
// A letter is copied again only when it has changed: it is compared, field by field, with its copy,
// and its files by their length and times (by their bytes where the times say nothing). Renamed and
// moved folders and letters are renamed and moved in the target. What the map does not know, or
// no longer knows rightly (it was lost, the source is another store or was itself restored), is
// recognised by its content. An earlier copy is only replaced by what may be a later state of the
// same letter: same creation time and subject, or same creation time and sender. So nothing is lost
// when one target is given two stores in turn, though it then keeps the letters of both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "MessageStore.h"
#include "kit/SharedLock.h"

class CMSLetterCopy;

// Bits of CMSBackupSettings::Options.
//
// Letters and folders that are gone from the source go from the target, too: those that the map
// knows, and only when it surely was made of this source: most of the letters that it names, and
// one at least, are known there, and the source has issued all the IDs that it names.
inline constexpr std::uint32_t kBackupMirror = 0x1;
// Nothing in the target is changed, moved or replaced, and no map is kept: for restoring.
inline constexpr std::uint32_t kBackupAddOnly = 0x2;
// Tells what would be copied, and writes nothing.
inline constexpr std::uint32_t kBackupPlanOnly = 0x4;

#pragma pack(push, 1)
// When a backup is due, and how it is made. Byte-packed.
struct CMSBackupSettings {
  std::uint32_t Options = 0;
  std::uint32_t LettersPerPromise = 0;  // how many letters a power cut may cost; 0 stands for 100
  std::uint32_t Reserved = 0;           // 0
  bool CountRule = false;               // due with at least Count letters
  std::uint32_t Count = 0;
  bool SizeRule = false;  // due with at least Size bytes
  bool Pack = false;      // leave the oldest letters out until PackSize bytes are not exceeded
  std::uint32_t Size = 0;
  std::uint32_t PackSize = 0;
};
#pragma pack(pop)
static_assert(sizeof(CMSBackupSettings) == 27 && offsetof(CMSBackupSettings, Count) == 13);
static_assert(offsetof(CMSBackupSettings, Pack) == 18 && offsetof(CMSBackupSettings, Size) == 19);

// One archiver makes one backup at a time; the three setters and the status may be used from other
// threads meanwhile.
class MS_API CMSArchiver {
 public:
  enum Phase : std::uint32_t {
    kIdle = 0,
    kPreparing = 1,  // the source is being listed
    kCopying = 2,
  };

  // Where a backup is. Cleared whenever the phase changes.
  struct CStatus {
    std::uint32_t Phase = kIdle;
    std::uint32_t Error = 0;     // of the last failure: XKitStatus code or the system's number
    std::uint32_t Listed = 0;    // letters to look after
    std::uint32_t Compared = 0;  // of them: those whose copies have been looked for
    std::uint32_t Done = 0;      // of them: dealt with, as the next five tell
    std::uint32_t Copied = 0;
    std::uint32_t Replaced = 0;   // copied again, since they had changed
    std::uint32_t Moved = 0;      // unchanged but for their folder
    std::uint32_t Unchanged = 0;  // nothing to do; also those that the source has lost meanwhile
    std::uint32_t Failed = 0;     // left as they were in the target
    std::uint32_t Removed = 0;    // from the target, not counted in Done
    std::uint64_t ListedBytes = 0;
    std::uint64_t DoneBytes = 0;
    const char* ErrorText = "";  // of the last failure, valid during the call
  };

  // Both calls are made in the thread that runs the backup, with the archiver's lock held. What
  // they throw ends the backup and reaches its caller.
  class MS_API CStatusCallback {
   public:
    virtual ~CStatusCallback();
    // After every letter that was listed, compared or dealt with. False ends the backup with
    // XInterrupted.
    virtual bool OnProgress(const CStatus& status) = 0;
    // detail: for error 35 (less room than four times the bytes listed) 5, else the ID of the
    // letter that could not be copied. Answers: 4 tries again; 2 and 3 end the backup with
    // XInterrupted, as does for error 35 everything but 4; any other leaves the letter out (one
    // whose file alone is missing, error 196, is copied without it, unless an earlier copy is
    // there).
    virtual int OnError(const CStatus& status, unsigned long detail) = 0;
  };

  // Which part of the source is backed up.
  class MS_API CBackupFilter {
   public:
    virtual ~CBackupFilter();
    // False leaves the folder out with everything below it.
    virtual bool IsBackupNeeded(const CMSFolder& folder) = 0;
    virtual bool IsBackupNeeded(const CMSDocument& document) = 0;
  };

  // A letter on the list.
  struct CBackupEntry {
    std::uint32_t Document = 0;
    std::uint32_t Folder = 0;
    std::uint32_t CreationTime = 0;
    std::uint64_t Size = 0;  // CMSDocument::GetRawStorageSize
  };

  // The backup ended early: it was not due, there was no room, or the callback said so. The target
  // keeps what was copied before.
  class MS_API XInterrupted {};

  CMSArchiver() = default;
  virtual ~CMSArchiver();
  CMSArchiver(const CMSArchiver&) = delete;
  CMSArchiver& operator=(const CMSArchiver&) = delete;

  // Each answers the previous one. The caller keeps ownership; null is none.
  CStatusCallback* SetStatusCallback(CStatusCallback* callback);
  CBackupFilter* SetBackupFilter(CBackupFilter* filter);

  // Brings the target up to date, making it when it is not there. settings may be null: everything
  // is copied, unless there is nothing. copied (may be null) is set true as soon as a letter was
  // copied, and left alone otherwise. Letters that other threads add meanwhile may wait for the
  // next backup. One that is copied while it is being made, so that docflag::Complete is not set,
  // goes from the target when the source has no more of it by the next backup. What ended the last
  // backup early, be it a crash, is finished by the next.
  //
  // XInterrupted; XKitStatus 87 when the target is the source or lies inside it; what opening the
  // target raises (see CMSMessageStore); XKitFile when the target's disk is full, and 19 when its
  // medium fails. A letter that cannot be copied ends nothing; but without a callback, which would
  // have been told, the first such failure is raised in the end.
  void Backup(const CMSMessageStore& store, const char* targetDirectory,
              const CMSBackupSettings* settings, bool* copied);
  // Whether the making of a store in that directory was cut off. The next backup makes it anew.
  // XKitFile when the directory cannot be looked at.
  static bool IsHalfMade(const char* directory);
  // Whether Backup would find one due.
  bool IsBackupNeeded(const CMSMessageStore& store, const CMSBackupSettings* settings);

 protected:
  using CBackupList = std::vector<CBackupEntry>;
  // A folder, and the one that it was found in.
  struct CFolderEntry {
    std::uint32_t Folder = 0;
    std::uint32_t Under = 0;
  };
  // What PreBackup chose. Folders come before those below them; the root is not among them.
  struct CSelection {
    std::vector<CFolderEntry> Folders;
    CBackupList List;
    CBackupList Strays;  // found in a folder that they do not name as theirs
    std::uint64_t TotalSize = 0;
  };

  bool IsBackupNeeded(const CMSFolder& folder);
  bool IsBackupNeeded(const CMSDocument& document);
  // Without settings: due when the list is not empty. Else when one of the rules that are on is
  // met.
  static bool IsBackupNeeded(const CBackupList& list, std::uint64_t totalSize,
                             const CMSBackupSettings* settings);

  CSelection PreBackup(const CMSMessageStore& store);
  void PreBackupFolder(const CMSFolder& folder, CSelection& selection);
  void AddLetter(const CMSFolder& folder, const CMSDocument& document, CSelection& selection);
  static void AddStrays(CSelection& selection);
  static void PackBackupList(CSelection& selection, const CMSBackupSettings& settings);
  void DoBackup(const CMSMessageStore& store, const char* targetDirectory,
                const CSelection& selection, const CMSBackupSettings& settings, bool* copied);
  // The next letters of the run, as long as they are of one folder.
  void BackupFolder(class CMSBackupRun& run);
  // A copy of the folder alone under parent.
  CMSFolder CloneFolder(const CMSFolder& folder, CMSFolder& parent);
  // A copy of the letter that is still to be finished, or null when the letter is to be left out.
  // hasCopy: the target holds an earlier one. stamp is set to that of the letter's files.
  std::unique_ptr<CMSLetterCopy> CloneDocument(const CMSDocument& document, CMSFolder& target,
                                               bool hasCopy, std::uint64_t& stamp);

  void ResetStatus(std::uint32_t phase);
  void OnProgress();
  int OnError(std::uint32_t error, unsigned long detail);

 private:
  friend class CMSBackupRun;
  class CIdleAfterwards;

  void WaitForRoom(const std::string& directory, std::uint64_t size);
  int Report(std::uint32_t error, unsigned long detail, const std::string& text);
  void NoteUntold(const std::exception_ptr& failure);

  CSharedLock m_lock;  // guards all below
  CStatusCallback* m_callback = nullptr;
  CBackupFilter* m_filter = nullptr;
  CStatus m_status;
  std::string m_errorText;
  std::exception_ptr m_untold;  // the first failure that no callback was told of
};
