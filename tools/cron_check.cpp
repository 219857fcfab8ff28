// cron_check.cpp - what a cron daemon would refuse in a crontab.
#include <pwd.h>
#include <stdio.h>
#include <strings.h>

#include <optional>

#include "base/paths.h"
#include "base/unique_file.h"
#include "tools/crontab_lines.h"
#include "tools/ktctl.h"
#include "tools/line_source.h"
#include "tools/plain_text.h"
#include "tools/printer.h"
#include "tools/settings_input.h"

namespace kt::tools {
namespace {

constexpr size_t kLongestLine = 999;  // daemons read no more of a command

constexpr const char* kNicknames[] = {"@reboot", "@yearly", "@annually", "@monthly",
                                      "@weekly", "@daily",  "@midnight", "@hourly"};

bool is_nickname(std::string_view word) {
  for (const char* const nickname : kNicknames) {
    if (word.size() == strlen(nickname) && strncasecmp(nickname, word.data(), word.size()) == 0) {
      return true;
    }
  }
  return false;
}

// A crontab may be written before the camera has its accounts; there is always
// a root.
bool is_user(std::string_view name) {
  if (name == "root") return true;
  StringBuffer<63> text;
  text.append(name);
  return !text.truncated() && ::getpwnam(text.c_str()) != nullptr;
}

// A field is elements with commas between.
bool check_field(CronField field, std::string_view text, Reason& reason) {
  constexpr int kSundayToo = 7;
  if (field.highest == 6) field.highest = kSundayToo;
  for (;;) {
    const size_t comma = text.find(',');
    CronRange range;
    Reason of_element;
    if (!parse_range(field, {text.data(), comma != text.npos ? comma : text.size()}, range,
                     of_element)) {
      reason = of_element;
      return false;
    }
    if (comma == text.npos) return true;
    text.remove_prefix(comma + 1);
  }
}

bool check_schedule(const CronColumns& job, Reason& reason) {
  if (job.nickname) {
    if (is_nickname(job.fields[0])) return true;
    reason.append_format("%.*s: no such nickname", shown_length(job.fields[0]),
                         job.fields[0].data());
    return false;
  }
  for (size_t i = 0; i < kCronFields; ++i) {
    if (!check_field(kCronField[i], job.fields[i], reason)) return false;
  }
  return true;
}

bool check_bytes(std::string_view line, Reason& reason) {
  if (line.size() > kLongestLine) {
    reason.append_format("%zu characters, at most %zu are read", line.size(), kLongestLine);
    return false;
  }
  for (size_t i = 0; i < line.size(); ++i) {
    if (!is_control(line[i]) || line[i] == '\t') continue;
    reason.append_format("control character 0x%02x at place %zu", static_cast<unsigned>(line[i]),
                         i + 1);
    return false;
  }
  return true;
}

bool check_line(std::string_view line, Reason& reason) {
  if (is_no_job(line)) return true;
  if (!check_bytes(line, reason)) return false;
  const CronColumns job = split_job(line);
  if (job.linear) {
    reason.append("a linear line, for which a daemon that knows none may ignore the whole file");
    return false;
  }
  if (job.command.empty()) {
    reason.append_format("too few columns: %s, the user and the command are wanted",
                         job.nickname ? "the nickname" : "five of time");
    return false;
  }
  if (!check_schedule(job, reason)) return false;
  if (is_user(job.user)) return true;
  reason.append_format("%.*s: no such user; is that column missing?", shown_length(job.user),
                       job.user.data());
  return false;
}

void begin_report(Printer& printer, const char* path) {
  printer.text("file", path);
  printer.begin_list("refused");
}

void print_refused(Printer& printer, int line, const char* reason) {
  printer.begin_object(nullptr);
  printer.number("line", line);
  printer.text("reason", reason);
  printer.end_object();
}

}  // namespace

int check_crontab(const Request& request) {
  const char* const path = request.count != 0 ? request.arguments[0] : paths::kCrontab;
  unique_file file;
  int code = open_settings(path, file);
  if (code != kDone) return code;
  Printer printer(request);
  if (!printer.plain()) begin_report(printer, path);
  const auto tell = [&](int number, const char* reason) {
    code = kRefused;
    if (printer.plain()) {
      (void)printf("%s:%d: %s\n", path, number, reason);
    } else {
      print_refused(printer, number, reason);
    }
  };
  LineSource lines(file.get());
  while (lines.next()) {
    Reason reason;
    if (!check_line(lines.line(), reason)) tell(lines.number(), reason.c_str());
    if (!lines.finished()) {
      tell(lines.number(), "no line feed at the end, for which a daemon may ignore the whole file");
    }
  }
  return ferror(file.get()) == 0 ? code : fail_errno(path);
}

}  // namespace kt::tools
