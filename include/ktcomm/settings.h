/* settings.h - records of the device's settings: accounts, clock.
 *
 * Shared rules:
 * - The records are kept in /mnt/ramdisk/env/system.conf; a missing key is looked
 *   up in /etc/def_sys.conf before it gets the default named here. Each key is
 *   written as by PRO_SetStr (config.h): one that is current already is not.
 * - Unless said otherwise functions return 0, or -1 on failure; null arguments
 *   are failures of -1 and touch nothing.
 * - Readers leave their outputs untouched when the file cannot be opened. A
 *   writer stops at its first failure: the keys before it stay written.
 * - Sizes are in bytes and count the NUL. A value that is too long for its field
 *   is cut; a field without a NUL counts up to its last byte but one.
 * - Unless said otherwise no stream is left open; none reaches a child's program.
 *   Nothing is traced. */
#ifndef KTCOMM_SETTINGS_H
#define KTCOMM_SETTINGS_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

/* ---- Accounts and permissions ----------------------------------------- */

/* Section USER. After each write the authentication program is run, and waited
 * for, to take the accounts into use; what becomes of that is not reported. */

#define KT_USERS 20
#define KT_USER_NAME_SIZE 33
#define KT_USER_PASSWORD_SIZE 65

/* A free slot has an empty name. */
typedef struct UserEntry {
  char name[KT_USER_NAME_SIZE];
  char password[KT_USER_PASSWORD_SIZE];
} UserEntry;

typedef struct UserConf {
  int login_check;           /* login_check, 0 when missing: whether a login is required */
  int max_user;              /* max_user of section Manufacture, 20 when missing; never written */
  int reserved;              /* neither read nor written */
  UserEntry users[KT_USERS]; /* user1 to user20, empty when missing */
} UserConf;

typedef struct AdminConf {
  char name[KT_USER_NAME_SIZE];         /* admin_name, "administrator" when missing */
  char password[KT_USER_PASSWORD_SIZE]; /* admin_password, empty when missing */
  int timeout;                          /* admin_timeout, 5 when missing */
} AdminConf;

/* A permission mask: bit 0 is the flag of user1, bit 19 that of user20. */
typedef struct UserAllConf {
  AdminConf admin;
  UserConf users;
  unsigned audio_in;
  unsigned audio_out;
  unsigned io;
  unsigned admin_rights;
} UserAllConf;

/* Checks the text of an account, "name,password" or "name", and takes it apart.
 * The name has 1 to 32 characters, the password, which is all that follows the
 * first comma, 0 to 64; both consist of printable ASCII without ',' and ';'. An
 * empty text is valid.
 * Fills `name`, KT_USER_NAME_SIZE bytes, and `password`, KT_USER_PASSWORD_SIZE
 * bytes, zeros behind the texts; with zeros only when a length is wrong.
 * Returns 0 = valid; 1 = null argument (outputs untouched), wrong length of either,
 * bad character in the name; 2 = bad character in the password. */
KT_EXPORT int check_user_data(const char *entry, char *name, char *password);

/* Reads accounts from slot `first`, counted from 0, on into `users` from its start
 * on, as check_user_data takes them apart but with any characters. A `first` above
 * 19 is taken as 19. `count` is where to stop, not how many: the slots are those
 * from `first` up to, but not including, the smaller of `count` and 20 - `first`,
 * which with a `first` of 0 is `count` slots. A text of more than 98 characters
 * counts as its first 97.
 * Returns 0; -1 for a negative `first` or `count`; -6 when the file cannot be
 * opened; -6 at the first text with a wrong length: its entry is all zeros, the
 * ones before it are read, and the settings file is left open, one descriptor lost
 * for each such call. */
KT_EXPORT int ReadUsers(int first, int count, UserEntry *users);

/* Fills `conf` but for its reserved field.
 * Returns 0; -1 for null; -2 when the file cannot be opened or ReadUsers fails,
 * which leaves the numbers and the accounts it came to in `conf`. */
KT_EXPORT int ReadUserConf(UserConf *conf);

/* Writes login_check and all twenty accounts, whatever max_user is; a slot without
 * name as an empty text. Names and passwords are written as they are: callers let
 * check_user_data see them first. Then runs "/usr/local/bin/auth -user".
 * Returns 0; -1 for null; -4 when a key cannot be written, auth not run. */
KT_EXPORT int SaveUserConf(const UserConf *conf);

/* Reads the administrator's account, from the file at `path` or from the settings
 * file. Returns 0; -1 for null; -3 when the file cannot be opened. */
KT_EXPORT int ReadAdminConf_in(AdminConf *conf, const char *path);
KT_EXPORT int ReadAdminConf(AdminConf *conf);

/* Writes name, password and time-out, in this order, and runs
 * "/usr/local/bin/auth -adm".
 * Returns 0; -1, nothing written, for null or a character in name or password that
 * check_user_data refuses; -5 when a key cannot be written, auth not run. */
KT_EXPORT int SaveAdminConf(const AdminConf *conf);

/* Writes the low 20 bits of `mask` to `key`, as 0 and 1 joined by commas, and runs
 * "/usr/local/bin/auth" (KT_PERM_WRITE), or reads `mask` from `key` (any other
 * `direction`).
 * Reading needs the file open to writing too. Each number is shifted to its bit and
 * ORed in whole, so one that is neither 0 nor 1 sets other bits too. Where the text
 * ends early or has no number, the last number read stands for all the rest: "1"
 * permits all. White space may stand at the front and behind the first comma; any
 * other ends the text. A text of more than 50 characters counts as its first 49.
 * Returns 0, also when the key was not written, or could not be read (`mask` is 0
 * then); -1 for null. */
