#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include "base/unique_malloc.h"
#include "ktcomm/util_text.h"

#if __SIZEOF_POINTER__ == 4
static_assert(offsetof(cf_string, str) == 0 && offsetof(cf_string, len) == 4 &&
              offsetof(cf_string, size) == 8 && sizeof(cf_string) == 12);
#endif

namespace kt {
namespace {

// Room beside a new text, so that the first appends need not reallocate.
constexpr unsigned long kHeadRoom = 251;

cf_string* new_text(const char* s, unsigned long n) {
  unsigned long size;
  if (__builtin_add_overflow(n, kHeadRoom, &size)) return nullptr;
  unique_malloc<cf_string> text(static_cast<cf_string*>(malloc(sizeof(cf_string))));
  unique_malloc<char[]> buffer = allocate<char>(size);
  if (text == nullptr || buffer == nullptr) return nullptr;

  const unsigned long measured = strnlen(s, n);
  memcpy(buffer.get(), s, measured);
  memset(buffer.get() + measured, 0, n - measured + 1);
  *text = {buffer.release(), n, size};
  return text.release();
}

unsigned long capacity(const cf_string& d) {
  return d.str == nullptr ? 0 : d.size;
}

// Makes room for `length` characters and their NUL, growing to exactly that.
// `*source` is moved along when it points into the buffer.
[[nodiscard]] bool reserve(cf_string& d, unsigned long length, const char** source) {
  const unsigned long old_size = capacity(d);
  if (length < old_size) return true;
  unsigned long size;
  if (__builtin_add_overflow(length, 1UL, &size)) return false;

  const bool is_own = *source >= d.str && *source < d.str + old_size;
  const size_t offset = is_own ? static_cast<size_t>(*source - d.str) : 0;
  char* const grown = static_cast<char*>(realloc(d.str, size));
  if (grown == nullptr) return false;
  if (is_own) *source = grown + offset;
  d.str = grown;
  d.size = size;
  return true;
}

int copy(cf_string& d, const char* s, unsigned long n) {
  const unsigned long measured = strnlen(s, n);
  if (!reserve(d, n, &s)) return -1;
  memmove(d.str, s, measured);
  memset(d.str + measured, 0, n - measured + 1);
  d.len = measured;
  return 0;
}

// Where the text ends. Text that the caller has written into the buffer past `len`
// stays in front of what is appended; the `old_size` bytes there were bound it.
unsigned long end_of_text(const cf_string& d, unsigned long old_size) {
  const unsigned long limit = old_size < d.size ? old_size : d.size - 1;
  if (d.len >= limit || d.str[d.len] == '\0') return d.len;
  return d.len + strnlen(d.str + d.len, limit - d.len);
}

// Appends `measured` characters; the length goes by the caller's count `n`, also
// past the end of `s`.
int append(cf_string& d, const char* s, unsigned long measured, unsigned long n) {
  const unsigned long old_size = capacity(d);
  unsigned long length;
  if (__builtin_add_overflow(d.len, n, &length) || !reserve(d, length, &s)) return -1;

  const unsigned long begin = end_of_text(d, old_size);
  const unsigned long room = d.size - 1 - begin;
  const unsigned long end = begin + (measured < room ? measured : room);
  memmove(d.str + begin, s, end - begin);
  d.str[end] = '\0';
  if (end < length) memset(d.str + end, 0, length - end + 1);
  d.len = length;
  return 0;
}

}  // namespace
}  // namespace kt

cf_string* cf_string_new_len(const char* s, unsigned n) {
  return s == nullptr ? nullptr : kt::new_text(s, n);
}

cf_string* cf_string_new(const char* s) {
  return s == nullptr ? nullptr : kt::new_text(s, strlen(s));
}

cf_string* cf_string_new_start_end(const char* start, const char* end) {
  if (start == nullptr || end == nullptr || start > end) return nullptr;
  return kt::new_text(start, static_cast<unsigned long>(end - start) + 1);
}

void cf_string_free(cf_string* string) {
  const kt::unique_malloc<cf_string> record(string);
  const kt::unique_malloc<char> text(string == nullptr ? nullptr : string->str);
}

int cf_string_safe_cp(cf_string* d, const char* s) {
  return d == nullptr || s == nullptr ? -1 : kt::copy(*d, s, strlen(s));
}

int cf_string_safe_cp_n(cf_string* d, const char* s, unsigned n) {
  return d == nullptr || s == nullptr ? -1 : kt::copy(*d, s, n);
}

int cf_string_safe_cat(cf_string* d, const char* s) {
  if (d == nullptr || s == nullptr) return -1;
  const unsigned long n = strlen(s);
  return kt::append(*d, s, n, n);
}

int cf_string_safe_cat_n(cf_string* d, const char* s, unsigned n) {
  return d == nullptr || s == nullptr ? -1 : kt::append(*d, s, strnlen(s, n), n);
}
