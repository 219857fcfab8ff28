// Growing texts: appends, from ten thousand to a million.
#include <ktcomm/util.h>
#include <stdlib.h>
#include <string.h>

#include "bench/bench.h"

namespace kt::bench {
namespace {

constexpr char kPiece[] = "<item/>\n";

size_t append_by_library(long count) {
  cf_string* const text = cf_string_new("");
  for (long i = 0; i < count; ++i) (void)cf_string_safe_cat(text, kPiece);
  const size_t length = text->len;
  require(text->size == length + 1, "exact growth");
  cf_string_free(text);
  return length;
}

// Growing to the exact size each time.
[[gnu::noipa]] void append(cf_string& d, const char* s, size_t n) {
  const size_t length = d.len + n;
  if (length + 1 > d.size) {
    d.str = static_cast<char*>(realloc(d.str, length + 1));
    d.size = length + 1;
  }
  strncat(d.str + d.len, s, n);
  d.len = length;
}

size_t append_by_hand(long count) {
  constexpr size_t kRoom = 251;
  cf_string text = {static_cast<char*>(calloc(kRoom, 1)), 0, kRoom};
  for (long i = 0; i < count; ++i) append(text, kPiece, strlen(kPiece));
  free(text.str);
  return text.len;
}

void add_appends(const char* name, long count, int rounds) {
  add(
      name, {{Aim::kRatio, 1.0}, rounds, 1},
      [count] { benchmark::DoNotOptimize(append_by_library(count)); },
      [count] { benchmark::DoNotOptimize(append_by_hand(count)); });
}

// Time grows with the number of appends: a hundred times as many against a
// hundred times the fewer.
void add_linear() {
  add(
      "cf_string, 1 million appends / 100 times 10 thousand", {{Aim::kRatio, 1.2}, 15, 1},
      [] { benchmark::DoNotOptimize(append_by_library(1000000)); },
      [] {
        for (int i = 0; i < 100; ++i) benchmark::DoNotOptimize(append_by_library(10000));
      });
}

}  // namespace

void add_all() {
  add_appends("cf_string, 10 thousand appends", 10000, 101);
  add_appends("cf_string, 100 thousand appends", 100000, 61);
  add_appends("cf_string, 1 million appends", 1000000, 21);
  add_linear();
}

}  // namespace kt::bench
