/* eventd.h - what the two halves of the event daemon share. */
#ifndef EVENTD_H
#define EVENTD_H

#include <ktcomm.h>

#define SETTINGS "/mnt/ramdisk/env/system.conf"

enum { TRACE_FAILURE = 4, TRACE_PROGRESS = 8 };
enum { TRACE_MODULE = 4 }; /* "event" in mod_define: /tmp/debug/event/0-N.log */

/* Traces a line; `format` is a literal with at least one conversion. */
#define TRACE(level, format, ...) \
  KT_DEBUGn_in(level, TRACE_MODULE, 0, "%s(%d):" format "\n", __func__, __LINE__, __VA_ARGS__)

/* Reads the events; those there were stay when the settings cannot be read. */
void read_events(void);

/* Traces and logs what events have started and ended since it was last called. */
void evaluate_events(void);

#endif
