// Folders: the tree in which letters are kept.
#pragma once

#include <functional>
#include <list>
#include <string_view>

#include "Object.h"
#include "Relations.h"
#include "kit/KitString.h"

class CMSDocument;

// What a list of letters shows of one. The text lives as long as the call that hands it out.
struct CMSDocumentSummary {
  unsigned long ID = 0;
  std::string_view Subject;
  long Flag = 0;
  unsigned long CreationTime = 0;
};

// Setters and structure changes raise XKitStatus 6 (stale handle), 19 (read-only store), 87
// (argument), and the engine's CMSDBException; a text longer than its field is refused (87) with
// nothing written. A link whose two ends disagree is reported to g_MSBaseInformer: a change is then
// left undone, a walk goes on.
class MS_API CMSFolder : public CMSObject<CMSFolderData> {
 public:
  CMSFolder() = default;

  // At most 200 bytes each. Sends folder-changed.
  CKitString Name() const;
  CMSFolder& Name(const CKitString& name);
  CKitString Props() const;
  CMSFolder& Props(CKitString props);
  // The client's type code; see MSF for the codes of predefined folders.
  long Type() const;
  void Type(long type);

  unsigned long ParentID() const;
  int GetDocumentCount() const;
  int GetFolderCount() const;
  unsigned long GetRawStorageSize() const;
  bool IsRoot() const;

  // The names from the top level down, joined with "/"; empty for the root, whose name is part of
  // no path.
  CKitString FullName() const;
  CKitString AdvFullName() const;

  // Empty for the root.
  CMSFolder Parent() const;
  CMSFolder OpenFolder(unsigned long id) const;
  CMSDocument OpenDocument(unsigned long id) const;
  // The first direct sub-folder of that name, byte for byte; empty when there is none.
  CMSFolder OpenFolder(const CKitString& name) const;

  // Walks in the order of IDs. GetNext... fills the handle and answers true while children remain.
  CMSRelationsDB::locator GetFirstFolderPosition() const;
  bool GetNextFolder(CMSFolder& folder, CMSRelationsDB::locator& place) const;
  CMSRelationsDB::locator GetFirstDocumentPosition() const;
  bool GetNextDocument(CMSDocument& document, CMSRelationsDB::locator& place) const;
  // Append all direct children. For many letters a walk needs less memory.
  void Folders(std::list<CMSFolder>& folders) const;
  void Documents(std::list<CMSDocument>& documents) const;
  bool IsEmpty() const;
  // Calls body with a summary of every letter, in the order of IDs: several times as fast as a walk
  // that asks each letter. No lock is held meanwhile, so body may do as it likes; a letter's change
  // may be seen up to some dozens of letters late.
  void ForEachSummary(const std::function<void(const CMSDocumentSummary&)>& body) const;

  CMSFolder CreateFolder(CKitString name, CKitString props, long type);
  // A new letter. created is date text (kit/KitDateTime.h). Empty handle when the record could not
  // be stored (reported and logged). A subject keeps at most 354 characters; every other text must
  // fit its field.
  CMSDocument CreateDocument(const CKitString& subject, const CKitString& regNumber,
                             const CKitString& created, const CKitString& obsoleteSenderNetAddr,
                             const CKitString& senderIDWG, const CKitString& senderIDU,
                             const CKitString& senderWSName, const CKitString& senderWGName,
                             const CKitString& senderUserName, long flags, long regNum);
  // The letter with its attachments, their files, and its recipients.
  void DeleteDocument(CMSDocument& document);
  // The folder with everything below it.
  void DeleteFolder(CMSFolder& folder);
  // To another folder of the same store; to the one it is in already: nothing happens.
  void MoveDocument(CMSDocument& document, CMSFolder& target);
  // As above; a folder cannot go under itself or below (XKitStatus 87).
  void MoveFolder(CMSFolder& folder, CMSFolder& target);
  void Move(CMSFolder& target);
  // A new folder under target with this one's name, props and type; the contents are not copied.
  CMSFolder Clone(CMSFolder& target) const;

  // Cached in the master file; counted from the letters when the cache holds no valid entry.
  int GetUnreadDocumentCount() const;
  int GetUndeliveredDocumentCount() const;

 private:
  friend class CMSLetterCopy;
  friend class CMSMessageStoreImp;
  friend class CMSDocument;
  struct CExtraData {
    int unread = 0;
    int undelivered = 0;
  };

  class CDeletion;
  class CSummaries;

  explicit CMSFolder(CMSDBObject* cell) : CMSObject(cell) {}

  void IncDocumentCount();
  void DecDocumentCount();
  void IncFolderCount();
  void DecFolderCount();
  void AdjustCount(bool documents, int delta);

  void GetExtraData(CExtraData& data) const;
  bool GetCachedExtraData(CExtraData& data) const;
  void SaveExtraData(const CExtraData& data) const;
  void AdjustExtraCounters(int unreadDelta, int undeliveredDelta) const;
  void OnDocumentStateChanged(const CMSDocument& document, int state, int changed) const;
};
