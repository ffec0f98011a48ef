// Which object contains which: a folder's sub-folders and letters, a letter's attachments and
// recipients.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct CMSEngineContext;

enum class CMSObjectType : std::int32_t { Attachment = 1, Recipient = 2, Document = 3, Folder = 4 };

// One link. Ordered by parent, then type, then child.
struct SIDInfo {
  std::uint32_t parent = 0;
  std::int32_t type = 0;
  std::uint32_t child = 0;
  auto operator<=>(const SIDInfo&) const = default;
};

class CMSRelationsDB {
 public:
  // A place in a walk over the children of one parent of one type. It holds keys, not addresses, so
  // a walk survives additions, removals and compaction under it; children added behind it are met,
  // removed ones are not. A plain value: copy it, keep it, drop it.
  class locator {
   public:
    locator() = default;

   private:
    friend class CMSRelationsDB;
    std::uint32_t m_position = 0;  // the least child key that may still come
    std::uint32_t m_parent = 0;
    std::int32_t m_endType = 0;  // the type asked for plus one; 0 when the walk is over
    std::uint32_t m_reserved = 0;
  };

  // Opens "<directory>/<name>.db", creating it when it is not there and the context is writable.
  // CMSDBException 17 when it cannot be opened, 22 after a report when header or content is
  // invalid.
  CMSRelationsDB(const CMSEngineContext& context, const std::string& directory,
                 const std::string& name);
  ~CMSRelationsDB();

  // False, and nothing written, when the link is there already. XKitFile when the write fails; the
  // link is then not there.
  bool Add(const SIDInfo& link);
  // False when there is no such link.
  bool Remove(const SIDInfo& link);
  bool Contains(const SIDInfo& link) const;
  std::size_t Size() const;

  locator First(unsigned long parent, CMSObjectType type) const;
  // Steps to the next child; false at the end.
  bool Next(locator& place, unsigned long& child) const;
  // Fills children with the next ones, in one step; answers how many there were. Fewer than asked
  // for: that was the end.
  std::size_t Next(locator& place, std::span<std::uint32_t> children) const;

  void CheckInvariants() const;

 private:
  class Links;
  std::unique_ptr<Links> m_links;
};
