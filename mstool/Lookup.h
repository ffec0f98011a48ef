// Folders and letters as a person names them.
#pragma once

#include <ms/MessageStore.h>

#include <string>
#include <vector>

namespace tool {

// "a/b/c" as its components; leading, doubled and final slashes count for nothing.
std::vector<std::string> PathComponents(const std::string& path);

// The folder with that path or, when there is none, number; the root for "/". Failure when there
// is none.
CMSFolder FindFolder(CMSMessageStore& store, const std::string& text);
// The same; an empty handle when there is none.
CMSFolder LookForFolder(CMSMessageStore& store, const std::string& text);
// The letter with that number. Failure when there is none.
CMSDocument FindLetter(CMSMessageStore& store, const std::string& number);
// The same; an empty handle when there is none.
CMSDocument LookForLetter(CMSMessageStore& store, const std::string& number);

// The sub-folder of that name, which is made when it is not there.
CMSFolder SubFolder(CMSFolder& parent, const std::string& name);
// The folder with a predefined role; an empty handle when the store has none.
CMSFolder FolderOfRole(CMSMessageStore& store, long role);
// Whether the folder is the ancestor or lies below it.
bool LiesIn(CMSFolder folder, const CMSFolder& ancestor);
bool IsPredefined(const CMSFolder& folder);

// "/" for the root.
std::string PathOf(const CMSFolder& folder);
// How messages name a letter: letter 12 (INBOX, "Subject").
std::string LabelOf(const CMSDocument& letter);

}  // namespace tool
