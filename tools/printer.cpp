#include "tools/printer.h"

#include <ctype.h>
#include <stdio.h>

namespace kt::tools {
namespace {

struct Character {
  unsigned code;
  size_t length;  // in bytes
};

// The first character of `text` in UTF-8; a byte that begins none is one of Latin-1.
Character first_character(std::string_view text) {
  constexpr unsigned kLowest[] = {0, 0, 0x80, 0x800, 0x10000};  // that need as many bytes
  const unsigned first = static_cast<unsigned char>(text[0]);
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
  if (length == 1 || length > text.size()) return {first, 1};
  unsigned code = first & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    const unsigned next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return {first, 1};
    code = code << 6 | (next & 0x3F);
  }
  const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kLowest[length] || code > 0x10FFFF || is_surrogate || first > 0xF7) return {first, 1};
  return {code, length};
}

void print_json_character(unsigned code) {
  if (code == '"' || code == '\\') {
    (void)printf("\\%c", static_cast<int>(code));
  } else if (code >= ' ' && code <= '~') {
    (void)putchar(static_cast<int>(code));
  } else if (code <= 0xFFFF) {
    (void)printf("\\u%04x", code);
  } else {
    const unsigned rest = code - 0x10000;
    (void)printf("\\u%04x\\u%04x", 0xD800 | rest >> 10, 0xDC00 | (rest & 0x3FF));
  }
}

void print_json_text(std::string_view text) {
  (void)putchar('"');
  while (!text.empty()) {
    const Character character = first_character(text);
    print_json_character(character.code);
    text.remove_prefix(character.length);
  }
  (void)putchar('"');
}

void print_name_part(const char* name) {
  for (; *name != '\0'; ++name) {
    (void)putchar(isalnum(static_cast<unsigned char>(*name)) != 0 ? *name : '_');
  }
}

}  // namespace

void print_quoted(std::string_view value) {
  (void)putchar('\'');
  for (const char c : value) {
    if (c == '\'') {
      (void)fputs("'\\''", stdout);
    } else {
      (void)putchar(c);
    }
  }
  (void)putchar('\'');
}

Printer::Printer(const Request& request)
    : form_(request.has(Option::kJson)    ? Form::kJson
            : request.has(Option::kShell) ? Form::kShell
                                          : Form::kPlain) {
  if (form_ == Form::kJson) (void)putchar('{');
}

Printer::~Printer() {
  while (depth_ > 0) close();
  if (form_ == Form::kJson) (void)fputs(innermost().count != 0 ? "\n}\n" : "}\n", stdout);
}

// A shell variable: the names of all that is open and the value's own. What stands
// in a list is named by its number.
void Printer::print_variable(const char* name) const {
  const char* const first = depth_ > 0 ? levels_[1].name : name;
  if (isdigit(static_cast<unsigned char>(*first)) != 0) (void)putchar('_');  // no name otherwise
  for (int i = 1; i <= depth_; ++i) {
    if (levels_[i - 1].list) {
      (void)printf("%d_", levels_[i - 1].count);
    } else {
      print_name_part(levels_[i].name);
      (void)putchar('_');
    }
  }
  if (levels_[depth_].list) {
    (void)printf("%d", levels_[depth_].count);
  } else {
    print_name_part(name);
  }
  (void)putchar('=');
}

void Printer::begin_json_value(const char* name) {
  (void)printf("%s\n%*s", innermost().count > 1 ? "," : "", 2 * (depth_ + 1), "");
  if (innermost().list) return;
  print_json_text(name);
  (void)fputs(": ", stdout);
}

void Printer::begin_value(const char* name) {
  ++innermost().count;
  if (form_ == Form::kJson) begin_json_value(name);
  if (form_ == Form::kShell) print_variable(name);
  if (form_ == Form::kPlain) (void)printf("%s=", name != nullptr ? name : "");
}

void Printer::text(const char* name, std::string_view value) {
  begin_value(name);
  if (form_ == Form::kJson) {
    print_json_text(value);
    return;
  }
  if (form_ == Form::kShell) {
    print_quoted(value);
  } else {
    (void)fwrite(value.data(), 1, value.size(), stdout);
  }
  (void)putchar('\n');
}

void Printer::number(const char* name, long long value) {
  begin_value(name);
  (void)printf(form_ == Form::kShell ? "'%lld'" : "%lld", value);
  if (form_ != Form::kJson) (void)putchar('\n');
}

void Printer::flag(const char* name, bool value) {
  if (form_ != Form::kJson) return number(name, value ? 1 : 0);
  begin_value(name);
  (void)fputs(value ? "true" : "false", stdout);
}

void Printer::open(const char* name, bool list) {
  ++innermost().count;
  if (form_ == Form::kJson) {
    begin_json_value(name);
    (void)putchar(list ? '[' : '{');
  }
  if (depth_ + 1 < kDeepest) ++depth_;
  innermost() = {name, list, 0};
}

void Printer::close() {
  const Level closed = innermost();
  --depth_;
  if (form_ == Form::kShell && closed.list) {
    print_variable(closed.name);
    (void)printf("'%d'\n", closed.count);
  }
  if (form_ != Form::kJson) return;
  if (closed.count != 0) (void)printf("\n%*s", 2 * (depth_ + 1), "");
  (void)putchar(closed.list ? ']' : '}');
}

void Printer::begin_object(const char* name) {
  open(name, false);
}

void Printer::end_object() {
  close();
}

void Printer::begin_list(const char* name) {
  open(name, true);
}

void Printer::end_list() {
  close();
}

}  // namespace kt::tools
