// sha256_schedule.h - the message schedule of SHA-256: 16 words of a block, and 48 that are
// made of them while the rounds go on; each is due with its round's constant added.
//
// A schedule stands for 16 rounds at a time, in fours. Once round 4 * F + 3 is over,
// extend<F>() replaces its words by those that are due 16 rounds later.
#ifndef KTCOMM_UTIL_SHA256_SCHEDULE_H
#define KTCOMM_UTIL_SHA256_SCHEDULE_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>

#include "util/hash_block.h"

namespace kt {

// The fractions of the cube roots of the first 64 primes.
inline constexpr uint32_t kRoots[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

#ifdef __SSE2__

// In vectors of four words: their units would else be idle while the rounds
// keep the others busy.
class Sha256Schedule {
 public:
  explicit Sha256Schedule(const unsigned char* block) {
    for (size_t i = 0; i < 16; ++i) {
      words_[i / 4][i % 4] = load_word<std::endian::big>(block + 4 * i);
    }
    add_roots<0>();
    add_roots<1>();
    add_roots<2>();
    add_roots<3>();
  }

  template <size_t I>
  [[gnu::always_inline]] uint32_t due() const {
    return due_[I];
  }

  template <size_t Four>
  [[gnu::always_inline]] void extend() {
    Words& words = words_[Four];
    const Words& later = words_[(Four + 1) % 4];
    const Words& ninth = words_[(Four + 2) % 4];
    const Words& last = words_[(Four + 3) % 4];
    words += low_sigma(__builtin_shufflevector(words, later, 1, 2, 3, 4)) +
             __builtin_shufflevector(ninth, last, 1, 2, 3, 4);
    // The second two depend on the first two.
    const Words none = {};
    const Words first = high_sigma(__builtin_shufflevector(last, last, 2, 2, 3, 3));
    words += __builtin_shufflevector(first, none, 0, 2, 4, 4);
    const Words second = high_sigma(__builtin_shufflevector(words, words, 0, 0, 1, 1));
    words += __builtin_shufflevector(second, none, 4, 4, 0, 2);
    add_roots<Four>();
  }

 private:
  using Words = uint32_t __attribute__((vector_size(16)));
  using Pairs = uint64_t __attribute__((vector_size(16)));

  template <int N>
  [[gnu::always_inline]] static Words rotate(const Words& words) {
    return words >> N | words << (32 - N);
  }

  [[gnu::always_inline]] static Words low_sigma(const Words& words) {
    return rotate<7>(words) ^ rotate<18>(words) ^ words >> 3;
  }

  // Of words that stand there twice, so that one shift of a pair rotates its lower word.
  [[gnu::always_inline]] static Words high_sigma(const Words& twice) {
    const Pairs by_17 = reinterpret_cast<Pairs>(twice) >> 17;
    const Pairs by_19 = by_17 >> 2;
    return reinterpret_cast<Words>(by_17 ^ by_19) ^ twice >> 10;
  }

  template <size_t Four>
  [[gnu::always_inline]] void add_roots() {
    Words sums;
    memcpy(&sums, roots_, sizeof(sums));
    sums += words_[Four];
    memcpy(due_ + 4 * Four, &sums, sizeof(sums));
    roots_ += 4;
  }

  Words words_[4];
  uint32_t due_[16];
  const uint32_t* roots_ = kRoots;
};

#else

class Sha256Schedule {
 public:
  explicit Sha256Schedule(const unsigned char* block) {
    for (size_t i = 0; i < 16; ++i) words_[i] = load_word<std::endian::big>(block + 4 * i);
  }

  template <size_t I>
  [[gnu::always_inline]] uint32_t due() const {
    return words_[I] + roots_[I];
  }

  template <size_t Four>
  [[gnu::always_inline]] void extend() {
    extend_word<4 * Four>();
    extend_word<4 * Four + 1>();
    extend_word<4 * Four + 2>();
    extend_word<4 * Four + 3>();
    if constexpr (Four == 3) roots_ += 16;
  }

 private:
  template <size_t I>
  [[gnu::always_inline]] void extend_word() {
    const uint32_t low = words_[(I + 1) % 16];
    const uint32_t high = words_[(I + 14) % 16];
    words_[I] += words_[(I + 9) % 16] + (std::rotr(low, 7) ^ std::rotr(low, 18) ^ (low >> 3)) +
                 (std::rotr(high, 17) ^ std::rotr(high, 19) ^ (high >> 10));
  }

  uint32_t words_[16];
  const uint32_t* roots_ = kRoots;
};

#endif

}  // namespace kt

#endif
