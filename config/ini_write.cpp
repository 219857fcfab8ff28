#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "base/file_lock.h"
#include "base/paths.h"
#include "base/shell.h"
#include "base/temp_file.h"
#include "config/ini_line.h"
#include "ktcomm/config.h"

namespace kt {
namespace {

enum class LineForm { kAssignment, kBare, kPrefix };

struct Edit {
  const char* section;
  const char* key;
  const char* value;
  LineForm form;
  LetterCase letter_case;
};

enum class Outcome { kFailed, kChangedInside, kOther };

// Streams a file into its copy with one key line changed.
class KeyEditor {
 public:
  KeyEditor(const Edit& edit, int in, FILE* out)
      : edit_(edit), key_(edit.key), lines_(in, room_, kIniPiece), out_(out) {}

  [[nodiscard]] Outcome run() {
    const Outcome outcome = edit_.section != nullptr ? edit_section() : edit_flat();
    return lines_.failed() ? Outcome::kFailed : outcome;
  }

 private:
  Outcome edit_section();
  Outcome edit_flat();

  [[nodiscard]] bool next_line();
  void copy_line() { copy(line_); }
  void copy_rest();
  void skip_rest_of_line();
  void start_line();
  void write_key_line(std::string_view key);
  // What is lost here is reported when the copy is closed.
  void copy(std::string_view text) { (void)fwrite(text.data(), 1, text.size(), out_); }
  [[nodiscard]] std::optional<std::string_view> matching_key() const;
  [[nodiscard]] bool matches_flat() const;

  const Edit& edit_;
  const std::string_view key_;
  char room_[kIniRoom];
  LineWindow lines_;
  FILE* const out_;
  std::string_view line_;
  bool at_line_start_ = true;  // what was read before the current line ended in a line feed
  bool complete_ = true;       // the line read last ended in a line feed
};

bool KeyEditor::next_line() {
  at_line_start_ = complete_;
  line_ = lines_.next();
  if (line_.empty()) return false;
  complete_ = line_.back() == '\n';
  return true;
}

// The piece of a longer line, or a last line without line feed, that was just
// copied gets its line feed, so that what follows is not glued to it.
void KeyEditor::start_line() {
  if (!at_line_start_) copy("\n");
}

void KeyEditor::write_key_line(std::string_view key) {
  copy(key);
  if (edit_.form != LineForm::kBare) {
    copy("=");
    copy(edit_.value);
  }
  copy("\n");
}

void KeyEditor::copy_rest() {
  for (auto text = lines_.next_block(); !text.empty(); text = lines_.next_block()) copy(text);
}

void KeyEditor::skip_rest_of_line() {
  while (!complete_ && next_line()) {
  }
  complete_ = true;
}

// The key as the line spells it, when this is the line to replace.
std::optional<std::string_view> KeyEditor::matching_key() const {
  const auto match = match_key(line_, key_, edit_.letter_case);
  if (!match) return std::nullopt;
  const std::string_view rest =
      edit_.form == LineForm::kPrefix ? match->rest : skip_blanks(match->rest);
  const char next = rest.empty() ? '\0' : rest.front();
  const bool matches = edit_.form == LineForm::kAssignment ? next == '='
                       : edit_.form == LineForm::kBare     ? next == '\r' || next == '\n'
                                                           : true;
  return matches ? std::optional(match->key) : std::nullopt;
}

// Without sections a line is known by one character only, the one behind the
// key, and the key stands at its very front.
bool KeyEditor::matches_flat() const {
  if (edit_.form == LineForm::kPrefix || line_.size() <= key_.size()) return false;
  const char next = line_[key_.size()];
  const char end = edit_.form == LineForm::kAssignment ? '=' : '\n';
  return (next == ' ' || next == end) && begins_with(line_, key_, edit_.letter_case);
}

Outcome KeyEditor::edit_section() {
  const SectionHeader header(edit_.section);
  if (!header.valid()) return Outcome::kFailed;

  bool inside = false;
  while (!inside && next_line()) {
    copy_line();
    inside = header.matches(line_, edit_.letter_case);
  }
  if (!inside) {
    start_line();
    copy(header.text());
    copy("\n");
    write_key_line(key_);
    return Outcome::kOther;
  }
  while (next_line()) {
    const auto found = matching_key();
    if (line_.front() == '[') {
      start_line();
      write_key_line(key_);
      copy_line();
    } else if (found) {
      write_key_line(*found);
      skip_rest_of_line();
    } else {
      copy_line();
      continue;
    }
    copy_rest();
    return Outcome::kChangedInside;
  }
  start_line();
  write_key_line(key_);
  return Outcome::kOther;
}

Outcome KeyEditor::edit_flat() {
  bool replaced = false;
  while (next_line()) {
    if (!matches_flat()) {
      copy_line();
      continue;
    }
    write_key_line({line_.data(), key_.size()});
    skip_rest_of_line();
    replaced = true;
  }
  if (!replaced) {
    start_line();
    write_key_line(key_);
  }
  return Outcome::kOther;
}

// Puts the copy in place. The two commands differ in one blank only; both are
// kept as they stand.
void put_in_place(const char* copy, const char* path, Outcome outcome) {
  if (outcome == Outcome::kChangedInside) {
    (void)run_shell("/bin/cp -f %s %s > /dev/null 2> /dev/null", copy, path);
  } else {
    (void)run_shell("/bin/cp -f %s %s >/dev/null 2> /dev/null", copy, path);
  }
  ::sync();
}

int write_key(const Edit& edit, const char* path) {
  unique_fd in = open_or_create(path);
  if (!in.ok()) return -1;
  TempFile copy;
  if (!copy.create("/tmp/tXXXXXX")) return -1;
  const Outcome outcome = KeyEditor(edit, in.get(), copy.stream()).run();
  in.reset();
  if (!copy.close() || outcome == Outcome::kFailed) return -1;
  put_in_place(copy.path(), path, outcome);
  return 0;
}

bool is_current(const char* section, const char* key, const char* value, int file) {
  constexpr int kLimit = 511;
  char room[kIniRoom], current[kLimit + 1];
  LineWindow lines(file, room, kIniPiece);
  return (look_up(lines, section, key, current, kLimit) ||
          PRO_GetStr(section, key, current, kLimit, nullptr) == 0) &&  // the factory default
         strcmp(current, value) == 0;
}

}  // namespace
}  // namespace kt

