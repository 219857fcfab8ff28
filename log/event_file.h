// event_file.h - the event log's file and the lock among its writers.
#ifndef KTCOMM_LOG_EVENT_FILE_H
#define KTCOMM_LOG_EVENT_FILE_H

#include "base/file_lock.h"

namespace kt {

// Opens the log for reading and writing, creating it where missing.
[[nodiscard]] bool open_event_log(FlockFile& log);

// Takes the writers' lock in at most so many tries, 0.01 second apart; false
// when another writer had it each time.
[[nodiscard]] bool lock_event_log(FlockFile& log, int tries);

}  // namespace kt

#endif
