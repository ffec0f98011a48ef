#include "kit/SoftwareKeyCarrier.h"

#include <algorithm>
#include <cstring>

#include "kit/KitErrors.h"
#include "kit/KitFile.h"
#include "kit/LogDispatcher.h"
#include "kit/Secret.h"
#include "kit/SoftwareEncryption.h"

namespace {

// The key file: what it is, the secret, and the HMAC of the former under the latter, by which
// damage shows before it passes for a wrong carrier.
constexpr char kMagic[] = {'M', 'S', 'K', 'E', 'Y', '1', '\r', '\n'};
constexpr std::size_t kSecretSize = 32;
constexpr std::size_t kProofAt = sizeof kMagic + kSecretSize;
constexpr std::size_t kProofSize = 32;
constexpr std::size_t kFileSize = kProofAt + kProofSize;

// Of the security service that this carrier stands for: the only one so far, in its first version.
constexpr CSafeServiceConfig kService{1, 1};

using FileBytes = CSecretBytes<kFileSize>;

CBytes MagicBytes() {
  return BytesOf(kMagic, sizeof kMagic);
}
CBytes SecretIn(const FileBytes& bytes) {
  return BytesOf(bytes.Data() + sizeof kMagic, kSecretSize);
}

[[noreturn]] void Refuse(XKitFile::Cause cause, const std::string& file, const std::string& why) {
  throw XKitFile(cause, 0, file, "cannot use the key file '" + file + "': " + why);
}

void RequireLibrary(const std::string& file) {
  if (!gcrypt::Ready())
    Refuse(XKitFile::Cause::Other, file, "libgcrypt, which it needs, is missing or too old");
}

void MakeSecret(FileBytes& bytes, const std::string& file) {
  std::memcpy(bytes.Data(), kMagic, sizeof kMagic);
  gcrypt::Random(bytes.Data() + sizeof kMagic, kSecretSize, gcrypt::Strength::LongLived);
  if (!gcrypt::Hmac(gcrypt::Hash::Sha256, SecretIn(bytes), {MagicBytes()},
                    {bytes.Data() + kProofAt, kProofSize})) {
    Refuse(XKitFile::Cause::Other, file, "libgcrypt could not make it");
  }
}

// Others could have copied the secret, or put their own in its place.
void RequirePrivate(CKitFile& file) {
  platform::FileInfo info;
  KitCheck(file.Handle().GetInfo(info), "look at", file.Name());
  if (info.kind != platform::FileKind::File)
    Refuse(XKitFile::Cause::Other, file.Name(), "it is no file");
  if (info.othersMayAccess)
    Refuse(XKitFile::Cause::AccessDenied, file.Name(),
           "others than its owner may read or write it; take their rights away (mode 0600), and "
           "make a new one if somebody may have seen it");
  if (info.length != kFileSize)
    Refuse(XKitFile::Cause::Other, file.Name(),
           "it has " + std::to_string(info.length) + " bytes, a key file has " +
               std::to_string(kFileSize));
}

void RequireWhole(const FileBytes& bytes, const std::string& file) {
  if (std::memcmp(bytes.Data(), kMagic, sizeof kMagic) != 0)
    Refuse(XKitFile::Cause::Other, file, "it does not begin as a key file does");
  if (!gcrypt::HmacIs(gcrypt::Hash::Sha256, SecretIn(bytes), {MagicBytes()},
                      BytesOf(bytes.Data() + kProofAt, kProofSize))) {
    Refuse(XKitFile::Cause::Other, file, "it is damaged; restore it from a copy");
  }
}

void WriteDown(CKitFile& file, const FileBytes& bytes) {
  file.Write(0, bytes.Data(), bytes.Size());
  file.Sync();
  const std::string directory = CKitFile::DirectoryName(CKitFile::FullName(file.Name()));
  KitCheck(platform::Files().SyncDirectory(directory), "flush", directory);
}

void RemoveFailed(const std::string& file) {
  const platform::Status status = platform::Files().Remove(file);
  if (status.Ok()) return;
  LogEvent(severity::Error,
           ("cannot remove the unfinished key file '" + file + "': " + status.Text()).c_str(),
           "kit\\SoftwareKeyCarrier", __LINE__);
}

}  // namespace

void CSoftwareKeyCarrier::Create(const std::string& file) {
  RequireLibrary(file);
  FileBytes bytes;
  MakeSecret(bytes, file);
  CKitFile made(file, {platform::Access::ReadWrite, platform::Disposition::CreateNew,
                       platform::Sharing::All});
  try {
    WriteDown(made, bytes);
  } catch (...) {
    RemoveFailed(file);
    throw;
  }
}

CSoftwareKeyCarrier::CSoftwareKeyCarrier(const std::string& file) {
  RequireLibrary(file);
  CKitFile opened(file, {});
  RequirePrivate(opened);
  FileBytes bytes;
  if (opened.Read(0, bytes.Data(), bytes.Size()) != bytes.Size())
    Refuse(XKitFile::Cause::Other, file, "it became shorter while it was read");
  RequireWhole(bytes, file);
  std::ranges::copy(SecretIn(bytes), m_secret.begin());
}

CSoftwareKeyCarrier::~CSoftwareKeyCarrier() {
  Wipe(m_secret.data(), m_secret.size());
}

CSafeServiceConfig CSoftwareKeyCarrier::SafeServiceConfig() const {
  return kService;
}

// The label keeps these keys apart from whatever else the secret may be used for one day.
bool CSoftwareKeyCarrier::DeriveKeys(const CKeyContext& context,
                                     std::span<unsigned char, kKeysSize> keys) const {
  constexpr char kLabel[] = "letter key 1";
  return gcrypt::Hmac(
      gcrypt::Hash::Sha512, m_secret,
      {BytesOf(kLabel, sizeof kLabel - 1), context.group, context.values, context.init}, keys);
}
