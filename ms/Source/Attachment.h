// Attachments: the files of a letter, its body among them.
#pragma once

#include "Object.h"
#include "kit/KitDateTime.h"
#include "kit/KitString.h"

class CKitFolder;
class CMSDocument;

// Bits of CMSAttachment::Flag.
namespace attachmentflag {
inline constexpr long Encrypted = 0x1;
inline constexpr long Signed = 0x2;
inline constexpr long Body = 0x4;
inline constexpr long Read = 0x40;
inline constexpr long FileRemoved = 0x80;  // the record is kept, the file is not
inline constexpr long NotCounted = 0x200;  // by the unread rule and by AttachmentInfo
inline constexpr long RemoveEntirely = 0x400;
inline constexpr long SignedOtherwise = 0x800;
}  // namespace attachmentflag

// One file, kept as a copy in a directory of its own inside the store. Errors as for CMSDocument.
class MS_API CMSAttachment : public CMSObject<CMSAttachmentData> {
 public:
  CMSAttachment() = default;

  unsigned long DocID() const;
  CMSDocument Document() const;
  CKitString Name() const;  // 200
  void Name(const char* name);
  CKitString AttachmentName() const;  // 259
  void AttachmentName(const char* name);
  // Full native path of the stored file; "" when the stored name leads elsewhere than it says (by
  // "..", or by a link).
  CKitString InternalFileName() const;
  // Attribute bits of the file that was taken in (platform::attribute).
  long Attributes() const;
  void Attributes(long attributes);
  // Last-write time of the file that was taken in.
  CKitDateTime DateTime() const;
  void DateTime(const CKitDateTime& time);
  // The size that the letter counts; CorrectSize adds to it.
  long Size() const;
  void Size(long size);
  void CorrectSize(long change);
  long Flag() const;
  void Flag(long flags);
  // Bytes on disk; 0 when the file is not there.
  unsigned long FileSize() const;
  bool IsSigned() const;

  // Copies the file into the folder under its own name, over one that is there, but not over a
  // link; returns the new path. XKitFile when that fails.
  CKitString Put(const CKitFolder& folder) const;
  // Takes a new file in the stored one's place, with its attributes, time and length. move takes
  // the source away. The letter's totals are not told. XKitFile when that fails; a failed copy
  // leaves the stored file as it was.
  void Get(const char* source, bool move);
  // Copies nothing and answers an empty handle: children are copied with their letter, or by
  // CMSDocument::AcceptAttachments.
  CMSAttachment Clone(CMSDocument& target);

 private:
  friend class CMSDocument;
  friend class CMSMessageStoreImp;
  explicit CMSAttachment(CMSDBObject* cell) : CMSObject(cell) {}
};
