// A folder's own record, and its place in the tree.
#include "Folder.h"

#include <algorithm>
#include <string>
#include <vector>

#include "FolderSupport.h"

using namespace foldersupport;

namespace {

constexpr unsigned long kRootID = 1;

// Runs one change of the record, then tells the listeners.
template <class Body>
void ChangeRecord(const CMSFolder& folder, Body body) {
  CMSMessageStoreImp& store = StoreOf(folder);
  store.Change([&] {
    CMSFieldAccess::Write(folder, body);
    store.Listeners().FolderChanged(folder);
  });
}

template <std::size_t N>
void ChangeText(const CMSFolder& folder, char (CMSFolderData::*field)[N], const std::string& text,
                const char* what) {
  CMSFieldAccess::CheckFits(text, N, what);
  ChangeRecord(folder,
               [&](CMSFolderData& record) { CMSFieldAccess::PutText(record.*field, text); });
}

// A damaged record may hold any number, so the sum wraps.
void Add(LittleI32& count, int delta) {
  const auto sum = static_cast<std::uint32_t>(std::int32_t{count}) + static_cast<unsigned>(delta);
  count = static_cast<std::int32_t>(sum);
}

}  // namespace

CKitString CMSFolder::Name() const {
  return CMSFieldAccess::Text(*this, &CMSFolderData::Name);
}

CMSFolder& CMSFolder::Name(const CKitString& name) {
  ChangeText(*this, &CMSFolderData::Name, name, "the name of a folder");
  return *this;
}

CKitString CMSFolder::Props() const {
  return CMSFieldAccess::Text(*this, &CMSFolderData::Props);
}

CMSFolder& CMSFolder::Props(CKitString props) {
  ChangeText(*this, &CMSFolderData::Props, props, "the properties of a folder");
  return *this;
}

long CMSFolder::Type() const {
  return CMSFieldAccess::Value(*this, &CMSFolderData::Type);
}

void CMSFolder::Type(long type) {
  ChangeRecord(*this,
               [&](CMSFolderData& record) { record.Type = static_cast<std::int32_t>(type); });
}

unsigned long CMSFolder::ParentID() const {
  return CMSFieldAccess::Value(*this, &CMSFolderData::ParentID);
}

int CMSFolder::GetDocumentCount() const {
  return CMSFieldAccess::Value(*this, &CMSFolderData::DocumentCount);
}

int CMSFolder::GetFolderCount() const {
  return CMSFieldAccess::Value(*this, &CMSFolderData::FolderCount);
}

unsigned long CMSFolder::GetRawStorageSize() const {
  return sizeof(CMSFolderData);
}

bool CMSFolder::IsRoot() const {
  return ID() == kRootID;
}

void CMSFolder::IncDocumentCount() {
  AdjustCount(true, 1);
}

void CMSFolder::DecDocumentCount() {
  AdjustCount(true, -1);
}

void CMSFolder::IncFolderCount() {
  AdjustCount(false, 1);
}

void CMSFolder::DecFolderCount() {
  AdjustCount(false, -1);
}

// Counts follow from the links and records of what is counted.
void CMSFolder::AdjustCount(bool documents, int delta) {
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] {
    CMSFieldAccess::WriteDerived(*this, [&](CMSFolderData& record) {
      Add(documents ? record.DocumentCount : record.FolderCount, delta);
    });
    store.Listeners().FolderChanged(*this);
  });
}

CKitString CMSFolder::FullName() const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  std::vector<CKitString> names;
  Ascend(*this, [&](const CMSFolder& folder) {
    names.push_back(folder.Name());
    return true;
  });
  std::reverse(names.begin(), names.end());
  std::string path;
  for (const CKitString& name : names) {
    if (!path.empty()) path += '/';
    path += name.str();
  }
  return path;
}

// The climb never reads the root, so there is but one way to build a path.
CKitString CMSFolder::AdvFullName() const {
  return FullName();
}

CMSFolder CMSFolder::Parent() const {
  CMSMessageStoreImp& store = StoreOf(*this);
  if (IsRoot()) return {};
  return store.GetFolder(CMSFieldAccess::Value(*this, &CMSFolderData::ParentID));
}
