#include <stddef.h>

#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/log.h"
#include "log/syslog_settings.h"

static_assert(offsetof(DebugConfig, syslog_mode) == 0 &&
              offsetof(DebugConfig, syslog_server) == 4 &&
              offsetof(DebugConfig, syslog_port) == 72 && sizeof(DebugConfig) == 76);

namespace {

constexpr char kSection[] = "DEBUG";

}  // namespace

int DEBUGReadConfigData(DebugConfig* config) {
  if (config == nullptr) return -1;
  const kt::unique_file settings = kt::open_file(kt::paths::kSettings, "re");
  if (!settings.ok()) return -1;
  config->syslog_mode = kt::read_number(kSection, "syslog_mode", 0, settings.get());
  kt::read_server(kSection, config->syslog_server, settings.get());
  config->syslog_port = kt::read_number(kSection, "syslog_port", kt::kSyslogPort, settings.get());
  return 0;
}

int DEBUGWriteConfigData(const DebugConfig* config) {
  if (config == nullptr) return -1;
  const bool written = kt::write_number(kSection, "syslog_mode", config->syslog_mode) &&
                       kt::write_number(kSection, "syslog_port", config->syslog_port) &&
                       kt::write_server(kSection, config->syslog_server);
  return written ? 0 : -1;
}
