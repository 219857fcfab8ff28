#include <ktcomm/util_hash.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>
#include <utility>

#include "util/hash_block.h"
#include "util/hex_text.h"

static_assert(offsetof(SHA256Context, Intermediate_Hash) == 0 &&
              offsetof(SHA256Context, Length_Low) == 32 &&
              offsetof(SHA256Context, Length_High) == 36 &&
              offsetof(SHA256Context, Message_Block_Index) == 40 &&
              offsetof(SHA256Context, Message_Block) == 42 &&
              offsetof(SHA256Context, Computed) == 108 &&
              offsetof(SHA256Context, Corrupted) == 112 && sizeof(SHA256Context) == 116);

namespace kt {
namespace {

constexpr size_t kSize224 = 28;
constexpr size_t kSize256 = 32;

constexpr uint32_t kInitial224[8] = {0xc1059ed8, 0x367cd507, 0x3070dd17, 0xf70e5939,
                                     0xffc00b31, 0x68581511, 0x64f98fa7, 0xbefa4fa4};
constexpr uint32_t kInitial256[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                     0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

// The fractions of the cube roots of the first 64 primes.
constexpr uint32_t kRoots[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

// What rounds work on: the eight words, the last 16 words of the message
// schedule, and b ^ c of the round, which is a ^ b of the one before.
struct Work {
  uint32_t words[8];
  uint32_t schedule[16];
  uint32_t b_xor_c;
};

template <size_t I>
[[gnu::always_inline]] inline void extend_schedule(Work& work) {
  const uint32_t low = work.schedule[(I + 1) % 16];
  const uint32_t high = work.schedule[(I + 14) % 16];
  work.schedule[I] += work.schedule[(I + 9) % 16] +
                      (std::rotr(low, 7) ^ std::rotr(low, 18) ^ (low >> 3)) +
                      (std::rotr(high, 17) ^ std::rotr(high, 19) ^ (high >> 10));
}

// One round, `I` its number modulo 16. The caller's loop is unrolled, so the
// rotation of the eight words costs nothing: round `I` works on them under other names.
template <size_t I>
[[gnu::always_inline]] inline void round(Work& work, const uint32_t* roots) {
  uint32_t(&words)[8] = work.words;
  const uint32_t a = words[(16 - I) % 8];
  const uint32_t b = words[(17 - I) % 8];
  uint32_t& d = words[(19 - I) % 8];
  const uint32_t e = words[(20 - I) % 8];
  const uint32_t f = words[(21 - I) % 8];
  const uint32_t g = words[(22 - I) % 8];
  uint32_t& h = words[(23 - I) % 8];
  const uint32_t sum_e = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
  const uint32_t sum_a = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
  const uint32_t first = h + roots[I] + work.schedule[I] + (sum_e + (g ^ (e & (f ^ g))));
  d += first;
  // The majority of a, b and c.
  const uint32_t a_xor_b = a ^ b;
  h = first + (b ^ (a_xor_b & work.b_xor_c)) + sum_a;
  work.b_xor_c = a_xor_b;
}

template <size_t... I>
[[gnu::always_inline]] inline void first_rounds(Work& work, const unsigned char* data,
                                                std::index_sequence<I...>) {
  ((work.schedule[I] = load_word<std::endian::big>(data + 4 * I), round<I>(work, kRoots)), ...);
}

template <size_t... I>
[[gnu::always_inline]] inline void later_rounds(Work& work, const uint32_t* roots,
                                                std::index_sequence<I...>) {
  ((extend_schedule<I>(work), round<I>(work, roots)), ...);
}

// Mixes whole blocks straight from the message into the intermediate hash.
void compress(unsigned (&hash)[8], const unsigned char* data, size_t blocks) {
  constexpr auto kSixteen = std::make_index_sequence<16>();
  for (; blocks != 0; --blocks, data += kHashBlock) {
    Work work;
    memcpy(work.words, hash, sizeof(hash));
    work.b_xor_c = work.words[1] ^ work.words[2];
    first_rounds(work, data, kSixteen);
    for (size_t i = 16; i < 64; i += 16) later_rounds(work, kRoots + i, kSixteen);
    for (size_t i = 0; i < 8; ++i) hash[i] += work.words[i];
  }
}

auto compress_into(SHA256Context& context) {
  return [&context](const unsigned char* data, size_t blocks) {
    compress(context.Intermediate_Hash, data, blocks);
  };
}

int reset(SHA256Context* context, const uint32_t (&initial)[8]) {
  if (context == nullptr) return shaNull;
  memset(context, 0, sizeof(*context));
  memcpy(context->Intermediate_Hash, initial, sizeof(initial));
  return shaSuccess;
}

// Counts `bits` more. A message of 2^64 bits corrupts the context, noticed by
// the calls that follow.
void count_bits(SHA256Context& context, uint64_t bits) {
  const uint64_t before = uint64_t{context.Length_High} << 32 | context.Length_Low;
  const uint64_t length = before + bits;
  context.Length_High = static_cast<unsigned>(length >> 32);
  context.Length_Low = static_cast<unsigned>(length);
  if (length < before) context.Corrupted = 1;
}

// A context that was never reset must not lead out of its block.
size_t held_bytes(const SHA256Context& context) {
  return static_cast<size_t>(context.Message_Block_Index) % kHashBlock;
}

// Pads with `mark`, the bits that are left and a one, and takes the message out
// of the context.
void finish(SHA256Context& context, unsigned char mark) {
  constexpr auto kOrder = std::endian::big;
  unsigned char(&block)[kHashBlock] = context.Message_Block;
  pad_blocks(block, held_bytes(context), mark, compress_into(context));
  store_word<kOrder>(block + kHashLengthAt, context.Length_High);
  store_word<kOrder>(block + kHashLengthAt + 4, context.Length_Low);
  compress(context.Intermediate_Hash, block, 1);
  memset(block, 0, sizeof(block));
  context.Message_Block_Index = 0;
  context.Length_Low = context.Length_High = 0;
  context.Computed = 1;
}

int take_result(SHA256Context* context, unsigned char* out, size_t size) {
  if (context == nullptr || out == nullptr) return shaNull;
  if (context->Corrupted != 0) return context->Corrupted;
  if (context->Computed == 0) finish(*context, 0x80);
  for (size_t i = 0; i < size / 4; ++i) {
    store_word<std::endian::big>(out + 4 * i, context->Intermediate_Hash[i]);
  }
  return shaSuccess;
}

}  // namespace
}  // namespace kt

int SHA224Reset(SHA256Context* context) {
  return kt::reset(context, kt::kInitial224);
}

int SHA256Reset(SHA256Context* context) {
  return kt::reset(context, kt::kInitial256);
}

int SHA224Input(SHA256Context* context, const unsigned char* data, unsigned len) {
  return SHA256Input(context, data, len);
}

int SHA256Input(SHA256Context* context, const unsigned char* data, unsigned len) {
  if (len == 0) return shaSuccess;
  if (context == nullptr || data == nullptr) return shaNull;
  if (context->Computed != 0) return context->Corrupted = shaStateError;
  if (context->Corrupted != 0) return context->Corrupted;
  const size_t held = kt::feed_blocks(context->Message_Block, kt::held_bytes(*context), data, len,
                                      kt::compress_into(*context));
  context->Message_Block_Index = static_cast<short>(held);
  kt::count_bits(*context, uint64_t{len} * 8);
  return shaSuccess;
}

int SHA224FinalBits(SHA256Context* context, unsigned char bits, unsigned bit_count) {
  return SHA256FinalBits(context, bits, bit_count);
}

int SHA256FinalBits(SHA256Context* context, unsigned char bits, unsigned bit_count) {
  if (bit_count == 0) return shaSuccess;
  if (context == nullptr) return shaNull;
  if (context->Computed != 0 || bit_count > 7) return context->Corrupted = shaStateError;
  if (context->Corrupted != 0) return context->Corrupted;
  kt::count_bits(*context, bit_count);
  const unsigned mark = 0x80U >> bit_count;
  kt::finish(*context, static_cast<unsigned char>((bits & ~(mark - 1)) | mark));
  return shaSuccess;
}

int SHA224Result(SHA256Context* context, unsigned char* out) {
  return kt::take_result(context, out, kt::kSize224);
}

int SHA256Result(SHA256Context* context, unsigned char* out) {
  return kt::take_result(context, out, kt::kSize256);
}

int sha256_buffer_chk(unsigned char* out, const unsigned char* data, unsigned len, int as_text) {
  if (out == nullptr) return shaNull;
  SHA256Context context;
  unsigned char digest[kt::kSize256];
  (void)kt::reset(&context, kt::kInitial256);
  int result = SHA256Input(&context, data, len);
  if (result == shaSuccess) result = kt::take_result(&context, digest, sizeof(digest));
  if (result != shaSuccess) return result;
  if (as_text == 0) {
    memcpy(out, digest, sizeof(digest));
  } else {
    kt::write_hex(out, digest, sizeof(digest));
    out[2 * sizeof(digest)] = '\0';
  }
  return shaSuccess;
}
