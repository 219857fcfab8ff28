// other_commands.cpp - trace files and digests.
#include <errno.h>
#include <fcntl.h>
#include <ktcomm/log.h>
#include <ktcomm/util_hash.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "base/io.h"
#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/number.h"

namespace kt::tools {
namespace {

constexpr size_t kPieceSize = 65536;

// ---- Trace ----------------------------------------------------------------

using TracePath = StringBuffer<127>;

TracePath trace_directory(int module) {
  TracePath path;
  path.append_format("%s/%s", paths::kTraceDirectory, mod_define[module].name);
  return path;
}

// The number of the file being written; nothing when nothing was traced yet.
std::optional<int> current_file(int module, int sub) {
  TracePath path = trace_directory(module);
  path.append_format("/~%d.info", sub);
  int words[2];  // sequence number of the next line, file number
  const unique_fd file = open_fd(path.c_str(), O_RDONLY);
  if (!file.ok() || read_fully(file.get(), words, sizeof words) != sizeof words) {
    return std::nullopt;
  }
  return words[1];
}

TracePath trace_file(int module, int sub, int number) {
  TracePath path = trace_directory(module);
  path.append_format("/%d-%d.log", sub, number);
  return path;
}

int list_modules() {
  (void)printf("ID  MODULE         SUB  LEVEL  FILE   SIZE\n");
  for (int module = 0; mod_define[module].name != nullptr; ++module) {
    const mod_define_entry& row = mod_define[module];
    for (int sub = 0; sub < row.log_count; ++sub) {
      (void)printf("%2d  %-13s  %3d  %5d", module, row.name, sub, row.level);
      const auto number = current_file(module, sub);
      struct stat status;
      if (number && ::stat(trace_file(module, sub, *number).c_str(), &status) == 0) {
        (void)printf("  %4d  %5lld\n", *number, static_cast<long long>(status.st_size));
      } else {
        (void)printf("     -      -\n");
      }
    }
  }
  return kDone;
}

std::optional<int> find_module(const char* text) {
  const auto number = parse_number(text);
  for (int module = 0; mod_define[module].name != nullptr; ++module) {
    if (number == module || strcmp(mod_define[module].name, text) == 0) return module;
  }
  return std::nullopt;
}

int print_file(const char* path) {
  const unique_fd file = open_fd(path, O_RDONLY);
  if (!file.ok()) return fail_errno(path);
  char piece[4096];
  ssize_t size;
  while ((size = read_fully(file.get(), piece, sizeof piece)) > 0) {
    (void)fwrite(piece, 1, static_cast<size_t>(size), stdout);
  }
  return size == 0 ? kDone : fail_errno(path);
}

// ---- Digests --------------------------------------------------------------

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

int hash_file(const Request& request, const char* name) {
  unique_fd opened;
  if (strcmp(name, "-") != 0) {
    opened = open_fd(name, O_RDONLY);
    if (!opened.ok()) return fail_errno(name);
  }
  HexDigest text;
  if (!compute(request, opened.ok() ? opened.get() : STDIN_FILENO, text)) {
    return errno == EFBIG ? fail(kRefused, "%s: too long for this digest", name) : fail_errno(name);
  }
  (void)printf("%s  %s\n", text.c_str(), name);
  return kDone;
}

}  // namespace

int show_trace(const Request& request) {
  if (request.count == 0) return list_modules();
  const auto module = find_module(request.arguments[0]);
  if (!module) return fail(kNotFound, "%s: there is no such trace module", request.arguments[0]);
  const auto sub = request.count == 2 ? parse_number(request.arguments[1]) : 0;
  if (!sub || *sub < 0 || *sub > 1) return fail(kUsage, "%s: SUB is 0 or 1", request.arguments[1]);
  const auto number = current_file(*module, *sub);
  if (!number) {
    return fail(kNotFound, "%s: nothing was traced", trace_file(*module, *sub, 0).c_str());
  }
  return print_file(trace_file(*module, *sub, *number).c_str());
}

int hash_files(const Request& request) {
  int worst = kDone;
  for (int i = 0; i < request.count; ++i) {
    const int code = hash_file(request, request.arguments[i]);
    if (code > worst) worst = code;
  }
  return worst;
}

}  // namespace kt::tools
