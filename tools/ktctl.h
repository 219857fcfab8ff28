// ktctl.h - what the commands of ktctl share.
#ifndef KTCOMM_TOOLS_KTCTL_H
#define KTCOMM_TOOLS_KTCTL_H

namespace kt::tools {

enum ExitCode : int {
  kDone = 0,
  kNotFound = 1,  // or different
  kUsage = 2,
  kRefused = 3,
  kSystemError = 4,
  kLockTimeout = 5,
};

// Options; ktctl.cpp has their names and the commands' table says which one takes
// which.
enum class Option : unsigned {
  kFile,
  kSha256,
  kCrc16,
  kMessage,
  kLevel,
  kSince,
  kIso,
  kLinear,
  kCommand,
  kYes,
  kXml,
  kCdata,
  kAdd,
  kAll,
  kDryRun,
  kLockTimeout,
  kShell,
  kJson,
  kCount
};

// A set of options, as the commands' table writes it: takes(a) | takes(b).
constexpr unsigned takes(Option option) {
  return 1u << static_cast<unsigned>(option);
}

// The command line behind the command's name. There are as many arguments as
// the command's table row allows.
struct Request {
  const char* file = nullptr;  // --file, or the camera's settings
  int count = 0;
  char** arguments = nullptr;
  const char* values[static_cast<unsigned>(Option::kCount)] = {};

  // What followed an option; the option's own text for one that takes nothing;
  // null when it was not given.
  [[nodiscard]] const char* value(Option option) const {
    return values[static_cast<unsigned>(option)];
  }
  [[nodiscard]] bool has(Option option) const { return value(option) != nullptr; }
  [[nodiscard]] bool dry_run() const { return has(Option::kDryRun); }
  [[nodiscard]] bool for_programs() const { return has(Option::kShell) || has(Option::kJson); }
};

// Prints "ktctl: " and the message to standard error, a question mark for each control
// character, and returns `code`.
[[gnu::format(printf, 2, 3)]] int fail(ExitCode code, const char* format, ...);

// The same for a file that cannot be used, with the reason that errno gives:
// kNotFound where there is no such file, else kSystemError.
int fail_errno(const char* path);

// For --dry-run: prints "would " and the message to standard output as `fail` does;
// kDone.
[[gnu::format(printf, 1, 2)]] int would(const char* format, ...);

// Each of these runs one command and returns its exit code.
int get_value(const Request& request);
int set_value(const Request& request);
int unset_section(const Request& request);
int rename_section(const Request& request);
int show_settings(const Request& request);
int set_values(const Request& request);
int diff_settings(const Request& request);
int check_settings(const Request& request);
int show_lock(const Request& request);
int save_settings(const Request& request);
int restore_settings(const Request& request);
int reset_settings(const Request& request);
int show_flash(const Request& request);
int verify_flash(const Request& request);
int repair_flash(const Request& request);

// The trace, digests and ciphers, programs.
int show_trace(const Request& request);
int follow_trace(const Request& request);
int merge_traces(const Request& request);
int trace_level(const Request& request);
int hash_files(const Request& request);
int encrypt_text(const Request& request);
int decrypt_text(const Request& request);
int find_programs(const Request& request);
int signal_programs(const Request& request);

// Schedules.
int check_schedule_items(const Request& request);
int schedule_now(const Request& request);
int schedule_week(const Request& request);

// Events.
int list_events(const Request& request);
int show_event(const Request& request);
int set_event(const Request& request);
int remove_event(const Request& request);
int event_settings(const Request& request);
int reload_events(const Request& request);

// The event log.
int add_log_entry(const Request& request);
int show_log(const Request& request);
int clear_log(const Request& request);
int log_settings(const Request& request);

// Timed jobs.
int list_jobs(const Request& request);
int add_job(const Request& request);
int remove_job(const Request& request);
int check_crontab(const Request& request);
int start_cron(const Request& request);
int stop_cron(const Request& request);

// The SD card.
int show_card(const Request& request);
int mount_card(const Request& request);
int unmount_card(const Request& request);
int format_card(const Request& request);
int card_settings(const Request& request);

// Accounts.
int list_users(const Request& request);
int add_user(const Request& request);
int remove_user(const Request& request);
int set_user_password(const Request& request);
int user_rights(const Request& request);
int show_admin(const Request& request);
int set_admin(const Request& request);
int set_admin_password(const Request& request);

// The clock.
int show_ntp(const Request& request);
int set_ntp(const Request& request);
int sync_ntp(const Request& request);
int list_zones(const Request& request);
int check_zone(const Request& request);
int daylight_saving(const Request& request);

// XML documents.
int get_xml(const Request& request);
int get_xml_attribute(const Request& request);
int set_xml(const Request& request);

}  // namespace kt::tools

#endif
