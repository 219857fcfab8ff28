// line_window.h - lines of a file that is read a block at a time.
#ifndef KTCOMM_BASE_LINE_WINDOW_H
#define KTCOMM_BASE_LINE_WINDOW_H

#include <stddef.h>
#include <stdio.h>
#include <sys/types.h>

#include <span>
#include <string_view>

namespace kt {

// A line longer than `piece` comes as several pieces, as with read_line. As much is
// read at once as `room` has left beside the piece that is there already; it holds
// more than a piece. What is returned stands until the next call.
class LineWindow {
 public:
  // Reads from where `fd` stands.
  LineWindow(int fd, std::span<char> room, size_t piece) : room_(room), fd_(fd), piece_(piece) {}

  // Rewinds `stream` first. A stream that cannot be rewound is read from where it
  // stands, and no further than the lines taken.
  LineWindow(FILE* stream, std::span<char> room, size_t piece);

  LineWindow(const LineWindow&) = delete;
  LineWindow& operator=(const LineWindow&) = delete;

  // The next line, with its line feed, or piece of one; empty at the end of the
  // file and on a read error.
  [[nodiscard]] std::string_view next();

  // Passes over the lines and pieces that do not begin with `first`; false when
  // none is left.
  [[nodiscard]] bool skip_to(char first);

  // What comes next, regardless of lines; empty like next().
  [[nodiscard]] std::string_view next_block();

  // From here on lines are cut there.
  void set_piece(size_t piece) { piece_ = piece; }

  // True once reading has failed.
  [[nodiscard]] bool failed() const { return failed_; }

  // Leaves the stream behind the line that next() returned last, as reading line
  // by line does.
  void put_back() const;

 private:
  [[nodiscard]] ssize_t read_block(std::span<char> block) const;
  [[nodiscard]] bool fill();
  void go_to_piece_of(size_t at);
  [[nodiscard]] std::string_view take(size_t length);
  [[nodiscard]] size_t held() const { return end_ - begin_; }

  const std::span<char> room_;
  FILE* const stream_ = nullptr;
  const int fd_ = -1;
  const bool is_rewound_ = true;
  size_t piece_;
  size_t begin_ = 0;
  size_t end_ = 0;
  bool ended_ = false;
  bool failed_ = false;
};

}  // namespace kt

#endif
