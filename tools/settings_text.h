// settings_text.h - the text of a settings file, read and edited in memory as the
// library does it on the disk. doc/settings-file.md has the rules.
#ifndef KTCOMM_TOOLS_SETTINGS_TEXT_H
#define KTCOMM_TOOLS_SETTINGS_TEXT_H

#include <stddef.h>
#include <stdio.h>

#include <optional>
#include <span>
#include <string_view>

#include "base/unique_malloc.h"

namespace kt::tools {

inline constexpr size_t kLongestLine = 511;  // its line feed included

// Whether a save stores the byte. Line ends, which it stores too, are no part of
// any name or value.
constexpr bool is_printable(char byte) {
  return byte >= ' ' && byte <= '~';
}

// Bytes that grow. What has failed for want of memory has changed nothing.
class Text {
 public:
  [[nodiscard]] bool read(FILE* file);  // all that is left; false with errno
  [[nodiscard]] bool append(std::string_view more) { return replace(size_, 0, more); }
  // Puts `more` in the place of `count` bytes; false when there is no memory.
  [[nodiscard]] bool replace(size_t place, size_t count, std::string_view more);

  [[nodiscard]] std::string_view view() const { return {bytes_.get(), size_}; }
  [[nodiscard]] char* data() { return bytes_.get(); }

 private:
  [[nodiscard]] bool grow(size_t size);

  unique_malloc<char[]> bytes_;
  size_t size_ = 0;
  size_t room_ = 0;
};

// A line, or a piece of a longer one: what a reader takes at a time.
struct Piece {
  std::string_view text;  // with its line feed
  size_t place = 0;       // of its first byte
  int line = 0;           // from 1
  bool at_line_start = true;

  [[nodiscard]] bool is_header() const { return text.front() == '['; }
  [[nodiscard]] bool is_complete() const { return text.back() == '\n'; }
  [[nodiscard]] size_t end() const { return place + text.size(); }
  // What a header's brackets hold.
  [[nodiscard]] std::string_view section() const;
};

// for (PieceReader pieces(text); pieces.next();) use(pieces.piece());
class PieceReader {
 public:
  explicit PieceReader(std::string_view text) : text_(text) {}
  [[nodiscard]] bool next();
  [[nodiscard]] const Piece& piece() const { return piece_; }

 private:
  std::string_view text_;
  Piece piece_;
};

// What stands before the '=' of a line, blanks around it left out; empty where there is
// no '='.
[[nodiscard]] std::string_view key_of(std::string_view line);

// Sets `key` in `section`, names and value such as check_assignment lets pass. The
// text becomes what PRO_SetStr makes of the file; false when there is no memory.
[[nodiscard]] bool set_in_text(Text& text, std::string_view section, std::string_view key,
                               std::string_view value);

// Whether readers find the section that the header `piece` begins: no second one of a
// name, and none without a bracket at its end.
[[nodiscard]] bool is_found(std::string_view text, const Piece& header);

// The lines of a section, or with an empty name those before any; null when there is
// no such section.
[[nodiscard]] std::optional<std::string_view> lines_of_section(std::string_view text,
                                                               std::string_view section);

// The value that a reader finds in the text, the factory defaults left alone.
[[nodiscard]] std::optional<std::string_view> find_in_text(std::string_view text,
                                                           std::string_view section,
                                                           std::string_view key);

struct Setting {
  std::string_view section;  // empty before the first header
  std::string_view key;
  std::string_view value;
};

// All settings that a reader can find, in the order of the text: of sections with one
// name, and of keys in it, the first.
class Settings {
 public:
  [[nodiscard]] bool read(std::string_view text);  // which stays; false without memory
  [[nodiscard]] std::span<const Setting> all() const { return {settings_.get(), count_}; }
  [[nodiscard]] const Setting* find(std::string_view section, std::string_view key) const;

 private:
  unique_malloc<Setting[]> settings_;
  size_t count_ = 0;
};

}  // namespace kt::tools

#endif