#define KT_PERM_WRITE 0
#define KT_PERM_READ 1
KT_EXPORT int perm_match(int direction, const char *key, unsigned *mask);

/* perm_match with the keys "pt_ctrl" (pan/tilt), "adm_ctrl", "io_ctrl",
 * "audio_in_ctrl" and "audio_out_ctrl": reading, with 0 for a mask that cannot be
 * read, and writing.
 * Return 0; -1 (reading) or -2 (writing) for null. */
KT_EXPORT int ReadAllUserPTPerm(unsigned *mask);
KT_EXPORT int ReadAllUserAdminPerm(unsigned *mask);
KT_EXPORT int ReadAllUserIOPerm(unsigned *mask);
KT_EXPORT int ReadAllUserAudioInPerm(unsigned *mask);
KT_EXPORT int ReadAllUserAudioOutPerm(unsigned *mask);
KT_EXPORT int SetAllUserPTPerm(const unsigned *mask);
KT_EXPORT int SetAllUserAdminPerm(const unsigned *mask);
KT_EXPORT int SetAllUserIOPerm(const unsigned *mask);
KT_EXPORT int SetAllUserAudioInPerm(const unsigned *mask);
KT_EXPORT int SetAllUserAudioOutPerm(const unsigned *mask);

/* Reads the administrator, the users and the four masks. Returns 0, -1 for null, or
 * the first negative result of ReadAdminConf, ReadUserConf and the mask readers. */
KT_EXPORT int USER_RdAllCfg(UserAllConf *conf);

/* Writes the users and the masks but that of administration; that one and the
 * administrator are for SetAllUserAdminPerm and SaveAdminConf. Returns 0, -1 for
 * null, or the first negative result of SaveUserConf and the mask writers. */
KT_EXPORT int USER_WrAllCfg(const UserAllConf *conf);

/* Tells whether a user has the name of another one or of the administrator, upper
 * and lower case taken as different. Returns 0 = all distinct, 1 = not, -1 = null. */
KT_EXPORT int user_dup_check(const UserAllConf *conf);

/* ---- Time servers ----------------------------------------------------- */

#define KT_NTP_SERVERS 3
#define KT_NTP_TEXT_SIZE 65

/* NTPConf.mode; any other is kept and starts nothing. */
#define KT_NTP_OFF 0
#define KT_NTP_SCHEDULED 1

/* Section SYSTEM. */
typedef struct NTPConf {
  int mode;                                       /* ntp_mode, KT_NTP_SCHEDULED when missing */
  char servers[KT_NTP_SERVERS][KT_NTP_TEXT_SIZE]; /* ntp_server, ntp_server2, ntp_server3; when
                                                     missing 0. to 2.pool.ntp.org */
  int updated_time;             /* ntp_updated_time, a date YYYYMMDD; 20160826 when missing */
  int date;                     /* ntp_date, 0 when missing: -1 never, 0 every day, 1 to 6 Monday
                                   to Saturday, 7 Sunday */
  int hour;                     /* ntp_hour, 0 when missing */
  int minute;                   /* ntp_min, 0 when missing */
  char retry[KT_NTP_TEXT_SIZE]; /* ntp_retry, "15/8" when missing; for others to read */
} NTPConf;

/* Fills `conf`. */
KT_EXPORT int NTPReadData(NTPConf *conf);

/* Writes `conf` and brings the job "ntp_setcron" of the crontab into step with it,
 * in these steps:
 *   1. ntp_updated_time is written.
 *   2. KT_NTP_OFF: the job is removed, ntp_mode and ntp_server are written, nothing
 *      else and unchecked; this is all.
 *   3. The first server has to consist of ASCII letters, digits, '_', '-' and '.', or
 *      be empty; date, hour (0 to 23) and minute (0 to 59) have to be in their range.
 *      The other texts are written as they are.
 *   4. ntp_mode, the servers and ntp_retry are written.
 *   5. Where there is a /tmp/ntp_retry it is deleted, and so are the crontab's jobs
 *      that run /usr/local/bin/kt_time_control; failures of this do not count.
 *   6. ntp_date, ntp_hour and ntp_min are written.
 *   7. The job is removed and, for KT_NTP_SCHEDULED and a date other than -1, added
 *      at its new time.
 * The crontab is edited as sched.h says, without a lock.
 * Returns 0; -1 at the first step that fails, with the ones before it done. */
KT_EXPORT int NTPWriteData(const NTPConf *conf);

/* Starts "/usr/local/bin/kt_time_control -n" in the background. Returns 0; -1 when
 * the shell could not be run or ends with another status than 0. */
KT_EXPORT int SetNTP(void);

/* ---- Daylight saving and time zones ----------------------------------- */

/* The switch daylight_saving of section SYSTEM, 0 when missing. */
KT_EXPORT int ReadDayLightSaving(int *enabled);
KT_EXPORT int WriteDayLightSaving(int enabled);

/* Time zones go by their index in this table of UTC offsets in hundredths of an
 * hour: 575 is +5:45. Several have the same offset. */
#define KT_TIME_ZONES 85
KT_EXPORT extern const int kt_time_zone[KT_TIME_ZONES];

/* Indices that are not to be used, each with the one to use instead, up to the pair
 * {-1, -1}. */
KT_EXPORT extern const int g_timezone_resv[][2];

/* Returns kt_time_zone. */
KT_EXPORT const int *get_time_zone_table(void);

/* Returns 0 when `index` may be used; -1 when it is not in the table or reserved. */
KT_EXPORT int TIME_TimezoneCheck(int index);

/* Makes `index` one that may be used: 4 (UTC-8:00) for one that is not in the table,
 * its replacement for a reserved one. */
KT_EXPORT void TIME_TimezoneCorrect(int *index);

KT_END_DECLS

#endif
