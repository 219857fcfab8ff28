// trace_commands.cpp - trace files, one by one or merged.
#include <errno.h>
#include <fcntl.h>
#include <ktcomm/log.h>
#include <stdio.h>
#include <sys/stat.h>

#include "base/io.h"
#include "base/paths.h"
#include "base/unique_fd.h"
#include "tools/ktctl.h"
#include "tools/number.h"
#include "tools/printer.h"
#include "tools/trace_files.h"

namespace kt::tools {
namespace {

constexpr int kModules = sizeof mod_define / sizeof mod_define[0] - 1;  // without the end

// ---- Listing --------------------------------------------------------------

struct Row {
  TraceLog log;
  int number = -1;  // of the current file; -1 when there is none
  long long size = 0;
};

void print_row(const Row& row) {
  const mod_define_entry& module = mod_define[row.log.module];
  (void)printf("%2d  %-13s  %3d  %5d", row.log.module, module.name, row.log.sub, module.level);
  if (row.number >= 0) {
    (void)printf("  %4d  %5lld\n", row.number, row.size);
  } else {
    (void)printf("     -      -\n");
  }
}

void put_row(Printer& printer, const Row& row) {
  const mod_define_entry& module = mod_define[row.log.module];
  printer.begin_object(nullptr);
  printer.number("id", row.log.module);
  printer.text("module", module.name);
  printer.number("sub", row.log.sub);
  printer.number("level", module.level);
  printer.number("file", row.number);
  printer.number("size", row.size);
  printer.end_object();
}

Row look_at(TraceLog log) {
  Row row = {log};
  const auto number = current_trace_file(log);
  struct stat status;
  if (!number || ::stat(trace_file(log, *number).c_str(), &status) != 0) return row;
  row.number = *number;
  row.size = status.st_size;
  return row;
}

int list_modules(const Request& request) {
  Printer printer(request);
  if (printer.plain()) {
    (void)printf("ID  MODULE         SUB  LEVEL  FILE   SIZE\n");
  } else {
    printer.begin_list("logs");
  }
  for (int module = 0; module < kModules; ++module) {
    for (int sub = 0; sub < mod_define[module].log_count; ++sub) {
      const Row row = look_at({module, sub});
      printer.plain() ? print_row(row) : put_row(printer, row);
    }
  }
  return kDone;
}

// ---- Entries --------------------------------------------------------------

void put_entry(Printer& printer, TraceLog log, const TraceEntry& entry) {
  printer.begin_object(nullptr);
  printer.text("module", mod_define[log.module].name);
  printer.number("sub", log.sub);
  if (!entry.time.empty()) {
    printer.number("level", parse_number(entry.level).value_or(0));
    printer.text("time", entry.time);
    printer.number("sequence", parse_number<unsigned>(entry.sequence).value_or(0));
  }
  printer.text("message", entry.message);
  printer.end_object();
}

// An older file may have been deleted meanwhile, or there were not as many yet.
int print_file(const char* path, bool older) {
  const unique_fd file = open_fd(path, O_RDONLY);
  if (!file.ok()) return older && errno == ENOENT ? kDone : fail_errno(path);
  char piece[4096];
  ssize_t size;
  while ((size = read_fully(file.get(), piece, sizeof piece)) > 0) {
    (void)fwrite(piece, 1, static_cast<size_t>(size), stdout);
  }
  return size == 0 ? kDone : fail_errno(path);
}

int put_log(const Request& request, TraceLog log, int current) {
  const TracePath path = trace_file(log, current);
  if (::access(path.c_str(), R_OK) != 0) return fail_errno(path.c_str());
  Printer printer(request);
  printer.begin_list("entries");
  TraceReader reader;
  reader.open(log, request.has(Option::kAll));
  while (reader.next()) put_entry(printer, log, reader.entry());
  return kDone;
}

// ---- Merging --------------------------------------------------------------

// The sub-logs to be merged, in the order of the modules.
class Merge {
 public:
  void add(int module) {
    for (int sub = 0; sub < kTraceSubs; ++sub) {
      TraceReader& reader = readers_[count_];
      reader.open({module, sub}, true);
      if (reader.next()) ++count_;
    }
  }
  [[nodiscard]] bool empty() const { return count_ == 0; }

  // The reader with the earliest entry, of several the first; null at the end.
  [[nodiscard]] TraceReader* earliest() {
    TraceReader* first = nullptr;
    for (int i = 0; i < count_; ++i) {
      if (ended_[i]) continue;
      if (first == nullptr || readers_[i].entry().time < first->entry().time) first = &readers_[i];
    }
    return first;
  }
  void advance(TraceReader* reader) { ended_[reader - readers_] = !reader->next(); }

 private:
  static constexpr int kMost = kModules * kTraceSubs;

  TraceReader readers_[kMost + 1];  // one more: add() tries the next place
  bool ended_[kMost] = {};
  int count_ = 0;
};

void print_entry(const TraceEntry& entry) {
  (void)fwrite(entry.text.data(), 1, entry.text.size(), stdout);
  if (entry.text.back() != '\n') (void)putchar('\n');
}

void print_merged(const Request& request, Merge& merge) {
  Printer printer(request);
  if (!printer.plain()) printer.begin_list("entries");
  while (TraceReader* const reader = merge.earliest()) {
    printer.plain() ? print_entry(reader->entry())
                    : put_entry(printer, reader->log(), reader->entry());
    merge.advance(reader);
  }
}

}  // namespace

int show_trace(const Request& request) {
  if (request.count == 0) return list_modules(request);
  TraceLog log;
  if (const int code = read_trace_log(request, log); code != kDone) return code;
  const auto current = current_trace_file(log);
  if (!current) return fail(kNotFound, "%s: nothing was traced", trace_file(log, 0).c_str());
  if (request.for_programs()) return put_log(request, log, *current);
  int number = request.has(Option::kAll) ? oldest_trace_file(log, *current) : *current;
  int code = kDone;
  for (; code == kDone && number <= *current; ++number) {
    code = print_file(trace_file(log, number).c_str(), number < *current);
  }
  return code;
}

int merge_traces(const Request& request) {
  bool wanted[kModules] = {};
  for (int i = 0; i < request.count; ++i) {
    int module = 0;
    const int code = read_trace_module(request.arguments[i], module);
    if (code != kDone) return code;
    wanted[module] = true;
  }
  Merge merge;
  for (int module = 0; module < kModules; ++module) {
    if (request.count == 0 || wanted[module]) merge.add(module);
  }
  if (merge.empty()) return fail(kNotFound, "%s: nothing was traced", paths::kTraceDirectory);
  print_merged(request, merge);
  return kDone;
}

}  // namespace kt::tools
