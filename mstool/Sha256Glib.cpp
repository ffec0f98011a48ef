#include <glib.h>

#include "Sha256.h"

namespace tool {

struct Sha256::State {
  struct Free {
    void operator()(GChecksum* sum) const { g_checksum_free(sum); }
  };
  std::unique_ptr<GChecksum, Free> sum{g_checksum_new(G_CHECKSUM_SHA256)};
};

Sha256::Sha256() : m_state(std::make_unique<State>()) {}
Sha256::~Sha256() = default;

void Sha256::Add(std::string_view bytes) {
  g_checksum_update(m_state->sum.get(), reinterpret_cast<const guchar*>(bytes.data()),
                    static_cast<gssize>(bytes.size()));
}

Sha256::Digest Sha256::Result() {
  Digest digest{};
  gsize size = digest.size();
  g_checksum_get_digest(m_state->sum.get(), digest.data(), &size);
  return digest;
}

}  // namespace tool
