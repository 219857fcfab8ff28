// line_reader.h - bounded lines from a stream, whatever bytes they hold.
#ifndef KTCOMM_BASE_LINE_READER_H
#define KTCOMM_BASE_LINE_READER_H

#include <stddef.h>
#include <stdio.h>

namespace kt {

// Reads at most `size` - 1 characters, up to and including a line feed, into
// `buffer` and terminates them. Returns their number, 0 at the end of the
// stream or on a read error. Unlike with fgets a NUL byte in the file neither
// ends a line nor gets lost.
[[nodiscard]] size_t read_line(FILE* stream, char* buffer, size_t size);

}  // namespace kt

#endif
