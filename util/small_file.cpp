#include "util/small_file.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>

#include "base/io.h"
#include "base/unique_fd.h"

namespace kt {
namespace {

constexpr size_t kMaxNumberText = 128;

}  // namespace

int decimal(const char* text) {
  const long long value = strtoll(text, nullptr, 10);
  return value < INT_MIN || value > INT_MAX ? 0 : static_cast<int>(value);
}

std::optional<int> decimal_in_file(const char* path, size_t limit) {
  char text[kMaxNumberText + 1] = {};
  if (limit > kMaxNumberText) return std::nullopt;
  const unique_fd fd = open_fd(path, O_RDONLY);
  if (!fd.ok() || read_fully(fd.get(), text, limit) < 0) return std::nullopt;
  return decimal(text);
}

bool write_small_file(const char* path, int access, const void* data, size_t size) {
  unique_fd fd = open_fd(path, access | O_CREAT | O_TRUNC, 0666);
  return fd.ok() && write_fully(fd.get(), data, size) && fd.close() == 0;
}

}  // namespace kt
