#include "kit/SoftwareEncryption.h"

#include "kit/KitErrors.h"
#include "kit/Secret.h"
#include "kit/SoftwareKeyCarrier.h"
#include "platform/Lasting.h"

CKeyContext::CKeyContext(const CGroupID& groupID, const CryptAddInfo& info, const void* initValue)
    : group(BytesOf(groupID.Text().c_str(), groupID.Text().size())),
      init(BytesOf(initValue, kKeyInitSize)) {
  std::size_t at = 0;
  for (const std::uint16_t value : {info.Value1, info.Value2, info.Value3}) {
    values[at++] = static_cast<unsigned char>(value & 0xFF);
    values[at++] = static_cast<unsigned char>(value >> 8);
  }
  values[at++] = info.Value4;
  values[at] = info.Value5;
}

namespace {

class CGcryptRandom final : public CRandomSource {
 public:
  void Fill(void* data, std::size_t size) override {
    if (!gcrypt::Ready()) throw XKitMsg("libgcrypt cannot be used: it is missing or too old");
    gcrypt::Random(data, size, gcrypt::Strength::Once);
  }
};

}  // namespace

class CSoftwareEncryption final : public CMemoryEncryption {
 public:
  CRandomSource& GetFixedKey() override { return m_random; }

  void RandomFill(CRandomSource& source, void* data, std::size_t size) override {
    source.Fill(data, size);
  }

  int EncryptMemoryEx(CKeyCarrier* carrier, CAbstractAsymmKey*, const CGroupID& group,
                      const void* plain, std::size_t size, const void* init, void* integrity,
                      const CryptAddInfo& info, void* cipher) override {
    const CKeyContext context(group, info, init);
    CLetterKeys keys;
    if (const int failure = keys.Derive(carrier, context); failure != 0) return failure;
    const bool done =
        gcrypt::StreamCipher(keys.ForCipher(), context.init, BytesOf(plain, size), cipher) &&
        gcrypt::Hmac(gcrypt::Hash::Sha256, keys.ForProof(),
                     {context.group, context.values, context.init, BytesOf(cipher, size)},
                     {static_cast<unsigned char*>(integrity), kKeyIntegritySize});
    return done ? 0 : softwareencryption::LibraryFailed;
  }

  int DecryptMemoryEx(const CKeyCarrier* carrier, CAbstractAsymmKey*, const CGroupID& group,
                      const void* cipher, std::size_t size, const void* init, const void* integrity,
                      const CryptAddInfo& info, void* plain) override {
    // A key that was carried to a letter without its crypto info: storing it did the same.
    CryptAddInfo filled = info;
    TakeOverConfig(carrier, filled);
    const CKeyContext context(group, filled, init);
    CLetterKeys keys;
    if (const int failure = keys.Derive(carrier, context); failure != 0) return failure;
    if (!gcrypt::HmacIs(gcrypt::Hash::Sha256, keys.ForProof(),
                        {context.group, context.values, context.init, BytesOf(cipher, size)},
                        BytesOf(integrity, kKeyIntegritySize))) {
      return softwareencryption::CheckFailed;
    }
    return gcrypt::StreamCipher(keys.ForCipher(), context.init, BytesOf(cipher, size), plain)
               ? 0
               : softwareencryption::LibraryFailed;
  }

 private:
  class CLetterKeys {
   public:
    int Derive(const CKeyCarrier* carrier, const CKeyContext& context) {
      const auto* const own = dynamic_cast<const CSoftwareKeyCarrier*>(carrier);
      if (own == nullptr) return softwareencryption::WrongCarrier;
      return own->DeriveKeys(context, m_keys.All()) ? 0 : softwareencryption::LibraryFailed;
    }
    CBytes ForCipher() const { return BytesOf(m_keys.Data(), kHalf); }
    CBytes ForProof() const { return BytesOf(m_keys.Data() + kHalf, kHalf); }

   private:
    static constexpr std::size_t kHalf = gcrypt::kStreamKeySize;
    CSecretBytes<2 * kHalf> m_keys;
  };

  CGcryptRandom m_random;
};

// A client's global store may still ask for it while the process exits.
CMemoryEncryption& OwnMemoryEncryption() {
  static const platform::Lasting<CSoftwareEncryption> own;
  return *own;
}
