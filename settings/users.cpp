#include <stddef.h>

#include <algorithm>

#include "base/paths.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "settings/account.h"

static_assert(offsetof(UserEntry, name) == 0 && offsetof(UserEntry, password) == 33 &&
              sizeof(UserEntry) == 98);
static_assert(offsetof(UserConf, login_check) == 0 && offsetof(UserConf, max_user) == 4 &&
              offsetof(UserConf, reserved) == 8 && offsetof(UserConf, users) == 12 &&
              sizeof(UserConf) == 1972);

namespace kt {
namespace {

enum : int { kBadArgument = -1, kNotRead = -2, kNotWritten = -4, kUsersNotRead = -6 };

constexpr Section kProduct("Manufacture");
constexpr size_t kEntryLimit = 98;  // one more than the longest text of an account

using Key = StringBuffer<16>;

Key user_key(int slot) {
  Key key;
  key.append_format("user%d", slot);
  return key;
}

[[nodiscard]] bool read_user(int slot, UserEntry& user, FILE* settings) {
  char text[kEntryLimit + 1];
  (void)kUserSection.read_value(user_key(slot).c_str(), text, settings);  // missing: a free slot
  return parse_user_entry(text, user);
}

[[nodiscard]] bool write_user(int slot, const UserEntry& user) {
  StringBuffer<kEntryLimit - 1> text;
  if (user.name[0] != '\0') {
    text.append(text_of(user.name));
    text.append({&kEntrySeparator, 1});
    text.append(text_of(user.password));
  }
  return kUserSection.write_text(user_key(slot).c_str(), text.c_str());
}

}  // namespace
}  // namespace kt

using namespace kt;

int ReadUsers(int first, int count, UserEntry* users) {
  if (first < 0 || count < 0 || users == nullptr) return kBadArgument;
  unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return kUsersNotRead;
  first = std::min(first, KT_USERS - 1);
  // An end, not a number of slots: the readers of all accounts, who start at 0,
  // rely on it.
  const int end = std::min(KT_USERS - first, count);
  for (int slot = first + 1; slot <= end; ++slot) {
    if (read_user(slot, *users++, settings.get())) continue;
    (void)settings.release();  // stays open: part of the contract
    return kUsersNotRead;
  }
  return 0;
}

int ReadUserConf(UserConf* conf) {
  if (conf == nullptr) return kBadArgument;
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return kNotRead;
  conf->login_check = kUserSection.read_number("login_check", 0, settings.get());
  conf->max_user = kProduct.read_number("max_user", KT_USERS, settings.get());
  return ReadUsers(0, KT_USERS, conf->users) == 0 ? 0 : kNotRead;
}

int SaveUserConf(const UserConf* conf) {
  if (conf == nullptr) return kBadArgument;
  if (!kUserSection.write_number("login_check", conf->login_check)) return kNotWritten;
  for (int slot = 1; slot <= KT_USERS; ++slot) {
    if (!write_user(slot, conf->users[slot - 1])) return kNotWritten;
  }
  (void)run_shell("%s -user >/dev/null 2>/dev/null", paths::kAuth);  // not reported
  return 0;
}
