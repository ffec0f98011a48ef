#include "Relations.h"

#include <cstring>

#include "Set.h"

struct SIDInfoCodec {
  static void Decode(const std::byte* payload, SIDInfo& link) {
    LittleU32 words[3];
    std::memcpy(words, payload, sizeof words);
    link = {words[0], static_cast<std::int32_t>(std::uint32_t{words[1]}), words[2]};
  }
  static void Encode(const SIDInfo& link, std::byte* payload) {
    const LittleU32 words[3] = {link.parent, static_cast<std::uint32_t>(link.type), link.child};
    std::memcpy(payload, words, sizeof words);
  }
};

class CMSRelationsDB::Links : public CMSSet<SIDInfo, SIDInfoCodec> {
 public:
  using CMSSet::CMSSet;
};

CMSRelationsDB::CMSRelationsDB(const CMSEngineContext& context, const std::string& directory,
                               const std::string& name)
    : m_links(std::make_unique<Links>(context, directory, name)) {}

CMSRelationsDB::~CMSRelationsDB() = default;

bool CMSRelationsDB::Add(const SIDInfo& link) {
  return m_links->Add(link);
}
bool CMSRelationsDB::Remove(const SIDInfo& link) {
  return m_links->Remove(link);
}
bool CMSRelationsDB::Contains(const SIDInfo& link) const {
  return m_links->Contains(link);
}
std::size_t CMSRelationsDB::Size() const {
  return m_links->Size();
}
void CMSRelationsDB::CheckInvariants() const {
  m_links->CheckInvariants();
}

CMSRelationsDB::locator CMSRelationsDB::First(unsigned long parent, CMSObjectType type) const {
  locator place;
  place.m_parent = static_cast<std::uint32_t>(parent);
  place.m_endType = static_cast<std::int32_t>(type) + 1;
  return place;
}

bool CMSRelationsDB::Next(locator& place, unsigned long& child) const {
  std::uint32_t next = 0;
  if (Next(place, {&next, 1}) == 0) return false;
  child = next;
  return true;
}

std::size_t CMSRelationsDB::Next(locator& place, std::span<std::uint32_t> children) const {
  if (place.m_endType == 0) return 0;
  const std::int32_t type = place.m_endType - 1;
  std::size_t count = 0;
  m_links->From({place.m_parent, type, place.m_position}, [&](const SIDInfo& link) {
    if (link.parent != place.m_parent || link.type != type) return false;
    children[count++] = link.child;
    return count < children.size();
  });
  if (count < children.size() || children[count - 1] == kNoContainer)
    place.m_endType = 0;
  else
    place.m_position = children[count - 1] + 1;
  return count;
}
