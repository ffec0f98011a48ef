// How folders take away what they contain.
#pragma once

#include <string>
#include <vector>

#include "Folder.h"

// One deletion under way. A letter is marked incomplete first, so that a repair takes away what a
// deletion that was cut off has left of it. The files are only noted, and go when the removal of
// the records is safe: no record is left without its file.
class CMSFolder::CDeletion {
 public:
  explicit CDeletion(CMSMessageStoreImp& store) : m_store(store) {}

  // Runs body, which calls the two below, as one change; then removes the files.
  template <class Body>
  void Run(Body body);

  // Both within a change of the store. An object that is no child of parent is reported and stays.
  void Document(CMSFolder& parent, const CMSDocument& document);
  // The folder with everything below it. Needs no deep stack, and ends whatever the links say.
  void Tree(CMSFolder& parent, const CMSFolder& folder);

 private:
  void Attachments(const CMSDocument& document);
  void Recipients(const CMSDocument& document);
  void Documents(CMSFolder& folder);
  void EmptyFolder(CMSFolder& parent, const CMSFolder& folder);

  CMSMessageStoreImp& m_store;
  std::vector<std::string> m_files;  // to be removed after the change, as the records named them
};
