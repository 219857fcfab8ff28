#include <fcntl.h>
#include <stdint.h>

#include <optional>

#include "base/io.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "ktcomm/util_process.h"
#include "util/small_file.h"

namespace kt {
namespace {

constexpr size_t kTwinPathLength = 255;

static_assert(sizeof(unsigned) == sizeof(uint32_t));

// The name of the twin. A path that leaves no room for it has no twin: the
// buffer says so itself by being truncated.
StringBuffer<kTwinPathLength> twin_of(const char* path) {
  StringBuffer<kTwinPathLength> twin;
  twin.append_format("%s.2", path);
  return twin;
}

[[nodiscard]] bool write_count(const char* path, unsigned count) {
  return write_small_file(path, O_WRONLY, &count, sizeof count);
}

std::optional<unsigned> read_count(const char* path) {
  unsigned count = 0;
  const unique_fd fd = open_fd(path, O_RDONLY);
  if (!fd.ok() || read_fully(fd.get(), &count, sizeof count) != sizeof count) return std::nullopt;
  return count;
}

}  // namespace
}  // namespace kt

int write_timestamp_into_file(const char* path) {
  if (path == nullptr) return 1;
  const unsigned now = kt_linear_time(nullptr);
  const auto twin = kt::twin_of(path);
  if (!kt::write_count(path, now)) return 1;
  return twin.truncated() || kt::write_count(twin.c_str(), now) ? 0 : 1;
}

int read_timestamp_from_file(const char* path, unsigned* seconds) {
  if (path == nullptr) return 1;
  const std::optional<unsigned> count = kt::read_count(path);
  // Positive as a signed number.
  if (!count || static_cast<int32_t>(*count) <= 0) return 1;
  const auto twin = kt::twin_of(path);
  if (!twin.truncated() && kt::read_count(twin.c_str()) != count) return 1;
  if (seconds != nullptr) *seconds = *count;
  return 0;
}

unsigned compare_timestamp(unsigned a, unsigned b) {
  // The extra step below zero is what callers reckon with.
  return a - b - (a < b ? 1 : 0);
}
