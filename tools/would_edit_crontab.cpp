#include "tools/would_edit_crontab.h"

#include <errno.h>

#include "base/paths.h"
#include "base/unique_file.h"
#include "tools/ktctl.h"
#include "tools/line_source.h"

namespace kt::tools {
namespace {

constexpr size_t kLongestPiece = 255;  // no more of a line is looked at
constexpr size_t kBlanksBeforeCommand = 6;

bool runs_command(const LineSource& lines, std::string_view command) {
  std::string_view rest = lines.line();
  const bool whole = rest.size() < kLongestPiece;
  if (!whole) rest.remove_suffix(rest.size() - kLongestPiece);
  for (size_t i = 0; i < kBlanksBeforeCommand; ++i) {
    const size_t blank = rest.find(' ');
    if (blank == rest.npos) return false;
    rest.remove_prefix(blank + 1);
  }
  const size_t end = rest.find(' ');
  if (end == rest.npos) return whole && rest == command;
  return std::string_view(rest.data(), end) == command;
}

// A last line without its line feed is none that can be removed, but it is there
// already when the same is to be added.
bool is_taken_out(const CrontabEdit& edit, const LineSource& lines) {
  if (!edit.command.empty()) return runs_command(lines, edit.command);
  return lines.line() == edit.line && (lines.finished() || !edit.added.empty());
}

int tell(const char* what, std::string_view line) {
  return would("%s %s: %.*s", what, paths::kCrontab, static_cast<int>(line.size()), line.data());
}

}  // namespace

int tell_crontab_edit(const CrontabEdit& edit, int& told) {
  const unique_file crontab = open_file(paths::kCrontab, "re");
  if (!crontab.ok() && errno != ENOENT && errno != ENOTDIR) return fail_errno(paths::kCrontab);
  int taken_out = 0;
  bool there = false;     // the line to be added
  bool in_place = false;  // at the end
  LineSource lines(crontab.get());
  while (crontab.ok() && lines.next()) {
    const bool is_added = lines.line() == edit.added;
    in_place = is_added && lines.finished();
    there = there || is_added;
    if (!is_taken_out(edit, lines)) continue;
    ++taken_out;
    if (is_added) continue;
    (void)tell("remove from", lines.line());
    ++told;
  }
  if (crontab.ok() && ferror(crontab.get()) != 0) return fail_errno(paths::kCrontab);
  if (edit.added.empty() || (in_place && taken_out == 1)) return kDone;
  ++told;
  return tell(there ? "move to the end of" : "add to", edit.added);
}

}  // namespace kt::tools
