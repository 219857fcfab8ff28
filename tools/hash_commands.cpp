// hash_commands.cpp - digests of files.
#include <errno.h>
#include <fcntl.h>
#include <ktcomm/util_hash.h>
#include <stdio.h>
#include <string.h>

#include "base/io.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/printer.h"

namespace kt::tools {
namespace {

constexpr size_t kPieceSize = 65536;

// Hands all of the file to `take(data, size)`; false, with errno, when it
// cannot be read.
template <typename F>
[[nodiscard]] bool read_pieces(int fd, F take) {
  const auto piece = allocate<unsigned char>(kPieceSize);
  if (piece == nullptr) return false;
  ssize_t size;
  while ((size = read_fully(fd, piece.get(), kPieceSize)) > 0) {
    take(piece.get(), static_cast<unsigned>(size));
  }
  return size == 0;
}

using HexDigest = StringBuffer<64>;

void append_hex(HexDigest& text, const unsigned char* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) text.append_format("%02x", bytes[i]);
}

[[nodiscard]] bool hash_md5(int fd, HexDigest& text) {
  md5_ctx md5;
  MD5Initial(&md5);
  if (!read_pieces(
          fd, [&](const unsigned char* data, unsigned size) { MD5Process(&md5, data, size); })) {
    return false;
  }
  MD5Finsh(&md5);
  append_hex(text, md5.digest, sizeof md5.digest);
  return true;
}

[[nodiscard]] bool hash_sha256(int fd, HexDigest& text) {
  SHA256Context sha;
  (void)SHA256Reset(&sha);  // fails for null only
  int result = shaSuccess;
  if (!read_pieces(fd, [&](const unsigned char* data, unsigned size) {
        result = SHA256Input(&sha, data, size);
      })) {
    return false;
  }
  unsigned char digest[32];
  if (result != shaSuccess || SHA256Result(&sha, digest) != shaSuccess) {
    errno = EFBIG;
    return false;
  }
  append_hex(text, digest, sizeof digest);
  return true;
}

// The checksum takes its data in one piece, of a 16-bit length.
[[nodiscard]] bool hash_crc16(int fd, HexDigest& text) {
  constexpr size_t kLongest = 65535;
  const auto data = allocate<unsigned char>(kLongest + 1);
  if (data == nullptr) return false;
  const ssize_t size = read_fully(fd, data.get(), kLongest + 1);
  if (size < 0) return false;
  if (static_cast<size_t>(size) > kLongest) {
    errno = EFBIG;
    return false;
  }
  text.append_format("%04x", crc16(data.get(), static_cast<unsigned short>(size)));
  return true;
}

[[nodiscard]] bool compute(const Request& request, int fd, HexDigest& text) {
  if (request.has(Option::kSha256)) return hash_sha256(fd, text);
  if (request.has(Option::kCrc16)) return hash_crc16(fd, text);
  return hash_md5(fd, text);
}

const char* algorithm_of(const Request& request) {
  if (request.has(Option::kSha256)) return "sha256";
  return request.has(Option::kCrc16) ? "crc16" : "md5";
}

int hash_file(const Request& request, Printer& printer, const char* name) {
  unique_fd opened;
  if (strcmp(name, "-") != 0) {
    opened = open_fd(name, O_RDONLY);
    if (!opened.ok()) return fail_errno(name);
  }
  HexDigest text;
  if (!compute(request, opened.ok() ? opened.get() : STDIN_FILENO, text)) {
    return errno == EFBIG ? fail(kRefused, "%s: too long for this digest", name) : fail_errno(name);
  }
  if (printer.plain()) {
    (void)printf("%s  %s\n", text.c_str(), name);
    return kDone;
  }
  printer.begin_object(nullptr);
  printer.text("file", name);
  printer.text("algorithm", algorithm_of(request));
  printer.text("digest", text.view());
  printer.end_object();
  return kDone;
}

}  // namespace

int hash_files(const Request& request) {
  if (request.has(Option::kSha256) && request.has(Option::kCrc16)) {
    return fail(kUsage, "--sha256 and --crc16: one of them is wanted");
  }
  Printer printer(request);
  if (!printer.plain()) printer.begin_list("digests");
  int worst = kDone;
  for (int i = 0; i < request.count; ++i) {
    const int code = hash_file(request, printer, request.arguments[i]);
    if (code > worst) worst = code;
  }
  return worst;
}

}  // namespace kt::tools
