#include "BackupRecognition.h"

#include <algorithm>

#include "Roles.h"
#include "StoreOf.h"
#include "kit/Hash64.h"

namespace {

// Calls body with every letter below the folder. Folders of a damaged store may go in a circle.
template <class Body>
void EachLetter(const CMSFolder& root, Body body) {
  std::unordered_set<unsigned long> entered{root.ID()};
  std::vector<CMSFolder> open{root};
  while (!open.empty()) {
    const CMSFolder folder = open.back();
    open.pop_back();
    CMSDocument document;
    for (auto at = folder.GetFirstDocumentPosition(); folder.GetNextDocument(document, at);) {
      body(document);
    }
    CMSFolder child;
    for (auto at = folder.GetFirstFolderPosition(); folder.GetNextFolder(child, at);) {
      if (entered.insert(child.ID()).second) open.push_back(child);
    }
  }
}

std::uint64_t HashOf(const CMSLetterImage& image) {
  return CHash64().Add(image.fields).Value();
}

std::uint32_t NumberOf(const CMSDocument& document) {
  return static_cast<std::uint32_t>(document.ID());
}

}  // namespace

CMSBackupRecognition::CMSBackupRecognition(const CMSMessageStore& source,
                                           const CMSMessageStore& target, const CMSBackupMap& map,
                                           std::function<void()> tick)
    : m_source(source), m_target(target), m_map(map), m_tick(std::move(tick)) {}

std::vector<CMSBackupDecision> CMSBackupRecognition::Decide(
    const std::vector<std::uint32_t>& letters) {
  using Way = CMSBackupDecision::Way;
  Vote();
  m_listed.insert(letters.begin(), letters.end());
  std::vector<CMSBackupDecision> decisions;
  decisions.reserve(letters.size());
  for (const std::uint32_t id : letters) {
    decisions.push_back(AskMap(m_source.GetDocument(id)));
    m_tick();
  }
  const auto isOpen = [](const CMSBackupDecision& one) {
    return one.way == Way::Copy || one.way == Way::Replace;
  };
  const bool isAnyOpen = std::any_of(decisions.begin(), decisions.end(), isOpen);
  if (!m_target.IsValid() || (!isAnyOpen && m_map.UnfinishedSince() == 0)) return decisions;
  CollectCandidates();
  for (std::size_t i = 0; i < letters.size(); ++i) {
    if (isOpen(decisions[i])) FindByContent(m_source.GetDocument(letters[i]), decisions[i]);
  }
  for (CMSBackupDecision& one : decisions) {
    if (m_claimed.count(one.superseded) != 0) one.superseded = 0;
    if (isOpen(one)) one.way = one.superseded != 0 ? Way::Replace : Way::Copy;
  }
  std::erase_if(m_remains, [&](std::uint32_t id) { return m_claimed.count(id) != 0; });
  return decisions;
}

// A letter without date and subject says nothing of itself.
void CMSBackupRecognition::Vote() {
  std::size_t known = 0;
  std::size_t agreed = 0;
  for (const auto& entry : m_map.Entries()) {
    if (entry.kind != CMSObjectType::Document) continue;
    const CMSDocument letter = m_source.GetDocument(entry.source);
    if (letter) m_owners.emplace(entry.target, entry.source);
    const CMSDocument copy = m_target.GetDocument(entry.target);
    if (!letter || !copy) continue;
    try {
      const CMSLetterTraits traits = TraitsOf(letter);
      if (traits.creationTime == 0 && traits.subject.empty()) continue;
      const bool agrees = MayBeOneLetter(traits, TraitsOf(copy));
      ++known;
      if (agrees) ++agreed;
    } catch (const XKitMsg&) {
      // One that cannot be read has no vote.
    }
  }
  m_isMapOfSource = agreed * 2 >= known;
  if (known == 0) VoteByFolders();
  const std::uint32_t greatest = std::max(m_map.GreatestSource(CMSObjectType::Document),
                                          m_map.GreatestSource(CMSObjectType::Folder));
  m_mayRemove = m_isMapOfSource && agreed > 0 && StoreOf(m_source.Root()).LastID() >= greatest;
}

