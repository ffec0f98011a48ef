// What of a letter must be equal in a copy.
#pragma once

#include <ms/MessageStore.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tool {

// Everything but numbers and stored paths: header, key, attachments in their order with the
// checksum of their files, recipients in theirs. Texts are in quotes, bytes in hexadecimal digits.
using FieldReader = std::function<void(const std::string& name, const std::string& value)>;
// The files that should be there and are not, counted from 1, by the attachment's name.
using MissingFileReader = std::function<void(std::size_t attachment, const std::string& name)>;

// Reads the files once. Ended by an interrupt (Failure).
void ReadLetter(const CMSDocument& letter, const FieldReader& field,
                const MissingFileReader& missing);

// Stands for the value of a file that is not there.
extern const char* const kNoFile;

using LetterDigest = std::array<unsigned char, 32>;
// The checksum of all of it: equal for letters that are equal.
LetterDigest DigestOf(const CMSDocument& letter, const MissingFileReader& missing);

struct LetterField {
  std::string name;
  std::string value;
};
std::vector<LetterField> FieldsOf(const CMSDocument& letter);

}  // namespace tool
