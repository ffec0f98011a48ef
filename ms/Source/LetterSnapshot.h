// A letter with all of its children as they stood at one moment.
#pragma once

#include <string>
#include <vector>

#include "Attachment.h"
#include "Recipient.h"
#include "Records.h"

class CMSDocument;

struct CMSLetterSnapshot {
  struct Attachment {
    CMSAttachment handle;
    CMSAttachmentData record;
    std::string path;  // full and native; "" when the record names no file that could be one
  };
  struct Recipient {
    CMSRecipient handle;
    CMSRecipientData record;
  };

  CMSDocumentData record;
  std::vector<Attachment> attachments;  // in the order of their IDs
  std::vector<Recipient> recipients;
};

// All that the walks over the letter give, also children that name another letter (which the walk
// reports). Texts end within their fields, also those of damaged records; LetterPath and KeyGroup
// are as they are. Takes the lock of the letter's store, for itself alone: whoever then changes
// another store holds just that one's.
CMSLetterSnapshot SnapshotOf(const CMSDocument& document);
// The letter's own record, likewise.
CMSDocumentData HeaderOf(const CMSDocument& document);
