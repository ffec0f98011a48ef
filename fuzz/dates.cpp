// Date text. Input: four bytes of a point in time, then a text.
#include "Scratch.h"
#include "kit/KitDateTime.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::EmptyScratch();  // for the time zone: in most others an hour comes twice a year
  fuzz::Input in(data, size);
  const CKitDateTime time(in.Word());
  // The first minute's start would read as "not set".
  if (const std::string text = time.Text(); time.Seconds() >= 60) {
    const CKitDateTime minute = CKitDateTime::Parse(text);
    fuzz::Expect(minute.Seconds() == time.Seconds() - time.Seconds() % 60, "time of " + text);
  }
  const std::string text = in.Rest();
  fuzz::Try([&] {
    const CKitDateTime read = CKitDateTime::Parse(text);
    const std::string again = read.Text();
    fuzz::Expect(CKitDateTime::Parse(again) == read, "'" + text + "' becomes '" + again + "'");
  });
  return 0;
}
