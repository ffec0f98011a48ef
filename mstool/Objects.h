// Objects of a store as JSON: members are named as the accessors that give their values.
#pragma once

#include <ms/MessageStore.h>

#include "Output.h"

namespace tool {

Json FolderJson(const CMSFolder& folder);
Json DocumentJson(const CMSDocument& document);
Json AttachmentJson(const CMSAttachment& attachment);
Json RecipientJson(const CMSRecipient& recipient);

// Writes DocumentJson with "Attachments" and "Recipients" into the open array or object.
void WriteDocument(JsonStream& out, const CMSDocument& document);

}  // namespace tool
