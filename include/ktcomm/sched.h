/* sched.h - timed jobs in the crontab, weekly schedules, and events.
 *
 * Shared rules:
 * - Null records and texts are failures, never crashes. Sizes are in bytes.
 * - Days and times are local time. A day of the week is 0 (Sunday) to 6 in
 *   crontab records and in day masks, and a day code in schedule items.
 * - What the functions open is closed again and never reaches a child's
 *   program. Only SaveEventConf traces, and RestartEvent the signal it sends. */
#ifndef KTCOMM_SCHED_H
#define KTCOMM_SCHED_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

/* ---- Crontab records -------------------------------------------------- */

/* A job: one line of the crontab. A number of -1 is "not given"; any other has
 * to lie in its field's range, the step too. */
typedef struct SchdEntry {
  char command[128]; /* one line of shell text, at most 127 characters and a NUL */
  unsigned reserved; /* never changed; a command running on into it is too long */
  int wday_step;     /* day of the week, 0 to 6 */
  int wday_start;
  int wday_end;
  int month_step; /* 1 to 12 */
  int month_start;
  int month_end;
  int mday_step; /* day of the month, 1 to 31 */
  int mday_start;
  int mday_end;
  int hour_step; /* 0 to 23 */
  int hour_start;
  int hour_end;
  int min_step; /* 0 to 59 */
  int min_start;
  int min_end;
} SchdEntry;

/* Returns 0 when `low` <= `value` <= `high`, else -1. */
KT_EXPORT int SCHDCheckRange(int value, int low, int high);

/* Returns 0 when `entry` is valid; -1 for an empty command, one of more than
 * 128 characters, or a number that is out of range. A command of 128 characters
 * loses its last: unless the command itself is refused, a NUL is put into its
 * byte 127. */
KT_EXPORT int SCHDCheckField(SchdEntry *entry);

/* Makes the crontab line of `entry`: minute, hour, day of the month, month, day
 * of the week, "root" and the command, one blank between them, and a line feed.
 * Each of the five is "*" without a start; else the start, "-end" when there is
 * an end, and "/step" when there are an end and a step. A `linear` other than 0
 * puts an "L" in front of the line. The record is not checked; a line that does
 * not fit, which only an invalid record makes, is cut.
 * Fills all `size` bytes of `out`, zeros behind the text.
 * Returns 0; -4 for a `size` below 180, -1 for a null argument, `out` untouched. */
KT_EXPORT int SCHDConvtUserFormat(const SchdEntry *entry, char *out, int size, int linear);

/* Copies what follows the `n`-th blank (only ' ') of `line`, which is `length`
 * bytes long, to `out`. No NUL is added, but a line feed at the end becomes one:
 * zero `out` first; it needs at most `length` bytes.
 * Returns 0, also for `n` 0, which copies nothing; -1, `out` untouched, for a
 * `length` below 1, an `n` below 0, a null argument, or when nothing follows an
 * `n`-th blank. */
KT_EXPORT int SCHDCutFields(const char *line, int length, int n, char *out);

/* ---- Editing the crontab ---------------------------------------------- */

/* The crontab is /mnt/ramdisk/crontab, in the form with a user column. An edit
 * writes a copy, "/tmp/crontab." and the text of SCHDGetRandom4, and then copies
 * that over the crontab. Lines that are not meant are kept byte for byte, of any
 * length and with any bytes in them. A line is known by its first 255 characters:
 * a longer one equals that of no record, and the first word of its command has
 * to end before them.
 * No lock is taken: callers see to it that no two edits run at once. The cron
 * daemon is not told. One that knows no linear lines may ignore a whole file for
 * one of them, as for a last line without line feed.
 *
 * All five editors begin with SCHDCheckField and return
 *    0  done,
 *   -1  the crontab could not be read or written, or the copy not be written or
 *       opened again; the crontab is as it was, but for a write to it that failed
 *       half-way: then the copy, which is whole, is left where it is (as it is
 *       when the program is killed there) until the next edit in the same minute of an hour,
 *   -2  the record is invalid,
 *   -3  the copy, or (adding only) the missing crontab, could not be created. */

/* Adds the line of `entry` at the end and takes equal lines out. A last line that
 * lacks its line feed gets it first. A missing crontab is created with a header
 * whose place the line then takes: the header stays only when that fails. */
KT_EXPORT int SCHDAddSchedule(SchdEntry *entry);
KT_EXPORT int SCHDAddLinearSchedule(SchdEntry *entry); /* the line with "L" in front */

/* Takes all lines out that equal the line of `entry`; a last one that lacks its line
 * feed does not. Returns 0 also when there is no such line, or no crontab, which is
 * then not created. */
KT_EXPORT int SCHDDelSchedule(SchdEntry *entry);
KT_EXPORT int SCHDDelLinearSchedule(SchdEntry *entry); /* the line with "L" in front */

