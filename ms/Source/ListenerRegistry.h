// The listeners of one store.
#pragma once

#include <list>

#include "Listeners.h"

// Used under the store's lock.
class CMSListenerRegistry {
 public:
  void Add(CMSDocumentListener* listener) { m_documents.push_back(listener); }
  void Add(CMSFolderListener* listener) { m_folders.push_back(listener); }
  // One registration; nothing happens when there is none.
  void Remove(CMSDocumentListener* listener);
  void Remove(CMSFolderListener* listener);

  void DocumentRemoved(const CMSDocument& document) const;
  void DocumentAdded(const CMSDocument& document) const;
  void DocumentChanged(const CMSDocument& document) const;
  void FolderRemoved(const CMSFolder& folder) const;
  void FolderAdded(const CMSFolder& folder) const;
  void FolderChanged(const CMSFolder& folder) const;

 private:
  std::list<CMSDocumentListener*> m_documents;
  std::list<CMSFolderListener*> m_folders;
};
