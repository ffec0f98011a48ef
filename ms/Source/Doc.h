// Letters.
#pragma once

#include <list>

#include "Object.h"
#include "Relations.h"
#include "kit/KitString.h"

class CAbstractAsymmKey;
class CGroupID;
class CKeyCarrier;
class CMSAttachment;
class CMSFolder;
class CMSRecipient;
struct CryptAddInfo;

// Bits of CMSDocument::Flag; all others are the client's.
namespace docflag {
inline constexpr long Encrypted = 0x1;  // kept by the store: some attachment is encrypted
inline constexpr long Complete =
    0x8;  // set once a letter is whole; a repair removes letters without it
inline constexpr long Incoming = 0x10;  // clear: outgoing
inline constexpr long Deleted = 0x80;   // in the trash
inline constexpr long Audit = 0x1000;
inline constexpr long MarkedUnread = 0x10000;  // by the user; counts for incoming letters only
}  // namespace docflag

// A letter: header fields, one body, attachments, recipients.
//
// Getters copy one field out. Setters store it, flush the record and send document-changed; a text
// longer than its field, or a text that is no date where one is wanted, is XKitStatus 87 with
// nothing written. Stale handles give XKitStatus 6, read-only stores 19, damage CMSDBException.
class MS_API CMSDocument : public CMSObject<CMSDocumentData> {
 public:
  // How a letter's counted attachments (bit 0x200 clear) stand: per property 0x1 = some have it,
  // 0x2 = some lack it.
  struct CMSDocAttachmentInfo {
    unsigned int encryption = 0;
    unsigned int signature = 0;
    unsigned int read = 0;
  };
  // The same over the recipients, for their flag bits 0x4, 0x8, 0x20, 0x40 and 0x200.
  struct CMSDocRcptInfo {
    unsigned int bit4 = 0;
    unsigned int bit8 = 0;
    unsigned int bit20 = 0;
    unsigned int bit40 = 0;
    unsigned int bit200 = 0;
  };

  // A copy failed because the store could not hold one of its objects (reported and logged), or
  // because another thread has deleted a part of it while it was being made.
  class MS_API XCloneError {};

  CMSDocument() = default;

  // At most 354 characters, less the length of LetterPath; what is longer is cut.
  CKitString Name() const;
  void Name(const char* subject);
  CKitString RegNumber() const;  // 100
  void RegNumber(const char* number);
  // 259; a path of 255 or more leaves no room for the part of a subject beyond its 100th character.
  CKitString LetterPath() const;
  void LetterPath(const char* path);
  unsigned long CreationTime() const;
  CKitString CreationData() const;
  void CreationData(const char* dateText);
  CKitString ObsoleteSenderNetAddr() const;  // 16
  void ObsoleteSenderNetAddr(const char* address);
  CKitString SenderIDWG() const;  // 13
  void SenderIDWG(const char* id);
  CKitString SenderIDU() const;  // 8
  void SenderIDU(const char* id);
  CKitString SenderWSName() const;  // 50
  void SenderWSName(const char* name);
  CKitString SenderWGName() const;  // 50
  void SenderWGName(const char* name);
  CKitString SenderUserName() const;  // 56
  void SenderUserName(const char* name);
  long RegNum() const;
  void RegNum(long number);
  long DeletedTime() const;
  void DeletedTime(long time);
  long Flag() const;
  // Keeps bit 0x1 as it is; tells the folder when the unread or undelivered state follows from the
  // change. Sends document-added too.
  void Flag(long flags);
  unsigned long Size() const;
  unsigned long ParentID() const;
  CMSFolder Parent() const;
  unsigned long BodyID() const;
  // The body, or an empty handle.
  CMSAttachment Body() const;

