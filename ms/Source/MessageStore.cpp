#include "MessageStore.h"

#include <utility>

#include "Convert.h"
#include "MSFixer.h"
#include "MessageStoreImp.h"
#include "ObjectAccess.h"
#include "kit/LogDispatcher.h"

namespace {

const char* DirectoryOrHere(const char* directory) {
  return directory != nullptr && *directory != 0 ? directory : ".";
}

}  // namespace

int CMSMessageStore::s_bCheckDataConverting = 0;

CMSMessageStore::CMSMessageStore(const char* directory, CKeyCarrier& keys, CAbstractAsymmKey* key,
                                 CGroupID& group, bool isDefault, bool readOnly,
                                 CMSClientInformer* informer, CKitString name,
                                 CMSDurabilityLevel level)
    : m_store(
          std::make_unique<CMSMessageStoreImp>(
              CMSMessageStoreImp::OpenArguments{DirectoryOrHere(directory), keys, key, group,
                                                isDefault, readOnly, informer, name.str(), level})
              .release()) {}

CMSMessageStore::CMSMessageStore(CMSMessageStoreImp& store) : m_store(&store) {
  m_store->AddRef();
}

CMSMessageStore::CMSMessageStore(const CMSMessageStore& other) : m_store(other.m_store) {
  if (m_store != nullptr) m_store->AddRef();
}

CMSMessageStore& CMSMessageStore::operator=(const CMSMessageStore& other) {
  CMSMessageStore copy(other);
  std::swap(m_store, copy.m_store);
  return *this;
}

CMSMessageStore::~CMSMessageStore() {
  if (m_store != nullptr) m_store->Release();
}

long CMSMessageStore::ID() const {
  return m_store != nullptr ? m_store->SerialNumber() : 0;
}

bool CMSMessageStore::IsSingleOwned() const {
  return m_store != nullptr && m_store->IsSingleOwned();
}

CMSDocument CMSMessageStore::GetDocument(unsigned long id) {
  return m_store->GetDocument(CMSFieldAccess::KeyOf(id));
}

CMSFolder CMSMessageStore::GetFolder(unsigned long id) {
  return m_store->GetFolder(CMSFieldAccess::KeyOf(id));
}

CMSAttachment CMSMessageStore::GetAttachment(unsigned long id) {
  return m_store->GetAttachment(CMSFieldAccess::KeyOf(id));
}

CMSFolder CMSMessageStore::Root() const {
  return m_store->GetFolder(1);
}

CMSRecipient CMSMessageStore::FindRecipient(const char* packet, bool incoming) {
  return m_store->FindRecipient(packet, incoming);
}

void CMSMessageStore::SetCmpDocs(bool (*compare)(const CMSDocument&, const CMSDocument&)) {
  m_store->SetCmpDocs(compare);
}

unsigned int CMSMessageStore::GetDocumentCount() const {
  return m_store->DocumentCount();
}

long CMSMessageStore::GetFullSize() const {
  return static_cast<long>(m_store->FullSize());
}

const char* CMSMessageStore::GetMainFolder() const {
  return m_store->Directory().c_str();
}

bool CMSMessageStore::IsReadOnly() const {
  return m_store->IsReadOnly();
}

bool CMSMessageStore::IsDefault() const {
  return m_store->IsDefault();
}

CKitString CMSMessageStore::GetMSName() {
  return m_store->Name();
}

CKitString CMSMessageStore::GetCustomData(const char* section, const char* key) {
  const CSharedLocker guard(m_store->Lock());
  return m_store->Master().GetCustomData(section, key);
}

bool CMSMessageStore::WriteCustomData(const char* section, const char* key, const char* value) {
  const CSharedLocker guard(m_store->Lock());
  return m_store->Master().WriteCustomData(section, key, value);
}

bool CMSMessageStore::IsMSDirectory(const char* directory) {
  if (CMSConverter(DirectoryOrHere(directory), s_bCheckDataConverting).IsEarlierFormat())
    return true;
  return MSF::CFixer::IsMSDirectory(DirectoryOrHere(directory));
}

namespace {

template <class Listener>
void Attach(CMSMessageStoreImp& store, Listener* listener, CMSMessageStore& handle) {
  const CSharedLocker guard(store.Lock());
  store.Listeners().Add(listener);
  listener->OnAttachStore(handle);
}

template <class Listener>
void Detach(CMSMessageStoreImp& store, Listener* listener) {
  const CSharedLocker guard(store.Lock());
  store.Listeners().Remove(listener);
}

}  // namespace

void CMSMessageStore::AddListener(CMSDocumentListener* listener) {
  Attach(*m_store, listener, *this);
}

void CMSMessageStore::AddListener(CMSFolderListener* listener) {
  Attach(*m_store, listener, *this);
}

void CMSMessageStore::RemoveListener(CMSDocumentListener* listener) {
  Detach(*m_store, listener);
}

void CMSMessageStore::RemoveListener(CMSFolderListener* listener) {
  Detach(*m_store, listener);
}

CMSBatch::CMSBatch(const CMSMessageStore& store) : CMSBatch(store, Entries::Gathered) {}

CMSBatch::CMSBatch(const CMSMessageStore& store, Entries entries) : m_store(store.m_store) {
  if (m_store == nullptr)
    throw XKitStatus(kit::kStatusInvalidHandle, "a batch needs an open store; the handle is empty");
  if (entries == Entries::Gathered)
    m_store->Durability().BeginBatch();
  else
    m_store->Durability().Begin();
  m_store->AddRef();
}

CMSBatch::~CMSBatch() {
  // A failure of the medium is logged and remembered by the durability itself. What could not be
  // paid for want of memory is still owed, and paid with the next change or as the store closes.
  RunOrLog([this] { Pay(); }, "ms\\Source\\MessageStore", __LINE__);
  m_store->Durability().End();
  m_store->Release();
}

void CMSBatch::Commit() {
  Pay();
  m_store->Durability().CheckHealthy();
}

void CMSBatch::Pay() {
  if (!m_store->Durability().IsOutermost()) return;
  m_store->Durability().WriteGathered();
  m_store->SaveDueCounters();
  m_store->Durability().Pay();
}
