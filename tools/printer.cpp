#include "tools/printer.h"

#include <ctype.h>
#include <stdio.h>

namespace kt::tools {
namespace {

void print_json_text(std::string_view text) {
  (void)putchar('"');
  for (const char c : text) {
    const unsigned code = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      (void)printf("\\%c", c);
    } else if (code < ' ' || code > '~') {
      (void)printf("\\u%04x", code);
    } else {
      (void)putchar(c);
    }
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
