// Keys of letters, the software carrier and its file.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/OpenStore.h"

#include "kit/SoftwareKeyCarrier.h"
#include "platform/Profile.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// Block, integrity value, initialisation value and group, one behind the other.
constexpr std::size_t kBlockSize = 32, kInitAt = 36, kGroupAt = 44, kRawSize = 57;
const std::string kBlank(kBlockSize, '\0');

std::string KeyOf(int seed) {
  std::string key(kDocumentKeySize, static_cast<char>(seed));
  for (std::size_t i = 1; i < key.size(); ++i) key[i] = static_cast<char>(key[i - 1] + 7);
  return key;
}
std::string RawOf(const CMSDocument& letter) {
  std::string raw(kRawSize, '?');
  letter.GetRawKeys(&raw[0], &raw[kBlockSize], &raw[kInitAt], &raw[kGroupAt]);
  return raw;
}
std::string BlockOf(const CMSDocument& letter) {
  return RawOf(letter).substr(0, kBlockSize);
}
void SetRaw(CMSDocument& letter, const std::string& raw) {
  letter.SetRawKeys(&raw[0], &raw[kBlockSize], &raw[kInitAt], &raw[kGroupAt]);
}
std::string Flipped(std::string bytes, std::size_t bit) {
  bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
  return bytes;
}
CryptAddInfo InfoOf(const CMSDocument& letter) {
  CryptAddInfo info;
  letter.GetCryptInfoEx(info);
  return info;
}

struct Carrier {
  explicit Carrier(const std::string& path) : file((CSoftwareKeyCarrier::Create(path), path)) {}
  const std::string file;
  CSoftwareKeyCarrier carrier{file};
};

struct TwoValues final : CKeyCarrier {
  CSafeServiceConfig SafeServiceConfig() const override { return config; }
  CSafeServiceConfig config{3, 5};
};

// In place while it lives. Keeps what it is handed, writes what it has, answers as it is told.
class FakeEncryption : public CMemoryEncryption, public CRandomSource {
 public:
  FakeEncryption() { SetMemoryEncryption(this); }
  ~FakeEncryption() override { SetMemoryEncryption(nullptr); }
  CRandomSource& GetFixedKey() override { return *this; }
  void Fill(void* data, std::size_t size) override { std::memset(data, 0xBB, size); }
  void RandomFill(CRandomSource& source, void* data, std::size_t size) override {
    EXPECT_EQ(&source, this);
    source.Fill(data, size);
  }
  int EncryptMemoryEx(CKeyCarrier* carrier, CAbstractAsymmKey* asymm, const CGroupID& group,
                      const void* plain, std::size_t size, const void* init, void* integrity,
                      const CryptAddInfo& info, void* cipher) override {
    told = Line(carrier, asymm, group, Text(plain, size) + Text(init, kKeyInitSize), info);
    block.copy(static_cast<char*>(cipher), size);
    proof.copy(static_cast<char*>(integrity), kKeyIntegritySize);
    return answer();
  }
  int DecryptMemoryEx(const CKeyCarrier* carrier, CAbstractAsymmKey* asymm, const CGroupID& group,
                      const void* cipher, std::size_t size, const void* init, const void* integrity,
                      const CryptAddInfo& info, void* plain) override {
    told = Line(carrier, asymm, group,
                Text(cipher, size) + Text(integrity, kKeyIntegritySize) + Text(init, kKeyInitSize),
                info);
    const int code = answer();
    if (code == 0) key.copy(static_cast<char*>(plain), size);
    return code;
  }
  static std::string Line(const void* carrier, const void* asymm, const CGroupID& group,
                          const std::string& bytes, const CryptAddInfo& i) {
    return KitFormat("%p %p %s, %d %d %d %d %d %s: ", carrier, asymm, group.Text().c_str(),
                     i.Value1, i.Value2, i.Value3, i.Value4, i.Value5, i.Group.Text().c_str()) +
           bytes;
  }
  static std::string Text(const void* bytes, std::size_t size) {
    return {static_cast<const char*>(bytes), size};
  }
  std::function<int()> answer = [] { return 0; };
  std::string block = std::string(kBlockSize, '\xAA'), proof = "\x96\x97\x98\x99", key = KeyOf(77);
  std::string told;
};

