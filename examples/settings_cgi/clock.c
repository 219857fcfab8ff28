/* clock.c - time servers, daylight saving and the time zone. */
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "settings_cgi.h"

/* Programs take host names and the retry setting from the settings to command lines. */
static bool is_host(const char* text) {
  return text[strspn(text, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.")] ==
             '\0' &&
         text[0] != '-';
}

static bool is_retry(const char* text) {
  return text[strspn(text, "0123456789/")] == '\0';
}

static Taker take_time_zone;
static Shower show_time_zone;
static const Field clock_fields[] = {
    NUMBER_FIELD("ntp_mode", Clock, ntp.mode, 0, INT_MAX),
    TEXT_FIELD("ntp_server", Clock, ntp.servers[0], is_host),
    TEXT_FIELD("ntp_server2", Clock, ntp.servers[1], is_host),
    TEXT_FIELD("ntp_server3", Clock, ntp.servers[2], is_host),
    NUMBER_FIELD("ntp_updated_time", Clock, ntp.updated_time, 0, INT_MAX),
    NUMBER_FIELD("ntp_date", Clock, ntp.date, -1, 7),
    NUMBER_FIELD("ntp_hour", Clock, ntp.hour, 0, 23),
    NUMBER_FIELD("ntp_min", Clock, ntp.minute, 0, 59),
    TEXT_FIELD("ntp_retry", Clock, ntp.retry, is_retry),
    NUMBER_FIELD("daylight_saving", Clock, daylight_saving, 0, 1),
    {.name = "time_zone", .take = take_time_zone, .show = show_time_zone},
    {.name = NULL},
};

int load_clock(Clock* clock) {
  FILE* settings = fopen(SETTINGS_PATH, "rte");
  if (settings == NULL) return -1;
  clock->time_zone = 25; /* UTC, when missing */
  (void)PRO_GetInt("SYSTEM", "time_zone", &clock->time_zone, settings);
  (void)fclose(settings);
  TIME_TimezoneCorrect(&clock->time_zone);
  return NTPReadData(&clock->ntp) != 0 || ReadDayLightSaving(&clock->daylight_saving) != 0 ? -1 : 0;
}

/* ---- Documents in ----------------------------------------------------------- */

static int take_time_zone(mxml_node_t* element, void* record, Fault* fault) {
  const char* text = text_of(element);
  int index;
  if (text == NULL || !read_number(text, 0, KT_TIME_ZONES - 1, &index) ||
      TIME_TimezoneCheck(index) != 0)
    return refuse(fault, BAD_VALUE, "there is no such time_zone");
  ((Clock*)record)->time_zone = index;
  return 0;
}

int take_clock(mxml_node_t* element, void* record, Fault* fault) {
  Change* change = record;
  change->clock = true;
  return take_children(element, clock_fields, &change->after.clock, fault);
}

/* What is not written with KT_NTP_OFF. */
static bool same_schedule(const NTPConf* a, const NTPConf* b) {
  return a->date == b->date && a->hour == b->hour && a->minute == b->minute &&
         strcmp(a->servers[1], b->servers[1]) == 0 && strcmp(a->servers[2], b->servers[2]) == 0 &&
         strcmp(a->retry, b->retry) == 0;
}

static bool same_ntp(const NTPConf* a, const NTPConf* b) {
  return a->mode == b->mode && a->updated_time == b->updated_time &&
         strcmp(a->servers[0], b->servers[0]) == 0 && same_schedule(a, b);
}

bool same_clock(const Clock* a, const Clock* b) {
  return same_ntp(&a->ntp, &b->ntp) && a->daylight_saving == b->daylight_saving &&
         a->time_zone == b->time_zone;
}

/* A change that would be lost without a word is refused. */
int check_clock(const Change* change, Fault* fault) {
  const NTPConf *before = &change->before.clock.ntp, *after = &change->after.clock.ntp;
  if (!change->clock || after->mode != KT_NTP_OFF || same_schedule(before, after)) return 0;
  return refuse(fault, BAD_VALUE,
                "with ntp_mode 0 only ntp_server and ntp_updated_time can change");
}

/* ---- Saving ----------------------------------------------------------------- */

/* NTPWriteData brings the crontab into step itself, without a lock: ours keeps two
 * requests apart. */
int save_clock(const Clock* before, const Clock* after) {
  if (NTPWriteData(&after->ntp) != 0) return -1;
  if (WriteDayLightSaving(after->daylight_saving) != 0) return -1;
  if (PRO_SetInt("SYSTEM", "time_zone", after->time_zone, SETTINGS_PATH) != 0) return -1;
  if (!same_ntp(&before->ntp, &after->ntp)) (void)AddLog("NTP", LOG_LEVEL, 4);
  if (before->time_zone != after->time_zone)
    (void)AddLog("SYSTEM", LOG_LEVEL, 11, after->time_zone);
  if (before->daylight_saving != after->daylight_saving)
    (void)AddLog("SYSTEM", LOG_LEVEL, after->daylight_saving != 0 ? 12 : 13);
  return 0;
}

/* ---- Documents out ---------------------------------------------------------- */

/* The offset from UTC is for reading only, in hundredths of an hour. */
static void show_time_zone(mxml_node_t* parent, const void* record) {
  const int index = ((const Clock*)record)->time_zone;
  mxml_node_t* element = add_number(parent, "time_zone", index);
  mxmlElementSetAttrf(element, "offset", "%d", get_time_zone_table()[index]);
}

int show_clock(mxml_node_t* config, Fault* fault) {
  Clock clock;
  if (load_clock(&clock) != 0)
    return refuse(fault, CANNOT_READ, "the clock settings cannot be read");
  show_fields(mxmlNewElement(config, "clock"), clock_fields, &clock);
  return 0;
}
