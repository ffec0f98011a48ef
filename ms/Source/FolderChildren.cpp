// Walks over what a folder contains.
//
// Each step holds the store's lock: a child that another thread is moving or deleting is seen
// before or after it, and never taken for damage.
#include <list>

#include "FolderSupport.h"

using namespace foldersupport;

namespace {

// Steps to the next child that has a record. A link to nothing, and a child that names another
// parent, are reported; the latter is still a child.
template <class Handle>
bool NextChild(const CMSFolder& folder, CMSRelationsDB::locator& place, Handle& handle,
               Handle (CMSMessageStoreImp::*open)(std::uint32_t), const char* mismatch) {
  CMSMessageStoreImp& store = StoreOf(folder);
  const CSharedLocker guard(store.Lock());
  unsigned long id = 0;
  while (store.Relations().Next(place, id)) {
    Handle child = (store.*open)(static_cast<std::uint32_t>(id));
    if (!child) {
      Report(store, mismatch);
      continue;
    }
    IsChild(store, folder, child, mismatch);
    handle = std::move(child);
    return true;
  }
  return false;
}

// Of links that lead somewhere, without opening what they lead to.
int CountChildren(CMSMessageStoreImp& store, const CMSFolder& folder, CMSObjectType type) {
  int count = 0;
  unsigned long id = 0;
  auto place = store.Relations().First(folder.ID(), type);
  while (store.Relations().Next(place, id)) {
    if (store.Exists(type, static_cast<std::uint32_t>(id))) ++count;
  }
  return count;
}

}  // namespace

CMSFolder CMSFolder::OpenFolder(unsigned long id) const {
  return StoreOf(*this).GetFolder(CMSFieldAccess::KeyOf(id));
}

CMSDocument CMSFolder::OpenDocument(unsigned long id) const {
  return StoreOf(*this).GetDocument(CMSFieldAccess::KeyOf(id));
}

CMSFolder CMSFolder::OpenFolder(const CKitString& name) const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  CMSFolder folder;
  auto place = GetFirstFolderPosition();
  while (GetNextFolder(folder, place)) {
    if (folder.Name() == name) return folder;
  }
  return {};
}

CMSRelationsDB::locator CMSFolder::GetFirstFolderPosition() const {
  return StoreOf(*this).Relations().First(ID(), CMSObjectType::Folder);
}

bool CMSFolder::GetNextFolder(CMSFolder& folder, CMSRelationsDB::locator& place) const {
  return NextChild(*this, place, folder, &CMSMessageStoreImp::GetFolder,
                   "CMSFolder::GetNextFolder detected mismatch in parent-child IDs");
}

CMSRelationsDB::locator CMSFolder::GetFirstDocumentPosition() const {
  return StoreOf(*this).Relations().First(ID(), CMSObjectType::Document);
}

bool CMSFolder::GetNextDocument(CMSDocument& document, CMSRelationsDB::locator& place) const {
  return NextChild(*this, place, document, &CMSMessageStoreImp::GetDocument,
                   "CMSFolder::GetNextDocument detected mismatch in parent-child IDs");
}

void CMSFolder::Folders(std::list<CMSFolder>& folders) const {
  CMSMessageStoreImp& store = StoreOf(*this);
  const CSharedLocker guard(store.Lock());
  int found = 0;
  CMSFolder folder;
  auto place = GetFirstFolderPosition();
  for (; GetNextFolder(folder, place); ++found) folders.push_back(folder);
  if (found == GetFolderCount()) return;
  Report(store,
         "CMSFolder::Folders detected mismatch in real and expected number of subfolders in "
         "folder");
}

void CMSFolder::Documents(std::list<CMSDocument>& documents) const {
  CMSMessageStoreImp& store = StoreOf(*this);
  const CSharedLocker guard(store.Lock());
  int found = 0;
  CMSDocument document;
  auto place = GetFirstDocumentPosition();
  for (; GetNextDocument(document, place); ++found) documents.push_back(document);
  if (found == GetDocumentCount()) return;
  Report(store,
         "CMSFolder::Documents detected mismatch in real and expected number of letters in folder");
}

bool CMSFolder::IsEmpty() const {
  CMSMessageStoreImp& store = StoreOf(*this);
  const CSharedLocker guard(store.Lock());
  const int documents = CountChildren(store, *this, CMSObjectType::Document);
  const int folders = CountChildren(store, *this, CMSObjectType::Folder);
  if (documents != GetDocumentCount() || folders != GetFolderCount())
    Report(store, "CMSFolder::IsEmpty detected mismatch in real and expected number of subobjects");
  return documents == 0 && folders == 0;
}
