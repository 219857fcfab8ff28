#include <ktcomm/util_hash.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>
#include <utility>

#include "util/hash_block.h"
#include "util/hex_text.h"
#include "util/sha256_schedule.h"

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

// What rounds work on: the eight words, and b ^ c of the round, which is a ^ b
// of the one before.
struct Work {
  uint32_t words[8];
  uint32_t b_xor_c;
};

// One round, `I` its number modulo 16. The caller's loop is unrolled, so the
// rotation of the eight words costs nothing: round `I` works on them under other names.
template <size_t I>
[[gnu::always_inline]] inline void round(Work& work, const Sha256Schedule& schedule) {
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
  const uint32_t first = h + schedule.due<I>() + (sum_e + (g ^ (e & (f ^ g))));
  d += first;
  // The majority of a, b and c.
  const uint32_t a_xor_b = a ^ b;
  h = first + (b ^ (a_xor_b & work.b_xor_c)) + sum_a;
  work.b_xor_c = a_xor_b;
}

template <size_t Four>
[[gnu::always_inline]] inline void four_rounds(Work& work, const Sha256Schedule& schedule) {
  round<4 * Four>(work, schedule);
  round<4 * Four + 1>(work, schedule);
  round<4 * Four + 2>(work, schedule);
  round<4 * Four + 3>(work, schedule);
}

template <size_t... Fours>
[[gnu::always_inline]] inline void rounds_with_more_to_come(Work& work, Sha256Schedule& schedule,
                                                            std::index_sequence<Fours...>) {
  ((four_rounds<Fours>(work, schedule), schedule.extend<Fours>()), ...);
}

template <size_t... Fours>
[[gnu::always_inline]] inline void last_rounds(Work& work, const Sha256Schedule& schedule,
                                               std::index_sequence<Fours...>) {
  (four_rounds<Fours>(work, schedule), ...);
}

// Mixes whole blocks straight from the message into the intermediate hash.
void compress(unsigned (&hash)[8], const unsigned char* data, size_t blocks) {
  constexpr auto kFours = std::make_index_sequence<4>();
  for (; blocks != 0; --blocks, data += kHashBlock) {
    Sha256Schedule schedule(data);
    Work work;
    memcpy(work.words, hash, sizeof(hash));
    work.b_xor_c = work.words[1] ^ work.words[2];
    for (int i = 0; i < 3; ++i) rounds_with_more_to_come(work, schedule, kFours);
    last_rounds(work, schedule, kFours);
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
