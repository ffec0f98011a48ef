// Reads everything that a store shows.
#pragma once

#include <set>
#include <string>

#include "ms/Source/MessageStore.h"

struct Walk {
  unsigned folders = 0;
  unsigned letters = 0;
  unsigned attachments = 0;
  unsigned recipients = 0;
  unsigned long bytes = 0;
  std::set<unsigned long> ids;  // each object once, whatever loops a damaged store may hold

  explicit Walk(CMSMessageStore& store) { Folder(store.Root()); }

 private:
  void Folder(const CMSFolder& folder) {
    if (!folder || !ids.insert(folder.ID()).second) return;
    ++folders;
    text += folder.Name().str() + folder.Props().str() + folder.FullName().str();
    (void)folder.GetUnreadDocumentCount();
    (void)folder.GetUndeliveredDocumentCount();
    CMSDocument letter;
    auto place = folder.GetFirstDocumentPosition();
    while (folder.GetNextDocument(letter, place)) Letter(letter);
    CMSFolder child;
    place = folder.GetFirstFolderPosition();
    while (folder.GetNextFolder(child, place)) Folder(child);
  }
  void Letter(const CMSDocument& letter) {
    if (!ids.insert(letter.ID()).second) return;
    ++letters;
    text += letter.Name().str() + letter.LetterPath().str() + letter.UniversalRegNumber().str() +
            letter.CreationData().str() + letter.GetLocation().str();
    (void)letter.DistillRegNumber();
    (void)letter.Body();
    (void)letter.GetRawStorageSize();
    CMSAttachment attachment;
    auto place = letter.GetFirstAttachmentPosition();
    while (letter.GetNextAttachment(attachment, place)) {
      ++attachments;
      ids.insert(attachment.ID());
      bytes += static_cast<unsigned long>(attachment.Size());
      text += attachment.InternalFileName().str() + attachment.Name().str();
    }
    CMSRecipient recipient;
    place = letter.GetFirstRecipientPosition();
    while (letter.GetNextRecipient(recipient, place)) {
      ++recipients;
      ids.insert(recipient.ID());
      text += recipient.TransEnvFileName().str() + recipient.Annotation().str();
    }
  }

  std::string text;
};
