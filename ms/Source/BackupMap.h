// Which object of the source each object of a backup is a copy of.
//
// A file of its own in the target's directory: 16 bytes that say what it is, then entries of 32
// bytes, each with a check value. Entries are only ever added behind the others, and the last one
// of an object counts; now and then the file is written anew without the outdated ones, and takes
// the old one's place in one step. What a crash leaves half written fails its check and ends the
// file.
//
// The map is a help, never the truth: whoever asks it looks whether the object named is what it
// should be. Losing it costs time, not letters.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Relations.h"

// Not thread-safe.
class CMSBackupMap {
 public:
  struct Entry {
    CMSObjectType kind = CMSObjectType::Document;  // or Folder
    std::uint32_t source = 0;                      // ID there
    std::uint32_t target = 0;      // ID in the backup; 0: the source has no copy any more
    std::uint32_t superseded = 0;  // an earlier copy that is still to be deleted; 0: none
    std::uint64_t stamp = 0;       // of the files of the source (CMSLetterImage)
    bool operator==(const Entry&) const = default;
  };

  // An empty one that is never saved.
  CMSBackupMap() = default;
  // Reads the map of the directory. None, or a damaged one, reads as what is whole of it. XKitFile
  // when it is there and cannot be read.
  explicit CMSBackupMap(const std::string& directory);

  // Null when the map knows no copy. Valid until the next change.
  const Entry* Find(CMSObjectType kind, std::uint32_t source) const;
  // Whether an entry names the object of the target, be it as superseded.
  bool NamesTarget(CMSObjectType kind, std::uint32_t target) const;
  // By kinds, then by IDs of the source: backups are made the same way on every system.
  std::vector<Entry> Entries() const;
  // The greatest ID of the source that has an entry of that kind; 0 without any.
  std::uint32_t GreatestSource(CMSObjectType kind) const;

  // The greatest ID of the target before a backup that was not finished; 0 when none is under way.
  std::uint32_t UnfinishedSince() const { return m_unfinishedSince; }
  void MarkUnfinished(std::uint32_t since);

  void Put(const Entry& entry);
  void Drop(CMSObjectType kind, std::uint32_t source);
  void Clear();

  // Returns when all changes since the last Save have reached the medium. XKitFile when that fails;
  // the file then holds the state of an earlier Save, and Save may be called again.
  void Save();

 private:
  void Read();
  void Apply(const Entry& entry);
  void Append();
  void Rewrite();

  const std::string m_directory;  // "": never saved
  const std::string m_path;
  std::uint32_t m_unfinishedSince = 0;
  std::unordered_map<std::uint64_t, Entry> m_entries;  // by kind and source
  std::unordered_multiset<std::uint64_t> m_targets;    // kind and target, of all entries
  std::vector<Entry> m_unsaved;
  std::size_t m_slots = 0;  // whole entries in the file
  bool m_isWhole = false;   // the file can be added to
};
