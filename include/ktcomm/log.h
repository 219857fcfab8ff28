/* log.h - the debug trace of every program, and the event log users see.
 *
 * Shared rules:
 * - All functions may be called from any number of processes at once. What they
 *   open is closed again and never reaches a child's program.
 * - Unless said otherwise functions return 0, or -1 on failure; null arguments
 *   are failures. Sizes are in bytes. Times are seconds since the epoch; dates
 *   are local time.
 * - The settings file is /mnt/ramdisk/env/system.conf; a key missing there is
 *   looked up in /etc/def_sys.conf before its default counts.
 *
 * The bytes of the files are described in doc/trace.md and doc/event-log.md. */
#ifndef KTCOMM_LOG_H
#define KTCOMM_LOG_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

/* ---- Debug trace ------------------------------------------------------ */

/* One traced module. The index of its row is the module number. The library
 * itself reads `name`, `keep` and `level`. */
typedef struct mod_define_entry {
  const char *name; /* also the module's directory under /tmp/debug */
  int flash_slots;  /* files saved in flash: keep[0] + keep[1] */
  int max_size;     /* of one file, in bytes: 16384 */
  int log_count;    /* sub-logs in use, 1 or 2 */
  int keep[2];      /* per sub-log: older files that a rotation keeps */
  int level;        /* lines of this level and below are kept */
} mod_define_entry;

/* The 17 modules, 0 "system" to 16 "stunnel_https", and a row of zeros. A
 * program may change `level` for itself at any time. */
KT_EXPORT extern mod_define_entry mod_define[18];

/* Traces one line: "[level][module][date time microseconds][sequence number]"
 * and the message. No line feed is added; formats end with one, and by
 * convention begin with "%s(%d)" for the caller's __func__ and __LINE__.
 *
 * `level` is 4 for failures and 8 for progress; a line above the `level` of its
 * module costs one comparison. `module` is 0 to 16, `sub` the sub-log, 0 or 1.
 * A kept line, cut to 10239 bytes, is appended to the file
 * /tmp/debug/MODULE/SUB-N.log, whose directory must exist, under a record lock
 * on ~SUB.lock beside it, waiting for it (which keeps processes apart, not the
 * threads of one). A line that would take a file beyond 16384 bytes goes into
 * the next file: the full one is reported with save_debug_to_flash, under the
 * lock, and file N - 1 - keep[sub] is deleted.
 * The line is also sent as a datagram to /tmp/debug/syslog.daemon, without
 * waiting.
 * Returns 0, also when nothing could be written; -1 when filtered out, or when
 * an argument is out of range or `format` is null. Keeps errno. */
