// The four persistent records. Texts are zero-terminated inside their fields.
#pragma once

#include "Format.h"
#include "RecordTypes.h"

struct CMSDocumentData {
  LittleU32 ParentID;
  LittleU32 BodyID;
  char Name[101];
  char RegNumber[101];
  char LetterPath[260];
  LittleU32 CreationTime;
  char ObsoleteSenderNetAddr[17];
  char SenderIDWG[14];
  char SenderWSName[51];
  char SenderWGName[51];
  char SenderUserName[57];
  unsigned char Key[32];  // enciphered; all zero: no key
  unsigned char KeyIntegrity[4];
  unsigned char KeyInit[8];
  char KeyGroup[13];
  LittleI32 Flag;
  LittleI32 RegNum;
  char SenderIDU[9];
  LittleU16 CryptInfo[5];
  LittleI32 DeletedTime;
  LittleI32 AttachmentCount;
  LittleI32 RecipientCount;
  LittleU32 Size;
};
static_assert(sizeof(CMSDocumentData) == 764 && alignof(CMSDocumentData) == 1);
static_assert(offsetof(CMSDocumentData, LetterPath) == 210);
static_assert(offsetof(CMSDocumentData, CreationTime) == 470);
static_assert(offsetof(CMSDocumentData, SenderUserName) == 607);
static_assert(offsetof(CMSDocumentData, KeyGroup) == 708);
static_assert(offsetof(CMSDocumentData, Flag) == 721);
static_assert(offsetof(CMSDocumentData, SenderIDU) == 729);
static_assert(offsetof(CMSDocumentData, CryptInfo) == 738);
static_assert(offsetof(CMSDocumentData, DeletedTime) == 748);
static_assert(offsetof(CMSDocumentData, Size) == 760);

struct CMSAttachmentData {
  LittleU32 DocID;
  LittleI32 Attributes;
  LittleU32 DateTime;
  LittleI32 Size;
  LittleI32 Flag;
  char InternalFileName[260];  // relative to the store with "\" between components, or absolute
  char Name[201];
  char AttachmentName[260];
};
static_assert(sizeof(CMSAttachmentData) == 741 && alignof(CMSAttachmentData) == 1);
static_assert(offsetof(CMSAttachmentData, InternalFileName) == 20);
static_assert(offsetof(CMSAttachmentData, AttachmentName) == 481);

struct CMSRecipientData {
  LittleU32 DocID;
  LittleI32 Category;
  LittleU32 PackTime;
  char TransEnvFileName[260];
  char ObsoleteNetAddr[17];
  char IDWS[10];
  char IDWG[14];
  char IDU[9];
  char WSName[100];
  char WGName[58];
  char UserName[58];
  char Annotation[256];
  char Receiver[58];
  LittleU32 ReceiveTime;
  char Reader[58];
  LittleU32 ReadTime;
  LittleI32 Flag;
};
static_assert(sizeof(CMSRecipientData) == 922 && alignof(CMSRecipientData) == 1);
static_assert(offsetof(CMSRecipientData, IDWS) == 289);
static_assert(offsetof(CMSRecipientData, Annotation) == 538);
static_assert(offsetof(CMSRecipientData, ReceiveTime) == 852);
static_assert(offsetof(CMSRecipientData, Flag) == 918);

struct CMSFolderData {
  LittleU32 ParentID;
  LittleI32 DocumentCount;
  LittleI32 FolderCount;
  LittleI32 Type;
  char Name[201];
  char Props[201];
};
static_assert(sizeof(CMSFolderData) == 418 && alignof(CMSFolderData) == 1);
static_assert(offsetof(CMSFolderData, Props) == 217);
