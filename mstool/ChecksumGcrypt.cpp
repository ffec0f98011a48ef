#include <gcrypt.h>

#include <algorithm>
#include <stdexcept>

#include "Checksum.h"

namespace tool {

const char* const Checksum::kName = "SHA-256";

namespace {

// Nothing secret passes here, so no memory need be locked.
bool IsReady() {
  return gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P) != 0 ||
         (gcry_check_version(GCRYPT_VERSION) != nullptr &&
          gcry_control(GCRYCTL_DISABLE_SECMEM, 0) == 0 &&
          gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0) == 0);
}

}  // namespace

struct Checksum::State {
  gcry_md_hd_t handle = nullptr;
  State() {
    if (!IsReady() || gcry_md_open(&handle, GCRY_MD_SHA256, 0) != 0)
      throw std::runtime_error("libgcrypt cannot compute SHA-256");
  }
  ~State() { gcry_md_close(handle); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
};

Checksum::Checksum() : m_state(std::make_unique<State>()) {}
Checksum::~Checksum() = default;

void Checksum::Add(std::string_view bytes) {
  gcry_md_write(m_state->handle, bytes.data(), bytes.size());
}

Checksum::Digest Checksum::Result() {
  Digest digest{};
  const unsigned char* const bytes = gcry_md_read(m_state->handle, GCRY_MD_SHA256);
  std::copy_n(bytes, digest.size(), digest.begin());
  return digest;
}

}  // namespace tool
