// Walks over the children of a letter, for questions that need every one of them.
//
// The caller holds the store's lock, so that no child goes while its fields are being read.
#pragma once

#include "FieldSetters.h"
#include "Recipient.h"

// Calls body with each attachment whose flag ANDed with mask equals value, until it answers true;
// answers whether one did.
template <class Body>
bool AnyAttachment(const CMSDocument& document, long value, long mask, Body body) {
  CMSAttachment attachment;
  auto place = document.GetFirstAttachmentPosition();
  while (document.GetNextAttachmentEx(attachment, place, value, mask)) {
    if (body(attachment)) return true;
  }
  return false;
}

template <class Body>
void EachAttachment(const CMSDocument& document, long value, long mask, Body body) {
  AnyAttachment(document, value, mask, [&](CMSAttachment& attachment) {
    body(attachment);
    return false;
  });
}

template <class Body>
bool AnyRecipient(const CMSDocument& document, Body body) {
  CMSRecipient recipient;
  auto place = document.GetFirstRecipientPosition();
  while (document.GetNextRecipient(recipient, place)) {
    if (body(recipient)) return true;
  }
  return false;
}

template <class Body>
void EachRecipient(const CMSDocument& document, Body body) {
  AnyRecipient(document, [&](CMSRecipient& recipient) {
    body(recipient);
    return false;
  });
}

// Notes in a two-bit summary that some child has the property, or that some lacks it.
inline void Summarise(unsigned int& summary, bool has) {
  summary |= has ? 0x1u : 0x2u;
}
