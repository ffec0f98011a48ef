// Keys of letters, the software carrier and its file.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/OpenStore.h"

#include "kit/SoftwareKeyCarrier.h"
#include "platform/Profile.h"

namespace {

namespace fs = std::filesystem;

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

class Changes : public CMSDocumentListener {
 public:
  void OnAttachStore(CMSMessageStore&) override {}
  void OnDocumentRemoved(const CMSDocument&) override {}
  void OnDocumentAdded(const CMSDocument&) override {}
  void OnDocumentChanged(const CMSDocument&) override { ++count; }
  int count = 0;
};

// In place while it lives. Writes 0xAA, and 0xBB for random bytes, then answers as it is told.
class FakeEncryption : public CMemoryEncryption, CRandomSource {
 public:
  FakeEncryption() { SetMemoryEncryption(this); }
  ~FakeEncryption() override { SetMemoryEncryption(nullptr); }
  CRandomSource& GetFixedKey() override { return *this; }
  void Fill(void* data, std::size_t size) override { std::memset(data, 0xBB, size); }
  void RandomFill(CRandomSource& source, void* data, std::size_t size) override {
    source.Fill(data, size);
  }
  int EncryptMemoryEx(CKeyCarrier*, CAbstractAsymmKey*, const CGroupID&, const void*,
                      std::size_t size, const void*, void*, const CryptAddInfo& info,
                      void* cipher) override {
    asked = info;
    std::memset(cipher, fill, size);
    if (answer < 0) throw XKitMsg("no device");
    return answer;
  }
  int DecryptMemoryEx(const CKeyCarrier*, CAbstractAsymmKey*, const CGroupID&, const void*,
                      std::size_t, const void*, const void*, const CryptAddInfo&, void*) override {
    return answer;
  }
  int answer = 0, fill = 0xAA;
  CryptAddInfo asked;
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
  EXPECT_EQ(letter.Key(&own.carrier, nullptr, key.data()), nullptr);
  EXPECT_EQ(key, KeyOf(1));
  Store(key);
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
  Close();
  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(dir / "store")) {
    if (!entry.is_regular_file()) continue;
    ++files;
    EXPECT_EQ(ReadBytes(entry.path()).find(key.substr(0, 8)), std::string::npos) << entry.path();
  }
  EXPECT_GE(files, 11);
}

TEST_F(Keys, A_flipped_bit_of_key_area_or_crypto_info_never_gives_a_wrong_key) {
  letter.SetCryptInfoEx({1, 2, 0x300, 4, 0, CGroupID("not stored")});
  Store(KeyOf(2));
  const std::string whole = RawOf(letter);
  const std::size_t behindText = kGroupAt + 5 + 1;
  for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
    SetRaw(letter, Flipped(whole, bit));
    if (bit / 8 < behindText) {
      EXPECT_EQ(Failure(&own.carrier), 32) << "bit " << bit;
    } else {
      EXPECT_EQ(Recovered(letter, own.carrier), KeyOf(2)) << "bit " << bit;
    }
  }
  SetRaw(letter, whole);
  const CryptAddInfo right = InfoOf(letter);
  const auto [v1, v2, v3, v4, v5, group] = right;
  EXPECT_EQ(v3, 0x300);
  const auto low = static_cast<std::uint8_t>(v4 ^ 1), high = static_cast<std::uint8_t>(v5 ^ 0x80);
  for (const CryptAddInfo& wrong :
       std::initializer_list<CryptAddInfo>{{0x101, 2, 0x300, v4, v5, {}},
                                           {1, 3, 0x300, v4, v5, {}},
                                           {1, 2, 0x301, v4, v5, {}},
                                           {1, 2, 0x300, low, v5, {}},
                                           {1, 2, 0x300, v4, high, {}}}) {
    letter.SetCryptInfoEx(wrong);
    EXPECT_EQ(Failure(&own.carrier), 32);
  }
  letter.SetCryptInfoEx(right);
  EXPECT_EQ(Recovered(letter, own.carrier), KeyOf(2));
}

