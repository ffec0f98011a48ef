// Makes a store, puts a letter into it, and lists the folder.
#include <ms/MessageStore.h>

#include <cstdio>

namespace {

CMSDocument WriteLetter(CMSFolder& folder, const char* subject, const char* sender) {
  return folder.CreateDocument(subject, "", "07.03.2024 09:30", "", "", "", "", "", sender,
                               docflag::Incoming | docflag::Complete, 0);
}

void List(const CMSFolder& folder) {
  CMSDocument letter;
  for (auto place = folder.GetFirstDocumentPosition(); folder.GetNextDocument(letter, place);) {
    std::printf("%lu  %s  %s\n", letter.ID(), letter.SenderUserName().c_str(),
                letter.Name().c_str());
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: first_store DIRECTORY\n");
    return 1;
  }
  try {
    CKeyCarrier keys;
    CGroupID group;
    CMSMessageStore store(arguments[1], keys, nullptr, group, true, false, nullptr, "");
    CMSFolder inbox = store.Root().OpenFolder(CKitString("INBOX"));
    if (!inbox) inbox = store.Root().CreateFolder("INBOX", "", 2);
    WriteLetter(inbox, "Invoice 17", "Accounts Desk");
    WriteLetter(inbox, "Your ticket", "Help Desk");
    List(inbox);
  } catch (const XKitMsg& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
