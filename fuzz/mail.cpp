// Letters that are imported: the input as one letter, and cut up as a file of letters.
#include <gmime/gmime.h>

#include <sstream>

#include "Scratch.h"
#include "mstool/Mail.h"
#include "mstool/Mbox.h"

namespace {

void Read(const std::string& letter) {
  try {
    (void)tool::ReadMail(letter);
  } catch (const tool::NotALetter&) {
    // Said so: that is all it has to do.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool isReady = (g_mime_init(), true);
  fuzz::Expect(isReady, "mail library");
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Read(bytes);
  std::istringstream in(bytes);
  tool::MboxReader reader(in);
  std::string letter;
  std::uint64_t offset = 0, end = 0;
  while (reader.Next(letter, offset)) {
    fuzz::Expect(offset >= end && offset + letter.size() <= size, "place of a letter");
    end = offset + letter.size();
    Read(letter);
  }
  return 0;
}
