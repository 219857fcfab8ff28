#include "util/md5.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>
#include <utility>

#include "util/hash_block.h"

static_assert(offsetof(md5_ctx, count) == 0 && offsetof(md5_ctx, state) == 8 &&
              offsetof(md5_ctx, buffer) == 24 && offsetof(md5_ctx, digest) == 88 &&
              sizeof(md5_ctx) == 104);

namespace kt {
namespace {

// The whole part of 2^32 * |sin(i + 1)|.
constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr int kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// Which word of the block step `i` takes.
constexpr size_t word_of(size_t i) {
  constexpr size_t kStride[4] = {1, 5, 3, 7};
  constexpr size_t kFirst[4] = {0, 1, 5, 0};
  return (kFirst[i / 16] + kStride[i / 16] * i) % 16;
}

// One step. The caller's loop is unrolled, so the rotation of the four words
// costs nothing: step `I` works on them under other names.
template <size_t I>
[[gnu::always_inline]] inline void step(uint32_t (&words)[4], uint32_t (&block)[16],
                                        const unsigned char* data) {
  if constexpr (I < 16) block[I] = load_word<std::endian::little>(data + 4 * I);
  constexpr size_t kRound = I / 16;
  uint32_t a = words[(64 - I) % 4];
  const uint32_t b = words[(65 - I) % 4];
  const uint32_t c = words[(66 - I) % 4];
  const uint32_t d = words[(67 - I) % 4];
  a += kSine[I] + block[word_of(I)];
  if constexpr (kRound == 0) a += d ^ (b & (c ^ d));
  // Two sums instead of one or: only the second waits for the last step's result.
  if constexpr (kRound == 1) a = a + (c & ~d) + (b & d);
  if constexpr (kRound == 2) a += b ^ (c ^ d);
  if constexpr (kRound == 3) a += c ^ (b | ~d);
  words[(64 - I) % 4] = std::rotl(a, kShift[kRound][I % 4]) + b;
}

template <size_t... I>
[[gnu::always_inline]] inline void all_steps(uint32_t (&words)[4], uint32_t (&block)[16],
                                             const unsigned char* data, std::index_sequence<I...>) {
  (step<I>(words, block, data), ...);
}

// Mixes whole blocks straight from the message into the chaining words.
void compress(unsigned (&state)[4], const unsigned char* data, size_t blocks) {
  uint32_t words[4] = {state[0], state[1], state[2], state[3]};
  for (; blocks != 0; --blocks, data += kHashBlock) {
    uint32_t block[16];
    const uint32_t before[4] = {words[0], words[1], words[2], words[3]};
    all_steps(words, block, data, std::make_index_sequence<64>());
    for (size_t i = 0; i < 4; ++i) words[i] += before[i];
  }
  memcpy(state, words, sizeof(words));
}

auto compress_into(md5_ctx& ctx) {
  return [&ctx](const unsigned char* data, size_t blocks) { compress(ctx.state, data, blocks); };
}

size_t held_bytes(const md5_ctx& ctx) {
  return ctx.count[0] / 8 % kHashBlock;
}

}  // namespace

void md5_start(md5_ctx& ctx) {
  constexpr unsigned kInitial[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  memset(ctx.count, 0, sizeof(ctx.count));
  memcpy(ctx.state, kInitial, sizeof(kInitial));
}

void md5_add(md5_ctx& ctx, const unsigned char* data, unsigned len) {
  (void)feed_blocks(ctx.buffer, held_bytes(ctx), data, len, compress_into(ctx));
  const unsigned low_bits = len << 3;
  ctx.count[0] += low_bits;
  ctx.count[1] += (len >> 29) + (ctx.count[0] < low_bits ? 1 : 0);
}

void md5_end(md5_ctx& ctx) {
  constexpr auto kOrder = std::endian::little;
  pad_blocks(ctx.buffer, held_bytes(ctx), 0x80, compress_into(ctx));
  store_word<kOrder>(ctx.buffer + kHashLengthAt, ctx.count[0]);
  store_word<kOrder>(ctx.buffer + kHashLengthAt + 4, ctx.count[1]);
  compress(ctx.state, ctx.buffer, 1);
  for (size_t i = 0; i < 4; ++i) store_word<kOrder>(ctx.digest + 4 * i, ctx.state[i]);
}

}  // namespace kt

void MD5Initial(md5_ctx* ctx) {
  if (ctx != nullptr) kt::md5_start(*ctx);
}

void MD5Process(md5_ctx* ctx, const unsigned char* data, unsigned len) {
  if (ctx != nullptr && data != nullptr) kt::md5_add(*ctx, data, len);
}

void MD5Finsh(md5_ctx* ctx) {
  if (ctx != nullptr) kt::md5_end(*ctx);
}

void kt_md5_init(md5_ctx* ctx) {
  MD5Initial(ctx);
}

void kt_md5_update(md5_ctx* ctx, const unsigned char* data, unsigned len) {
  MD5Process(ctx, data, len);
}

void kt_md5_final(md5_ctx* ctx) {
  MD5Finsh(ctx);
}
