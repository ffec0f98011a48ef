// Enciphers an attachment with a fresh key, keeps the key in the letter, and reads both again.
#include <gcrypt.h>
#include <ms/MessageStore.h>
#include <ms/kit/SoftwareKeyCarrier.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>

namespace {

constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;

// The key of one letter: 32 bytes that are not to be left in memory.
struct LetterKey {
  unsigned char bytes[kDocumentKeySize] = {};
  ~LetterKey() {
    for (volatile unsigned char& byte : bytes) byte = 0;
  }
};

// Also ends the program with a word when something is not as this example promises.
void Require(bool good, const char* what) {
  if (!good) throw XKitMsg(std::string("unexpected: ") + what);
}
void Require(gcry_error_t error, const char* what) {
  if (error != 0) throw XKitMsg(std::string(what) + ": " + gcry_strerror(error));
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes(std::istreambuf_iterator<char>(in), {});
  Require(in.good() || in.eof(), "the file cannot be read");
  return bytes;
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
  Require(out.flush().good(), "the file cannot be written");
}

// AES-256-GCM. What is enciphered is laid out as nonce, text, tag.
using Cipher =
    std::unique_ptr<std::remove_pointer_t<gcry_cipher_hd_t>, decltype(&gcry_cipher_close)>;

Cipher OpenCipher(const LetterKey& key, const char* nonce) {
  gcry_cipher_hd_t opened = nullptr;
  Require(gcry_cipher_open(&opened, GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_GCM, 0), "open cipher");
  Cipher cipher(opened, gcry_cipher_close);
  Require(gcry_cipher_setkey(opened, key.bytes, sizeof key.bytes), "set key");
  Require(gcry_cipher_setiv(opened, nonce, kNonceSize), "set nonce");
  return cipher;
}

std::string Encipher(const LetterKey& key, const std::string& text) {
  std::string out(kNonceSize + text.size() + kTagSize, '\0');
  gcry_create_nonce(out.data(), kNonceSize);
  const Cipher cipher = OpenCipher(key, out.data());
  char* const body = out.data() + kNonceSize;
  Require(gcry_cipher_encrypt(cipher.get(), body, text.size(), text.data(), text.size()),
          "encipher");
  Require(gcry_cipher_gettag(cipher.get(), body + text.size(), kTagSize), "make tag");
  return out;
}

std::string Decipher(const LetterKey& key, const std::string& bytes) {
  Require(bytes.size() >= kNonceSize + kTagSize, "the attachment is too short");
  std::string text = bytes.substr(kNonceSize, bytes.size() - kNonceSize - kTagSize);
  const Cipher cipher = OpenCipher(key, bytes.data());
  Require(gcry_cipher_decrypt(cipher.get(), text.data(), text.size(), nullptr, 0), "decipher");
  Require(gcry_cipher_checktag(cipher.get(), bytes.data() + bytes.size() - kTagSize, kTagSize),
          "check tag");
  return text;
}

CMSMessageStore Open(const std::string& directory, CKeyCarrier& carrier) {
  CGroupID group;
  return CMSMessageStore(directory.c_str(), carrier, nullptr, group, true, false, nullptr, "");
}

// Answers the letter's ID.
unsigned long Send(const CMSMessageStore& store, CKeyCarrier& carrier, const std::string& text,
                   const std::string& scratch) {
  CMSDocument letter = store.Root().CreateDocument("Figures", "", "07.03.2024 09:30", "", "", "",
                                                   "", "", "Accounts Desk", 0, 0);
  LetterKey key;
  gcry_randomize(key.bytes, sizeof key.bytes, GCRY_STRONG_RANDOM);
  WriteFile(scratch, Encipher(key, text));
  letter.AddAttachment(scratch, true, "Figures", "figures.txt", attachmentflag::Encrypted);
  CGroupID group("ACCOUNTS");
  letter.Key(&carrier, nullptr, key.bytes, group);
  letter.Flag(letter.Flag() | docflag::Complete);
  return letter.ID();
}

std::string Receive(const CMSDocument& letter, const CKeyCarrier& carrier) {
  LetterKey key;
  Require(letter.Key(&carrier, nullptr, key.bytes) != nullptr, "the letter has no key");
  CMSAttachment attachment;
  auto place = letter.GetFirstAttachmentPosition();
  Require(letter.GetNextAttachment(attachment, place), "the letter has no attachment");
  return Decipher(key, ReadFile(attachment.InternalFileName()));
}

void TryOther(const CMSDocument& letter, const CKeyCarrier& other) {
  try {
    Receive(letter, other);
  } catch (const XKitStatus& refused) {
    Require(refused.Code() == 32, "another code than 32");
    std::printf("the other carrier is refused: %s\n", refused.what());
    return;
  }
  Require(false, "the other carrier recovered the key");
}

void Run(const std::string& directory) {
  std::filesystem::create_directories(directory);
  const std::string mine = directory + "/mine.key", other = directory + "/other.key";
  for (const std::string& file : {mine, other}) CSoftwareKeyCarrier::Create(file);
  const std::string text = "Turnover 1,204,000; profit 88,000\n";

  CSoftwareKeyCarrier carrier(mine);
  const unsigned long id =
      Send(Open(directory + "/store", carrier), carrier, text, directory + "/figures.txt");
  std::printf("letter %lu is stored; its attachment can be read with %s only\n", id, mine.c_str());

  CMSMessageStore store = Open(directory + "/store", carrier);
  const CMSDocument letter = store.GetDocument(id);
  Require(Receive(letter, carrier) == text, "the text is not what was sent");
  std::printf("opened again and read: %s", text.c_str());
  TryOther(letter, CSoftwareKeyCarrier(other));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: encrypted_letter DIRECTORY\n");
    return 1;
  }
  try {
    Require(gcry_check_version("1.8.0") != nullptr, "libgcrypt is too old");
    Require(gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0), "initialise libgcrypt");
    Run(arguments[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
