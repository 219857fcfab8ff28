/* events.c - the configured events, and which of them are active. */
#include <stdio.h>
#include <string.h>

#include "eventd.h"

static EventConfig config; /* all zero until it is read: no events */

enum {
  EVENT_COUNT = sizeof config.events / sizeof config.events[0],
  ACTION_COUNT = sizeof event_action_tab / sizeof event_action_tab[0],
  MINUTES_OF_DAY = 24 * 60
};

/* In the event log, for everybody to see: messages of section EVENT in /etc/logfile. */
enum { LOG_LEVEL = 2, STARTED = 1, ENDED = 2 };

/* The names of the events that are active, by number; empty = not active. Reading the
 * events leaves them alone: an event of the same number and name goes on, and one
 * that has gone, or has another name now, ends. */
static char active[EVENT_COUNT][sizeof config.events[0].name];

static int lies_in(SchSlotSet* schedule) {
  /* Answers are kept by the minute of the day: for a set just read, as "not active" at
   * 00:00, and for one asked before, over a change of the date. No answer can be
   * there for a minute that no day has. */
  schedule->last_minute = MINUTES_OF_DAY;
  return chk_sch_from_mm(schedule);
}

static int is_active(EventEntry* event) {
  if (config.trigger == 0 || event->enabled == 0) return 0;
  return event->name[0] != '\0' && lies_in(&event->schedule);
}

/* Puts the names of the actions into `out`, each behind a blank, which takes the place
 * of its NUL in the table. */
static void name_actions(unsigned actions, char out[sizeof event_action_tab + 1]) {
  *out = '\0';
  for (int i = 0; i < ACTION_COUNT; ++i) {
    if ((actions >> i & 1) != 0) out += sprintf(out, " %s", event_action_tab[i]);
  }
}

static void log_event(int message, int number, const char* name) {
  if (AddLog("EVENT", LOG_LEVEL, message, number, name) == 0) return;
  TRACE(TRACE_FAILURE, "event %d (%s): message %d could not be logged", number, name, message);
}

/* What the actions do is the affair of others (mailers, uploaders, the recorder): here
 * they would be told. */
static void start_event(int number, const EventEntry* event) {
  char actions[sizeof event_action_tab + 1];
  name_actions(event->actions, actions);
  TRACE(TRACE_PROGRESS, "event %d (%s) started, actions:%s", number, event->name, actions);
  log_event(STARTED, number, event->name);
}

static void end_event(int number, const char* name) {
  TRACE(TRACE_PROGRESS, "event %d (%s) ended", number, name);
  log_event(ENDED, number, name);
}

void read_events(void) {
  /* A reader that fails leaves its record untouched. */
  if (ReadEventConf(&config) != 0) {
    TRACE(TRACE_FAILURE, "%s cannot be read, the events stay as they were", SETTINGS);
    return;
  }
  TRACE(TRACE_PROGRESS, "the events were read, trigger=%d", config.trigger);
}

void evaluate_events(void) {
  for (int i = 0; i < EVENT_COUNT; ++i) {
    EventEntry* const event = &config.events[i];
    const char* const name = is_active(event) ? event->name : "";
    if (strcmp(name, active[i]) == 0) continue;
    if (active[i][0] != '\0') end_event(i + 1, active[i]);
    if (name[0] != '\0') start_event(i + 1, event);
    memcpy(active[i], name, strlen(name) + 1);
  }
}
