// line_source.h - the lines of a stream.
#ifndef KTCOMM_TOOLS_LINE_SOURCE_H
#define KTCOMM_TOOLS_LINE_SOURCE_H

#include <stdio.h>

#include <string_view>

#include "base/unique_malloc.h"

namespace kt::tools {

// Reads a stream line by line, of any length and with any bytes.
class LineSource {
 public:
  explicit LineSource(FILE* stream) : stream_(stream) {}

  // The next line; false at the end and when it cannot be read.
  [[nodiscard]] bool next();

  [[nodiscard]] int number() const { return number_; }  // from 1
  [[nodiscard]] std::string_view line() const {
    return line_;
  }  // without line feed, a NUL somewhere behind
  [[nodiscard]] bool finished() const { return finished_; }  // it had one

 private:
  FILE* stream_;
  unique_malloc<char> buffer_;
  size_t size_ = 0;
  std::string_view line_;
  bool finished_ = true;
  int number_ = 0;
};

}  // namespace kt::tools

#endif
