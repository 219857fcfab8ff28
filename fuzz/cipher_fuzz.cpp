// Ciphers and hex digits from others, against the same cipher by way of another interface.
//
// Input: 1 for hex digits, else 0; the text or cipher.
#include <openssl/evp.h>
#include <string.h>

#include "fuzz/fuzz.h"
#include "ktcomm/util_hash.h"

using namespace kt::fuzz;

namespace {

using Bytes = std::vector<unsigned char>;

// Whole blocks, deciphered or enciphered, without regard to padding.
Bytes crypted(const Bytes& in, bool encrypt) {
  unsigned char key[32], start[16];
  expect(get_encrypt_key(key, sizeof key, 1) == key, "the key is there");
  memset(start, 0x5C, sizeof start);
  Bytes out(in.size() + 16);
  int size = 0;
  EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
  EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, key, start, encrypt ? 1 : 0);
  EVP_CIPHER_CTX_set_padding(context, 0);
  EVP_CipherUpdate(context, out.data(), &size, in.data(), static_cast<int>(in.size()));
  EVP_CIPHER_CTX_free(context);
  out.resize(static_cast<size_t>(size));
  return out;
}

std::string hex_of(const Bytes& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  return text;
}

void judge_encryption(const Bytes& plain, bool hex) {
  Bytes padded = plain;
  padded.resize((plain.size() / 16 + 1) * 16, static_cast<unsigned char>(16 - plain.size() % 16));
  const Bytes cipher = crypted(padded, true);
  const std::string wanted = hex ? hex_of(cipher) + '\0' : std::string(cipher.begin(), cipher.end());
  Bytes out(wanted.size(), '#');
  const int length = kt_aes_encrypt(out.data(), plain.data(), static_cast<unsigned>(plain.size()), hex);
  expect_same("length of cipher", static_cast<size_t>(length), wanted.size() - (hex ? 1 : 0));
  expect_same("cipher", std::string(out.begin(), out.end()), wanted);

  const int back = kt_aes_decrypt(out.data(), out.data(), length, hex);
  expect_same("length deciphered in place", static_cast<size_t>(back), plain.size());
  expect(plain.empty() || memcmp(out.data(), plain.data(), plain.size()) == 0, "what is enciphered comes back");
}

// The bytes of hex digits up to a character that is none.
Bytes bytes_of(const Bytes& digits) {
  constexpr char kDigits[] = "0123456789abcdefABCDEF";
  Bytes bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    const std::string pair(digits.begin() + static_cast<long>(i), digits.begin() + static_cast<long>(i) + 2);
    if (pair.find('\0') != pair.npos || pair.find_first_not_of(kDigits) != pair.npos) break;
    bytes.push_back(static_cast<unsigned char>(std::stoi(pair, nullptr, 16)));
  }
  return bytes;
}

void judge_decryption(const Bytes& in, bool hex) {
  const Bytes cipher = hex ? bytes_of(in) : in;
  Bytes out(hex ? in.size() / 2 : in.size(), '#');
  const int length = kt_aes_decrypt(out.data(), in.data(), static_cast<int>(in.size()), hex);
  if (in.size() < 16 || in.size() % 16 != 0 || cipher.size() % 16 != 0 || cipher.size() != out.size()) {
    expect_same("result for what is no cipher", length, -1);
    return;
  }
  const Bytes plain = crypted(cipher, false);
  const unsigned pad = plain.back();
  const bool good = pad >= 1 && pad <= 16;
  expect_same("result of deciphering", length, good ? static_cast<int>(plain.size() - pad) : -2);
  if (!good) return;
  expect(memcmp(out.data(), plain.data(), static_cast<size_t>(length)) == 0, "deciphered text");
  expect_same("end of the text", out[static_cast<size_t>(length)], 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const bool hex = input.number() == 1;
  const std::string rest = input.rest();
  Bytes bytes(rest.begin(), rest.end());
  bytes.reserve(1);  // not null when it is empty
  judge_encryption(bytes, hex);
  judge_decryption(bytes, hex);
  return 0;
}
