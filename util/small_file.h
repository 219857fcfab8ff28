// small_file.h - files that hold one number or a few bytes.
#ifndef KTCOMM_UTIL_SMALL_FILE_H
#define KTCOMM_UTIL_SMALL_FILE_H

#include <stddef.h>

#include <optional>

namespace kt {

// The decimal number that the text begins with, blanks and a sign before it
// allowed; 0 when there is none or it does not fit an int.
[[nodiscard]] int decimal(const char* text);

// The same of a file, from its first `limit` bytes, at most 128; nothing when it
// cannot be read.
[[nodiscard]] std::optional<int> decimal_in_file(const char* path, size_t limit);

// Makes the bytes the file's content, creating it for all to read and write as
// the umask allows. `access` is O_WRONLY or O_RDWR.
[[nodiscard]] bool write_small_file(const char* path, int access, const void* data, size_t size);

}  // namespace kt

#endif