class Keys : public testing::Test {
 protected:
  Keys() { Open(); }
  void Open() {
    Close();
    store = OpenStore(dir / "store");
    letter = store.GetDocument(id);
    if (!letter) letter = store.Root().CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
    id = letter.ID();
  }
  void Close() { letter = {}, store = {}; }
  void Store(const std::string& key, const std::string& text = "WG-17") {
    CGroupID group(text);
    letter.Key(&own.carrier, nullptr, key.data(), group);
  }
  static std::string Recovered(const CMSDocument& from, const CKeyCarrier& carrier) {
    std::string key = kBlank;
    EXPECT_EQ(from.Key(&carrier, nullptr, key.data()), key.data());
    return key;
  }
  void ExpectInNoFile(const std::string& key) {
    Close();
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(dir / "store")) {
      if (!entry.is_regular_file()) continue;
      ++files;
      EXPECT_EQ(ReadBytes(entry.path().string()).find(key.substr(0, 8)), std::string::npos)
          << entry.path();
    }
    EXPECT_GE(files, 11);
  }
  int Failure(const CKeyCarrier* carrier) {
    std::string key = KeyOf(99);
    const int code = CodeOf([&] { letter.Key(carrier, nullptr, key.data()); });
    EXPECT_EQ(key == KeyOf(99), code != 0);
    return code;
  }

  TempDir dir;
  Carrier own{dir / "own.key"}, other{dir / "other.key"};
  CMSMessageStore store;
  CMSDocument letter;
  unsigned long id = 0;
};

TEST_F(Keys, A_key_is_recovered_after_reopening_and_by_its_own_carrier_only) {
  std::string key = KeyOf(1);
  for (void* const buffer : {static_cast<void*>(key.data()), static_cast<void*>(nullptr)})
    EXPECT_EQ(letter.Key(&own.carrier, nullptr, buffer), nullptr);
  EXPECT_EQ(key, KeyOf(1));
  Store(key);
  EXPECT_EQ(CodeOf([&] { letter.Key(&own.carrier, nullptr, nullptr); }), 87);
  const std::string first = RawOf(letter);
  EXPECT_EQ(first.substr(kGroupAt), "WG-17" + std::string(8, '\0'));
  EXPECT_NE(InfoOf(letter).Value5, 0);
  EXPECT_EQ(InfoOf(letter).Group, CGroupID("WG-17"));
  Open();
  EXPECT_EQ(Recovered(letter, own.carrier), key);
  EXPECT_EQ(Recovered(letter, CSoftwareKeyCarrier(own.file)), key);
  const CKeyCarrier foreign;
  for (const CKeyCarrier* wrong : {static_cast<const CKeyCarrier*>(&other.carrier), &foreign,
                                   static_cast<const CKeyCarrier*>(nullptr)})
    EXPECT_EQ(Failure(wrong), 32);

  Store(key, "WG");  // a shorter group leaves nothing of the longer one
  const std::string second = RawOf(letter);
  EXPECT_EQ(second.substr(kGroupAt), "WG" + std::string(11, '\0'));
  EXPECT_NE(first.substr(kInitAt, kKeyInitSize), second.substr(kInitAt, kKeyInitSize));
  EXPECT_NE(first.substr(0, kBlockSize), second.substr(0, kBlockSize));
  ExpectInNoFile(key);
}