  // RegNumber for an incoming letter; for an outgoing one the text with the counter behind it.
  CKitString UniversalRegNumber() const;
  // RegNum for an outgoing letter; for an incoming one the last run of digits in RegNumber, 0
  // without any.
  long DistillRegNumber() const;
  bool IsIncoming() const;
  bool IsOutgoing() const;
  // Incoming, and a counted attachment is not read.
  bool IsUnread() const;
  bool IsMarkedAsUnread() const;
  // Outgoing, and a recipient is undelivered.
  bool IsUndelivered() const;
  void SetActionFlag(int bits);
  // Whether all the bits are set.
  bool IsAction(int bits) const;
  // Bytes of the attachment files on disk, and with the records.
  unsigned long FileSize() const;
  unsigned long GetRawStorageSize() const;
  // Store name, if any, and folder path, joined with "/".
  CKitString GetLocation() const;
  // By the store's comparison function if one is set, else by ID; operator> always by ID.
  bool operator<(const CMSDocument& other) const;
  bool operator>(const CMSDocument& other) const;
  // The recipient that stands for the local user (flag bit 0x1); logged and empty when there is
  // none.
  CMSRecipient GetCurrentRecipient() const;
  // Sets the category of every recipient with both identifiers.
  void SetCategory(const char* groupID, const char* userID, long category);

  CMSRelationsDB::locator GetFirstAttachmentPosition() const;
  bool GetNextAttachment(CMSAttachment& attachment, CMSRelationsDB::locator& place) const;
  // Only attachments whose flag ANDed with mask equals value.
  bool GetNextAttachmentEx(CMSAttachment& attachment, CMSRelationsDB::locator& place, long value,
                           long mask) const;
  CMSRelationsDB::locator GetFirstRecipientPosition() const;
  bool GetNextRecipient(CMSRecipient& recipient, CMSRelationsDB::locator& place) const;
  // Counted by a walk; a record that says otherwise is reported.
  int GetAttachmentCount() const;
  int GetAttachmentCountEx(long value, long mask) const;
  int GetRecipientCount() const;
  // Append all children in the order of their IDs.
  void Attachments(std::list<CMSAttachment>& attachments) const;
  void Recipients(std::list<CMSRecipient>& recipients) const;

  // Copies the file at source into a directory of its own in the store. flag: see Attachment.h;
  // with bit 0x80 the attachment is recorded without a file, with bit 0x4 it becomes the body. move
  // removes the source afterwards (overwritten with zeros first when encrypted or a body). XKitFile
  // when the copy fails: nothing is recorded then; also when only the source cannot be removed: the
  // attachment is recorded then. XKitStatus 87 for a file of 2 GiB or more.
  CMSAttachment AddAttachment(const CKitString& source, bool move, const CKitString& name,
                              const CKitString& sourceName, long flag);
  // A new body, empty.
  CMSAttachment CreateEmptyLetterText();
  // With its file.
  void DeleteAttachment(CMSAttachment& attachment);
  // Removes the files (of attachments with bit 0x400 the records too) and sets bit 0x80 here and on
  // what stays.
  void RemoveAttachments();
  void AttachmentInfo(CMSDocAttachmentInfo& info) const;

  // Dates are date text; the envelope name enters the packet table.
  CMSRecipient AddRecipient(const CKitString& packDate, const CKitString& transEnvFileName,
                            const CKitString& obsoleteNetAddr, const CKitString& idWS,
                            const CKitString& idWG, const CKitString& idU, const CKitString& wsName,
                            const CKitString& wgName, const CKitString& userName,
                            const CKitString& annotation, const CKitString& receiver,
                            const CKitString& receiveDate, const CKitString& reader,
                            const CKitString& readDate, long flags, long category);
  void DeleteRecipient(CMSRecipient& recipient);
  void RcptInfo(CMSDocRcptInfo& info) const;

  // To another folder of the same store.
  void Move(CMSFolder& target);

  // ---- Copies, into a folder of any open store. The source is not changed; its children are taken
  // as they stand at one moment.

