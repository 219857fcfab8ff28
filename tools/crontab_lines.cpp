#include "tools/crontab_lines.h"

#include <ctype.h>

namespace kt::tools {
namespace {

constexpr char kBlanks[] = " \t";

// Cuts the next word off `text`, with the blanks around it; empty at the end.
std::string_view take_word(std::string_view& text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  text.remove_prefix(begin != text.npos ? begin : text.size());
  const size_t end = text.find_first_of(kBlanks);
  const std::string_view word(text.data(), end != text.npos ? end : text.size());
  text.remove_prefix(word.size());
  const size_t next = text.find_first_not_of(kBlanks);
  text.remove_prefix(next != text.npos ? next : text.size());
  return word;
}

bool is_name_character(char c) {
  return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool is_assignment(std::string_view line) {
  size_t length = 0;
  while (length < line.size() && is_name_character(line[length])) ++length;
  if (length == 0 || isdigit(static_cast<unsigned char>(line[0])) != 0) return false;
  const size_t next = line.find_first_not_of(kBlanks, length);
  return next != line.npos && line[next] == '=';
}

// An L right in front of the first column.
bool is_linear(std::string_view line) {
  return line.size() >= 2 && line[0] == 'L' &&
         (line[1] == '*' || isdigit(static_cast<unsigned char>(line[1])) != 0);
}

}  // namespace

bool is_no_job(std::string_view line) {
  const size_t begin = line.find_first_not_of(kBlanks);
  if (begin == line.npos || line[begin] == '#') return true;
  line.remove_prefix(begin);
  return is_assignment(line);
}

CronColumns split_job(std::string_view line) {
  CronColumns columns;
  columns.linear = is_linear(line);
  if (columns.linear) line.remove_prefix(1);
  for (std::string_view& field : columns.fields) {
    field = take_word(line);
    columns.nickname = !field.empty() && field[0] == '@';
    if (columns.nickname) break;
  }
  columns.user = take_word(line);
  columns.command = line;
  return columns;
}

}  // namespace kt::tools
