// flash_stages.h - what a save is doing, for whoever waits at a terminal.
#ifndef KTCOMM_TOOLS_FLASH_STAGES_H
#define KTCOMM_TOOLS_FLASH_STAGES_H

#include <sys/types.h>

#include "base/unique_fd.h"

namespace kt::tools {

// Prints a line for each stage when standard output is a terminal, else nothing. A
// terminal that was lost or stopped neither fails a save nor keeps it waiting.
class SaveStages {
 public:
  SaveStages();
  SaveStages(const SaveStages&) = delete;
  SaveStages& operator=(const SaveStages&) = delete;
  ~SaveStages() { end_watch(false); }

  void show(const char* stage) const;

  // The writing of the copies is one call. While it runs, a child process, which
  // inherits nothing of it, tells from the partitions' locks how far it is. To be
  // called with signals kept waiting.
  void watch();

  // A child that has seen too little of a save that was done quickly tells the rest.
  void end_watch(bool saved);

 private:
  bool shown_;
  pid_t watcher_ = -1;
  unique_fd end_;  // a byte in it, or its end: the call has returned
};

}  // namespace kt::tools

#endif
