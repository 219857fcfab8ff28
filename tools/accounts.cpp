#include "tools/accounts.h"

#include <string.h>
#include <unistd.h>

#include "base/paths.h"
#include "tools/edit_lock.h"
#include "tools/ktctl.h"
#include "tools/settings_write.h"

namespace kt::tools {
namespace {

constexpr unsigned kAllUsers = (1u << KT_USERS) - 1;

constexpr struct {
  int (*read)(unsigned*);
  int (*write)(const unsigned*);
} kMasks[kRights] = {{ReadAllUserPTPerm, SetAllUserPTPerm},
                     {ReadAllUserAdminPerm, SetAllUserAdminPerm},
                     {ReadAllUserIOPerm, SetAllUserIOPerm},
                     {ReadAllUserAudioInPerm, SetAllUserAudioInPerm},
                     {ReadAllUserAudioOutPerm, SetAllUserAudioOutPerm}};

constexpr Field right_field(const char* name, size_t right) {
  return flag_field(name, right * sizeof(int));
}
constexpr Field kRightFields[kRights] = {right_field("pt", 0), right_field("admin", 1),
                                         right_field("io", 2), right_field("audio_in", 3),
                                         right_field("audio_out", 4)};

int open_accounts() {
  unique_file settings;
  return open_settings(paths::kSettings, settings);
}

// An account that is none ends the reading: the ones behind it stay as preset.
int read_users(UserConf& conf) {
  constexpr char kPreset = '\xff';
  memset(&conf, kPreset, sizeof conf);
  if (ReadUserConf(&conf) == 0) return kDone;
  int slot = KT_USERS;
  while (slot > 0 && conf.users[slot - 1].name[0] == kPreset) --slot;
  if (slot == 0) return fail_errno(paths::kSettings);
  return fail(kRefused,
              "%s: [USER] user%d: no account: a name of 1 to %d characters, a comma and a "
              "password of up to %d are wanted",
              paths::kSettings, slot, KT_USER_NAME_SIZE - 1, KT_USER_PASSWORD_SIZE - 1);
}

bool is_same(const UserEntry& one, const UserEntry& other) {
  return strcmp(one.name, other.name) == 0 && strcmp(one.password, other.password) == 0;
}

}  // namespace

std::span<const Field> right_fields() {
  return kRightFields;
}

Rights rights_of(const Accounts& accounts, int slot) {
  Rights rights;
  for (int i = 0; i < kRights; ++i) rights.flags[i] = (accounts.masks[i] >> slot & 1) != 0 ? 1 : 0;
  return rights;
}

void set_rights(Accounts& accounts, int slot, const Rights& rights) {
  for (int i = 0; i < kRights; ++i) {
    const unsigned bit = 1u << slot;
    accounts.masks[i] &= ~bit;
    if (rights.flags[i] != 0) accounts.masks[i] |= bit;
  }
}

bool check_account_name(const char* field, const char* name) {
  const size_t length = strlen(name);
  if (length < 1 || length >= KT_USER_NAME_SIZE) {
    (void)fail(kRefused, "%s: %zu characters, 1 to %d are wanted", field, length,
               KT_USER_NAME_SIZE - 1);
    return false;
  }
  UserEntry entry;
  // Behind a comma there would be a password.
  if (strchr(name, ',') == nullptr && check_user_data(name, entry.name, entry.password) == 0) {
    return true;
  }
  (void)fail(kRefused, "%s: only printable ASCII characters but , and ; are allowed", field);
  return false;
}

bool check_distinct(const UserAllConf& before, const UserAllConf& after, const char* field,
                    const char* name) {
  if (user_dup_check(&after) == 0) return true;
  if (user_dup_check(&before) == 0) {
    (void)fail(kRefused, "%s: %s: a user or the administrator has this name", field, name);
  } else {
    (void)fail(kRefused, "%s: [USER]: two accounts have the same name already; see ktctl user list",
               paths::kSettings);
  }
  return false;
}

int read_admin(AdminConf& admin) {
  SettingsLock lock;
  lock.try_for_a_moment();
  const int unfit = open_accounts();
  if (unfit != kDone) return unfit;
  return ReadAdminConf(&admin) == 0 ? kDone : fail_errno(paths::kSettings);
}

int read_accounts(Accounts& accounts) {
  const int unread = read_admin(accounts.all.admin);
  if (unread != kDone) return unread;
  SettingsLock lock;
  lock.try_for_a_moment();
  // Without the right to write, the masks would be read as no rights at all.
  if (::access(paths::kSettings, R_OK | W_OK) != 0) return fail_errno(paths::kSettings);
  for (int i = 0; i < kRights; ++i) (void)kMasks[i].read(&accounts.masks[i]);  // never fails
  return read_users(accounts.all.users);
}

int AccountsEdit::begin() {
  int code = lock_edit(lock_, paths::kAccountsEditLock);
  if (code == kDone) code = wait_until_unlocked();
  if (code != kDone) return code;
  uninterrupted_.emplace();
  return kDone;
}

void write_users(const Accounts& after) {
  (void)SaveUserConf(&after.all.users);
}

void write_rights(const Accounts& before, const Accounts& after) {
  for (int i = 0; i < kRights; ++i) {
    if (after.masks[i] != before.masks[i]) (void)kMasks[i].write(&after.masks[i]);
  }
}

int check_written(const Accounts& wanted) {
  Accounts stored;
  const int unread = read_accounts(stored);
  if (unread != kDone) return unread;
  bool arrived = stored.all.users.login_check == wanted.all.users.login_check;
  for (int i = 0; i < KT_USERS; ++i) {
    arrived = arrived && is_same(stored.all.users.users[i], wanted.all.users.users[i]);
  }
  for (int i = 0; i < kRights; ++i) {
    arrived = arrived && ((stored.masks[i] ^ wanted.masks[i]) & kAllUsers) == 0;
  }
  return arrived ? kDone : accounts_not_written();
}

int accounts_not_written() {
  return not_written(paths::kSettings, Section("USER"));
}

}  // namespace kt::tools