// The bytes were computed from docs/format.md alone, by other means than the library's.
TEST_F(Keys, A_key_file_and_a_key_area_of_known_bytes_give_the_known_key) {
  WriteBytes(dir / "known",
             "MSKEY1\r\n" + KeyOf(8) +
                 "\x42\xfb\x43\xa9\x71\x0d\x52\xf2\x0d\xd1\x6d\x62\xab\x8d\x75\x17\xee\x71\x62\x41"
                 "\x20\x21\x38\xa3\x55\x05\x4e\x10\x79\x4d\x1f\xe2"s);
  fs::permissions(dir / "known", static_cast<fs::perms>(0600));
  SetRaw(letter,
         "\x8a\x89\x01\x52\x90\x9e\x37\xfc\x18\x91\xd4\xa3\x55\x89\xc2\x3f\x71\xb7\x32\xe7"
         "\x9f\xac\x2c\xc6\xa0\xc6\x34\x43\xb9\x15\xe6\x26\x89\x12\x95\x91"
         "nonce-17WG-17\0behind\0"s);
  letter.SetCryptInfoEx({1, 2, 0x300, 4, 5, {}});
  EXPECT_EQ(Recovered(letter, CSoftwareKeyCarrier(dir / "known")), KeyOf(9));
}

TEST_F(Keys, The_encryption_is_handed_everything_and_the_carriers_values_stay) {
  FakeEncryption fake;
  TwoValues carrier;
  CAbstractAsymmKey asymm;
  CGroupID group("WG-17");
  const std::string key = KeyOf(5), init(kKeyInitSize, '\xBB');
  letter.SetCryptInfoEx({1, 2, 0x300, 4, 0, CGroupID("not stored")});
  const CryptAddInfo filled{1, 2, 0x300, 3, 5, group};
  for (int i = 0; i < 2; ++i) {
    letter.Key(&carrier, &asymm, key.data(), group);
    EXPECT_EQ(fake.told, fake.Line(&carrier, &asymm, group, key + init, filled));
    EXPECT_EQ(RawOf(letter), fake.block + fake.proof + init + "WG-17\0\0\0\0\0\0\0\0"s);
    std::string read = kBlank;
    EXPECT_EQ(letter.Key(&carrier, &asymm, read.data()), read.data());
    EXPECT_EQ(read, fake.key);
    EXPECT_EQ(fake.told,
              fake.Line(&carrier, &asymm, group, fake.block + fake.proof + init, filled));
    carrier.config = {6, 7};  // too late: the values have been taken over
  }
}

TEST_F(Keys, A_flipped_bit_of_the_key_area_never_gives_a_wrong_key) {
  Store(KeyOf(2));
  const std::string whole = RawOf(letter);
  const std::size_t behindText = 8 * (kGroupAt + 6);
  for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
    SetRaw(letter, Flipped(whole, bit));
    EXPECT_EQ(Failure(&own.carrier), bit < behindText ? 32 : 0) << "bit " << bit;
  }
  EXPECT_EQ(Recovered(letter, own.carrier), KeyOf(2));
}

TEST_F(Keys, Failures_keep_73_and_the_record_and_leave_the_store_sound) {
  {
    FakeEncryption fake;
    const std::string kept = fake.block + fake.proof + std::string(8, '\xBB') + "TWELVE-CHARS\0"s;
    const std::pair<int, std::function<int()>> failures[] = {
        {73, [] { return 73; }},
        {32, [] { return 74; }},
        {73, []() -> int { throw XKitStatus(73, "refused"); }},
        {32, []() -> int { throw XKitStatus(0, "nothing"); }},
        {32, []() -> int { throw XKitMsg("no device"); }}};
    for (const auto& [code, answer] : failures) {
      fake.answer = answer;
      EXPECT_EQ(CodeOf([&] { Store(KeyOf(3), "TWELVE-CHARS"); }), code);
      EXPECT_EQ(RawOf(letter), kept);
      EXPECT_EQ(InfoOf(letter).Value5, 0);
      EXPECT_EQ(Failure(&own.carrier), 32);
    }
    EXPECT_EQ(CodeOf([&] { Store(KeyOf(3), "THIRTEEN-CHAR"); }), 87);
    EXPECT_EQ(CodeOf([&] { letter.SetRawKeys("", "", nullptr, ""); }), 87);
    EXPECT_EQ(RawOf(letter), kept);
    // A success that would read as "no key", or that anybody could read.
    fake.answer = [] { return 0; };
    for (const std::string& block : {kBlank, KeyOf(3)}) {
      fake.block = block;
      EXPECT_EQ(CodeOf([&] { Store(KeyOf(3)); }), 32);
      EXPECT_EQ(InfoOf(letter).Value5, 0);
    }
  }
  ExpectInNoFile(KeyOf(3));
  EXPECT_EQ(platform::ReadProfileString(dir / "store/ms3.db", "Maintenance", "State", "", 9),
            "Closed");
}

