// The record of a letter: as it is created, and its key.
#pragma once

#include <cstdint>

#include "kit/KitString.h"

struct CMSDocumentData;

// A cleared record with what the creator of a letter says about it. created is date text; the
// encrypted bit of flags is dropped, since attachments decide it. XKitStatus 87 for a text that is
// longer than its field (the subject is cut instead), holds a zero byte, or is no date.
CMSDocumentData MakeDocumentRecord(std::uint32_t folder, const CKitString& subject,
                                   const CKitString& regNumber, const CKitString& created,
                                   const CKitString& obsoleteSenderNetAddr,
                                   const CKitString& senderIDWG, const CKitString& senderIDU,
                                   const CKitString& senderWSName, const CKitString& senderWGName,
                                   const CKitString& senderUserName, long flags, long regNum);

// Clears the enciphered key, and the crypto info value that says that the others are filled.
void DropKey(CMSDocumentData& record);

// Sets the bit that says that some attachment is encrypted.
void NoteEncryption(CMSDocumentData& record);
// Clears it; a letter with nothing encrypted keeps no key.
void ForgetEncryption(CMSDocumentData& record);
