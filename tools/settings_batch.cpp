// settings_batch.cpp - many settings at once, all of them or none.
#include <string.h>

#include <algorithm>

#include "base/unique_file.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/settings_changes.h"

namespace kt::tools {
namespace {

constexpr char kBlanks[] = " \t";

// Cuts the next word off a line, one in quotes at the quote behind it; null when there
// is none. The blank behind it goes, too.
char* take_word(char*& line) {
  line += strspn(line, kBlanks);
  const bool quoted = *line == '"';
  char* const word = quoted ? line + 1 : line;
  char* const end = word + strcspn(word, quoted ? "\"" : kBlanks);
  if (quoted && *end == '\0') return nullptr;
  char* const behind = quoted ? end + 1 : end;
  if (*behind != '\0' && strchr(kBlanks, *behind) == nullptr) return nullptr;
  if (behind == line) return nullptr;
  line = *behind != '\0' ? behind + 1 : behind;
  *end = '\0';
  return word;
}

// Reads one change; false after it has said what is wrong with it.
[[nodiscard]] bool read_change(const char* where, char* line, Change& change) {
  char* const section = take_word(line);
  char* const key = section != nullptr ? take_word(line) : nullptr;
  if (key == nullptr) {
    (void)fail(kRefused, "%s: SECTION KEY VALUE is wanted", where);
    return false;
  }
  change = {Section(section), key, line};
  return check_assignment(where, change.section, change.key, change.value);
}

// The changes that a file lists, which point into its text.
class Batch {
 public:
  // Returns kDone, or the exit code after it has said all that is wrong.
  [[nodiscard]] int read(const char* path, FILE* file);
  [[nodiscard]] std::span<const Change> changes() const { return {changes_.get(), count_}; }

 private:
  [[nodiscard]] bool read_line(const char* where, char* line, size_t length);

  Text text_;
  unique_malloc<Change[]> changes_;
  size_t count_ = 0;
};

bool Batch::read_line(const char* where, char* line, size_t length) {
  if (length > 0 && line[length - 1] == '\r') line[--length] = '\0';
  if (strlen(line) != length) {
    (void)fail(kRefused, "%s: byte 0x00 at place %zu", where, strlen(line) + 1);
    return false;
  }
  const char first = line[strspn(line, kBlanks)];
  if (first == '\0' || first == '#') return true;
  return read_change(where, line, changes_[count_++]);
}

int Batch::read(const char* path, FILE* file) {
  if (!text_.read(file)) return fail_errno(path);
  if (!text_.append("\n")) return fail(kSystemError, "out of memory");
  const std::string_view text = text_.view();
  const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  changes_ = allocate<Change>(lines);
  if (changes_ == nullptr) return fail(kSystemError, "out of memory");
  int code = kDone;
  char* line = text_.data();
  for (size_t number = 1; number <= lines; ++number) {
    char* const end =
        static_cast<char*>(memchr(line, '\n', static_cast<size_t>(text.end() - line)));
    *end = '\0';
    StringBuffer<1200> where;
    where.append_format("%s:%zu", path, number);
    if (!read_line(where.c_str(), line, static_cast<size_t>(end - line))) code = kRefused;
    line = end + 1;
  }
  return code;
}

}  // namespace

int set_values(const Request& request) {
  const char* const path = request.count != 0 ? request.arguments[0] : "-";
  const bool standard = strcmp(path, "-") == 0;
  const unique_file file = standard ? unique_file() : open_file(path, "re");
  if (!standard && !file.ok()) return fail_errno(path);
  Batch batch;
  int code = batch.read(standard ? "standard input" : path, standard ? stdin : file.get());
  if (code == kDone) code = check_target(request.file);
  if (code != kDone) return code;
  return request.dry_run() ? tell_changes(request.file, batch.changes())
                           : write_changes(request.file, batch.changes());
}

}  // namespace kt::tools
