// The key of a letter, enciphered by the memory encryption in use, and what goes with it. The store
// itself never looks into any of it.
#include <algorithm>
#include <cstring>
#include <exception>
#include <string>

#include "DocRecord.h"
#include "FieldSetters.h"
#include "kit/MemoryEncryption.h"
#include "kit/Secret.h"

using Access = CMSFieldAccess;
using Record = CMSDocumentData;

namespace {

static_assert(sizeof(Record::Key) == kDocumentKeySize);
static_assert(sizeof(Record::KeyIntegrity) == kKeyIntegritySize);
static_assert(sizeof(Record::KeyInit) == kKeyInitSize);

// The index of the value that is 0 until the carrier's configuration has been taken over.
constexpr std::size_t kFilled = 4;

// An encryption that threw, and one that reports success for a block that means "no key", or that
// anybody could read.
constexpr int kThrown = -1;
constexpr int kNoBlock = -2;
constexpr int kPlainBlock = -3;

void RequireBuffers(std::initializer_list<const void*> buffers) {
  if (std::ranges::find(buffers, nullptr) == buffers.end()) return;
  throw XKitStatus(kit::kStatusInvalidArgument, "a buffer for the key of a letter is missing");
}

bool HasKey(const Record& record) {
  return std::ranges::any_of(record.Key, [](unsigned char byte) { return byte != 0; });
}

CryptAddInfo InfoIn(const Record& record) {
  const auto& from = record.CryptInfo;
  return {from[0],
          from[1],
          from[2],
          static_cast<std::uint8_t>(from[3] & 0xFF),
          static_cast<std::uint8_t>(from[kFilled] & 0xFF),
          CGroupID(Access::TextOf(record.KeyGroup))};
}

void PutInfo(Record& record, const CryptAddInfo& info) {
  auto& to = record.CryptInfo;
  to[0] = info.Value1;
  to[1] = info.Value2;
  to[2] = info.Value3;
  to[3] = info.Value4;
  to[kFilled] = info.Value5;
}

// What came of a call to the encryption. An exception of its own is kept until the change is over:
// it must not cut the change short, which would make the next opening distrust a store that is
// sound.
struct Outcome {
  int code = 0;
  std::string said;
};

template <class Body>
Outcome Attempt(Body body) {
  try {
    return {body(), ""};
  } catch (const XKitStatus& error) {
    return {error.Code() != 0 ? error.Code() : kThrown, error.what()};
  } catch (const std::exception& error) {
    return {kThrown, error.what()};
  }
}

void RequireDone(const CMSDocument& letter, const Outcome& outcome, int code, const char* failed,
                 const char* advice) {
  if (outcome.code == 0) return;
  const std::string why =
      outcome.said.empty() ? KitFormat("answered %d", outcome.code) : "said: " + outcome.said;
  throw XKitStatus(
      code,
      KitFormat("the key of letter %lu in the store '%s' cannot be %s: the memory "
                "encryption %s. %s",
                letter.ID(), StoreOf(letter).Directory().c_str(), failed, why.c_str(), advice));
}

}  // namespace

void DropKey(CMSDocumentData& record) {
  std::ranges::fill(record.Key, static_cast<unsigned char>(0));
  record.CryptInfo[kFilled] = 0;
}

void NoteEncryption(CMSDocumentData& record) {
  record.Flag = static_cast<std::int32_t>(record.Flag | docflag::Encrypted);
}

void ForgetEncryption(CMSDocumentData& record) {
  record.Flag = static_cast<std::int32_t>(record.Flag & ~docflag::Encrypted);
  DropKey(record);
}

void* CMSDocument::Key(const CKeyCarrier* carrier, CAbstractAsymmKey* asymm, void* key) const {
  const Record record = Access::Copy(*this);
  if (!HasKey(record)) return nullptr;
  RequireBuffers({key});
  const Outcome outcome = Attempt([&] {
    const CryptAddInfo info = InfoIn(record);
    return MemoryEncryption().DecryptMemoryEx(carrier, asymm, info.Group, record.Key,
                                              sizeof record.Key, record.KeyInit,
                                              record.KeyIntegrity, info, key);
  });
  RequireDone(*this, outcome, kit::kStatusKeyUnusable, "recovered",
              "Use the key carrier and the crypto info that it was stored with.");
  return key;
}

void CMSDocument::Key(CKeyCarrier* carrier, CAbstractAsymmKey* asymm, const void* key,
                      CGroupID& group) {
  if (key == nullptr) {
    ChangeRecord(*this, DropKey);
    return;
  }
  Access::CheckFits(group.Text(), sizeof(Record::KeyGroup), "workgroup ID of a letter's key");
  Outcome outcome;
  ChangeRecord(*this, [&](Record& record) {
    outcome = Attempt([&] {
      CMemoryEncryption& encryption = MemoryEncryption();
      encryption.RandomFill(encryption.GetFixedKey(), record.KeyInit, sizeof record.KeyInit);
      std::ranges::fill(record.KeyGroup, '\0');
      Access::PutText(record.KeyGroup, group.Text());
      CryptAddInfo info = InfoIn(record);
      TakeOverConfig(carrier, info);
      // Beside the record, which is a file's: an encryption may work in place.
      CSecretBytes<sizeof record.Key> block;
      std::ranges::copy(record.Key, block.Data());
      const int code =
          encryption.EncryptMemoryEx(carrier, asymm, group, key, kDocumentKeySize, record.KeyInit,
                                     record.KeyIntegrity, info, block.Data());
      if (std::memcmp(block.Data(), key, block.Size()) == 0) return code != 0 ? code : kPlainBlock;
      std::ranges::copy(block.All(), record.Key);
      if (code != 0) return code;
      if (!HasKey(record)) return kNoBlock;
      PutInfo(record, info);
      return 0;
    });
  });
  const bool refused = outcome.code == kit::kStatusKeyRefused;
  RequireDone(*this, outcome, refused ? kit::kStatusKeyRefused : kit::kStatusKeyUnusable, "stored",
              "The letter has no usable key now; store it again with a key carrier that works.");
}

void CMSDocument::ClearKey() {
  ChangeRecord(
      *this, [](Record& record) { std::ranges::fill(record.Key, static_cast<unsigned char>(0)); });
}

void CMSDocument::GetRawKeys(void* block, void* integrity, void* init, void* group) const {
  RequireBuffers({block, integrity, init, group});
  Access::Read(*this, [&](const Record& record) {
    std::memcpy(block, record.Key, sizeof record.Key);
    std::memcpy(integrity, record.KeyIntegrity, sizeof record.KeyIntegrity);
    std::memcpy(init, record.KeyInit, sizeof record.KeyInit);
    std::memcpy(group, record.KeyGroup, sizeof record.KeyGroup);
  });
}

void CMSDocument::SetRawKeys(const void* block, const void* integrity, const void* init,
                             const void* group) {
  RequireBuffers({block, integrity, init, group});
  ChangeRecord(*this, [&](Record& record) {
    std::memcpy(record.Key, block, sizeof record.Key);
    std::memcpy(record.KeyIntegrity, integrity, sizeof record.KeyIntegrity);
    std::memcpy(record.KeyInit, init, sizeof record.KeyInit);
    std::memcpy(record.KeyGroup, group, sizeof record.KeyGroup);
  });
}

void CMSDocument::GetCryptInfoEx(CryptAddInfo& info) const {
  info = Access::Read(*this, InfoIn);
}

void CMSDocument::SetCryptInfoEx(const CryptAddInfo& info) {
  ChangeRecord(*this, [&](Record& record) { PutInfo(record, info); });
}