using namespace kt;

int PRO_SetStr(const char* section, const char* key, const char* value, const char* path) {
  if (key == nullptr || value == nullptr) return -1;
  unique_fd file = open_or_create(path);
  if (!file.ok()) return -1;
  // A value equal to the factory default of a missing key counts as current:
  // the file goes on relying on the default.
  if (is_current(section, key, value, file.get())) return 0;
  file.reset();
  return PRO_SetStr_In(section, key, value, path, 0);
}

int PRO_SetInt(const char* section, const char* key, int value, const char* path) {
  char text[20];
  (void)snprintf(text, sizeof text, "%d", value);
  return PRO_SetStr(section, key, text, path);
}

int PRO_SetChar(const char* section, const char* key, char value, const char* path) {
  const char text[] = {value, '\0'};
  return PRO_SetStr(section, key, text, path);
}

int PRO_SetStr_In(const char* section, const char* key, const char* value, const char* path,
                  int mode) {
  const LineForm form = mode == 0   ? LineForm::kAssignment
                        : mode == 1 ? LineForm::kBare
                                    : LineForm::kPrefix;
  if (key == nullptr || (value == nullptr && form != LineForm::kBare)) return -1;
  FlockFile lock;
  if (!lock.open(paths::kSettingsLock, paths::kSettingsLockMode) || !lock.lock_over_signals())
    return -1;
  return write_key({section, key, value, form, LetterCase::kExact}, path);
}

int PRO_iSetStr(const char* section, const char* key, const char* value, const char* path) {
  if (key == nullptr || value == nullptr) return -1;
  return write_key({section, key, value, LineForm::kAssignment, LetterCase::kIgnored}, path);
}
