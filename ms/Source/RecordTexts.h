// The texts of a record, which end within their fields.
#pragma once

#include <cstring>

#include "Records.h"

namespace recordtexts {

// Puts the missing ends in; answers whether any was missing.
template <std::size_t... N>
bool End(char (&... fields)[N]) {
  bool changed = false;
  const auto end = [&](char* field, std::size_t size) {
    if (std::memchr(field, 0, size) != nullptr) return;
    field[size - 1] = '\0';
    changed = true;
  };
  (end(fields, N), ...);
  return changed;
}

}  // namespace recordtexts

// Of a letter all but KeyGroup, which is the encryption's. What LetterPath may hold of a subject
// stands behind its end.
inline bool EndTexts(CMSDocumentData& r) {
  return recordtexts::End(r.Name, r.RegNumber, r.LetterPath, r.ObsoleteSenderNetAddr, r.SenderIDWG,
                          r.SenderWSName, r.SenderWGName, r.SenderUserName, r.SenderIDU);
}
inline bool EndTexts(CMSAttachmentData& r) {
  return recordtexts::End(r.InternalFileName, r.Name, r.AttachmentName);
}
inline bool EndTexts(CMSRecipientData& r) {
  return recordtexts::End(r.TransEnvFileName, r.ObsoleteNetAddr, r.IDWS, r.IDWG, r.IDU, r.WSName,
                          r.WGName, r.UserName, r.Annotation, r.Receiver, r.Reader);
}
inline bool EndTexts(CMSFolderData& r) {
  return recordtexts::End(r.Name, r.Props);
}
