// ini_line.h - what the lines of a settings file are and when they match.
//
// The format is described in doc/settings-file.md.
#ifndef KTCOMM_CONFIG_INI_LINE_H
#define KTCOMM_CONFIG_INI_LINE_H

#include <stddef.h>
#include <stdio.h>

#include <optional>
#include <string_view>

#include "base/line_reader.h"
#include "base/line_window.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"

namespace kt {

enum class LetterCase { kExact, kIgnored };

// Longer lines count as several.
constexpr size_t kIniPiece = 511;

// What is read of a file at once.
constexpr size_t kIniRoom = 4096;

// One line, or one piece of a longer one.
struct IniLine {
  char text[kIniPiece + 1];
  size_t length = 0;

  [[nodiscard]] bool read(FILE* stream) {
    length = read_line(stream, text, sizeof text);
    return length != 0;
  }
  [[nodiscard]] std::string_view view() const { return {text, length}; }
  [[nodiscard]] bool is_header() const { return text[0] == '['; }
  [[nodiscard]] bool is_complete() const { return text[length - 1] == '\n'; }
};

// The header that a section argument stands for: a bracketed argument itself,
// or "[%s]" of a bare name of at most 61 characters.
class SectionHeader {
 public:
  explicit SectionHeader(std::string_view section);

  // False for an over-long bare name: such a section is nowhere.
  [[nodiscard]] bool valid() const { return !built_.truncated(); }
  [[nodiscard]] std::string_view text() const { return bracketed_ ? given_ : built_.view(); }
  [[nodiscard]] bool matches(std::string_view line, LetterCase letter_case) const;

 private:
  StringBuffer<63> built_;
  std::string_view given_;
  bool bracketed_;
};

// Cuts a section argument at its first line feed, in the caller's own string:
// callers hand over lines that they have read and rely on finding them cut.
// Without a line feed nothing is written, so that literals are safe.
void cut_at_line_feed(const char* section);

// True when `text` begins with `prefix`.
[[nodiscard]] bool begins_with(std::string_view text, std::string_view prefix,
                               LetterCase letter_case);

// A key at the front of a line, behind any blanks.
struct KeyMatch {
  std::string_view key;   // as the line spells it
  std::string_view rest;  // what follows it
};
[[nodiscard]] std::optional<KeyMatch> match_key(std::string_view line, std::string_view key,
                                                LetterCase letter_case);

// `text` without the blanks (only 0x20) at its front.
[[nodiscard]] std::string_view skip_blanks(std::string_view text);

// What follows the '=' of a key=value line of `key`.
[[nodiscard]] std::optional<std::string_view> find_value(std::string_view line,
                                                         std::string_view key);

// `text` up to a NUL byte, without the CR and LF characters at its end.
[[nodiscard]] std::string_view strip_line_end(std::string_view text);

// Copies a value out. One longer than `size` is cut to `size` - 1 characters,
// one of exactly `size` is stored whole and writes `size` + 1 bytes: callers
// size their buffers one byte larger than the limit that they pass.
void store_value(std::string_view value, char* out, size_t size);

// Looks a key up in a file, without the factory defaults: the value is stored as
// by store_value.
[[nodiscard]] bool look_up(LineWindow& lines, const char* section, const char* key, char* out,
                           size_t size);

// Opens a settings file for reading, creating an empty one where it is missing.
// Refused is anything but a regular file, which may be endless, and a path too
// long to be given to the shell.
[[nodiscard]] unique_fd open_or_create(const char* path);

}  // namespace kt

#endif
