#include <stddef.h>

#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/log.h"
#include "log/syslog_settings.h"

static_assert(offsetof(SysLogData, log_mode) == 0 && offsetof(SysLogData, log_level) == 4 &&
              offsetof(SysLogData, syslog_mode) == 8 && offsetof(SysLogData, syslog_server) == 12 &&
              offsetof(SysLogData, syslog_port) == 80 && sizeof(SysLogData) == 84);

namespace {

constexpr char kSection[] = "LOG";

}  // namespace

int SysLogReadData(SysLogData* data) {
  if (data == nullptr) return -1;
  const kt::unique_file settings = kt::open_file(kt::paths::kSettings, "re");
  if (!settings.ok()) return -1;
  data->log_mode = kt::read_number(kSection, "log_mode", 1, settings.get());
  data->log_level = kt::read_number(kSection, "log_level", 3, settings.get());
  data->syslog_mode = kt::read_number(kSection, "syslog_mode", 0, settings.get());
  kt::read_server(kSection, data->syslog_server, settings.get());
  data->syslog_port = kt::read_number(kSection, "syslog_port", kt::kSyslogPort, settings.get());
  return 0;
}

int SysLogWriteData(const SysLogData* data) {
  if (data == nullptr) return -1;
  if (data->log_mode != 0 && data->syslog_mode != 0 && data->syslog_server[0] == '\0') return -1;
  const bool written = kt::write_number(kSection, "log_mode", data->log_mode) &&
                       kt::write_number(kSection, "log_level", data->log_level) &&
                       kt::write_number(kSection, "syslog_mode", data->syslog_mode) &&
                       kt::write_server(kSection, data->syslog_server) &&
                       kt::write_number(kSection, "syslog_port", data->syslog_port);
  return written ? 0 : -1;
}
