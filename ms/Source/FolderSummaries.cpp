// Listing a folder: the few fields that a list shows, some dozens of letters at a time.
//
// A walk looks each letter up for its handle, again for the check of its parent and again for every
// field. Here all is copied while the record is at hand, and the links are read in one go.
#include <array>

#include "FolderSupport.h"
#include "Subject.h"

using namespace foldersupport;

class CMSFolder::CSummaries {
 public:
  explicit CSummaries(const CMSFolder& folder)
      : m_folder(folder), m_store(StoreOf(folder)), m_place(folder.GetFirstDocumentPosition()) {}

  // The next letters; none: that was the end.
  std::span<const CMSDocumentSummary> Next() {
    const CSharedLocker guard(m_store.Lock());
    const auto before = m_place;
    m_count = m_used = 0;
    if (!Read()) Walk(before);
    return {m_summaries.data(), m_count};
  }

 private:
  static constexpr std::size_t kAtOnce = 64;

  // False when a link leads to nothing or to another folder's letter.
  bool Read() {
    const std::size_t linked = m_store.Relations().Next(m_place, m_ids);
    m_store.Documents().File().ReadMany(
        std::span(m_ids).first(linked), [&](std::size_t i, const std::byte* bytes) {
          const auto* record = reinterpret_cast<const CMSDocumentData*>(bytes);
          if (record != nullptr && record->ParentID == m_folder.ID()) Add(m_ids[i], *record);
        });
    return m_count == linked;
  }
  // The walk reports what is wrong, and steps over what is not there.
  void Walk(const CMSRelationsDB::locator& from) {
    m_place = from;
    m_count = m_used = 0;
    CMSDocument letter;
    while (m_count < kAtOnce && m_folder.GetNextDocument(letter, m_place)) {
      const auto id = static_cast<std::uint32_t>(letter.ID());
      Access::Read(letter, [&](const CMSDocumentData& record) { Add(id, record); });
    }
  }
  void Add(std::uint32_t id, const CMSDocumentData& record) {
    char* const text = m_texts.data() + m_used;
    const std::size_t length = CopySubject(record, text);
    m_used += length;
    m_summaries[m_count++] = {id, {text, length}, record.Flag, record.CreationTime};
  }

  using Access = CMSFieldAccess;
  const CMSFolder m_folder;
  CMSMessageStoreImp& m_store;
  CMSRelationsDB::locator m_place;
  std::array<std::uint32_t, kAtOnce> m_ids;
  std::array<CMSDocumentSummary, kAtOnce> m_summaries;
  std::array<char, kAtOnce * kLongestSubject> m_texts;
  std::size_t m_count = 0, m_used = 0;
};

void CMSFolder::ForEachSummary(const std::function<void(const CMSDocumentSummary&)>& body) const {
  CSummaries letters(*this);
  for (auto some = letters.Next(); !some.empty(); some = letters.Next())
    for (const CMSDocumentSummary& letter : some) body(letter);
}