TEST_F(Keys, Raw_keys_carry_a_key_and_clearing_takes_it_away) {
  CMSDocument target = store.Root().CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
  Store(KeyOf(4));
  SetRaw(target, RawOf(letter));
  EXPECT_EQ(Recovered(target, own.carrier), KeyOf(4));  // even without the crypto info
  target.SetCryptInfoEx(InfoOf(letter));
  EXPECT_EQ(Recovered(target, own.carrier), KeyOf(4));

  target.ClearKey();
  EXPECT_EQ(BlockOf(target), kBlank);
  EXPECT_NE(InfoOf(target).Value5, 0);
  CGroupID group;
  SetRaw(target, RawOf(letter));
  target.Key(nullptr, nullptr, nullptr, group);
  EXPECT_EQ(BlockOf(target), kBlank);
  EXPECT_EQ(InfoOf(target).Value5, 0);
}

TEST_F(Keys, Threads_store_and_recover_whole_keys_in_one_letter) {
  Store(KeyOf(0));
  const auto work = [this](int seed) {
    CMSDocument mine = store.GetDocument(id);
    CGroupID group(std::to_string(seed));
    for (int i = 0; i < 50; ++i) {
      mine.Key(&own.carrier, nullptr, KeyOf(seed).data(), group);
      const std::string read = Recovered(mine, own.carrier);
      EXPECT_TRUE(read[0] < 4 && read == KeyOf(read[0]));
    }
  };
  std::vector<std::jthread> threads;
  for (int seed = 0; seed < 4; ++seed) threads.emplace_back(work, seed);
}

TEST(KeyFile, Only_a_whole_private_one_is_taken) {
  const TempDir dir;
  const std::string path = dir / "key";
  CSoftwareKeyCarrier::Create(path);
#ifndef _WIN32
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
#endif
  const std::string bytes = ReadBytes(path);
  EXPECT_THROW(CSoftwareKeyCarrier::Create(path), XKitFile);
  EXPECT_EQ(ReadBytes(path), bytes);
  EXPECT_THROW(CSoftwareKeyCarrier(dir / "none"), XKitFile);
  EXPECT_THROW(CSoftwareKeyCarrier(dir.Path()), XKitFile);
#ifndef _WIN32  // access lists are not looked at
  for (unsigned bit = 1; bit < 0100; bit <<= 1) {
    fs::permissions(path, static_cast<fs::perms>(0600 | bit));
    EXPECT_THROW(CSoftwareKeyCarrier{path}, XKitFile) << bit;
  }
#endif
  fs::permissions(path, static_cast<fs::perms>(0400));
  EXPECT_NO_THROW(CSoftwareKeyCarrier{path});
  fs::permissions(path, static_cast<fs::perms>(0600));
  for (const std::string& wrong : {std::string(), bytes.substr(1), bytes + "x"}) {
    WriteBytes(path, wrong);
    EXPECT_THROW(CSoftwareKeyCarrier{path}, XKitFile);
  }
  for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    WriteBytes(path, Flipped(bytes, bit));
    EXPECT_THROW(CSoftwareKeyCarrier{path}, XKitFile) << "bit " << bit;
  }
}

TEST(KeyFile, A_failed_creation_leaves_none) {
  const TempDir dir;
  for (const std::uint32_t failing :
       {call::kCreate, call::kWrite, call::kSync, call::kSyncDirectory}) {
    FaultyFiles files;
    files.Fail({.calls = failing, .cause = platform::Cause::NoSpace, .written = 20});
    EXPECT_THROW(CSoftwareKeyCarrier::Create(dir / "key"), XKitFile);
    EXPECT_FALSE(fs::exists(dir / "key"));
  }
}

}  // namespace
