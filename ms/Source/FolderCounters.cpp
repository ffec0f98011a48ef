// The unread and undelivered counts of a folder, and their cache in the master file.
//
// The store's lock is held for the whole of each operation, so nothing comes between reading and
// writing an entry. The folder database's lock is taken inside it, for the entry alone: handles
// must not be copied or dropped under that lock, and listeners may do so.
#include <cctype>
#include <limits>

#include "FolderSupport.h"

using namespace foldersupport;

namespace {

// Reads blanks, a sign and digits as a count; false for anything else and for negative or too large
// numbers.
bool ParseCount(const char*& text, int& count) {
  while (std::isspace(static_cast<unsigned char>(*text)) != 0) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  if (*text < '0' || *text > '9') return false;
  std::int64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = value * 10 + (*text - '0');
    if (value > std::numeric_limits<int>::max()) return false;
  }
  count = static_cast<int>(value);
  return !negative || value == 0;
}

// Wraps into the negative numbers, which a reader takes for no entry.
int Sum(int count, int delta) {
  return static_cast<int>(static_cast<unsigned>(count) + static_cast<unsigned>(delta));
}

}  // namespace

Share foldersupport::ShareOf(const CMSDocument& document) {
  return {document.IsUnread() || document.IsMarkedAsUnread() ? 1 : 0,
          document.IsUndelivered() ? 1 : 0};
}

int CMSFolder::GetUnreadDocumentCount() const {
  CExtraData data;
  GetExtraData(data);
  return data.unread;
}

int CMSFolder::GetUndeliveredDocumentCount() const {
  CExtraData data;
  GetExtraData(data);
  return data.undelivered;
}

void CMSFolder::GetExtraData(CExtraData& data) const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  if (GetCachedExtraData(data)) return;
  data = {};
  CMSDocument document;
  auto place = GetFirstDocumentPosition();
  while (GetNextDocument(document, place)) {
    const Share share = ShareOf(document);
    data.unread += share.unread;
    data.undelivered += share.undelivered;
  }
  SaveExtraData(data);
}

bool CMSFolder::GetCachedExtraData(CExtraData& data) const {
  CMSMessageStoreImp& store = StoreOf(*this);
  const CSharedLocker storeGuard(store.Lock());
  const CSharedLocker folderGuard(store.Folders().File().Lock());
  data = {};
  const std::string entry = store.Master().ReadExtraFolderData(static_cast<std::uint32_t>(ID()));
  const char* text = entry.c_str();
  if (ParseCount(text, data.unread) && *text++ == ',' && ParseCount(text, data.undelivered))
    return true;
  data = {};
  return false;
}

// The event is due even when nothing could be written: the counts were asked for or have changed.
void CMSFolder::SaveExtraData(const CExtraData& data) const {
  CMSMessageStoreImp& store = StoreOf(*this);
  const CSharedLocker storeGuard(store.Lock());
  {
    const CSharedLocker folderGuard(store.Folders().File().Lock());
    store.SaveFolderCounters(static_cast<std::uint32_t>(ID()),
                             KitFormat("%d,%d", data.unread, data.undelivered));
  }
  store.Listeners().FolderChanged(*this);
}

void CMSFolder::AdjustExtraCounters(int unreadDelta, int undeliveredDelta) const {
  if (unreadDelta == 0 && undeliveredDelta == 0) return;
  const CSharedLocker guard(StoreOf(*this).Lock());
  CExtraData data;
  if (!GetCachedExtraData(data)) return;
  data.unread = Sum(data.unread, unreadDelta);
  data.undelivered = Sum(data.undelivered, undeliveredDelta);
  SaveExtraData(data);
}

void CMSFolder::OnDocumentStateChanged(const CMSDocument&, int state, int changed) const {
  const auto difference = [&](int bit) {
    if ((changed & bit) == 0) return 0;
    return (state & bit) != 0 ? 1 : -1;
  };
  AdjustExtraCounters(difference(1), difference(2));
}
