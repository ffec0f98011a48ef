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
  // tick is called after each letter of the list; it may throw.
  CMSBackupRecognition(const CMSMessageStore& source, const CMSMessageStore& target,
                       const CMSBackupMap& map, std::function<void()> tick);

  std::vector<CMSBackupDecision> Decide(const std::vector<std::uint32_t>& letters);
  // Whether the map was made of this source, judged by whether most of what it names is still what
  // it was. Known after Decide; if not, the map's word about letters and folders counts for
  // nothing.
  bool IsMapOfSource() const { return m_agreed * 2 >= m_known; }
  // What interrupted backups have left of copies of the letters: incomplete, named by no map, and
  // with the header of a letter on the list. Known after Decide.
  const std::vector<std::uint32_t>& Remains() const { return m_remains; }

 private:
  CMSBackupDecision AskMap(const CMSDocument& letter);
  bool IsCopy(const CMSLetterImage& letter, const CMSDocument& copy, const std::uint64_t* stamp);
  void AskFolders();
  void CollectCandidates();
  void FindByContent(const CMSDocument& letter, CMSBackupDecision& decision);
  void SortOutRemains(const std::vector<std::uint32_t>& letters);

  CMSMessageStore m_source;
  CMSMessageStore m_target;
  const CMSBackupMap& m_map;
  const std::function<void()> m_tick;
  std::size_t m_known = 0;   // objects that the map names and both stores have
  std::size_t m_agreed = 0;  // of them: those that may be two states of one object
  std::unordered_set<std::uint32_t> m_claimed;  // letters of the target that are somebody's copy
  std::unordered_multimap<std::uint64_t, std::uint32_t> m_candidates;  // by hash of their content
  std::vector<std::uint32_t> m_remains;
};
