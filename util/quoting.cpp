#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "base/unique_malloc.h"
#include "ktcomm/util_process.h"

namespace kt {
namespace {

// The longest text that is made one shell word, in characters.
constexpr size_t kMaxWord = 519;

// Text growing in a buffer of at least one byte, terminated at all times.
class BoundedText {
 public:
  BoundedText(char* buffer, size_t size) : end_(buffer), room_(size - 1) { *end_ = '\0'; }

  [[nodiscard]] size_t room() const { return room_; }

  // What does not fit is cut off.
  void append(std::string_view text) {
    const size_t count = text.size() < room_ ? text.size() : room_;
    memcpy(end_, text.data(), count);
    end_ += count;
    room_ -= count;
    *end_ = '\0';
  }

 private:
  char* end_;
  size_t room_;
};

void append_quoted(BoundedText& word, std::string_view piece) {
  word.append("'");
  word.append(piece);
  word.append("'");
}

bool is_special(char c) {
  return c == ';' || c == '\\' || c == '|' || c == '&';
}

}  // namespace
}  // namespace kt

int escape_sequence(const char* text, char** escaped) {
  if (text == nullptr || escaped == nullptr) return -1;
  size_t size = 1;
  for (const char* c = text; *c != '\0'; ++c) size += kt::is_special(*c) ? 2 : 1;
  kt::unique_malloc<char[]> copy = kt::allocate<char>(size);
  if (copy == nullptr) return -1;

  char* out = copy.get();
  for (const char* c = text; *c != '\0'; ++c) {
    // A '&' that ends the line goes on starting the command in the background.
    const bool background = *c == '&' && c[1] == '\0';
    if (kt::is_special(*c) && !background) *out++ = '\\';
    *out++ = *c;
  }
  *out = '\0';
  *escaped = copy.release();
  return 0;
}

char* shell_cmd_paras_convert(const char* text, int length, char* out, int size) {
  if (text == nullptr || out == nullptr || length < 1 || size < 1) return nullptr;
  if (static_cast<size_t>(length) > kt::kMaxWord) return nullptr;
  // A copy, because `out` may be the text itself.
  char work[kt::kMaxWord];
  const size_t count = strnlen(text, static_cast<size_t>(length));
  memcpy(work, text, count);
  std::string_view rest(work, count);

  kt::BoundedText word(out, static_cast<size_t>(size));
  size_t quote = rest.find('\'');
  kt::append_quoted(word, {work, quote < rest.size() ? quote : rest.size()});
  while (quote != std::string_view::npos) {
    word.append("\\'");
    rest.remove_prefix(quote + 1);
    quote = rest.find('\'');
    const std::string_view piece(rest.data(), quote < rest.size() ? quote : rest.size());
    if (!piece.empty()) kt::append_quoted(word, piece);
  }
  return out;
}

int tx_quot(char* out, const char* text, int size) {
  if (out == nullptr || text == nullptr) return -1;
  if (size < 1) return 0;
  memset(out, 0, static_cast<size_t>(size));
  kt::BoundedText copy(out, static_cast<size_t>(size));
  for (; *text != '\0'; ++text) {
    const std::string_view unit = *text == '"' ? "&quot;" : std::string_view(text, 1);
    if (unit.size() > copy.room()) break;
    copy.append(unit);
  }
  return 0;
}
