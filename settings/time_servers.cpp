#include <stddef.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "ktcomm/sched.h"
#include "ktcomm/settings.h"
#include "settings/system_section.h"

static_assert(offsetof(NTPConf, mode) == 0 && offsetof(NTPConf, servers) == 4 &&
              offsetof(NTPConf, updated_time) == 200 && offsetof(NTPConf, date) == 204 &&
              offsetof(NTPConf, hour) == 208 && offsetof(NTPConf, minute) == 212 &&
              offsetof(NTPConf, retry) == 216 && sizeof(NTPConf) == 284);

namespace kt {
namespace {

constexpr const char* kDefaultServers[] = {"0.pool.ntp.org", "1.pool.ntp.org", "2.pool.ntp.org"};
static_assert(std::size(kDefaultServers) == KT_NTP_SERVERS);
constexpr int kDefaultUpdatedTime = 20160826;
constexpr char kDefaultRetry[] = "15/8";

constexpr char kMode[] = "ntp_mode";
constexpr char kServer[] = "ntp_server";
constexpr char kUpdatedTime[] = "ntp_updated_time";
constexpr char kDate[] = "ntp_date";
constexpr char kHour[] = "ntp_hour";
constexpr char kMinute[] = "ntp_min";
constexpr char kRetry[] = "ntp_retry";

enum : int { kNever = -1, kEveryDay = 0, kSunday = 7 };  // NTPConf.date

constexpr char kScheduledJob[] = "ntp_setcron";
constexpr int kNotGiven = -1;

using Key = StringBuffer<16>;

// The first server's key has no number.
Key server_key(int server) {
  Key key;
  key.append(kServer);
  if (server > 0) key.append_format("%d", server + 1);
  return key;
}

SchdEntry job(std::string_view command) {
  SchdEntry entry = {.command = "",
                     .reserved = 0,
                     .wday_step = kNotGiven,
                     .wday_start = kNotGiven,
                     .wday_end = kNotGiven,
                     .month_step = kNotGiven,
                     .month_start = kNotGiven,
                     .month_end = kNotGiven,
                     .mday_step = kNotGiven,
                     .mday_start = kNotGiven,
                     .mday_end = kNotGiven,
                     .hour_step = kNotGiven,
                     .hour_start = kNotGiven,
                     .hour_end = kNotGiven,
                     .min_step = kNotGiven,
                     .min_start = kNotGiven,
                     .min_end = kNotGiven};
  copy_cut(entry.command, sizeof entry.command, command);
  return entry;
}

[[nodiscard]] bool remove_job(std::string_view command) {
  SchdEntry entry = job(command);
  return SCHDDelScheduleByCmd(&entry) == 0;
}

[[nodiscard]] bool add_scheduled_job(const NTPConf& conf) {
  SchdEntry entry = job(kScheduledJob);
  entry.hour_start = conf.hour;
  entry.min_start = conf.minute;
  if (conf.date != kEveryDay) entry.wday_start = conf.date == kSunday ? 0 : conf.date;
  return SCHDAddSchedule(&entry) == 0;
}

bool is_host_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.';
}

// The other servers are taken as they are.
bool is_valid(const NTPConf& conf) {
  for (const char c : text_of(conf.servers[0])) {
    if (!is_host_character(c)) return false;
  }
  return conf.date >= kNever && conf.date <= kSunday && static_cast<unsigned>(conf.hour) <= 23 &&
         static_cast<unsigned>(conf.minute) <= 59;
}

[[nodiscard]] bool write_servers(const NTPConf& conf) {
  for (int server = 0; server < KT_NTP_SERVERS; ++server) {
    const Key key = server_key(server);
    if (!kSystemSection.write_field(key.c_str(), conf.servers[server])) return false;
  }
  return true;
}

// Whether the pending retry was there in the crontab, too, does not matter.
void cancel_retry() {
  if (access(paths::kTimeRetry, F_OK) != 0) return;
  (void)unlink(paths::kTimeRetry);
  (void)remove_job(paths::kTimeControl);
}

[[nodiscard]] bool turn_off(const NTPConf& conf) {
  return remove_job(kScheduledJob) && kSystemSection.write_number(kMode, conf.mode) &&
         kSystemSection.write_field(kServer, conf.servers[0]);
}

[[nodiscard]] bool write_all(const NTPConf& conf) {
  const bool written = kSystemSection.write_number(kMode, conf.mode) && write_servers(conf) &&
                       kSystemSection.write_field(kRetry, conf.retry);
  if (!written) return false;
  cancel_retry();
  return kSystemSection.write_number(kDate, conf.date) &&
         kSystemSection.write_number(kHour, conf.hour) &&
         kSystemSection.write_number(kMinute, conf.minute);
}

[[nodiscard]] bool reschedule(const NTPConf& conf) {
  if (!remove_job(kScheduledJob)) return false;
  if (conf.date == kNever || conf.mode != KT_NTP_SCHEDULED) return true;
  return add_scheduled_job(conf);
}

}  // namespace
}  // namespace kt

using namespace kt;

int NTPReadData(NTPConf* conf) {
  if (conf == nullptr) return -1;
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return -1;
  FILE* const file = settings.get();
  conf->mode = kSystemSection.read_number(kMode, KT_NTP_SCHEDULED, file);
  for (int server = 0; server < KT_NTP_SERVERS; ++server) {
    const Key key = server_key(server);
    kSystemSection.read_text(key.c_str(), kDefaultServers[server], conf->servers[server], file);
  }
  conf->updated_time = kSystemSection.read_number(kUpdatedTime, kDefaultUpdatedTime, file);
  conf->date = kSystemSection.read_number(kDate, kEveryDay, file);
  conf->hour = kSystemSection.read_number(kHour, 0, file);
  conf->minute = kSystemSection.read_number(kMinute, 0, file);
  kSystemSection.read_text(kRetry, kDefaultRetry, conf->retry, file);
  return 0;
}

int NTPWriteData(const NTPConf* conf) {
  if (conf == nullptr) return -1;
  if (!kSystemSection.write_number(kUpdatedTime, conf->updated_time)) return -1;
  if (conf->mode == KT_NTP_OFF) return turn_off(*conf) ? 0 : -1;
  return is_valid(*conf) && write_all(*conf) && reschedule(*conf) ? 0 : -1;
}

int SetNTP(void) {
  return run_shell("%s -n > /dev/null 2> /dev/null &", paths::kTimeControl) ? 0 : -1;
}