/* Takes all lines out, linear ones too, whose command (what follows the sixth
 * blank) has the command of `entry` as its first word: a command of several
 * words takes out nothing. The numbers of `entry` are checked and play no other
 * part. Otherwise as SCHDDelSchedule. */
KT_EXPORT int SCHDDelScheduleByCmd(SchdEntry *entry);

/* Puts the suffix of the temporary copy into `out`, 5 bytes: at most four
 * characters of the current minute and second, zeros behind them.
 * Returns 0; -1 for null. */
KT_EXPORT int SCHDGetRandom4(char *out);

/* Start /usr/sbin/crond in the background, and end every crond, through the
 * shell. Return 0 whatever becomes of that. */
KT_EXPORT int SCHDStartSchedule(void);
KT_EXPORT int SCHDStopSchedule(void);

/* ---- Weekly schedules ------------------------------------------------- */

/* A schedule item is the text "day,HH:MM,HH:MM" of at most 25 characters, such
 * as "2,09:00,17:00": from the start to the minute before the end, which may be
 * 24:00. The day codes are 1 (Sunday) to 7, 8 and 9. Code 9 is every day; code 8
 * is Monday to Friday in a slot set but every day for schedule_chk. */

/* Returns 0 when `item` is valid, 1 when not: a separator missing, the day not 1 to 9,
 * a time that does not exist, or an end not after the start. An empty text is
 * valid when `empty_allowed` is not 0. Each part is read as atoi does, an empty one as 0. The text
 * is not looked at beyond its 25th character and may end there without a NUL. */
KT_EXPORT int check_sche_item(const char *item, unsigned empty_allowed);

/* Tells whether now lies in a schedule of /mnt/ramdisk/env/system.conf: `type` 0
 * is the event schedule ("event_schedule" and "event_define1" to 10 of section
 * EVENT), 1 the video schedule ("video_schedule" and "video_define1" to 10 of
 * section VIDEO). A schedule that is 0 or without any item always applies; one
 * that is missing counts as 1. Items are not checked: each is read as far as it
 * goes, with 0 for what is missing behind that.
 * Returns 1 inside, 0 outside; -1 when the file cannot be opened for reading and
 * writing, or for another type. */
KT_EXPORT int schedule_chk(int type);

/* One weekly time slot. */
typedef struct SchSlot {
  unsigned day_mask; /* bit 0 Sunday to bit 6 Saturday; 0 = slot not in use */
  unsigned start;    /* minute of the day, inclusive */
  unsigned end;      /* minute of the day, exclusive */
} SchSlot;

/* A compiled weekly schedule, with the answer for the last minute asked. */
typedef struct SchSlotSet {
  unsigned enable;      /* 0 = off: always active */
  unsigned last_minute; /* minute of the day of the last answer */
  unsigned last_result; /* the answer given then */
  SchSlot slots[10];
} SchSlotSet;

/* Fills `set` from `items`, schedule items joined with ';', whose separators
 * become NULs as far as it is read. What precedes the first digit is skipped; an
 * empty item or one whose day is not 1 to 9 ends the list. Callers pass at most
 * ten items; more are not looked at. The answer is forgotten: the set begins as
 * if asked at 00:00 and not active.
 * Returns 0; 1, nothing done, for a null argument. */
KT_EXPORT int set_sch_fmt(SchSlotSet *set, unsigned enable, char *items);

/* Tells whether `set` is active now: 1 when it is off, has no slot in use, or
 * now lies in one, else 0; 0 for null. The answer for a minute of the day is
 * given again until another minute is asked for or the set is filled again, even
 * when the day or the slots have changed by then. So a set just filled is not
 * active during 00:00. */
KT_EXPORT int chk_sch_from_mm(SchSlotSet *set);

/* ---- Events ----------------------------------------------------------- */

/* The camera reacts to ten configured events, each a trigger with a weekly schedule
 * and a set of actions. They are stored in section EVENT of
 * /mnt/ramdisk/env/system.conf, each as one text, its entry, which doc/event-entry.md
 * describes. What the trigger numbers mean is the event daemon's affair. */

/* Names of actions, which are bits of a mask, and of media formats. */
KT_EXPORT extern const char event_action_tab[14][16];
KT_EXPORT extern const char file_format_tab[7][5];

/* One event. Fields not named in an entry, and the reserved ones, are read as 0. */
typedef struct EventEntry {
  char name[32];    /* at most 31 characters and a NUL; empty = event not in use */
  int input_source; /* number of the source */
  int enabled;      /* 0 = off */
  int type;         /* of trigger */
  int reserved1;    /* reserved ones are never saved */
  int interval;     /* between two reactions */
  int reserved2[11];
  unsigned actions; /* bit n = event_action_tab[n] */
  int format;       /* index into file_format_tab; 4 = JPEG snapshots */
  int is_jpeg;      /* 1 for format 4, else 0; set on reading */
  int reserved3[3];
  int input_source_copy; /* equals input_source; set on reading */
  int reserved4;
  int jpeg_fps; /* equals that of all events; set on reading */
  int rec1;     /* recording numbers */
  int rec2;
  int rec3;
  SchSlotSet schedule; /* as set_sch_fmt leaves it; enable is 1 or 0 */
} EventEntry;

