// settings_check.cpp - all that keeps a settings file from being saved.
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "tools/ktctl.h"
#include "tools/plain_text.h"
#include "tools/printer.h"
#include "tools/settings_input.h"

namespace kt::tools {
namespace {

using Reason = StringBuffer<127>;

// Prints what it is told of, "FILE:LINE:KEY: REASON" for people.
class Findings {
 public:
  explicit Findings(const Request& request) : path_(request.file), printer_(request) {
    if (printer_.plain()) return;
    printer_.text("file", path_);
    printer_.begin_list("findings");
  }

  // `line` may be a header, or no setting at all.
  void tell(int number, std::string_view section, std::string_view line, const Reason& reason);
  [[nodiscard]] bool none() const { return none_; }

 private:
  const char* path_;
  Printer printer_;
  bool none_ = true;
};

void Findings::tell(int number, std::string_view section, std::string_view line,
                    const Reason& reason) {
  none_ = false;
  const std::string_view key = key_of(line);
  if (!printer_.plain()) {
    printer_.begin_object(nullptr);
    printer_.number("line", number);
    printer_.text("section", section);
    printer_.text("key", key);
    printer_.text("reason", reason.view());
    printer_.end_object();
    return;
  }
  (void)printf("%s:%d:", path_, number);
  print_plain(key);
  (void)printf("%s %s\n", key.empty() ? "" : ":", reason.c_str());
}

void check_line(int number, std::string_view section, std::string_view line, Findings& findings) {
  if (line.size() > kLongestLine) {
    Reason reason;
    reason.append_format("the line has %zu characters with its line feed, %zu fit", line.size(),
                         kLongestLine);
    findings.tell(number, section, line, reason);
  }
  for (size_t i = 0; i < line.size(); ++i) {
    const char byte = line[i];
    if (byte == '\n' || byte == '\r' || is_printable(byte)) continue;
    Reason reason;
    reason.append_format(
        "byte 0x%02x at place %zu, %s", static_cast<unsigned char>(byte), i + 1,
        byte == '\0' ? "where a save takes the settings to end" : "which no save would store");
    findings.tell(number, section, line, reason);
  }
}

}  // namespace

int check_settings(const Request& request) {
  Text text;
  if (const int code = read_settings(request.file, text); code != kDone) return code;
  Findings findings(request);
  std::string_view section;
  size_t begin = 0;  // of the line that the pieces are of
  for (PieceReader pieces(text.view()); pieces.next();) {
    const Piece& piece = pieces.piece();
    if (piece.at_line_start) begin = piece.place;
    if (piece.is_header()) section = piece.section();
    if (!piece.is_complete() && piece.end() != text.view().size()) continue;
    check_line(piece.line, section, {text.view().data() + begin, piece.end() - begin}, findings);
  }
  return findings.none() ? kDone : kRefused;
}

}  // namespace kt::tools
