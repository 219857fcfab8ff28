#include <stddef.h>
#include <string.h>

#include "ktcomm/settings.h"

static_assert(offsetof(UserAllConf, admin) == 0 && offsetof(UserAllConf, users) == 104 &&
              offsetof(UserAllConf, audio_in) == 2076 && offsetof(UserAllConf, audio_out) == 2080 &&
              offsetof(UserAllConf, io) == 2084 && offsetof(UserAllConf, admin_rights) == 2088 &&
              sizeof(UserAllConf) == 2092);

namespace kt {
namespace {

constexpr int kBadArgument = -1;

bool is_same_name(const char* name, const char* other) {
  return strncmp(name, other, KT_USER_NAME_SIZE - 1) == 0;
}

}  // namespace
}  // namespace kt

using namespace kt;

int USER_RdAllCfg(UserAllConf* conf) {
  if (conf == nullptr) return kBadArgument;
  int result = ReadAdminConf(&conf->admin);
  if (result >= 0) result = ReadUserConf(&conf->users);
  if (result >= 0) result = ReadAllUserAudioInPerm(&conf->audio_in);
  if (result >= 0) result = ReadAllUserAudioOutPerm(&conf->audio_out);
  if (result >= 0) result = ReadAllUserIOPerm(&conf->io);
  if (result >= 0) result = ReadAllUserAdminPerm(&conf->admin_rights);
  return result;
}

// Callers save the administrator and the administration mask by themselves.
int USER_WrAllCfg(const UserAllConf* conf) {
  if (conf == nullptr) return kBadArgument;
  int result = SaveUserConf(&conf->users);
  if (result >= 0) result = SetAllUserAudioInPerm(&conf->audio_in);
  if (result >= 0) result = SetAllUserAudioOutPerm(&conf->audio_out);
  if (result >= 0) result = SetAllUserIOPerm(&conf->io);
  return result;
}

int user_dup_check(const UserAllConf* conf) {
  constexpr int kDistinct = 0;
  constexpr int kDuplicate = 1;
  if (conf == nullptr) return kBadArgument;
  const UserEntry* const users = conf->users.users;
  for (int i = 0; i < KT_USERS; ++i) {
    const char* const name = users[i].name;
    if (name[0] == '\0') continue;
    if (is_same_name(name, conf->admin.name)) return kDuplicate;
    for (int j = i + 1; j < KT_USERS; ++j) {
      if (is_same_name(name, users[j].name)) return kDuplicate;
    }
  }
  return kDistinct;
}
