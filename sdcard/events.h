// events.h - what card control adds to the event log and the trace.
#ifndef KTCOMM_SDCARD_EVENTS_H
#define KTCOMM_SDCARD_EVENTS_H

#include "ktcomm/log.h"

namespace kt {

// Message numbers of the sections "SD_RECORD" and "SDCARD" in the catalogue.
enum RecordEvent : int { kStoppedForOperation = 8 };
enum CardEvent : int { kUnmounted = 3, kUnmountFailed = 4, kFormatted = 5, kFormatFailed = 6 };

constexpr int kCardEventLevel = 2;

constexpr int kTraceFailure = 4;
constexpr int kTraceModule = 8;

// An event that cannot be logged stops nothing.
inline void log_record_event(int number) {
  (void)AddLog("SD_RECORD", kCardEventLevel, number);
}
inline void log_card_event(CardEvent number) {
  (void)AddLog("SDCARD", kCardEventLevel, number);
}

}  // namespace kt

#endif
