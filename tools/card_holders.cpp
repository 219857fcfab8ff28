#include "tools/card_holders.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/text.h"
#include "base/unique_dir.h"
#include "tools/lock_users.h"
#include "tools/number.h"

namespace kt::tools {
namespace {

using ProcPath = StringBuffer<63>;  // "/proc/PID/fd/NUMBER" and the like
using Target = StringBuffer<255>;

ProcPath proc_path(int pid, const char* name) {
  ProcPath path;
  path.append_format("/proc/%d/%s", pid, name);
  return path;
}

// Whether the link leads to the card, and where. False with errno when it cannot
// be read, 0 when it leads elsewhere.
[[nodiscard]] bool leads_to_card(const char* link, Target& target) {
  char text[256];
  const ssize_t length = ::readlink(link, text, sizeof text);
  if (length < 0) return false;
  errno = 0;
  const std::string_view path(text, static_cast<size_t>(length));
  constexpr size_t kMount = sizeof paths::kCardMount - 1;
  if (!has_prefix(path, paths::kCardMount)) return false;
  if (path.size() > kMount && path[kMount] != '/') return false;
  target.append(path);
  return true;
}

enum class Hold { kNone, kHeld, kUnknown };

Hold hold_of_files(int pid, Target& target) {
  const ProcPath folder = proc_path(pid, "fd");
  unique_dir files(folder.c_str());
  if (!files.ok()) return errno == EACCES ? Hold::kUnknown : Hold::kNone;
  while (const char* const name = files.next()) {
    ProcPath link;
    link.append_format("%s/%s", folder.c_str(), name);
    if (leads_to_card(link.c_str(), target)) return Hold::kHeld;
  }
  return Hold::kNone;
}

Hold hold_of(int pid, Target& target) {
  Hold hold = Hold::kNone;
  for (const char* const name : {"cwd", "root", "exe"}) {
    if (leads_to_card(proc_path(pid, name).c_str(), target)) return Hold::kHeld;
    if (errno == EACCES) hold = Hold::kUnknown;
  }
  const Hold of_files = hold_of_files(pid, target);
  return of_files == Hold::kNone ? hold : of_files;
}

}  // namespace

Holders find_card_holders(void (*use)(const Holder& holder, void* context), void* context) {
  Holders holders;
  unique_dir processes("/proc");
  while (const char* const name = processes.next()) {
    const auto pid = parse_number(name);
    if (!pid) continue;
    Target target;
    const Hold hold = hold_of(*pid, target);
    if (hold == Hold::kUnknown) ++holders.unknown;
    if (hold != Hold::kHeld) continue;
    use({*pid, command_of(*pid).c_str(), target.c_str()}, context);
    ++holders.found;
  }
  return holders;
}

Holders print_card_holders(FILE* out, const char* first) {
  struct Lines {
    FILE* out;
    const char* label;
    int width;
  } lines = {out, first, static_cast<int>(strlen(first))};
  const auto print = [](const Holder& holder, void* context) {
    auto& to = *static_cast<Lines*>(context);
    (void)fprintf(to.out, "%-*s%d  %s  %s\n", to.width, to.label, holder.pid, holder.command,
                  holder.path);
    to.label = "";
  };
  return find_card_holders(print, &lines);
}

}  // namespace kt::tools
