// string_buffer.h - text of a fixed capacity on the stack.
#ifndef KTCOMM_BASE_STRING_BUFFER_H
#define KTCOMM_BASE_STRING_BUFFER_H

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <string_view>

namespace kt {

// Up to N characters plus a NUL, terminated at all times. What does not fit is
// cut off and remembered: truncated() stays true from then on.
template <size_t N>
class StringBuffer {
 public:
  StringBuffer() { text_[0] = '\0'; }

  [[nodiscard]] const char* c_str() const { return text_; }
  [[nodiscard]] size_t size() const { return size_; }
  [[nodiscard]] bool truncated() const { return truncated_; }
  [[nodiscard]] std::string_view view() const { return {text_, size_}; }

  void append(std::string_view text) {
    const size_t room = N - size_;
    const size_t count = text.size() < room ? text.size() : room;
    if (count != 0) memcpy(text_ + size_, text.data(), count);
    truncated_ = truncated_ || count < text.size();
    size_ += count;
    text_[size_] = '\0';
  }

  [[gnu::format(printf, 2, 3)]] void append_format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    append_format_list(format, arguments);
    va_end(arguments);
  }

  [[gnu::format(printf, 2, 0)]] void append_format_list(const char* format, va_list arguments) {
    const size_t room = N - size_;
    const int wanted = vsnprintf(text_ + size_, room + 1, format, arguments);
    if (wanted < 0) {  // an encoding error: what was there stays
      text_[size_] = '\0';
      truncated_ = true;
      return;
    }
    truncated_ = truncated_ || static_cast<size_t>(wanted) > room;
    size_ += static_cast<size_t>(wanted) < room ? static_cast<size_t>(wanted) : room;
  }

 private:
  size_t size_ = 0;
  bool truncated_ = false;
  char text_[N + 1];
};

}  // namespace kt

#endif
