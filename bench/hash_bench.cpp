// Digests and checksums, against OpenSSL without the extensions of a big processor.
#include <fcntl.h>
#include <ktcomm/util.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include "bench/bench.h"
#include "bench/hand.h"

namespace kt::bench {
namespace {

constexpr size_t kLargest = 1 << 20, kStream = 4 << 20;
unsigned char g_data[kLargest];

// OpenSSL's plain functions: the newer interface adds hundreds of nanoseconds a call.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

void md5_of_openssl(unsigned char* out, unsigned size) {
  MD5_CTX context;
  MD5_Init(&context);
  MD5_Update(&context, g_data, size);
  MD5_Final(out, &context);
}

void sha256_of_openssl(unsigned char* out, unsigned size) {
  SHA256_CTX context;
  SHA256_Init(&context);
  SHA256_Update(&context, g_data, size);
  SHA256_Final(out, &context);
}

#pragma GCC diagnostic pop

void md5_of_library(unsigned char* out, unsigned size) {
  md5_buffer(g_data, size, out);
}

void sha256_of_library(unsigned char* out, unsigned size) {
  require(sha256_buffer_chk(out, g_data, size, 0) == 0, "sha256_buffer_chk");
}

using Digest = void (*)(unsigned char* out, unsigned size);

void add_digest(const char* name, unsigned size, Digest library, Digest openssl) {
  unsigned char a[32] = {}, b[32] = {};
  library(a, size);
  openssl(b, size);
  require(memcmp(a, b, sizeof a) == 0, name);
  const auto call = [size](Digest digest) {
    return [=] {
      unsigned char out[32];
      digest(out, size);
      benchmark::DoNotOptimize(out);
    };
  };
  add(name, {{Aim::kRatio, 1.0}}, call(library), call(openssl));
}

uint16_t g_crc_table[256];

void make_crc_table() {
  for (unsigned byte = 0; byte < 256; ++byte) {
    unsigned crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xA001 : crc >> 1;
    g_crc_table[byte] = static_cast<uint16_t>(crc);
  }
}

[[gnu::noinline]] unsigned short crc_by_hand(const unsigned char* data, unsigned short size) {
  unsigned crc = 0xFFFF;
  for (unsigned i = 0; i < size; ++i) crc = crc >> 8 ^ g_crc_table[(crc ^ data[i]) & 0xFF];
  return static_cast<unsigned short>(crc << 8 | crc >> 8);
}

void add_crc(const char* name, unsigned short size) {
  require(crc16(g_data, size) == crc_by_hand(g_data, size), name);
  add(
      name, {{Aim::kRatio, 1.0}}, [size] { benchmark::DoNotOptimize(crc16(g_data, size)); },
      [size] { benchmark::DoNotOptimize(crc_by_hand(g_data, size)); });
}

// 4096 bytes at a time into the same rounds.
void stream_by_hand(int fd, unsigned char* out) {
  unsigned char chunk[4096];
  md5_ctx context;
  (void)lseek(fd, 0, SEEK_SET);
  MD5Initial(&context);
  for (size_t left = kStream; left != 0; left -= sizeof chunk) {
    require(read(fd, chunk, sizeof chunk) == sizeof chunk, "read");
    MD5Process(&context, chunk, sizeof chunk);
  }
  MD5Finsh(&context);
  memcpy(out, context.digest, 16);
}

void add_stream() {
  write_text("/tmp/stream", std::string(kStream, 'x'));
  static const int fd = open("/tmp/stream", O_RDONLY | O_CLOEXEC);
  add(
      "md5_stream, 4 MiB", {{Aim::kRatio, 1.02}, 61, 1},
      [] {
        unsigned char out[16];
        require(md5_stream(out, fd, 0, kStream) == 0, "md5_stream");
      },
      [] {
        unsigned char out[16];
        stream_by_hand(fd, out);
      });
}

}  // namespace

void add_all() {
  for (size_t i = 0; i < kLargest; ++i) g_data[i] = static_cast<unsigned char>(i * 37 ^ i >> 8);
  make_crc_table();
  add_digest("MD5, 1 KiB", 1024, md5_of_library, md5_of_openssl);
  add_digest("MD5, 16 KiB", 16384, md5_of_library, md5_of_openssl);
  add_digest("MD5, 1 MiB", kLargest, md5_of_library, md5_of_openssl);
  add_digest("SHA-256, 1 KiB", 1024, sha256_of_library, sha256_of_openssl);
  add_digest("SHA-256, 16 KiB", 16384, sha256_of_library, sha256_of_openssl);
  add_digest("SHA-256, 1 MiB", kLargest, sha256_of_library, sha256_of_openssl);
  add_crc("CRC-16, 64 bytes", 64);
  add_crc("CRC-16, 16 KiB", 16384);
  add_stream();
}

}  // namespace kt::bench
