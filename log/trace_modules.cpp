#include <stddef.h>

#include "ktcomm/log.h"

#if __SIZEOF_POINTER__ == 4
// Programs index the table as rows of seven 32-bit words.
static_assert(offsetof(mod_define_entry, name) == 0 &&
              offsetof(mod_define_entry, flash_slots) == 4 &&
              offsetof(mod_define_entry, max_size) == 8 &&
              offsetof(mod_define_entry, log_count) == 12 &&
              offsetof(mod_define_entry, keep) == 16 && offsetof(mod_define_entry, level) == 24 &&
              sizeof(mod_define_entry) == 28);
#endif

// name, flash_slots, max_size, log_count, keep, level
constinit mod_define_entry mod_define[18] = {
    {"system", 1, 16384, 1, {1, 0}, 8},        {"kernel", 4, 16384, 2, {4, 0}, 8},
    {"sensor_daemon", 0, 16384, 2, {0, 0}, 8}, {"stream_server", 3, 16384, 2, {2, 1}, 8},
    {"event", 2, 16384, 2, {2, 0}, 8},         {"upnpigd", 0, 16384, 1, {0, 0}, 8},
    {"upnp", 0, 16384, 1, {0, 0}, 8},          {"web", 2, 16384, 1, {2, 0}, 8},
    {"cgi", 2, 16384, 1, {2, 0}, 8},           {"dhcpc", 1, 16384, 1, {1, 0}, 8},
    {"ntp", 0, 16384, 1, {0, 0}, 8},           {"ddns", 0, 16384, 1, {0, 0}, 8},
    {"ftpc", 0, 16384, 1, {0, 0}, 8},          {"smtpc", 0, 16384, 1, {0, 0}, 8},
    {"oem", 0, 16384, 1, {0, 0}, 8},           {"misc", 1, 16384, 1, {1, 0}, 8},
    {"stunnel_https", 0, 16384, 1, {0, 0}, 8}, {},
};
