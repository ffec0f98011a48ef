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

// Children that name another letter are none of its own: the walk reports them, and they are left
// out. Takes the lock of the letter's store, for itself alone: whoever then changes another store
// holds just that one's.
CMSLetterSnapshot SnapshotOf(const CMSDocument& document);
