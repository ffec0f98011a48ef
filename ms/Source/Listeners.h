// Events of a store.
//
// They are sent in the thread that makes the change, while the store's lock is held: a listener
// must not wait for another thread that uses the same store. It may remove itself from within an
// event. It must not throw: the change it was told of would be left half told and half counted.
#pragma once

#include <list>

#include "kit/Export.h"
#include "kit/KitString.h"

class CMSDocument;
class CMSFolder;
class CMSMessageStore;

class MS_API CMSDocumentListener {
 public:
  virtual ~CMSDocumentListener() = default;
  // Once, from AddListener.
  virtual void OnAttachStore(CMSMessageStore& store) = 0;
  // A letter left a folder; after a deletion the handle is stale.
  virtual void OnDocumentRemoved(const CMSDocument& document) = 0;
  // A letter entered a folder, or its flags were set.
  virtual void OnDocumentAdded(const CMSDocument& document) = 0;
  virtual void OnDocumentChanged(const CMSDocument& document) = 0;
};

class MS_API CMSFolderListener {
 public:
  virtual ~CMSFolderListener() = default;
  virtual void OnAttachStore(CMSMessageStore& store) = 0;
  virtual void OnFolderRemoved(const CMSFolder& folder) = 0;
  virtual void OnFolderAdded(const CMSFolder& folder) = 0;
  // A folder's record or its unread and undelivered counts changed.
  virtual void OnFolderChanged(const CMSFolder& folder) = 0;
};

// What a client is told while a store is being opened.
class MS_API CMSClientInformer {
 public:
  virtual ~CMSClientInformer() = default;
  // Some files of the store are missing; the others are about to be moved into the quarantine
  // directory, and a new store takes their place. An exception from here ends the opening with
  // nothing moved.
  virtual void OnIncompleteStore(const std::list<CKitString>& missing,
                                 const CKitString& quarantine) = 0;
};