KT_EXPORT int KT_DEBUGn_in(int level, int module, int sub, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

/* Asks the debug daemon to save file SUB-N.log of a module in flash: sends a
 * message of type 1 with five 32-bit words (19 or 0, `module`, `sub`,
 * `file_number`, `wait`) on the queue 0x12345678, creating it where missing.
 * Waits while the queue is full. With `wait` not 0 it then waits for the
 * daemon's answer, a message of type 19; not when nothing could be sent.
 * Returns 0 always. */
KT_EXPORT int save_debug_to_flash(int module, int sub, int file_number, int wait);

/* Prints to /dev/console, at most 2047 characters. Returns 0 always. */
KT_EXPORT int console_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Appends "[date time] " of the library's own build and the message to the file
 * at `path`, creating it where missing.
 * Returns 0; -1 for a null argument or when the file cannot be opened. */
KT_EXPORT int mmcsd_printf(const char *path, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

/* Where traces are sent: section DEBUG of the settings file. */
typedef struct DebugConfig {
  int syslog_mode;        /* 0 when missing */
  char syslog_server[65]; /* empty when missing; longer ones are cut */
  int syslog_port;        /* 514 when missing */
} DebugConfig;

/* Fills `config`. Returns 0; -1, `config` untouched, when the settings file
 * cannot be opened. */
KT_EXPORT int DEBUGReadConfigData(DebugConfig *config);

/* Writes mode, port and server in this order, each as PRO_SetStr does. Returns
 * 0; -1 at the first that cannot be written. */
KT_EXPORT int DEBUGWriteConfigData(const DebugConfig *config);

/* ---- Event log -------------------------------------------------------- */

/* The log is /tmp/debug/user/nc.log: at most 16384 bytes, one line an entry,
 * newest first. Its writers take an exclusive flock on it and give up with -1
 * after 10 tries in 0.1 second; its readers take none and may see an entry half
 * moved. A writer killed on the way may have lost its own entry and the oldest, left its own
 * as the oldest, doubled some, torn one, or lost the note of the overflow; every other
 * entry that fits stays. Readers show what is newer than a torn entry and may stop
 * there, and writers go on. */

/* Adds message `number` of section `category` in the catalogue /etc/logfile, a
 * printf format of at most 256 characters for the arguments that follow, which
 * must be the ones it asks for; one with %n or a number of more than three digits in a
 * conversion counts as not there, one that is no format ("95%") stands as it is. What the
 * format makes is cut to 256 characters, and the entry "time message" to 254; line feeds
 * inside it become blanks.
 *
 * `level` is 0 to 3. With "syslog_mode" set in section LOG of the settings the
 * entry is also sent as a datagram of at most 254 characters and a line feed,
 * "date message", to /tmp/syslog.log, without waiting.
 * Returns 0 when stored, or when `level` is above the setting "log_level"; -1
 * for a level of 4 or more, when the settings file or the catalogue cannot be
 * opened, the message is not there, or the log cannot be written. Each outcome
 * is traced at level 8, module 0. */
KT_EXPORT int AddLog(const char *category, int level, int number, ...);

/* Adds a message of its own, made and cut as AddLog does; no level applies and
 * nothing is sent. Returns 0; -1 when the log cannot be written. */
KT_EXPORT int AddLogDbg(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Puts one finished entry, "time message" and a line feed, in front of the log.
 * One of more than 254 characters is cut, a missing line feed is added, and line
 * feeds inside become blanks, in the log only: `record` is not written to.
 *
 * To make room, whole entries are dropped at the old end. The first time since
 * ClearLog that this is needed, the file /tmp/SYS_LOG_start_wrap is made and
 * message 1 of section LOG in the catalogue, where there is one, is stored below
 * the entry, stamped `time`.
 * Returns 0; -1 for an empty record, when the log cannot be opened, locked or
 * written, when it opens as descriptor 0, or when it is full and holds no line
 * feed to cut at. */
KT_EXPORT int SaveMessageToLogFile(const char *record, long time);

/* GetLogFromFile_in(text, 0, 0). */
KT_EXPORT int GetLogFromFile(char **text);

/* Reads the log into a new text, "date message\n" for each entry, newest first,
 * ending before the first that is older than `since` or no entry at all. With
 * `iso` 1 dates are as get_time_iso8601_string makes them, otherwise as the key
 * "date_format" of section SYSTEM says: 0 2026-11-21, 2 21/11/2026, others
 * 11/21/2026, each with the time 03:05:00 after a blank.
 * Returns 0 with the text in `*text`, for the caller to free; 0 with `*text`
 * untouched when there is no such entry; -1 when the settings file cannot be
 * opened or memory runs out. */
KT_EXPORT int GetLogFromFile_in(char **text, long since, int iso);

/* Empties the log, creating it where missing, adds message 2 of section LOG as
 * its first entry, unless that of another program comes first, and has the next overflow noted
 * again. Tries for the lock for a second. Returns 0, also when there is no such message; -1,
 * nothing done, when the log cannot be opened, locked or emptied. */
KT_EXPORT int ClearLog(void);

/* What is logged and where it is sent: section LOG of the settings file. */
typedef struct SysLogData {
  int log_mode;           /* 1 when missing */
  int log_level;          /* 3 when missing */
  int syslog_mode;        /* 0 when missing */
  char syslog_server[65]; /* empty when missing; longer ones are cut */
  int syslog_port;        /* 514 when missing */
} SysLogData;

/* Fills `data`. Returns 0; -1, `data` untouched, when the settings file cannot
 * be opened. */
KT_EXPORT int SysLogReadData(SysLogData *data);

/* Writes the five keys in the order of the fields, each as PRO_SetStr does.
 * Returns 0; -1, nothing written, when both modes are set and no server is; -1
 * at the first key that cannot be written. */
KT_EXPORT int SysLogWriteData(const SysLogData *data);

KT_END_DECLS

#endif
