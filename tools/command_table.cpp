#include "tools/command_table.h"

#include <limits.h>

namespace kt::tools {
namespace {

constexpr unsigned kTakesFile = takes(Option::kFile);
// Of all that write something, and of all that tell something.
constexpr unsigned kWrites = takes(Option::kDryRun) | takes(Option::kLockTimeout);
constexpr unsigned kTells = takes(Option::kShell) | takes(Option::kJson);

constexpr Command kCommands[] = {
    {"get", "SECTION KEY", "print one value", get_value, 2, 2, kTakesFile | kTells,
     "Prints the value and a line feed, with --shell as one word in quotes. A key that\n"
     "the file lacks is looked up in /etc/def_sys.conf. An empty SECTION means the keys\n"
     "before the first section.\n"},
    {"set", "SECTION KEY VALUE", "set one value", set_value, 3, 3, kTakesFile | kWrites,
     "Makes the file, the section or the key where missing. What a save could not\n"
     "store is refused: bytes other than printable ASCII, a line of more than 511\n"
     "characters. Only `ktctl save` makes the change outlive a power cut.\n"},
    {"batch", "[CHANGES]", "set many values, all of them or none", set_values, 0, 1,
     kTakesFile | kWrites,
     "Reads the file CHANGES, or standard input when it is - or left out. Each line is\n"
     "SECTION KEY VALUE: VALUE is all behind the one blank after KEY, other blanks in\n"
     "front and at the end included. A SECTION with blanks stands in \"quotes\". Empty\n"
     "lines and those that begin with # are passed over. All lines that `set` would\n"
     "refuse are named; then nothing is changed. Else the file is locked, written and\n"
     "synced once, and becomes what it would by one `set` after the other.\n"},
    {"unset-section", "SECTION", "remove a section and its keys", unset_section, 1, 1,
     kTakesFile | kWrites, "The file's permissions become 666.\n"},
    {"rename-section", "OLD NEW", "give a section another name", rename_section, 2, 2,
     kTakesFile | kWrites, "Refused when there is a section NEW already.\n"},
    {"show", "[SECTION]", "print the settings, or one section's lines", show_settings, 0, 1,
     kTakesFile | kTells,
     "With --shell and --json only what readers find: of sections with one name, and of\n"
     "keys in one, the first. With --shell the variables are SECTION_KEY, with _ for\n"
     "all but letters and digits; the keys before the first section have an empty name\n"
     "in front.\n"},
    {"diff", "[AGAINST]", "tell what is not as it was", diff_settings, 0, 1, kTakesFile | kTells,
     "AGAINST is `defaults`, the factory defaults, `normal` or `backup`, what that copy in\n"
     "flash holds, `saved`, both copies, or another settings file; all but the latter\n"
     "when it is left out. Prints as `diff -u` does, - what is there and + what is here.\n"
     "A key that is missing here has its factory default. Exit code 1 when something\n"
     "differs, so `ktctl diff saved` tells whether something is not saved yet.\n"},
    {"check", "", "tell what a save would refuse", check_settings, 0, 0, kTakesFile | kTells,
     "Prints FILE:LINE:KEY: and the reason for each byte that is no printable ASCII and\n"
     "for each line of more than 511 characters. Exit code 3 when there is one.\n"},
    {"lock", "", "tell who holds the lock of the settings", show_lock, 0, 0, kTells,
     "Prints process and command line of whoever holds it, and of those that wait. Exit\n"
     "code 1 when nobody holds it.\n"},
    {"save", "", "store the settings in both flash copies", save_settings, 0, 0,
     kTakesFile | kWrites,
     "With --file, PATH becomes the camera's settings first. Settings that cannot be\n"
     "stored are refused and left as they are. Signals wait until the flash is whole; a\n"
     "terminal is shown the stages. Exit code 4 also when only the normal copy could be\n"
     "written: it holds the settings, but a power cut in the next save may lose them.\n"},
    {"restore", "", "bring the settings back from flash, as a boot does", restore_settings, 0, 0,
     kWrites,
     "Then repairs a copy that is broken, or holds other settings than those that a\n"
     "boot takes, from the other one, and prints a line for each copy. Settings that\n"
     "are on the RAM disk already are kept.\n",
     true},
    {"reset", "", "return to the factory defaults, in both flash copies, too", reset_settings, 0, 0,
     kWrites, "A terminal is shown the stages.\n"},
    {"flash", "", "show both flash copies and which one a boot takes", show_flash, 0, 0, kTells,
     "Geometry, bad blocks and area table of each partition, and the copy in it. Exit code\n"
     "0 when both are intact and equal, else 1. See also `flash verify`, `flash repair`.\n"},
    {"flash verify", "", "tell whether both flash copies would do", verify_flash, 0, 0,
     takes(Option::kLockTimeout) | kTells,
     "Waits for a save that is running, reads and unpacks both copies and prints a line\n"
     "for each. Exit code 0 when both are intact, hold valid settings and are equal, 4 when\n"
     "/tmp has no room to unpack one, else 1.\n"},
    {"flash repair", "", "repair one flash copy from the other", repair_flash, 0, 0, kWrites,
     "As `restore` does, but leaves the settings on the RAM disk alone. Exit code 1 when\n"
     "neither holds settings, 4 when the copy could not be written, or /tmp has no room to\n"
     "unpack one.\n"},

    {"trace", "[MODULE [SUB]]", "list the trace modules, or print a trace file", show_trace, 0, 2,
     takes(Option::kAll) | kTells,
     "MODULE is a name or a number, SUB is 0 or 1 and 0 when left out. Prints the file\n"
     "that is being written. The LEVEL listed is the one that programs begin with. See also\n"
     "`trace follow`, `trace merge`, `trace level`.\n"},
    {"trace follow", "MODULE [SUB]", "print a trace and then each line as it comes", follow_trace,
     1, 2, 0,
     "Begins with the file that is being written, or waits for one, and goes on with the\n"
     "files that come after it until it is interrupted or nobody reads it any more.\n"},
    {"trace merge", "[MODULE...]", "print traces of several modules by time", merge_traces, 0,
     INT_MAX, kTells,
     "Of all modules when none is named, with the older files and both sub-logs. Entries\n"
     "of one file stay in their order; of equal times the lower module comes first.\n"},
    {"trace level", "MODULE [LEVEL]", "print or change what running programs trace", trace_level, 1,
     2, takes(Option::kDryRun) | kTells,
     "Entries up to LEVEL are kept: 4 for failures, 8 for progress, too. Prints the process,\n"
     "the level in it and its command line, or changes the level in all programs that are\n"
     "running, until they end. Exit code 1 when no program that traces is running.\n"},
    {"hash", "FILE...", "print digests of files, as md5sum does", hash_files, 1, INT_MAX,
     takes(Option::kSha256) | takes(Option::kCrc16) | kTells,
     "A FILE of - is standard input. MD5 unless an option says otherwise. CRC-16 is\n"
     "for files of at most 65535 bytes.\n"},
    {"encrypt", "", "encrypt a text with the camera's key", encrypt_text, 0, 0, kTells,
     "Reads at most 65536 bytes of standard input; a line feed at the end is not part of\n"
     "the text. Prints hex digits. Equal texts give equal ciphers.\n"},
    {"decrypt", "", "decrypt what `encrypt` has printed", decrypt_text, 0, 0, kTells,
     "Reads hex digits from standard input and prints the text and a line feed. Exit code\n"
     "3 for what is no cipher.\n"},
    {"proc find", "NAME...", "print the process numbers of programs", find_programs, 1, INT_MAX,
     kTells, "One a line. Exit code 1 when one of the programs is not running.\n"},
    {"proc signal", "NAME|PID SIGNAL", "send a signal to a program", signal_programs, 2, 2,
     takes(Option::kDryRun),
     "SIGNAL is a number or a name such as HUP or TERM; 0 only looks whether the process\n"
     "is there. Of several processes of that NAME the first gets it that `proc find`\n"
     "prints; after one to hydra it waits for two seconds.\n"},

    {"schedule check", "ITEM...", "tell which schedule items are valid", check_schedule_items, 1,
     INT_MAX, kTells,
     "An item is DAY,HH:MM,HH:MM: from the start to the minute before the end, which\n"
     "may be 24:00. DAY is 1 (Sunday) to 7, or 9 for every day; 8 is Monday to Friday\n"
     "for an event, but every day in the lists `video` and `event`. Exit code 3 when\n"
     "one is not valid.\n"},
    {"schedule now", "TARGET", "tell whether a schedule is active now", schedule_now, 1, 1, kTells,
     "TARGET is `video` or `event`, the plain lists, or an event's number or name.\n"
     "Says until when, too; for programs `until` is empty when it will not change. Exit\n"
     "code 0 when it is active, 1 when it is inactive, as is that of an event that is\n"
     "disabled, and that of any while all are off.\n"},
    {"schedule week", "TARGET", "draw the week of a schedule", schedule_week, 1, 1, kTells,
     "TARGET is `video` or `event`, the plain lists, or an event's number or name.\n"
     "Programs get the times `from` and `until` which it is active.\n"},

    {"event list", "", "list the events", list_events, 0, 0, kTells,
     "SCHEDULE names the first item, and how many there are more.\n"},
    {"event show", "EVENT", "print an event's fields", show_event, 1, 1, kTells,
     "EVENT is a number, 1 to 10, or a name. The lines are such as `event set` takes.\n"},
    {"event set", "NUMBER NAME=VALUE...", "make or change an event", set_event, 2, INT_MAX, kWrites,
     "Fields: name, enabled (0 or 1), type, source, interval, rec1, rec2, rec3;\n"
     "  actions   names joined with ',': op1 op2 email ftpu im httpn httppost wlled\n"
     "            smbc sd op3 op4 smbc_rec sd_rec\n"
     "  format    asf mp4 3gp avi jpg flv swf\n"
     "  schedule  off, or up to ten items joined with ';': ktctl schedule check --help\n"
     "A new event needs a name; it is enabled, all else is 0, none and off. Of an event\n"
     "that is there already the other fields stay; its schedule, too, while it is\n"
     "disabled. The event daemon learns of changes by `event reload`; only `ktctl save`\n"
     "makes them outlive a power cut.\n"},
    {"event remove", "EVENT", "remove an event", remove_event, 1, 1, kWrites,
     "EVENT is a number, 1 to 10, or a name.\n"},
    {"event settings", "[NAME=VALUE...]", "print or set what all events share", event_settings, 0,
     INT_MAX, kWrites | kTells,
     "Fields: trigger (1, or 0 for all events off), jpeg_fps (snapshots a second, 1 to\n"
     "100).\n"},
    {"event reload", "", "let the event daemon read the events again", reload_events, 0, 0, kWrites,
     "Exit code 1 when there is none. Takes two seconds.\n"},

    {"log add", "TEXT", "add an entry to the event log", add_log_entry, 1, INT_MAX,
     takes(Option::kMessage) | takes(Option::kLevel) | kWrites,
     "TEXT has at most 243 characters. With --message the arguments are NUMBER\n"
     "[ARGUMENT...]: that message of the catalogue /etc/logfile, filled in with the\n"
     "arguments. Its conversions are all plain %s, or all %d, %i, %u or %x. What the log\n"
     "has no room for is cut. Nothing is added when the setting log_level is below the\n"
     "message's level: it is said, with exit code 0. Without --lock-timeout a log that\n"
     "another writes to is waited for 0.1 second.\n"},
    {"log show", "", "print the event log, newest first", show_log, 0, 0,
     takes(Option::kSince) | takes(Option::kIso) | kTells,
     "TIME is seconds since 1970, \"YYYY-MM-DD[ HH:MM[:SS]]\" in local time, or an age such\n"
     "as 90s, 30m, 2h, 1d. Control characters are printed as a question mark; programs get\n"
     "them, and the time both in seconds and as with --iso.\n"},
    {"log clear", "", "empty the event log", clear_log, 0, 0, kWrites,
     "Without --lock-timeout a log that another writes to is waited for a second.\n"},
    {"log settings", "[NAME=VALUE...]", "print or set what is logged, and where to", log_settings,
     0, INT_MAX, kWrites | kTells,
     "Fields: log_mode, syslog_mode (0 or 1), log_level (0 to 3), syslog_server,\n"
     "syslog_port. Both modes need a server.\n"},

    {"cron list", "", "list the jobs in the crontab", list_jobs, 0, 0, kTells,
     "Comments and NAME=value lines are left out. An L in front marks a linear line.\n"},
    {"cron add", "JOB", "add a job, run as root", add_job, 6, 6, takes(Option::kLinear) | kWrites,
     "JOB is MINUTE HOUR MDAY MONTH WDAY COMMAND. A time is *, N, N-M or N-M/S; */S is\n"
     "stored as the whole range with this step. MONTH and WDAY, 0 (Sunday) to 6, also\n"
     "take words (jan, mon). COMMAND is one argument of at most 127 characters. A job\n"
     "that is there already is not added again. No two edits of the crontab may run at\n"
     "once: those of ktctl wait for one another, other programs do not.\n"},
    {"cron remove", "[JOB]", "remove jobs", remove_job, 0, 6,
     takes(Option::kLinear) | takes(Option::kCommand) | kWrites,
     "JOB is as for `cron add`; in its place stands --command alone, which removes linear\n"
     "lines, too. Exit code 1 when there is no such job. No two edits of the crontab may\n"
     "run at once: those of ktctl wait for one another, other programs do not.\n"},
    {"cron check", "[FILE]", "name the lines that a cron daemon would refuse", check_crontab, 0, 1,
     kTells,
     "FILE is /mnt/ramdisk/crontab when left out; it has a user column. Prints FILE:LINE:\n"
     "REASON for each, with exit code 3.\n"},
    {"cron start", "", "start the cron daemon unless it runs", start_cron, 0, 0, kWrites,
     "Exit code 4 when it is not running 3 seconds later.\n"},
    {"cron stop", "", "end the cron daemon", stop_cron, 0, 0, kWrites, ""},

    {"sd status", "", "tell how the SD card is and who uses it", show_card, 0, 0, kTells,
     "Exit code 1 when there is no card. For programs the state is no_card, formatting,\n"
     "not_mounted, read_only or ready.\n"},
    {"sd mount", "", "mount the card and let the recorder record", mount_card, 0, 0, kWrites,
     "Nothing is done when it is mounted. Exit code 1 when there is no card.\n"},
    {"sd unmount", "", "pause the recorder and unmount the card", unmount_card, 0, 0, kWrites,
     "Nothing is done when it is not mounted. Exit code 1 when there is no card. When it\n"
     "fails, names the processes that use the card.\n"},
    {"sd format", "", "pause the recorder, erase the card and mount it", format_card, 0, 0,
     takes(Option::kYes) | kWrites,
     "Signals wait until it is done. Exit code 1 when there is no card.\n"},
    {"sd settings", "[NAME=VALUE...]", "print or set what is recorded to the card", card_settings,
     0, INT_MAX, kWrites | kTells,
     "Fields: rec_enable (0 or 1), stream_id, disk_ctrl, file_ctrl, duration_s (whole\n"
     "minutes), file_size_bytes (a multiple of 1048576), schedule1 to schedule10. An item\n"
     "of the schedule is DAY,HH:MM,HH:MM, DAY from 1 (Sunday) to 9 (every day); items are\n"
     "stored without the empty ones between them.\n"},

    {"user list", "", "list the users and their rights", list_users, 0, 0, kTells, ""},
    {"user add", "NAME", "add a user, without rights", add_user, 1, 1, kWrites,
     "NAME has 1 to 32 characters. The password, of at most 64, is a line of standard\n"
     "input; at a terminal it is asked for twice and not shown. Both are printable ASCII\n"
     "without ',' and ';'. Edits of the accounts by ktctl wait for one another, those by\n"
     "other programs do not.\n"},
    {"user remove", "NAME", "remove a user and all rights", remove_user, 1, 1, kWrites, ""},
    {"user password", "NAME", "set a user's password", set_user_password, 1, 1, kWrites,
     "The password is read as `user add` does.\n"},
    {"user rights", "NAME [RIGHT=0|1...]", "print or set what a user may do", user_rights, 1,
     INT_MAX, kWrites | kTells, "Rights: pt (pan and tilt), admin, io, audio_in, audio_out.\n"},
    {"admin show", "", "print the administrator's account", show_admin, 0, 0, kTells, ""},
    {"admin set", "NAME=VALUE...", "change the administrator's account", set_admin, 1, INT_MAX,
     kWrites, "Fields: name (1 to 32 characters, none of a user), timeout.\n"},
    {"admin password", "", "set the administrator's password", set_admin_password, 0, 0, kWrites,
     "The password is read as `user add` does.\n"},

    {"ntp show", "", "print when and from where the clock is set", show_ntp, 0, 0, kTells,
     "The lines are such as `ntp set` takes.\n"},
    {"ntp set", "NAME=VALUE...", "change when and from where it is set", set_ntp, 1, INT_MAX,
     kWrites,
     "Fields: mode (0 off, 1 by the job ntp_setcron of the crontab), server1, server2,\n"
     "server3, updated_time (YYYYMMDD), date (-1 never, 0 every day, 1 Monday to 7\n"
     "Sunday), hour, minute, retry (digits and /). With mode 0 only server1 and\n"
     "updated_time can be set.\n"},
    {"ntp sync", "", "set the clock now, in the background", sync_ntp, 0, 0, kWrites, ""},
    {"zone list", "", "list the time zones", list_zones, 0, 0, kTells, ""},
    {"zone check", "INDEX", "tell whether a time zone may be used", check_zone, 1, 1, kTells,
     "Names the one to use instead: exit code 3 for one that is reserved, 1 when there is\n"
     "none of this index.\n"},
    {"dst", "[on|off]", "print or set daylight saving", daylight_saving, 0, 1, kWrites | kTells,
     ""},

    {"xml get", "FILE PATH", "print what a node of a document holds", get_xml, 2, 2, kTells,
     "A FILE of - is standard input. PATH is /NAME[INDEX]/..., INDEX counted from 0 and 0\n"
     "when left out. A text is printed as it is, what holds elements as XML.\n"},
    {"xml attr", "FILE PATH NAME", "print an attribute of a node", get_xml_attribute, 3, 3, kTells,
     "FILE and PATH are as for `xml get`.\n"},
    {"xml set", "FILE PATH TEXT", "change what a node of a document holds", set_xml, 3, 3,
     takes(Option::kXml) | takes(Option::kCdata) | takes(Option::kAdd) | kWrites,
     "FILE and PATH are as for `xml get`; elements of PATH that are missing are made. The\n"
     "file is replaced at once or not at all. With - the document goes to standard\n"
     "output.\n"},
};

}  // namespace

std::span<const Command> all_commands() {
  return kCommands;
}

}  // namespace kt::tools
