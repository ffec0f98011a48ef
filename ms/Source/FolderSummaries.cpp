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
    do {
      m_linked = m_store.Relations().Next(m_place, m_ids);
      Read();
    } while (m_count == 0 && m_linked != 0);
    return {m_summaries.data(), m_count};
  }

 private:
  static constexpr std::size_t kAtOnce = 64;

  void Read() {
    std::array<bool, kAtOnce> isSound{};
    m_count = m_used = 0;
    m_store.Documents().File().ReadMany(
        std::span(m_ids).first(m_linked), [&](std::size_t i, const std::byte* bytes) {
          const auto* record = reinterpret_cast<const CMSDocumentData*>(bytes);
          isSound[i] = record != nullptr && record->ParentID == m_folder.ID();
          if (isSound[i]) Add(m_ids[i], *record);
        });
    for (std::size_t i = 0; i < m_linked; ++i)
      if (!isSound[i]) return ReadOneByOne();
  }
  // The walk reports what is wrong, and steps over what is not there.
  void ReadOneByOne() {
    m_count = m_used = 0;
    for (std::size_t i = 0; i < m_linked; ++i) {
      const CMSDocument letter = m_store.GetDocument(m_ids[i]);
      if (letter)
        Access::Read(letter, [&](const CMSDocumentData& record) { Add(m_ids[i], record); });
      if (!letter || letter.ParentID() != m_folder.ID())
        Report(m_store, "CMSFolder::GetNextDocument detected mismatch in parent-child IDs");
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
  std::size_t m_linked = 0, m_count = 0, m_used = 0;
};

void CMSFolder::ForEachSummary(const std::function<void(const CMSDocumentSummary&)>& body) const {
  CSummaries letters(*this);
  for (auto some = letters.Next(); !some.empty(); some = letters.Next())
    for (const CMSDocumentSummary& letter : some) body(letter);
}
