// Which letter of a backup is the copy of which letter of the source.
#pragma once

#include <cstdint>
#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "BackupMap.h"
#include "LetterImage.h"
#include "MessageStore.h"

// What is to be done about one letter.
struct CMSBackupDecision {
  enum class Way {
    Copy,     // the target holds nothing of it
    Keep,     // target is an equal copy
    Replace,  // there is a copy of an earlier state: superseded
    Gone,     // the source has lost it since it was listed
  };
  Way way = Way::Copy;
  std::uint32_t target = 0;
  std::uint32_t superseded = 0;  // to be deleted once a good copy is safe; 0: nothing
  std::uint64_t stamp = 0;       // of the source's files, for Keep
};

// Looks in three steps: where the map says; among the letters that are nobody's copy by then, for
// one of equal content, wherever it lies; last, whether the letter that the map names may be an
// earlier state. Changes nothing. Letters that cannot be read count as different from all others.
class CMSBackupRecognition {
 public:
  // target may be empty. tick is called after each letter of the list; it may throw.
  CMSBackupRecognition(const CMSMessageStore& source, const CMSMessageStore& target,
                       const CMSBackupMap& map, std::function<void()> tick);

  std::vector<CMSBackupDecision> Decide(const std::vector<std::uint32_t>& letters);

  // Whether the map was made of this source: most letters that it names, and that are there still,
  // may be what they were. If not, its word about letters and folders counts for nothing.
  bool IsMapOfSource() const { return m_isMapOfSource; }
  // Whether that is certain enough to believe that what is gone from the source was deleted there:
  // some letter says so, and the source has issued all the IDs that the map knows.
  bool MayRemove() const { return m_mayRemove; }
  // What an unfinished backup has left of copies: incomplete, made since it began, named by no map.
  // Known after Decide.
  const std::vector<std::uint32_t>& Remains() const { return m_remains; }

 private:
  void Vote();
  void VoteByFolders();
  CMSBackupDecision AskMap(const CMSDocument& letter);
  bool IsCopy(const CMSLetterImage& letter, const CMSDocument& copy, const std::uint64_t* stamp);
  bool BelongsToOther(std::uint32_t copy);
  void CollectCandidates();
  void FindByContent(const CMSDocument& letter, CMSBackupDecision& decision);

  CMSMessageStore m_source;
  CMSMessageStore m_target;
  const CMSBackupMap& m_map;
  const std::function<void()> m_tick;
  bool m_isMapOfSource = true;
  bool m_mayRemove = false;
  std::unordered_set<std::uint32_t> m_listed;   // letters of the source
  std::unordered_set<std::uint32_t> m_claimed;  // letters of the target that are somebody's copy
  std::unordered_map<std::uint32_t, std::uint32_t> m_owners;  // letters of the source, by copy
  std::unordered_multimap<std::uint64_t, std::uint32_t> m_candidates;  // by hash of their content
  std::vector<std::uint32_t> m_remains;
};
