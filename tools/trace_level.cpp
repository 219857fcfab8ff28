// trace_level.cpp - up to which level the running programs trace.
#include <errno.h>
#include <ktcomm/log.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "base/unique_dir.h"
#include "tools/ktctl.h"
#include "tools/lock_users.h"
#include "tools/number.h"
#include "tools/printer.h"
#include "tools/trace_files.h"
#include "tools/trace_tables.h"

namespace kt::tools {
namespace {

constexpr int kHighestLevel = 99;

struct Programs {
  int found = 0;
  int forbidden = 0;
  int failed = 0;
};

// Calls `use(pid, tables, level)` for each program that traces, but for this one; false
// from it counts as failed.
template <typename F>
Programs for_all_programs(int module, bool for_writing, F use) {
  Programs programs;
  unique_dir processes("/proc");
  while (const char* const name = processes.next()) {
    const auto pid = parse_number(name);
    if (!pid || *pid == ::getpid()) continue;
    TraceTables tables;
    const auto found = tables.find(*pid, for_writing);
    if (found == TraceTables::Found::kForbidden) ++programs.forbidden;
    int level = 0;
    if (found != TraceTables::Found::kFound || !tables.read_level(module, level)) continue;
    ++programs.found;
    if (!use(*pid, tables, level)) ++programs.failed;
  }
  return programs;
}

int report(const Programs& programs) {
  if (programs.failed > 0) return kSystemError;  // which was said
  if (programs.found > 0) return kDone;
  if (programs.forbidden > 0) {
    return fail(kSystemError, "/proc: %d processes let only root look into their memory",
                programs.forbidden);
  }
  return fail(kNotFound, "/proc: no program that traces is running");
}

int list_levels(const Request& request, int module) {
  Printer printer(request);
  if (!printer.plain()) printer.begin_list("programs");
  return report(for_all_programs(module, false, [&](int pid, const TraceTables&, int level) {
    const ShortText command = command_of(pid);
    if (printer.plain()) {
      (void)printf("%5d  %2d  %s\n", pid, level, command.c_str());
      return true;
    }
    printer.begin_object(nullptr);
    printer.number("pid", pid);
    printer.number("level", level);
    printer.text("command", command.view());
    printer.end_object();
    return true;
  }));
}

int set_levels(const Request& request, int module, int wanted) {
  const auto set = [&](int pid, const TraceTables& tables, int level) {
    if (level == wanted) return true;
    if (request.dry_run()) {
      return would("set the level of %s from %d to %d in process %d (%s)", mod_define[module].name,
                   level, wanted, pid, command_of(pid).c_str()) == kDone;
    }
    if (tables.write_level(module, wanted) || errno == ESRCH) return true;
    (void)fail(kSystemError, "/proc/%d/mem: %s", pid, strerror(errno));
    return false;
  };
  return report(for_all_programs(module, !request.dry_run(), set));
}

}  // namespace

int trace_level(const Request& request) {
  int module = 0;
  const int unknown = read_trace_module(request.arguments[0], module);
  if (unknown != kDone) return unknown;
  if (request.count == 1) return list_levels(request, module);
  const auto level = parse_number(request.arguments[1]);
  if (!level || *level < 0 || *level > kHighestLevel) {
    return fail(kUsage, "%s: LEVEL is 0 to %d", request.arguments[1], kHighestLevel);
  }
  return set_levels(request, module, *level);
}

}  // namespace kt::tools
