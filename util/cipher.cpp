// The one-chunk calls of AES are what this cipher is made of; newer versions of
// the library advise against them.
#define OPENSSL_SUPPRESS_DEPRECATED

#include <ktcomm/util_hash.h>
#include <limits.h>
#include <openssl/aes.h>
#include <openssl/crypto.h>
#include <string.h>

#include "util/hex_text.h"

namespace kt {
namespace {

enum : int { kFailed = -1, kBadPadding = -2 };

constexpr unsigned kKeySize = 32;
constexpr int kKeyBits = 256;
constexpr int kTextKey = 1;
constexpr size_t kChunk = 128;
constexpr unsigned kBlock = AES_BLOCK_SIZE;

// Scrambled: a byte of the key is the stored one ^ (39 - its place).
constexpr unsigned char kStoredKeys[2][kKeySize] = {
    {0x79, 0x8c, 0x67, 0x2f, 0x46, 0xc0, 0xc9, 0x8c, 0x45, 0x17, 0x54,
     0xd0, 0xb0, 0x90, 0xb5, 0x1e, 0x13, 0x98, 0xef, 0xe5, 0x4f, 0x9b,
     0x51, 0x59, 0xac, 0x7a, 0x71, 0xfb, 0xa8, 0xe2, 0x9f, 0xf8},
    {0xb9, 0x65, 0x85, 0x36, 0x48, 0x35, 0x35, 0xe5, 0xf9, 0x2d, 0xe8,
     0xb2, 0xb8, 0xff, 0xae, 0x61, 0xdf, 0x10, 0x24, 0xe4, 0x37, 0xed,
     0x47, 0x1d, 0x4a, 0xc5, 0x03, 0x17, 0x16, 0x90, 0x4d, 0xa5}};

// One message on its way through the cipher, wiped at the end: key schedule,
// chaining value and plaintext.
class Chain {
 public:
  Chain() = default;
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;
  ~Chain() { OPENSSL_cleanse(this, sizeof(*this)); }

  // `expand` is AES_set_encrypt_key or AES_set_decrypt_key.
  [[nodiscard]] bool start(int (*expand)(const unsigned char*, int, AES_KEY*)) {
    memset(chaining_, 0x5C, sizeof(chaining_));
    unsigned char key[kKeySize];
    const bool good = get_encrypt_key(key, kKeySize, kTextKey) != nullptr &&
                      expand(key, kKeyBits, &schedule_) == 0;
    OPENSSL_cleanse(key, sizeof(key));
    return good;
  }

  // The next chunk, to be filled before `run`.
  [[nodiscard]] unsigned char* chunk() { return chunk_; }

  // Writes the first `count` bytes of the chunk, whole blocks, in their other
  // form to `out`.
  void run(unsigned char* out, size_t count, int direction) {
    AES_cbc_encrypt(chunk_, out, count, &schedule_, chaining_, direction);
  }

 private:
  AES_KEY schedule_;
  unsigned char chaining_[kBlock];
  unsigned char chunk_[kChunk];
};

int digit_value(unsigned char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const unsigned char lower = digit | 0x20;
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Decodes `count` pairs of digits; `out` may be `digits`. False at a character
// that is no digit, with a 0 in the place of its byte.
[[nodiscard]] bool read_hex(unsigned char* out, const unsigned char* digits, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const int high = digit_value(digits[2 * i]);
    const int low = digit_value(digits[2 * i + 1]);
    out[i] = high < 0 || low < 0 ? 0 : static_cast<unsigned char>(high << 4 | low);
    if (high < 0 || low < 0) return false;
  }
  return true;
}

}  // namespace
}  // namespace kt

int kt_aes_encrypt(unsigned char* out, const unsigned char* in, unsigned len, int as_hex) {
  if (out == nullptr || in == nullptr) return kt::kFailed;
  const unsigned pad = kt::kBlock - len % kt::kBlock;
  const unsigned long long cipher_size = 0ULL + len + pad;
  if (cipher_size * (as_hex != 0 ? 2 : 1) > INT_MAX) return kt::kFailed;
  kt::Chain chain;
  if (!chain.start(AES_set_encrypt_key)) return kt::kFailed;
  size_t at = 0;
  for (; len - at >= kt::kChunk; at += kt::kChunk) {
    memcpy(chain.chunk(), in + at, kt::kChunk);
    chain.run(out + at, kt::kChunk, AES_ENCRYPT);
  }
  const size_t rest = len - at;
  memcpy(chain.chunk(), in + at, rest);
  memset(chain.chunk() + rest, static_cast<int>(pad), pad);
  chain.run(out + at, rest + pad, AES_ENCRYPT);
  const size_t size = at + rest + pad;
  if (as_hex == 0) return static_cast<int>(size);
  kt::write_hex(out, out, size);
  out[2 * size] = '\0';
  return static_cast<int>(2 * size);
}

int kt_aes_decrypt(unsigned char* out, const unsigned char* in, int len, int from_hex) {
  if (out == nullptr || in == nullptr) return kt::kFailed;
  if (len < static_cast<int>(kt::kBlock) || len % static_cast<int>(kt::kBlock) != 0) {
    return kt::kFailed;
  }
  size_t size = static_cast<size_t>(len);
  if (from_hex != 0) {
    size /= 2;
    // Half a block at the end, as of 48 digits, cannot be decrypted.
    if (!kt::read_hex(out, in, size) || size % kt::kBlock != 0) return kt::kFailed;
  } else {
    memmove(out, in, size);
  }
  kt::Chain chain;
  if (!chain.start(AES_set_decrypt_key)) return kt::kFailed;
  for (size_t at = 0; at < size; at += kt::kChunk) {
    const size_t count = size - at < kt::kChunk ? size - at : kt::kChunk;
    memcpy(chain.chunk(), out + at, count);
    chain.run(out + at, count, AES_DECRYPT);
  }
  const unsigned char pad = out[size - 1];
  if (pad < 1 || pad > kt::kBlock) return kt::kBadPadding;
  out[size - pad] = '\0';
  return static_cast<int>(size - pad);
}

unsigned char* get_encrypt_key(unsigned char* out, unsigned len, int selector) {
  if (out == nullptr || (selector != 1 && selector != 2)) return nullptr;
  const unsigned char(&stored)[kt::kKeySize] = kt::kStoredKeys[selector - 1];
  if (len > kt::kKeySize) len = kt::kKeySize;
  for (unsigned i = 0; i < len; ++i) out[i] = static_cast<unsigned char>(stored[i] ^ (39 - i));
  return out;
}
