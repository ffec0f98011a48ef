// In the place of the library's own encryption where that is left out (MS_SOFTWARE_CARRIER).
#include <algorithm>

#include "kit/KitErrors.h"
#include "kit/SoftwareEncryption.h"
#include "platform/Lasting.h"

namespace {

constexpr int kNoEncryption = 3;

// Random numbers that nobody will use, since no key can be enciphered with them.
class CNoRandom final : public CRandomSource {
 public:
  void Fill(void* data, std::size_t size) override {
    std::fill_n(static_cast<unsigned char*>(data), size, static_cast<unsigned char>(0));
  }
};

class CNoEncryption final : public CMemoryEncryption {
 public:
  CRandomSource& GetFixedKey() override { return m_random; }
  void RandomFill(CRandomSource& source, void* data, std::size_t size) override {
    source.Fill(data, size);
  }
  int EncryptMemoryEx(CKeyCarrier*, CAbstractAsymmKey*, const CGroupID&, const void*, std::size_t,
                      const void*, void*, const CryptAddInfo&, void*) override {
    return kNoEncryption;
  }
  int DecryptMemoryEx(const CKeyCarrier*, CAbstractAsymmKey*, const CGroupID&, const void*,
                      std::size_t, const void*, const void*, const CryptAddInfo&, void*) override {
    return kNoEncryption;
  }

 private:
  CNoRandom m_random;
};

}  // namespace

CMemoryEncryption& OwnMemoryEncryption() {
  static const platform::Lasting<CNoEncryption> own;
  return *own;
}