  // Header fields and crypto info alone, without bit Complete: no key, no children, no letter path.
  CMSDocument BlankCopy(CMSFolder& target) const;
  // The whole letter: fields, key as it is stored, attachments with their files, recipients.
  // missingFiles: an attachment whose file is gone is recorded without one (bit 0x80); otherwise it
  // is XKitStatus 196. Copies all or nothing: whatever fails (XCloneError, XKitFile, XKitStatus),
  // no record, link, packet name or file of the copy stays; only a medium that fails may leave some
  // for a repair to remove, or the whole letter. Until the copy is whole it lacks bits Complete and
  // Incoming, so a repair removes what a crash leaves of it, and listeners are told once more at
  // the end.
  CMSDocument Clone(CMSFolder& target, bool missingFiles) const;
  // Adds copies of another letter's recipients, but for those in the list (may be null). keepState:
  // with flag, pack, receive and read data and envelope name; otherwise those are left empty.
  void AcceptRecipients(const CMSDocument& source, const std::list<CMSRecipient>* except,
                        bool keepState);
  // Adds copies of another letter's attachments, but for those in the list (may be null). XKitFile
  // for a missing file; what was added before stays.
  void AcceptAttachments(const CMSDocument& source, const std::list<CMSAttachment>* except);

  // ---- The letter's key: 32 bytes with which its attachments are enciphered, stored enciphered
  // for a key carrier (kit/MemoryEncryption.h). A letter that loses its last encrypted attachment
  // loses its key.

  // Deciphers the key into the 32 bytes at key and answers key; null, with nothing written there,
  // when the letter has none. XKitStatus 32 when it cannot be recovered.
  void* Key(const CKeyCarrier* carrier, CAbstractAsymmKey* asymm, void* key) const;
  // Enciphers the 32 bytes at key for the carrier and the group (at most 12 characters) and stores
  // them; null clears the key. XKitStatus 73 when the encryption answers 73, 32 for every other
  // failure: the key area is then unusable, the crypto info as it was.
  void Key(CKeyCarrier* carrier, CAbstractAsymmKey* asymm, const void* key, CGroupID& group);
  void ClearKey();
  // The stored key as it is, to carry it to another letter: 32 bytes enciphered key, 4 bytes
  // integrity value, 8 bytes initialisation value, 13 bytes group.
  void GetRawKeys(void* block, void* integrity, void* init, void* group) const;
  void SetRawKeys(const void* block, const void* integrity, const void* init, const void* group);
  // What the key was enciphered with. A key can only be recovered with the info that it was stored
  // with. The group is the stored one; setting leaves it alone.
  void GetCryptInfoEx(CryptAddInfo& info) const;
  void SetCryptInfoEx(const CryptAddInfo& info);

 private:
  friend class CMSAttachment;
  friend class CMSFolder;
  friend class CMSLetterCopy;
  friend class CMSMessageStoreImp;
  friend class CMSRecipient;

  explicit CMSDocument(CMSDBObject* cell) : CMSObject(cell) {}

  // Called by the children, which have changed already.
  void IncRecipientCount();
  void DecRecipientCount();
  void OnAttachmentSizeChanged(CMSAttachment& attachment, long change);
  void OnAttachmentFlagChanged(CMSAttachment& attachment, long oldFlag);
  void OnAttachmentTimeChanged(CMSAttachment& attachment);
  void OnRecipientFlagChanged(CMSRecipient& recipient, long oldFlag);

  void CountIn(const CMSAttachment& attachment, const struct CMSAttachmentData& data);
  void StoreBody(const CMSAttachment& attachment);
  bool HasEncrypted(const CMSAttachment& except) const;
  void NotifyReadBy(const CMSAttachment& attachment, long oldFlag) const;
  void NotifyParent(int state, int kind) const;
  void NotifyTurned(bool wasUnread, bool wasUndelivered) const;
  void NotifyMarked(long oldFlags) const;
  void NotifyRead() const;
  void NotifyUndelivered(bool undelivered) const;
  class CPlacedFile;
  // Records the file, which stays from then on; an empty handle when the record was refused.
  CMSAttachment LinkAttachment(struct CMSAttachmentData& data, CPlacedFile& place);
  CMSAttachment LinkWithoutFile(struct CMSAttachmentData& data, const std::string& name);
  CMSAttachment LinkRecord(struct CMSAttachmentData& data, std::uint32_t id, CPlacedFile* place);
  // All but the file, whose stored name it answers; "" when the attachment is none of this letter.
  std::string UnlinkAttachment(CMSAttachment& attachment);
};