/* All events. */
typedef struct EventConfig {
  EventEntry events[10];
  int trigger;  /* "event_trigger", the master switch: 0 = off, also when missing */
  int jpeg_fps; /* "event_jpeg_fps", frames a second of snapshots; 5 when missing */
} EventConfig;

/* Fills `config`, all of it, from the settings. An event without an entry is all 0;
 * in an entry an element that is missing is 0, a number is read as atoi does, and of
 * a name the first 31 characters count. Schedule items fill the slots in order, one
 * with an unknown day code as a slot that is not in use; those behind the tenth are
 * not looked at.
 * Returns 0; -1, `config` untouched, for null or when the settings cannot be
 * opened. */
KT_EXPORT int ReadEventConf(EventConfig *config);

/* Writes trigger, jpeg_fps and the entries 1 to 10 in this order, each as PRO_SetStr
 * does, and traces each event's name (level 8, module 8). An event with an empty name
 * is written as an empty entry. Names end at a '|' or line feed, which an entry
 * cannot hold. Saved as "asf" is a format out of range, as day code 0 a day mask
 * that no day code stands for, and as 0 a schedule whose enable is not 1; the slots
 * end before the first with day mask 0, and the text of one at 24 characters, more
 * than any time of day takes.
 * Returns 0; -1 for null or when a write failed: the other writes are done all the
 * same. */
KT_EXPORT int SaveEventConf(const EventConfig *config);

/* Sends signal 10 to the event daemon, "hydra", which then reads the events again,
 * and returns the result of SendSignal2AppsBySpecFile with /tmp/hydra.lock, 2 seconds
 * later. */
KT_EXPORT int RestartEvent(void);

/* Returns 1 when the master switch is on and some event of `type` is enabled and, by
 * chk_sch_from_mm, active now, else 0; 0 for null. */
KT_EXPORT int check_event_type_schedule(unsigned type, EventConfig *config);

/* Copies the value of the first element `key` of `entry`, which ends before the next
 * '|', to `out`, NUL-terminated. `out` holds as many bytes as `entry` at most. Keys
 * count only at the start of `entry` or right behind a '|'.
 * Returns 0; 1, `out` untouched, when there is none or for a null argument. */
KT_EXPORT int get_element_from_event_entry(const char *entry, const char *key, char *out);

/* Appends "key=value" to `entry`, behind a '|' unless `entry` is empty. The caller
 * sees to the room. Nothing is escaped: a '|' in `value` ends it for readers.
 * Returns 0; 1 for a null argument. */
KT_EXPORT int add_element_to_event_entry(char *entry, const char *key, const char *value);

/* The day mask of a day code, 1 to 9, where 8 is Monday to Friday, and the day code
 * of exactly such a mask; 0 for anything else. */
KT_EXPORT int event_sch_day_num2bit(int day);
KT_EXPORT int event_sch_day_bit2num(int mask);

/* ---- Plain schedules --------------------------------------------------- */

/* A schedule as schedule_chk evaluates it, with its items twice. */
typedef struct EvtSchRecord {
  char joined[256];   /* the items that are not empty, each followed by ';' */
  int mode;           /* "event_schedule" or "video_schedule"; 0 = off */
  char items[10][25]; /* item 1 to 10 as stored */
  int use_items;      /* what is saved: `items` if not 0, else `joined` */
} EvtSchRecord;

/* Fill `list` from the event schedule and from the video schedule, all but
 * `use_items`, which stays. A mode that is missing is 1. An item of more than 24
 * characters is cut to 24.
 * Return 0; -1, `list` untouched, for null or when the settings cannot be opened. */
KT_EXPORT int ReadEvtSch(EvtSchRecord *list);
KT_EXPORT int ReadAceSch(EvtSchRecord *list);

/* Write ten items, empty ones too, each as PRO_SetStr does and unchecked: `items` as
 * they are, where one of 25 characters needs no NUL; or the pieces of `joined`
 * between ';', without empty ones and at most ten, which moves later ones up.
 * `joined` is cut up by this, and ends at its 255th character. No item holds a line
 * feed.
 * SaveEvtSch leaves the stored mode alone; SaveAceSch writes it first, and no item
 * when that fails.
 * Return 0; -1 for null or when a write failed: the other items are written all the
 * same. */
KT_EXPORT int SaveEvtSch(EvtSchRecord *list);
KT_EXPORT int SaveAceSch(EvtSchRecord *list);

KT_END_DECLS

#endif
