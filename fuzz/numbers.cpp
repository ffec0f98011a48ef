// Registration numbers. Input: a byte of which bit 0 is "incoming", four bytes of the counter, then
// the whole field of the text, which need not have an end.
#include <cstring>

#include "Scratch.h"
#include "ms/Source/ObjectAccess.h"
#include "support/OpenStore.h"

namespace {

CMSDocument NewLetter() {
  static CMSMessageStore store = OpenStore(fuzz::EmptyScratch() + "/store");
  return store.Root().CreateDocument("one", "", "", "", "", "", "", "", "", docflag::Complete, 0);
}

// The last run of digits, at most the last 14 of it.
long LastNumber(const std::string& text) {
  const std::size_t last = text.find_last_of("0123456789");
  if (last == text.npos) return 0;
  const std::size_t before = text.substr(0, last + 1).find_last_not_of("0123456789");
  const std::size_t first = before == text.npos ? 0 : before + 1;
  const std::string run = text.substr(first, last + 1 - first);
  return static_cast<long>(std::stoll(run.size() > 14 ? run.substr(run.size() - 14) : run));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static CMSDocument letter = NewLetter();
  fuzz::Input in(data, size);
  const bool isIncoming = (in.Byte() & 1) != 0;
  const std::uint32_t counter = in.Word();
  const std::string field = in.Text(sizeof CMSDocumentData::RegNumber);
  CMSFieldAccess::Write(letter, [&](CMSDocumentData& record) {
    record.Flag = isIncoming ? docflag::Incoming : 0;
    record.RegNum = static_cast<std::int32_t>(counter);
    std::memset(record.RegNumber, 0, sizeof record.RegNumber);
    std::memcpy(record.RegNumber, field.data(), field.size());
  });
  const std::string text = field.c_str();
  const std::string number = std::to_string(counter);
  fuzz::Expect(letter.RegNumber() == text, "text");
  fuzz::Expect(letter.UniversalRegNumber() == (isIncoming ? text : text + number), "whole number");
  const long wanted = isIncoming ? LastNumber(text) : static_cast<std::int32_t>(counter);
  fuzz::Expect(letter.DistillRegNumber() == wanted, "number in '" + text + "'");
  return 0;
}
