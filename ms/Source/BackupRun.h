// One backup under way: the target, its map, and what is done there.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Archiver.h"
#include "BackupMap.h"
#include "BackupRecognition.h"
#include "Copy.h"

// The order of the steps keeps a backup good at any instant: a letter is copied and safe before it
// passes for whole, is that before the map names it, and the map is safe before an earlier copy is
// deleted.
class CMSBackupRun {
 public:
  // Opens the target. XKitStatus 87 when it is the source or lies inside it.
  CMSBackupRun(CMSArchiver& archiver, const CMSMessageStore& source, const std::string& directory,
               const CMSBackupSettings& settings, bool* copied);

  // First of all: what is what.
  void Recognise(const std::vector<CMSArchiver::CBackupEntry>& list);
  // Counts what would be done, and does nothing.
  void TellPlan();

  // The copies of the folders, which come in the order of the tree, made where they are missing and
  // put where they belong.
  void PlaceFolders(const std::vector<CMSArchiver::CFolderEntry>& folders);
  // Empty when the folder has none.
  CMSFolder CopyOf(std::uint32_t folder) const;
  // Letters come in the order of the list. Does with the next one what was decided; folder is the
  // copy of its folder.
  bool HasNext() const { return m_next < m_list.size(); }
  std::uint32_t NextFolder() const { return m_list[m_next].Folder; }
  void NextLetter(CMSFolder& folder);
  // Deletes what interrupted backups have left and what the source has no more (complete letters
  // only if asked to), then gives the last promise.
  void Finish();
  // Keeps what was copied, as an exception ends the backup. What fails here is logged.
  void Salvage();

 private:
  bool Has(std::uint32_t option) const { return (m_settings.Options & option) != 0; }
  void OpenTarget(const std::string& directory);
  void FinishLastRun();
  void ReserveFolders();
  void PlaceFolder(const CMSFolder& folder, const CMSArchiver::CFolderEntry& entry);

  CMSFolder FindFolder(const CMSFolder& folder, const CMSFolder& parent);
  CMSFolder AmongChildren(const CMSFolder& folder, const CMSFolder& parent) const;
  static void Align(CMSFolder& copy, const CMSFolder& folder, CMSFolder& parent);

  void Keep(const CMSArchiver::CBackupEntry& entry, const CMSBackupDecision& decision,
            CMSFolder& folder);
  void Copy(const CMSArchiver::CBackupEntry& entry, const CMSBackupDecision& decision,
            CMSFolder& folder);
  void Remember(std::uint32_t document, std::uint32_t copy, std::uint32_t superseded,
                std::uint64_t stamp);
  void Count(std::uint32_t CMSArchiver::CStatus::*counter, std::uint64_t bytes);
  void MarkBegun();
  template <class Body>
  bool Try(Body body);
  bool Delete(std::uint32_t document);
  std::vector<CMSBackupMap::Entry> LettersGone(std::unordered_set<std::uint32_t>& living);
  bool GoesWithLetter(std::uint32_t document);
  void CountRemoved();
  void RemoveLost();
  void RemoveLostFolders();
  bool RemoveFolder(CMSFolder& folder);
  void Settle();

  CMSArchiver& m_archiver;
  CMSMessageStore m_source;
  const CMSBackupSettings m_settings;
  bool* const m_copied;
  CMSMessageStore m_target;  // empty when nothing is written and there is none
  std::unique_ptr<CMSBatch> m_batch;
  std::unique_ptr<CMSBackupMap> m_map;
  std::vector<CMSArchiver::CBackupEntry> m_list;
  std::vector<CMSBackupDecision> m_decisions;
  std::vector<std::uint32_t> m_remains;
  bool m_mayRemove = false;                                // of interrupted backups
  std::unordered_map<std::uint32_t, CMSFolder> m_folders;  // copies, by the source's ID
  std::unordered_set<unsigned long> m_taken;               // folders of the target that are copies
  std::unordered_set<unsigned long> m_reserved;            // those that the map promises to others
  std::vector<std::unique_ptr<CMSLetterCopy>> m_unfinished;  // copies since the last promise
  std::vector<CMSBackupMap::Entry> m_stale;  // with copies to delete once the map is safe
  std::size_t m_next = 0;
  std::uint32_t m_unsettled = 0;  // letters since the last promise
};
