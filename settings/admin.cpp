#include <stddef.h>

#include "base/paths.h"
#include "base/shell.h"
#include "base/unique_file.h"
#include "settings/account.h"

static_assert(offsetof(AdminConf, name) == 0 && offsetof(AdminConf, password) == 33 &&
              offsetof(AdminConf, timeout) == 100 && sizeof(AdminConf) == 104);

namespace kt {
namespace {

enum : int { kBadArgument = -1, kNotOpened = -3, kNotWritten = -5 };

constexpr char kName[] = "admin_name";
constexpr char kPassword[] = "admin_password";
constexpr char kTimeout[] = "admin_timeout";

}  // namespace
}  // namespace kt

using namespace kt;

int ReadAdminConf_in(AdminConf* conf, const char* path) {
  if (conf == nullptr || path == nullptr) return kBadArgument;
  const unique_file settings = open_file(path, "re");
  if (!settings.ok()) return kNotOpened;
  kUserSection.read_text(kName, "administrator", conf->name, settings.get());
  kUserSection.read_text(kPassword, "", conf->password, settings.get());
  conf->timeout = kUserSection.read_number(kTimeout, 5, settings.get());
  return 0;
}

int ReadAdminConf(AdminConf* conf) {
  return ReadAdminConf_in(conf, paths::kSettings);
}

int SaveAdminConf(const AdminConf* conf) {
  if (conf == nullptr) return kBadArgument;
  if (!is_account_text(text_of(conf->name)) || !is_account_text(text_of(conf->password))) {
    return kBadArgument;
  }
  const bool written = kUserSection.write_field(kName, conf->name) &&
                       kUserSection.write_field(kPassword, conf->password) &&
                       kUserSection.write_number(kTimeout, conf->timeout);
  if (!written) return kNotWritten;
  (void)run_shell("%s -adm >/dev/null 2>/dev/null", paths::kAuth);  // not reported
  return 0;
}
