// An open store. Start here.
//
//   CMSMessageStore store("mail", carrier, nullptr, group, true, false, nullptr, "");
//   CMSFolder inbox = store.Root().CreateFolder("INBOX", "", 2);
//   CMSDocument letter = inbox.CreateDocument("Subject", ...);
//
// Handles are values. A store is open as long as a handle to it, or to any of its objects, exists;
// there is no close call. Any number of threads may use one store; one process at a time may have
// it open for writing.
#pragma once

#include "Attachment.h"
#include "Batch.h"
#include "Doc.h"
#include "Errors.h"
#include "Folder.h"
#include "Listeners.h"
#include "Recipient.h"
#include "kit/Export.h"
#include "kit/Identifiers.h"
#include "kit/KeyCarrier.h"
#include "kit/KitString.h"

class CMSMessageStoreImp;

class MS_API CMSMessageStore {
 public:
  // An empty handle. Calls other than ID, IsValid, copying and comparison need an open store.
  CMSMessageStore() = default;

  // Opens the store in the directory. When none of its files is there, a new store with a root
  // folder is made (and the directory, with its parents); when some are missing, the rest is moved
  // into a quarantine directory and a new store is made, or, without an informer, the opening
  // fails.
  //   keys, key, group   for the conversion of an earlier format only
  //   isDefault, name    kept and given back
  //   readOnly           nothing but the master file's state and counters is written
  //   informer           may be null; used during the call only
  // XKitStatus 4 (a file is missing), 50 (an earlier format), CMSDBException 5, 6, 17, 22, 74,
  // XKitFile.
  CMSMessageStore(const char* directory, CKeyCarrier& keys, CAbstractAsymmKey* key, CGroupID& group,
                  bool isDefault, bool readOnly, CMSClientInformer* informer, CKitString name,
                  CMSDurabilityLevel level = CMSDurabilityLevel::Operation);
  explicit CMSMessageStore(CMSMessageStoreImp& store);
  CMSMessageStore(const CMSMessageStore& other);
  CMSMessageStore& operator=(const CMSMessageStore& other);
  // The last reference closes the store: counters are saved, files synced and closed, the state set
  // to "Closed". A failure is logged and leaves the state "Active".
  ~CMSMessageStore();

  // A number that is unique in the process and rises with each opening; 0 for an empty handle.
  long ID() const;
  bool IsValid() const { return m_store != nullptr; }
  // Whether this handle is the only reference to the store.
  bool IsSingleOwned() const;
  bool operator==(const CMSMessageStore& other) const { return ID() == other.ID(); }
  bool operator!=(const CMSMessageStore& other) const { return ID() != other.ID(); }
  bool operator<(const CMSMessageStore& other) const { return ID() < other.ID(); }

  // The object with that ID, or an empty handle.
  CMSDocument GetDocument(unsigned long id);
  CMSFolder GetFolder(unsigned long id);
  CMSAttachment GetAttachment(unsigned long id);
  CMSFolder Root() const;
  // The first recipient, in the order of IDs, that bears the packet name (its first 12 characters
  // count) and whose letter is incoming (true) or outgoing (false); an empty handle when there is
  // none.
  CMSRecipient FindRecipient(const char* packet, bool incoming);

  // The order of letters for CMSDocument::operator<; null is the order of IDs.
  void SetCmpDocs(bool (*compare)(const CMSDocument&, const CMSDocument&));
  unsigned int GetDocumentCount() const;
  // Bytes of all attachments, as their records say.
  long GetFullSize() const;
  // The full path of the store's directory; valid while the store is open.
  const char* GetMainFolder() const;
  // Opened for reading only, or taking no changes any more since the medium failed.
  bool IsReadOnly() const;
  bool IsDefault() const;
  CKitString GetMSName();

  // Free client data in the master file; at most 1,023 characters come back, "" when there is none.
  // Writing works on read-only stores too. A null value leaves the key without a value. False when
  // the file cannot be written or when section, key or value hold a line break (or section or key
  // are null or empty).
  CKitString GetCustomData(const char* section, const char* key);
  bool WriteCustomData(const char* section, const char* key, const char* value);

  // Whether the directory holds a store of any generation, openable or not.
  static bool IsMSDirectory(const char* directory);

  // The listener must live until it is removed or the store is closed. One added twice is called
  // twice; RemoveListener takes one registration back.
  void AddListener(CMSDocumentListener* listener);
  void AddListener(CMSFolderListener* listener);
  void RemoveListener(CMSDocumentListener* listener);
  void RemoveListener(CMSFolderListener* listener);

  // Handed to the conversion of earlier formats.
  static int s_bCheckDataConverting;

 private:
  friend class CMSBatch;
  CMSMessageStoreImp* m_store = nullptr;
};
