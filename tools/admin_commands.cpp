// admin_commands.cpp - the administrator's account.
#include <limits.h>
#include <stddef.h>
#include <string.h>

#include "base/paths.h"
#include "base/text.h"
#include "tools/accounts.h"
#include "tools/ktctl.h"
#include "tools/password_input.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

// The password is not among them: it is never shown.
constexpr Field kFields[] = {
    text_field("name", offsetof(AdminConf, name), sizeof(AdminConf::name)),
    number_field("timeout", offsetof(AdminConf, timeout), 0, INT_MAX),
};

int check_name(const AdminConf& before, const AdminConf& after) {
  if (strcmp(before.name, after.name) == 0) return kDone;
  if (!check_account_name("name", after.name)) return kRefused;
  Accounts accounts;
  const int unread = read_accounts(accounts);
  if (unread != kDone) return unread;
  UserAllConf changed = accounts.all;
  changed.admin = after;
  return check_distinct(accounts.all, changed, "name", after.name) ? kDone : kRefused;
}

// What is new has been checked.
int check_stored(const AdminConf& wanted) {
  const bool name = is_account_text({wanted.name, strnlen(wanted.name, sizeof wanted.name)});
  if (name &&
      is_account_text({wanted.password, strnlen(wanted.password, sizeof wanted.password)})) {
    return kDone;
  }
  return fail(kRefused,
              "%s: [USER] admin_%s: it holds a character that none may hold: it has to be changed "
              "first",
              paths::kSettings, name ? "password" : "name");
}

int store(const AdminConf& wanted) {
  const int result = SaveAdminConf(&wanted);
  AdminConf stored;
  const int unread = read_admin(stored);
  if (unread != kDone) return unread;
  const bool arrived = result == 0 && are_equal(kFields, &wanted, &stored) &&
                       strcmp(wanted.password, stored.password) == 0;
  return arrived ? kDone : accounts_not_written();
}

}  // namespace

int show_admin(const Request& request) {
  AdminConf admin;
  const int unread = read_admin(admin);
  if (unread != kDone) return unread;
  print_fields(request, kFields, &admin);
  return kDone;
}

int set_admin(const Request& request) {
  const std::span assignments(request.arguments, static_cast<size_t>(request.count));
  AdminConf admin;
  AccountsEdit edit;
  int code = edit.begin();
  if (code == kDone) code = read_admin(admin);
  if (code != kDone) return code;
  const AdminConf before = admin;
  code = set_fields(kFields, assignments, &admin);
  if (code == kDone) code = check_name(before, admin);
  if (code == kDone) code = check_stored(admin);
  if (code != kDone) return code;
  if (request.dry_run()) return would_set("the administrator's", kFields, &before, &admin);
  return are_equal(kFields, &before, &admin) ? kDone : store(admin);
}

int set_admin_password(const Request& request) {
  AdminConf admin;
  Password password;
  int code = read_admin(admin);
  if (code == kDone) code = read_password(password);
  AccountsEdit edit;
  if (code == kDone) code = edit.begin();
  if (code == kDone) code = read_admin(admin);
  if (code != kDone) return code;
  copy_cut(admin.password, sizeof admin.password, password.text);
  code = check_stored(admin);
  if (code != kDone) return code;
  if (request.dry_run()) return would("set the administrator's password");
  return store(admin);
}

}  // namespace kt::tools
