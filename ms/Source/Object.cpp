#include "Object.h"

#include <cassert>

#include "MessageStoreImp.h"
#include "ObjectAccess.h"

template <class T>
CMSObject<T>::CMSObject(const CMSObject& other) : m_cell(other.m_cell) {
  if (m_cell != nullptr) m_cell->owner->AddReference(*m_cell);
}

template <class T>
CMSObject<T>& CMSObject<T>::operator=(const CMSObject& other) {
  if (this != &other) {
    CMSObject copy(other);
    std::swap(m_cell, copy.m_cell);
  }
  return *this;
}

template <class T>
CMSObject<T>& CMSObject<T>::operator=(CMSObject&& other) noexcept {
  if (this != &other) {
    CMSObject taken(std::move(other));
    std::swap(m_cell, taken.m_cell);
  }
  return *this;
}

template <class T>
CMSObject<T>::~CMSObject() {
  if (CMSDBObject* const cell = std::exchange(m_cell, nullptr)) cell->owner->Release(*cell);
}

template <class T>
unsigned long CMSObject<T>::ID() const {
  assert(m_cell != nullptr);
  return m_cell->key;
}

template <class T>
bool CMSObject<T>::IsValid() const {
  return m_cell != nullptr && m_cell->record.load(std::memory_order_acquire) != 0;
}

template <class T>
CMSMessageStore CMSObject<T>::MS() const {
  if (m_cell == nullptr || m_cell->owner->Store() == nullptr) return {};
  return CMSMessageStore(*GetMS());
}

template <class T>
bool CMSObject<T>::IsReadOnly() const {
  return GetMS()->IsReadOnly();
}

template <class T>
CMSMessageStoreImp* CMSObject<T>::GetMS() const {
  return static_cast<CMSMessageStoreImp*>(CMSFieldAccess::Cell(*this).owner->Store());
}

template class CMSObject<CMSDocumentData>;
template class CMSObject<CMSAttachmentData>;
template class CMSObject<CMSRecipientData>;
template class CMSObject<CMSFolderData>;
