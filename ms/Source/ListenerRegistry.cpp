#include "ListenerRegistry.h"

#include <algorithm>
#include <vector>

namespace {

template <class Listener>
void RemoveOne(std::list<Listener*>& listeners, Listener* listener) {
  const auto found = std::find(listeners.begin(), listeners.end(), listener);
  if (found != listeners.end()) listeners.erase(found);
}

template <class Listener, class Object>
void Tell(const std::list<Listener*>& listeners, void (Listener::*event)(const Object&),
          const Object& object) {
  // A listener may let itself or others go from within the event.
  const std::vector<Listener*> told(listeners.begin(), listeners.end());
  for (Listener* listener : told) {
    if (std::find(listeners.begin(), listeners.end(), listener) != listeners.end())
      (listener->*event)(object);
  }
}

}  // namespace

void CMSListenerRegistry::Remove(CMSDocumentListener* listener) {
  RemoveOne(m_documents, listener);
}

void CMSListenerRegistry::Remove(CMSFolderListener* listener) {
  RemoveOne(m_folders, listener);
}

void CMSListenerRegistry::DocumentRemoved(const CMSDocument& document) const {
  Tell(m_documents, &CMSDocumentListener::OnDocumentRemoved, document);
}

void CMSListenerRegistry::DocumentAdded(const CMSDocument& document) const {
  Tell(m_documents, &CMSDocumentListener::OnDocumentAdded, document);
}

void CMSListenerRegistry::DocumentChanged(const CMSDocument& document) const {
  Tell(m_documents, &CMSDocumentListener::OnDocumentChanged, document);
}

void CMSListenerRegistry::FolderRemoved(const CMSFolder& folder) const {
  Tell(m_folders, &CMSFolderListener::OnFolderRemoved, folder);
}

void CMSListenerRegistry::FolderAdded(const CMSFolder& folder) const {
  Tell(m_folders, &CMSFolderListener::OnFolderAdded, folder);
}

void CMSListenerRegistry::FolderChanged(const CMSFolder& folder) const {
  Tell(m_folders, &CMSFolderListener::OnFolderChanged, folder);
}
