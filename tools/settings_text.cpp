#include "tools/settings_text.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

#include "base/text.h"

namespace kt::tools {
namespace {

std::string_view part_of(std::string_view text, size_t from, size_t count) {
  text.remove_prefix(from);
  text.remove_suffix(text.size() - count);
  return text;
}

std::string_view without_front_blanks(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  return text;
}

std::string_view without_end_blanks(std::string_view text) {
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// What a reader makes of the text behind the '='.
std::string_view value_of(std::string_view text) {
  text = part_of(text, 0, std::min(text.find('\0'), text.size()));
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) text.remove_suffix(1);
  return text;
}

// Key and value of a line, where it is one of that kind.
std::optional<Setting> read_setting(const Piece& piece) {
  const size_t equals = piece.text.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  const size_t begin = equals + 1;
  return Setting{
      {}, key_of(piece.text), value_of(part_of(piece.text, begin, piece.text.size() - begin))};
}

[[nodiscard]] bool is_header_of(const Piece& piece, std::string_view section) {
  const std::string_view text = piece.text;
  return piece.is_header() && text.size() >= section.size() + 2 &&
         part_of(text, 1, section.size()) == section && text[1 + section.size()] == ']';
}

// Reads up to the first line of a section; false when there is no such section.
[[nodiscard]] bool enter_section(PieceReader& pieces, std::string_view section) {
  if (section.empty()) return true;
  while (pieces.next()) {
    if (is_header_of(pieces.piece(), section)) return true;
  }
  return false;
}

// A place in the text and what is to stand there.
struct Splice {
  size_t place;
  size_t count;        // bytes that go
  bool on_a_new_line;  // a line feed in front: the line before has none
};

// Where the line "key=" goes: over the key's own, or behind the section's lines.
Splice find_place(PieceReader& pieces, std::string_view text, std::string_view key) {
  while (pieces.next()) {
    const Piece& piece = pieces.piece();
    if (piece.is_header()) return {piece.place, 0, !piece.at_line_start};
    const auto setting = read_setting(piece);
    if (!setting || setting->key != key) continue;
    const size_t line_feed = piece.is_complete() ? piece.end() - 1 : text.find('\n', piece.end());
    const size_t end = line_feed == std::string_view::npos ? text.size() : line_feed + 1;
    return {piece.place, end - piece.place, false};
  }
  return {text.size(), 0, !text.empty() && text.back() != '\n'};
}

}  // namespace

// ---- Text -----------------------------------------------------------------

bool Text::grow(size_t size) {
  if (size <= room_) return true;
  const size_t room = size + size / 2 + 1024;
  char* const bytes = static_cast<char*>(::realloc(bytes_.get(), room));
  if (bytes == nullptr) return false;
  (void)bytes_.release();  // it is in `bytes`
  bytes_.reset(bytes);
  room_ = room;
  return true;
}

bool Text::replace(size_t place, size_t count, std::string_view more) {
  if (!grow(size_ + more.size())) return false;
  char* const target = bytes_.get() + place;
  memmove(target + more.size(), target + count, size_ - place - count);
  if (!more.empty()) memcpy(target, more.data(), more.size());
  size_ += more.size() - count;
  return true;
}

bool Text::read(FILE* file) {
  constexpr size_t kPiece = 16384;
  for (;;) {
    if (!grow(size_ + kPiece)) return false;
    const size_t count = fread(bytes_.get() + size_, 1, kPiece, file);
    size_ += count;
    if (count < kPiece) return ferror(file) == 0;
  }
}

// ---- Reading --------------------------------------------------------------

std::string_view Piece::section() const {
  const std::string_view header = value_of(text);
  const size_t end = std::min(header.find(']'), header.size());
  return part_of(header, 1, end - 1);
}

bool PieceReader::next() {
  const size_t place = piece_.end();
  if (place == text_.size()) return false;
  piece_.at_line_start = piece_.text.empty() || piece_.is_complete();
  if (piece_.at_line_start) ++piece_.line;
  const size_t longest = std::min(kLongestLine, text_.size() - place);
  const std::string_view window = part_of(text_, place, longest);
  piece_.text = part_of(window, 0, std::min(window.find('\n'), longest - 1) + 1);
  piece_.place = place;
  return true;
}

std::string_view key_of(std::string_view line) {
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) return {};
  return without_end_blanks(without_front_blanks(part_of(line, 0, equals)));
}

bool is_found(std::string_view text, const Piece& header) {
  PieceReader pieces(text);
  const std::string_view section = header.section();
  return !section.empty() && enter_section(pieces, section) && pieces.piece().place == header.place;
}

std::optional<std::string_view> lines_of_section(std::string_view text, std::string_view section) {
  PieceReader pieces(text);
  if (!enter_section(pieces, section)) return std::nullopt;
  const size_t begin = pieces.piece().end();
  size_t end = begin;
  while (pieces.next() && !pieces.piece().is_header()) end = pieces.piece().end();
  return part_of(text, begin, end - begin);
}

std::optional<std::string_view> find_in_text(std::string_view text, std::string_view section,
                                             std::string_view key) {
  const auto lines = lines_of_section(text, section);
  if (!lines) return std::nullopt;
  for (PieceReader pieces(*lines); pieces.next();) {
    const auto setting = read_setting(pieces.piece());
    if (setting && setting->key == key) return setting->value;
  }
  return std::nullopt;
}

bool Settings::read(std::string_view text) {
  settings_ = allocate<Setting>(static_cast<size_t>(std::count(text.begin(), text.end(), '=')) + 1);
  if (settings_ == nullptr) return false;
  std::string_view section;
  bool hidden = false;
  size_t first = 0;  // of this section
  for (PieceReader pieces(text); pieces.next();) {
    if (pieces.piece().is_header()) {
      section = pieces.piece().section();
      hidden = !is_found(text, pieces.piece());
      first = count_;
      continue;
    }
    const auto setting = read_setting(pieces.piece());
    const auto is_twin = [&](const Setting& other) { return other.key == setting->key; };
    if (hidden || !setting || std::any_of(&settings_[first], &settings_[count_], is_twin)) continue;
    settings_[count_++] = {section, setting->key, setting->value};
  }
  return true;
}

const Setting* Settings::find(std::string_view section, std::string_view key) const {
  for (const Setting& setting : all()) {
    if (setting.key == key && setting.section == section) return &setting;
  }
  return nullptr;
}

// ---- Editing --------------------------------------------------------------

bool set_in_text(Text& text, std::string_view section, std::string_view key,
                 std::string_view value) {
  PieceReader pieces(text.view());
  const bool found = enter_section(pieces, section);
  const Splice splice =
      found ? find_place(pieces, text.view(), key)
            : Splice{text.view().size(), 0, !text.view().empty() && text.view().back() != '\n'};
  const std::string_view parts[] = {splice.on_a_new_line ? "\n" : "",
                                    found ? "" : "[",
                                    found ? "" : section,
                                    found ? "" : "]\n",
                                    key,
                                    "=",
                                    value,
                                    "\n"};
  char line[2 * kLongestLine];
  size_t length = 0;
  for (const std::string_view part : parts) {
    copy_cut(line + length, sizeof line - length, part);
    length += part.size();
  }
  return text.replace(splice.place, splice.count, {line, length});
}

}  // namespace kt::tools
