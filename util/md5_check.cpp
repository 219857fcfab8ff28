#include <ktcomm/util_hash.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <span>

#include "util/hex_text.h"
#include "util/md5.h"

namespace kt {
namespace {

enum : int { kSuccess = 0, kFailed = -1 };

constexpr size_t kDigest = sizeof(md5_ctx::digest);
constexpr int kTextLength = 2 * kDigest;
constexpr int kChunk = 4096;

// How far a chunk has been read; `filled` is negative where no read met the end
// of the file.
struct Progress {
  int filled = -1;
  int size = 0;
};

[[nodiscard]] bool fill_chunk(int fd, unsigned char* chunk, Progress& progress) {
  while (progress.filled < progress.size) {
    const ssize_t count =
        ::read(fd, chunk + progress.filled, static_cast<size_t>(progress.size - progress.filled));
    if (count == 0) return false;
    // The -1 of a failed read is added like any other result: the next byte
    // takes the place of the last one. An error that lasts goes down to nothing and ends here.
    progress.filled += static_cast<int>(count);
    if (progress.filled < 0) return false;
  }
  return true;
}

using Bytes = std::span<const unsigned char>;

[[nodiscard]] int digest_range(unsigned char* out, int fd, unsigned start, unsigned end,
                               Bytes attachment, Progress& progress) {
  if (end < start || fd < 0 || out == nullptr) return kFailed;
  if (::lseek(fd, static_cast<off_t>(start), SEEK_SET) == -1) return kFailed;
  // Whole leading chunks of an attachment are passed over, yet counted: as many
  // bytes beyond `end` are read instead. Existing digests depend on it.
  const Bytes head = attachment.last(attachment.size() % kChunk);
  unsigned char chunk[kChunk] = {};
  if (!head.empty()) memcpy(chunk, head.data(), head.size());
  progress.filled = static_cast<int>(head.size());
  md5_ctx ctx;
  md5_start(ctx);
  unsigned long long left = 0ULL + end - start + attachment.size();
  while (left != 0) {
    progress.size = left < kChunk ? static_cast<int>(left) : kChunk;
    if (!fill_chunk(fd, chunk, progress)) return kFailed;
    md5_add(ctx, chunk, static_cast<unsigned>(progress.size));
    left -= static_cast<unsigned>(progress.size);
    progress.filled = 0;
  }
  md5_end(ctx);
  memcpy(out, ctx.digest, kDigest);
  return kSuccess;
}

[[nodiscard]] bool digest_buffer(md5_ctx& ctx, const unsigned char* data, unsigned len) {
  if (data == nullptr && len != 0) return false;
  md5_start(ctx);
  md5_add(ctx, data, len);
  md5_end(ctx);
  return true;
}

}  // namespace
}  // namespace kt

void md5_buffer(const unsigned char* data, unsigned len, unsigned char out[16]) {
  md5_buffer_chk(data, len, out, 0);
}

void md5_buffer_chk(const unsigned char* data, unsigned len, unsigned char* out, int as_text) {
  md5_ctx ctx;
  if (out == nullptr || !kt::digest_buffer(ctx, data, len)) return;
  if (as_text == 0) {
    memcpy(out, ctx.digest, kt::kDigest);
  } else {
    kt::write_hex(out, ctx.digest, kt::kDigest);
    out[kt::kTextLength] = '\0';
  }
}

int md5_stream(unsigned char out[16], int fd, unsigned start, unsigned end) {
  kt::Progress progress;
  return kt::digest_range(out, fd, start, end, {}, progress);
}

int md5_stream_att_data(unsigned char out[16], int fd, unsigned start, unsigned end,
                        const unsigned char* att, int att_len) {
  kt::Progress progress;
  kt::Bytes attachment;
  if (att != nullptr && att_len > 0) attachment = {att, static_cast<size_t>(att_len)};
  const int result = kt::digest_range(out, fd, start, end, attachment, progress);
  if (result != kt::kSuccess && progress.filled >= 0) {
    // The place belongs to the text of the message; it does not follow this file.
    fprintf(stderr, "%s(%d): can not read file: %d/%d\n", "md5_check", 324, progress.filled,
            progress.size);
  }
  return result;
}

int md5_value_to_str(char* out, int out_size, const unsigned char digest[16]) {
  if (out == nullptr || digest == nullptr || out_size < kt::kTextLength) return kt::kFailed;
  kt::write_hex(reinterpret_cast<unsigned char*>(out), digest, kt::kDigest);
  // Callers with a field of exactly 32 characters have no room for a NUL.
  if (out_size > kt::kTextLength) out[kt::kTextLength] = '\0';
  return kt::kTextLength;
}
