// Changes stores where it hurts: in fields of headers, slots and entries rather than in lengths of
// the container, where a change would only shift everything behind it.
#include <algorithm>
#include <random>

#include "Container.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using storecheck::kHead, storecheck::kKinds;

class Mutator {
 public:
  Mutator(fuzz::StoreFiles& files, unsigned seed) : m_files(files), m_random(seed) {}

  void Change(std::size_t room) {
    const std::uint32_t choice = Below(8);
    if (choice == 0) return Bytes(room);
    if (choice < 6) return Slot(choice);
    auto& file = m_files[choice == 6 ? Below(m_files.size() - 1) : kKinds.size() + Below(6)];
    if (!file || file->size() <= 16) return;
    // A field of a header; or of a derived file a state, or a number at any place.
    const std::size_t at = 12 + Below(file->size() - 12);
    if (choice == 6) return Put(*file, 4 * Below(12), Value());
    if (Below(2) == 0) return Put(*file, at, Value());
    (*file)[at] = static_cast<char>(Below(2) == 0 ? 0 : Below(256));
  }

 private:
  std::uint32_t Below(std::size_t limit) {
    return static_cast<std::uint32_t>(m_random() % std::max<std::size_t>(limit, 1));
  }
  std::uint32_t Value() {
    using storecheck::kGreatestID, storecheck::kNone;
    const std::uint32_t any = static_cast<std::uint32_t>(m_random());
    const std::uint32_t values[] = {0,           1,          2,          kNone,
                                    kGreatestID, 0x7FFFFFFF, 0x80000000, kGreatestID + 1,
                                    any,         Below(32),  Below(32),  Below(32)};
    return values[Below(std::size(values))];
  }
  static void Put(std::string& bytes, std::size_t at, std::uint32_t value) {
    if (at + 4 <= bytes.size()) storecheck::PutU32(bytes, at, value);
  }

  void Bytes(std::size_t room) {
    auto& file = m_files[Below(m_files.size())];
    if (Below(50) == 0) return file.reset();
    std::string bytes = file.value_or("");
    const std::size_t length = bytes.size();
    bytes.resize(length + std::min<std::size_t>(room, 64));
    bytes.resize(
        LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(bytes.data()), length, bytes.size()));
    file = bytes;
  }
  void Slot(std::uint32_t choice) {
    const std::size_t which = Below(kKinds.size());
    const storecheck::Kind& kind = kKinds[which];
    if (!m_files[which] || m_files[which]->size() < kind.At(1)) return;
    std::string& file = *m_files[which];
    const std::size_t slots = (file.size() - storecheck::kHeader) / kind.Slot();
    const std::size_t at = kind.At(Below(slots));
    if (choice == 4) return Text(file, at, kind.texts[Below(kind.texts.size())]);
    if (choice == 5)
      return (void)file.replace(at, kind.Slot(), file.substr(kind.At(Below(slots)), kind.Slot()));
    // Its links, its key, or one of the first and last numbers of its record.
    const std::size_t fields = (kHead + 20) / 4, field = Below(fields + 10);
    Put(file, field < fields ? at + 4 * field : at + kind.Slot() - 4 * (field - fields + 1),
        Value());
  }
  void Text(std::string& file, std::size_t slot, const storecheck::Field& text) {
    const char* const texts[] = {"..\\victim\\x", "/x",         "f1\\a.txt", "f2\\..\\f1\\a.txt",
                                 "docs3.db",      "C:\\x\\y",   "f1/a.txt",  "f3\\a.txt",
                                 "\\x",           "f1\\\\a.txt"};
    std::string value = texts[Below(std::size(texts))];
    value.resize(text.width, Below(4) == 0 ? 'x' : '\0');
    file.replace(slot + kHead + text.at, text.width, value);
  }

  fuzz::StoreFiles& m_files;
  std::minstd_rand m_random;
};

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
  fuzz::StoreFiles files = fuzz::Unpack(data, size);
  Mutator mutator(files, seed);
  for (unsigned n = 1 + seed % 3; n > 0; --n)
    mutator.Change(maxSize - std::min(maxSize, fuzz::Pack(files).size()));
  const std::string packed = fuzz::Pack(files);
  const std::size_t length = std::min(packed.size(), maxSize);
  std::copy_n(packed.begin(), length, data);
  return length;
}
