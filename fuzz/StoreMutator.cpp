// Changes stores where it hurts: in fields of headers, slots and entries rather than in lengths of
// the container, where a change would only shift everything behind it.
#include <algorithm>
#include <random>

#include "Container.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using storecheck::Kind;
using storecheck::kKinds;

class Mutator {
 public:
  Mutator(fuzz::StoreFiles& files, unsigned seed) : m_files(files), m_random(seed) {}

  void Change(std::size_t room) {
    switch (Below(8)) {
      case 0:
        return Bytes(room);
      case 1:
      case 2:
      case 3:
        return Field();
      case 4:
        return Text();
      case 5:
        return CopySlot();
      case 6:
        return Header();
      default:
        return Entry();
    }
  }

 private:
  std::uint32_t Below(std::size_t limit) {
    return static_cast<std::uint32_t>(m_random() % std::max<std::size_t>(limit, 1));
  }
  std::uint32_t Value() {
    const std::uint32_t values[] = {0,
                                    1,
                                    2,
                                    storecheck::kNone,
                                    storecheck::kGreatestID,
                                    storecheck::kGreatestID + 1,
                                    0x7FFFFFFF,
                                    0x80000000,
                                    Below(32),
                                    Below(32),
                                    Below(32),
                                    static_cast<std::uint32_t>(m_random())};
    return values[Below(std::size(values))];
  }
  static void Put(std::string& bytes, std::size_t at, std::uint32_t value) {
    if (at + 4 <= bytes.size()) storecheck::PutU32(bytes, at, value);
  }
  static std::size_t Slots(const Kind& kind, const std::string& bytes) {
    return bytes.size() < storecheck::kHeader ? 0
                                              : (bytes.size() - storecheck::kHeader) / kind.Slot();
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
  // A slot's links, key, or one of the first and last numbers of its record.
  void Field() {
    const std::size_t which = Below(kKinds.size());
    const Kind& kind = kKinds[which];
    auto& file = m_files[which];
    if (!file || Slots(kind, *file) == 0) return;
    const std::size_t at = kind.At(Below(Slots(kind, *file)));
    const std::size_t fields = (storecheck::kHead + 20) / 4;
    const std::size_t field = Below(fields + 10);
    Put(*file, field < fields ? at + 4 * field : at + kind.Slot() - 4 * (field - fields + 1),
        Value());
  }
  void Text() {
    const std::size_t which = Below(kKinds.size());
    const Kind& kind = kKinds[which];
    auto& file = m_files[which];
    if (!file || Slots(kind, *file) == 0) return;
    const auto& text = kind.texts[Below(kind.texts.size())];
    const char* const texts[] = {"..\\victim\\x", "/x",         "f1\\a.txt", "f2\\..\\f1\\a.txt",
                                 "docs3.db",      "C:\\x\\y",   "f1/a.txt",  "f3\\a.txt",
                                 "\\x",           "f1\\\\a.txt"};
    std::string value = texts[Below(std::size(texts))];
    value.resize(text.width, Below(4) == 0 ? 'x' : '\0');
    const std::size_t at = kind.At(Below(Slots(kind, *file))) + storecheck::kHead + text.at;
    file->replace(at, text.width, value);
  }
  void CopySlot() {
    const std::size_t which = Below(kKinds.size());
    const Kind& kind = kKinds[which];
    auto& file = m_files[which];
    if (!file || Slots(kind, *file) == 0) return;
    const std::size_t from = kind.At(Below(Slots(kind, *file)));
    file->replace(kind.At(Below(Slots(kind, *file))), kind.Slot(), file->substr(from, kind.Slot()));
  }
  void Header() {
    auto& file = m_files[Below(m_files.size() - 1)];
    if (file) Put(*file, 4 * Below(12), Value());
  }
  // Of the derived files: a state, or a number at any place behind the header.
  void Entry() {
    auto& file = m_files[kKinds.size() + Below(6)];
    if (!file || file->size() <= 16) return;
    const std::size_t at = 12 + Below(file->size() - 12);
    if (Below(2) == 0)
      (*file)[at] = static_cast<char>(Below(2) == 0 ? 0 : Below(256));
    else
      Put(*file, at, Value());
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
