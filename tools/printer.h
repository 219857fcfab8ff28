// printer.h - what a command tells, as people or as programs read it.
#ifndef KTCOMM_TOOLS_PRINTER_H
#define KTCOMM_TOOLS_PRINTER_H

#include <string_view>

#include "tools/ktctl.h"

namespace kt::tools {

// Prints names and values:
//   plain    NAME=VALUE, one a line
//   --shell  NAME='VALUE', for `eval`; within objects and lists, which are counted
//            from 1, OUTER_1_NAME='VALUE', and with OUTER='2' how many there are
//   --json   one document; bytes that are no UTF-8 are taken for Latin-1
// What has a better form for people prints it itself where it is plain().
class Printer {
 public:
  explicit Printer(const Request& request);
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;
  ~Printer();

  [[nodiscard]] bool plain() const { return form_ == Form::kPlain; }

  // In a list `name` is null.
  void text(const char* name, std::string_view value);
  void number(const char* name, long long value);
  void flag(const char* name, bool value);  // true or false; to a shell 1 or 0
  void begin_object(const char* name);
  void end_object();
  void begin_list(const char* name);
  void end_list();

 private:
  enum class Form { kPlain, kShell, kJson };
  static constexpr int kDeepest = 6;  // all commands stay below

  // What is open: the document itself, then objects and lists within it.
  struct Level {
    const char* name = nullptr;
    bool list = false;
    int count = 0;  // of what was printed in it
  };

  Level& innermost() { return levels_[depth_]; }
  void begin_value(const char* name);
  void begin_json_value(const char* name);
  void print_variable(const char* name) const;
  void open(const char* name, bool list);
  void close();

  Form form_;
  int depth_ = 0;
  Level levels_[kDeepest];
};

// Prints `value` so that a shell takes it for one word.
void print_quoted(std::string_view value);

}  // namespace kt::tools

#endif
