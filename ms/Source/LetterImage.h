// What a letter and its copy have in common, for comparing them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class CMSDocument;

// All that Clone carries over, as one text: two letters of equal texts have equal fields, keys,
// attachments and recipients. IDs, places and what follows from the children are not in it. A
// missing file counts as one that the record says is removed, as it does for Clone.
struct CMSLetterImage {
  struct File {
    std::string path;
    std::uint64_t length = 0;
  };

  std::string fields;
  std::vector<File> files;  // those that are there, in the order of the attachments
  // Of the files' times and lengths: the same only if no file was written since. 0 when a file is
  // so new that its time might stay the same with the next writing: never equal to another.
  std::uint64_t stamp = 0;
};

// Raises what reading the letter raises.
CMSLetterImage ImageOf(const CMSDocument& document);
// Whether the files hold the same bytes, one by one. Reads them.
bool HoldSameBytes(const CMSLetterImage& one, const CMSLetterImage& other);

// What a letter is likely to keep when it changes, at least in part.
struct CMSLetterTraits {
  std::uint32_t creationTime = 0;
  std::string subject;
  std::string sender;
};
CMSLetterTraits TraitsOf(const CMSDocument& document);
// Whether they may be two states of one letter.
bool MayBeOneLetter(const CMSLetterTraits& one, const CMSLetterTraits& other);
