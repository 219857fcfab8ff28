// hash_block.h - what MD5 and SHA-256 share: a message in blocks of 64 bytes,
// its words and its padding. `compress` stands for a function of (data, block count).
#ifndef KTCOMM_UTIL_HASH_BLOCK_H
#define KTCOMM_UTIL_HASH_BLOCK_H

#include <stdint.h>
#include <string.h>

#include <bit>

namespace kt {

inline constexpr size_t kHashBlock = 64;
inline constexpr size_t kHashLengthAt = kHashBlock - 8;

template <std::endian Order>
inline uint32_t load_word(const unsigned char* bytes) {
  uint32_t word;
  memcpy(&word, bytes, sizeof(word));
  return std::endian::native == Order ? word : __builtin_bswap32(word);
}

template <std::endian Order>
inline void store_word(unsigned char* bytes, uint32_t word) {
  if constexpr (std::endian::native != Order) word = __builtin_bswap32(word);
  memcpy(bytes, &word, sizeof(word));
}

// Compresses the `held` bytes of `buffer` and the `len` of `data` as far as they
// fill blocks, whole ones straight from `data`. Returns the bytes then held.
template <typename Compress>
size_t feed_blocks(unsigned char (&buffer)[kHashBlock], size_t held, const unsigned char* data,
                   size_t len, Compress compress) {
  if (len == 0) return held;
  if (held != 0) {
    const size_t missing = kHashBlock - held;
    if (len < missing) {
      memcpy(buffer + held, data, len);
      return held + len;
    }
    memcpy(buffer + held, data, missing);
    compress(buffer, 1);
    data += missing;
    len -= missing;
  }
  const size_t rest = len % kHashBlock;
  compress(data, len / kHashBlock);
  memcpy(buffer, data + (len - rest), rest);
  return rest;
}

// Ends a message of which `held` bytes are in `buffer`: `mark`, then zeros up to
// where the length of the last block stands, which is left to be filled.
template <typename Compress>
void pad_blocks(unsigned char (&buffer)[kHashBlock], size_t held, unsigned char mark,
                Compress compress) {
  buffer[held++] = mark;
  if (held > kHashLengthAt) {
    memset(buffer + held, 0, kHashBlock - held);
    compress(buffer, 1);
    held = 0;
  }
  memset(buffer + held, 0, kHashLengthAt - held);
}

}  // namespace kt

#endif
