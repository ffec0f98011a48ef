// The four persistent records, by name only: handles are told apart by them.
#pragma once

#include "kit/Export.h"

// Exported, since the exported handle templates are made of them.
struct MS_API CMSAttachmentData;
struct MS_API CMSDocumentData;
struct MS_API CMSFolderData;
struct MS_API CMSRecipientData;
