// crontab_copy.h - the crontab in the making, written beside it first.
#ifndef KTCOMM_SCHED_CRONTAB_COPY_H
#define KTCOMM_SCHED_CRONTAB_COPY_H

#include <stddef.h>
#include <stdio.h>
#include <sys/types.h>

#include <string_view>

#include "base/line_window.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"

namespace kt {

constexpr mode_t kCrontabMode = 0644;  // cron daemons refuse one that others may write

// A line of the crontab, or a piece of a longer one.
class CrontabPiece {
 public:
  static constexpr size_t kLongest = 255;

  explicit CrontabPiece(std::string_view text) : text_(text) {}
  [[nodiscard]] std::string_view view() const { return text_; }
  [[nodiscard]] bool ends_line() const { return text_.back() == '\n'; }
  // The very last line of a file may lack its line feed.
  [[nodiscard]] bool reaches_line_end() const { return ends_line() || text_.size() < kLongest; }

 private:
  std::string_view text_;
};

class CrontabCopy {
 public:
  CrontabCopy();
  CrontabCopy(const CrontabCopy&) = delete;
  CrontabCopy& operator=(const CrontabCopy&) = delete;
  // Deletes the file, unless the crontab was harmed: then it is all there is.
  ~CrontabCopy();

  // Empties the file, creating it where missing.
  [[nodiscard]] bool create();

  // Takes over the lines of `source` but for those whose first piece
  // `is_unwanted`; false when not all of `source` could be read or kept.
  template <typename F>
  [[nodiscard]] bool take_lines(int source, F is_unwanted) {
    char room[4096];
    LineWindow lines(source, room, CrontabPiece::kLongest);
    bool at_line_start = true;
    bool wanted = false;
    for (auto text = lines.next(); !text.empty(); text = lines.next()) {
      const CrontabPiece piece(text);
      if (at_line_start) wanted = !is_unwanted(piece);
      if (wanted && !write(text)) return false;
      at_line_start = piece.ends_line();
    }
    unfinished_ = wanted && !at_line_start;
    return !lines.failed();
  }

  [[nodiscard]] bool add_line(std::string_view line) {
    return (!unfinished_ || write("\n")) && write(line);
  }

  // Ends the writing and puts the content into the crontab; false when anything
  // of it was lost on the way.
  [[nodiscard]] bool put_in_place();

 private:
  [[nodiscard]] bool write(std::string_view text) {
    return fwrite(text.data(), 1, text.size(), stream_.get()) == text.size();
  }

  StringBuffer<17> path_;
  unique_file stream_;
  bool created_ = false;
  bool unfinished_ = false;  // the last line taken over lacks its line feed
  bool crontab_harmed_ = false;
};

}  // namespace kt

#endif
