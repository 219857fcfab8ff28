// accounts.h - the accounts of users and administrator, read and written whole.
#ifndef KTCOMM_TOOLS_ACCOUNTS_H
#define KTCOMM_TOOLS_ACCOUNTS_H

#include <ktcomm/settings.h>

#include <optional>
#include <span>

#include "base/file_lock.h"
#include "tools/fields.h"
#include "tools/settings_lock.h"

namespace kt::tools {

constexpr int kRights = 5;

// The masks of `all` are not used; those in `masks`, in the order of right_fields(),
// have the one of pan/tilt, too.
struct Accounts {
  UserAllConf all;
  unsigned masks[kRights];
};

// What one user may do.
struct Rights {
  int flags[kRights];
};
std::span<const Field> right_fields();
Rights rights_of(const Accounts& accounts, int slot);
void set_rights(Accounts& accounts, int slot, const Rights& rights);

// Whether an account may have this name; false after it has said why not.
[[nodiscard]] bool check_account_name(const char* field, const char* name);

// Whether all names differ in `after`; false after it has said that `name`, the one
// that `before` had not, or another one, is there twice.
[[nodiscard]] bool check_distinct(const UserAllConf& before, const UserAllConf& after,
                                  const char* field, const char* name);

// Each of these returns kDone, or the exit code after it has said what is wrong.
[[nodiscard]] int read_admin(AdminConf& admin);
[[nodiscard]] int read_accounts(Accounts& accounts);

// From what an edit reads to what it writes: no other edit by ktctl, no signals.
class AccountsEdit {
 public:
  [[nodiscard]] int begin();

 private:
  FlockFile lock_;
  std::optional<Uninterrupted> uninterrupted_;
};

// What `after` has changed. Whether it arrived is for check_written to say.
void write_users(const Accounts& after);
void write_rights(const Accounts& before, const Accounts& after);
[[nodiscard]] int check_written(const Accounts& wanted);

// "[USER]: not written", with the exit code for it.
int accounts_not_written();

}  // namespace kt::tools

#endif