// Predefined folders are the same in all stores.
void CMSBackupRecognition::VoteByFolders() {
  std::size_t known = 0;
  std::size_t agreed = 0;
  for (const auto& entry : m_map.Entries()) {
    if (entry.kind != CMSObjectType::Folder) continue;
    const CMSFolder folder = m_source.GetFolder(entry.source);
    const CMSFolder copy = m_target.GetFolder(entry.target);
    if (!folder || !copy) continue;
    try {
      if (MSF::IsPredefinedType(folder.Type())) continue;
      const bool agrees = folder.Name() == copy.Name();
      ++known;
      if (agrees) ++agreed;
    } catch (const XKitMsg&) {
      // Nor has one that another thread has deleted.
    }
  }
  m_isMapOfSource = agreed * 2 >= known;
}

CMSBackupDecision CMSBackupRecognition::AskMap(const CMSDocument& letter) {
  CMSBackupDecision decision;
  if (!letter) {
    decision.way = CMSBackupDecision::Way::Gone;
    return decision;
  }
  const auto* entry = m_map.Find(CMSObjectType::Document, NumberOf(letter));
  if (entry == nullptr) return decision;
  const CMSDocument copy = m_target.GetDocument(entry->target);
  if (!copy || m_claimed.count(entry->target) != 0) return decision;
  bool mayBeEarlier = true;  // of one that cannot be read: a copy that fails leaves it as it is
  try {
    const CMSLetterImage image = ImageOf(letter);
    if (IsCopy(image, copy, &entry->stamp)) {
      m_claimed.insert(entry->target);
      decision.way = CMSBackupDecision::Way::Keep;
      decision.target = entry->target;
      decision.stamp = image.stamp;
      return decision;
    }
    // One that was copied before it was whole may have become any letter since.
    mayBeEarlier =
        !copy.IsAction(docflag::Complete) || MayBeOneLetter(TraitsOf(letter), TraitsOf(copy));
  } catch (const XKitMsg&) {
    // Copying the letter will tell what cannot be read.
  }
  if (!mayBeEarlier || !m_isMapOfSource) return decision;
  decision.way = CMSBackupDecision::Way::Replace;
  decision.superseded = entry->target;
  return decision;
}

bool CMSBackupRecognition::IsCopy(const CMSLetterImage& letter, const CMSDocument& copy,
                                  const std::uint64_t* stamp) {
  const CMSLetterImage other = ImageOf(copy);
  if (letter.fields != other.fields) return false;
  const bool isUntouched = stamp != nullptr && *stamp != 0 && *stamp == letter.stamp;
  return isUntouched || HoldSameBytes(letter, other);
}

// The copy of a letter that lives, but is not looked after this time.
bool CMSBackupRecognition::BelongsToOther(std::uint32_t copy) {
  const auto owner = m_owners.find(copy);
  return m_isMapOfSource && owner != m_owners.end() && m_listed.count(owner->second) == 0;
}

void CMSBackupRecognition::CollectCandidates() {
  const std::uint32_t since = m_map.UnfinishedSince();
  std::unordered_set<std::uint32_t> seen;  // a move that was cut off leaves a letter in two folders
  EachLetter(m_target.Root(), [&](const CMSDocument& letter) {
    const std::uint32_t id = NumberOf(letter);
    if (m_claimed.count(id) != 0 || !seen.insert(id).second || BelongsToOther(id)) return;
    try {
      m_candidates.emplace(HashOf(ImageOf(letter)), id);
      const bool isNamed = m_map.NamesTarget(CMSObjectType::Document, id);
      if (since != 0 && id > since && !isNamed && !letter.IsAction(docflag::Complete)) {
        m_remains.push_back(id);
      }
    } catch (const XKitMsg&) {
      // A letter that cannot be read is nobody's copy.
    }
  });
}

// One in a folder of the same name comes first: of letters that are there twice, each finds its
// own.
void CMSBackupRecognition::FindByContent(const CMSDocument& letter, CMSBackupDecision& decision) {
  if (m_candidates.empty() || !letter) return;
  try {
    const CMSLetterImage image = ImageOf(letter);
    const auto [begin, end] = m_candidates.equal_range(HashOf(image));
    if (begin == end) return;
    const CKitString place = letter.Parent().FullName();
    auto best = end;
    for (auto it = begin; it != end; ++it) {
      const CMSDocument copy = m_target.GetDocument(it->second);
      if (!IsCopy(image, copy, nullptr)) continue;
      best = it;
      if (copy.Parent().FullName() == place) break;
    }
    if (best == end) return;
    decision.way = CMSBackupDecision::Way::Keep;
    decision.target = best->second;
    decision.stamp = image.stamp;
    m_claimed.insert(best->second);
    m_candidates.erase(best);
  } catch (const XKitMsg&) {
    // As above.
  }
}
