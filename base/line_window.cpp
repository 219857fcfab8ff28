#include "base/line_window.h"

#include <string.h>
#include <unistd.h>

#include "base/io.h"

namespace kt {
namespace {

bool rewind_stream(FILE* stream) {
  const bool is_rewound = ::fseeko(stream, 0, SEEK_SET) == 0;
  ::clearerr(stream);
  return is_rewound;
}

}  // namespace

LineWindow::LineWindow(FILE* stream, std::span<char> room, size_t piece)
    : room_(room), stream_(stream), is_rewound_(rewind_stream(stream)), piece_(piece) {}

std::string_view LineWindow::next() {
  for (;;) {
    const size_t length = held() < piece_ ? held() : piece_;
    const char* const begin = room_.data() + begin_;
    const auto* const feed = static_cast<const char*>(memchr(begin, '\n', length));
    if (feed != nullptr) return take(static_cast<size_t>(feed - begin) + 1);
    if (length == piece_ || !fill()) return take(length);
  }
}

// Goes on to where the piece begins that has the character at `at`.
void LineWindow::go_to_piece_of(size_t at) {
  const char* const begin = room_.data() + begin_;
  const auto* const feed = static_cast<const char*>(memrchr(begin, '\n', at - begin_));
  if (feed != nullptr) begin_ += static_cast<size_t>(feed - begin) + 1;
  begin_ += (at - begin_) / piece_ * piece_;
}

bool LineWindow::skip_to(char first) {
  for (;;) {
    const char* const text = room_.data();
    const auto* const hit = static_cast<const char*>(memchr(text + begin_, first, held()));
    const size_t at = hit != nullptr ? static_cast<size_t>(hit - text) : end_;
    go_to_piece_of(at);
    if (hit == nullptr) {
      if (fill()) continue;
      begin_ = end_;
      return false;
    }
    if (begin_ == at) return true;
    (void)next();  // it is inside
  }
}

std::string_view LineWindow::next_block() {
  if (held() == 0 && !fill()) return {};
  return take(held());
}

void LineWindow::put_back() const {
  if (ended_ || !is_rewound_) return;  // there is nothing to put back
  (void)::fseeko(stream_, -static_cast<off_t>(held()), SEEK_CUR);
}

ssize_t LineWindow::read_block(std::span<char> block) const {
  if (stream_ == nullptr) {
    return retry_eintr([=, this] { return ::read(fd_, block.data(), block.size()); });
  }
  const size_t count = fread(block.data(), 1, is_rewound_ ? block.size() : 1, stream_);
  return count == 0 && ferror(stream_) != 0 ? -1 : static_cast<ssize_t>(count);
}

// False at the end of the file and when reading fails.
bool LineWindow::fill() {
  memmove(room_.data(), room_.data() + begin_, held());
  end_ = held();
  begin_ = 0;
  const ssize_t count = read_block(room_.subspan(end_));
  ended_ = count <= 0;
  failed_ = failed_ || count < 0;
  if (!ended_) end_ += static_cast<size_t>(count);
  return !ended_;
}

std::string_view LineWindow::take(size_t length) {
  begin_ += length;
  return {room_.data() + begin_ - length, length};
}

}  // namespace kt
