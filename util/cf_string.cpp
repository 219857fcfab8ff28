#include <stdlib.h>
#include <string.h>

#include "base/unique_malloc.h"
#include "ktcomm/util_text.h"

#if __SIZEOF_POINTER__ == 4
static_assert(sizeof(cf_string) == 12);
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

// Makes room for `length` characters and their NUL, growing to exactly that.
// New bytes are NUL: `len` may come to lie among them. `*source` is moved along
// when it points into the buffer.
[[nodiscard]] bool reserve(cf_string& d, unsigned long length, const char** source) {
  const unsigned long old_size = d.str == nullptr ? 0 : d.size;
  if (length < old_size) return true;
  unsigned long size;
  if (__builtin_add_overflow(length, 1UL, &size)) return false;

  const bool is_own = *source >= d.str && *source < d.str + old_size;
  const size_t offset = is_own ? static_cast<size_t>(*source - d.str) : 0;
  char* const grown = static_cast<char*>(realloc(d.str, size));
  if (grown == nullptr) return false;
  memset(grown + old_size, 0, size - old_size);
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

int append(cf_string& d, const char* s, unsigned long n) {
  const unsigned long measured = strnlen(s, n);
  unsigned long length;
  if (__builtin_add_overflow(d.len, n, &length) || !reserve(d, length, &s)) return -1;

  // Text that the caller has written into the buffer past `len` stays in front
  // of what is appended; the buffer's end bounds both.
  const unsigned long last = d.size - 1;
  const unsigned long begin = d.len + strnlen(d.str + d.len, last - d.len);
  const unsigned long count = measured < last - begin ? measured : last - begin;
  const unsigned long end = begin + count;
  memmove(d.str + begin, s, count);
  // The length goes by the caller's count, also past the end of `s`.
  memset(d.str + end, 0, end < length ? length - end + 1 : 1);
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
  return d == nullptr || s == nullptr ? -1 : kt::append(*d, s, strlen(s));
}

int cf_string_safe_cat_n(cf_string* d, const char* s, unsigned n) {
  return d == nullptr || s == nullptr ? -1 : kt::append(*d, s, n);
}