TEST_F(Keys, Failures_keep_73_and_the_record_and_leave_the_store_sound) {
  Changes changes;
  store.AddListener(&changes);
  const std::string kept = std::string(32, '\xAA') + std::string(4, '\0') + std::string(8, '\xBB') +
                           std::string("TWELVE-CHARS", 13);
  {
    FakeEncryption fake;
    for (const int answer : {73, 74, 1, 32, 87}) {
      fake.answer = answer;
      const std::string key = KeyOf(3);
      EXPECT_EQ(CodeOf([&] { Store(key, "TWELVE-CHARS"); }), answer == 73 ? 73 : 32);
      EXPECT_EQ(fake.asked.Value5, own.carrier.SafeServiceConfig().Value5);
      EXPECT_EQ(RawOf(letter), kept);
      EXPECT_EQ(InfoOf(letter).Value5, 0);
      EXPECT_EQ(Failure(&own.carrier), 32);
    }
    EXPECT_EQ(changes.count, 5);
    EXPECT_EQ(CodeOf([&] { Store(KeyOf(3), "THIRTEEN-CHAR"); }), 87);
    EXPECT_EQ(CodeOf([&] { letter.SetRawKeys("", "", nullptr, ""); }), 87);
    EXPECT_EQ(RawOf(letter), kept);
    fake.answer = -1;
    EXPECT_THROW(Store(KeyOf(3)), XKitMsg);
    fake.answer = 0, fake.fill = 0;  // a success that would read as "no key"
    EXPECT_EQ(CodeOf([&] { Store(KeyOf(3)); }), 32);
    EXPECT_EQ(InfoOf(letter).Value5, 0);
  }
  store.RemoveListener(&changes);
  Close();
  EXPECT_EQ(platform::ReadProfileString(dir / "store/ms3.db", "Maintenance", "State", "", 9),
            "Closed");
}

TEST_F(Keys, Raw_keys_carry_a_key_and_clearing_takes_it_away) {
  CMSDocument target = store.Root().CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
  Store(KeyOf(4));
  SetRaw(target, RawOf(letter));
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

  WriteBytes(dir / "file", "enciphered");
  CMSAttachment secret =
      letter.AddAttachment(dir / "file", false, "", "", attachmentflag::Encrypted);
  EXPECT_EQ(Recovered(letter, own.carrier), KeyOf(4));
  letter.DeleteAttachment(secret);
  EXPECT_EQ(BlockOf(letter), kBlank);
  EXPECT_EQ(InfoOf(letter).Value5, 0);
}

TEST_F(Keys, Threads_store_and_recover_whole_keys_in_one_letter) {
  Store(KeyOf(0));
  std::vector<std::thread> threads;
  for (int seed = 0; seed < 4; ++seed) {
    threads.emplace_back([this, seed] {
      CMSDocument mine = store.GetDocument(id);
      CGroupID group(std::to_string(seed));
      const std::string key = KeyOf(seed);
      for (int i = 0; i < 50; ++i) {
        mine.Key(&own.carrier, nullptr, key.data(), group);
        const std::string read = Recovered(mine, own.carrier);
        EXPECT_TRUE(read[0] < 4 && read == KeyOf(read[0]));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(KeyFile, Only_a_whole_private_one_is_taken) {
  const TempDir dir;
  const std::string path = dir / "key";
  CSoftwareKeyCarrier::Create(path);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  const std::string bytes = ReadBytes(path);
  EXPECT_THROW(CSoftwareKeyCarrier::Create(path), XKitFile);
  EXPECT_EQ(ReadBytes(path), bytes);
  EXPECT_THROW(CSoftwareKeyCarrier(dir / "none"), XKitFile);
  EXPECT_THROW(CSoftwareKeyCarrier(dir.Path()), XKitFile);
  for (unsigned bit = 1; bit < 0100; bit <<= 1) {
    fs::permissions(path, static_cast<fs::perms>(0600 | bit));
    EXPECT_THROW(CSoftwareKeyCarrier{path}, XKitFile) << bit;
  }
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
