// One step in the life of the store DIRECTORY/store: make, change, damage, repair, check. Each does
// the same, writes the same bytes and prints the same text on every system; tests/interchange/run
// has two systems take turns and compares.
#include <iostream>
#include <sstream>

#include "Life.h"
#include "tests/support/LogSink.h"
#include "tests/support/StoreChecker.h"
#include "tests/support/Walk.h"

#include "ms/Source/MSFixer.h"
#include "platform/Process.h"
#include "platform/Program.h"
#include "platform/Time.h"

namespace {

using interchange::Client;
using interchange::Sources;
using storecheck::PutU32;

std::int64_t g_now = 0;
unsigned g_random = 0;

// Each step has its own hour and its own names.
void FixWhatVaries(unsigned step) {
  g_now = 1'710'000'000 + 3'600 * std::int64_t{step};
  g_random = step;
  platform::SetClock([] { return platform::Instant{g_now, 250}; });
  platform::SetRandom([](void* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
      g_random = g_random * 1'103'515'245 + 12'345;
      static_cast<unsigned char*>(data)[i] = static_cast<unsigned char>(g_random >> 16 & 0xFF);
    }
  });
}

struct Place {
  const std::string directory;
  const std::string store = CKitFile::Join(directory, "store");
  const std::string backup = CKitFile::Join(directory, "backup");

  // Paths from the directory on, with "/".
  std::string Plain(std::string text) const {
    std::string whole = directory;
    for (std::string* one : {&text, &whole}) std::replace(one->begin(), one->end(), '\\', '/');
    for (auto at = text.find(whole); at != text.npos; at = text.find(whole))
      text.erase(at, whole.size());
    return text;
  }
};

void Make(const Place& place, const Sources& sources) {
  {
    Client client(place.store, sources, CMSDurabilityLevel::Process);
    client.MakePredefinedFolders();
    client.Fill(1);
    client.GrowAndShrink();
  }
  Client(place.store, sources, CMSDurabilityLevel::Operation).Fill(2);
  Client client(place.store, sources, CMSDurabilityLevel::Immediate);
  client.Fill(3);
  client.BackUp(place.backup);
}

void Change(const Place& place, const Sources& sources) {
  Client client(place.store, sources, CMSDurabilityLevel::Operation);
  client.EditAll();
  client.BackUp(place.backup);
}

template <class Break>
void Damage(const std::string& file, Break breakBytes) {
  std::string bytes = storecheck::ReadWhole(file);
  breakBytes(bytes);
  WriteBytes(file, bytes);
}

// Records are damaged, and the damage is met by a client; then files that are derived go.
void DamageStore(const Place& place) {
  using namespace storecheck;
  for (const Kind& kind : kKinds) {
    Damage(CKitFile::Join(place.store, kind.db), [&](std::string& bytes) {
      PutU32(bytes, kind.At(5) + kHead, 0x77777777);              // no such parent
      PutU32(bytes, kind.At(6) + 8, U32(bytes, kind.At(7) + 8));  // an ID twice
      PutU32(bytes, 32, 3);                                       // operations cut off
      const Field& text = kind.texts[0];
      bytes.replace(kind.At(8) + kHead + text.at, text.width, text.width, 'x');
    });
  }
  try {
    CMSMessageStore store = OpenStore(place.store);
    const Walk walk(store);
    std::cout << walk.folders << ' ' << walk.letters << ' ' << walk.bytes << '\n';
  } catch (const std::exception& error) {
    std::cout << place.Plain(error.what()) << '\n';
  }
  Damage(CKitFile::Join(place.store, "docs3.idx"), [](std::string& bytes) { bytes.resize(20); });
  CKitFile::RemoveEx(CKitFile::Join(place.store, "packets3.db"));
}

// What the two ways of judging a store say; 1 when one of them finds it bad (or cannot mend it).
int Judge(const Place& place, bool repairs) {
  std::ostringstream log;
  MSF::CFixer fixer;
  fixer.SetLog(&log);
  fixer.SetDeep(true);
  bool good = repairs ? fixer.RepairMS(place.store.c_str()) : fixer.ScanMS(place.store.c_str());
  std::cout << (good ? "good" : "not good") << ' ' << fixer.Error() << '\n';
  std::cout << place.Plain(log.str());
  for (const auto* findings : {&fixer.Findings(), &fixer.FileFindings()})
    for (const auto& one : *findings)
      std::cout << place.Plain(one.Object + ": " + one.What + ": " + one.Stored + " -> " +
                               one.Found)
                << '\n';
  for (const std::string& directory : {place.store, place.backup})
    for (const std::string& finding : CheckStore(directory)) {
      good = false;
      std::cout << "checker: " << place.Plain(directory) << ": " << finding << '\n';
    }
  return good ? 0 : 1;
}

int Run(const std::vector<std::string>& words) {
  const std::string steps[] = {"make", "change", "damage", "repair", "check"};
  const auto step =
      words.size() == 3 ? std::find(std::begin(steps), std::end(steps), words[1]) : std::end(steps);
  if (step == std::end(steps)) {
    std::cerr << "usage: interchange make|change|damage|repair|check DIRECTORY\n";
    return 1;
  }
  const Place place{CKitFile::FullName(words[2])};
  FixWhatVaries(static_cast<unsigned>(step - steps));
  LogSink events;
  const Sources sources(CKitFile::Join(place.directory, "sources"));
  if (*step == "make") Make(place, sources);
  if (*step == "change") Change(place, sources);
  if (*step == "damage") DamageStore(place);
  const int code = *step == "repair" || *step == "check" ? Judge(place, *step == "repair") : 0;
  std::cout << place.Plain(events.events);
  return code;
}

}  // namespace

int main(int count, char** words) {
  platform::PrepareOutput();
  try {
    return Run(platform::ProgramWords(count, words));
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
