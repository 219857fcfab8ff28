// trace_tables.h - the levels of the trace in programs that are running.
#ifndef KTCOMM_TOOLS_TRACE_TABLES_H
#define KTCOMM_TOOLS_TRACE_TABLES_H

#include <stddef.h>
#include <stdio.h>

#include "base/unique_fd.h"
#include "base/unique_malloc.h"

namespace kt::tools {

// The table of modules, with their levels, in the memory of another process. Every
// program has one of its own, which is known by what it holds, wherever it lies: that
// of the library is copied into programs that name it themselves, and only the copy
// counts. It lies in front of the library's then; both are written.
class TraceTables {
 public:
  enum class Found { kNone, kFound, kForbidden };

  // Looks for the tables of a process, to be written, too, or only read.
  [[nodiscard]] Found find(int pid, bool for_writing);

  // False when the process has ended or begun another program, or forbids it. Writing
  // sets errno then: ESRCH for the former.
  [[nodiscard]] bool read_level(int module, int& level) const;
  [[nodiscard]] bool write_level(int module, int level) const;

 private:
  using Address = unsigned long long;
  static constexpr int kMost = 4;

  struct Range {
    Address start, end;
  };

  [[nodiscard]] bool next_range(FILE* maps, Range& range);
  void search(Range range);

  unique_fd memory_;
  unique_malloc<unsigned char[]> piece_;
  Address places_[kMost];
  int count_ = 0;
  Address end_of_last_ = 0;  // of the range that may go on without a name
};

}  // namespace kt::tools

#endif
