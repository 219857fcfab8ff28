// trace_files.h - the trace's files and the entries in them.
//
// Their form is described in doc/trace.md.
#ifndef KTCOMM_TOOLS_TRACE_FILES_H
#define KTCOMM_TOOLS_TRACE_FILES_H

#include <optional>
#include <string_view>

#include "base/string_buffer.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"

namespace kt::tools {

inline constexpr int kTraceSubs = 2;

// A sub-log of a module.
struct TraceLog {
  int module = 0;
  int sub = 0;
};

using TracePath = StringBuffer<127>;

[[nodiscard]] TracePath trace_file(TraceLog log, int number);

// The number of the file being written; nothing when nothing was traced yet.
[[nodiscard]] std::optional<int> current_trace_file(TraceLog log);

// The number of the oldest file that rotations have left, or may have.
[[nodiscard]] int oldest_trace_file(TraceLog log, int current);

// The module of this name or number.
[[nodiscard]] std::optional<int> find_trace_module(const char* text);

// These return kDone, or the exit code after they have said what is wrong: the first
// for an unknown module, the second for the arguments MODULE [SUB].
[[nodiscard]] int read_trace_module(const char* text, int& module);
[[nodiscard]] int read_trace_log(const Request& request, TraceLog& log);

// One entry: a line of a known form, and those behind it that begin otherwise. What
// stands before the first such line is an entry without a time.
struct TraceEntry {
  std::string_view text;     // all of it
  std::string_view message;  // behind its head, without the last line feed
  std::string_view level;
  std::string_view time;  // "YYYY-MM-DD HH:MM:SS uuuuuu", local; sorts as text
  std::string_view sequence;
};

// Reads the entries of a sub-log, from the current file or from all that are left.
class TraceReader {
 public:
  void open(TraceLog log, bool older);

  // The next entry, which lasts until the next call; false at the end.
  [[nodiscard]] bool next();
  [[nodiscard]] const TraceEntry& entry() const { return entry_; }
  [[nodiscard]] TraceLog log() const { return log_; }

 private:
  [[nodiscard]] bool read_file(const char* path);

  TraceLog log_;
  int number_ = 0;
  int last_ = -1;
  unique_malloc<char[]> content_;
  std::string_view rest_;
  TraceEntry entry_;
};

}  // namespace kt::tools

#endif
