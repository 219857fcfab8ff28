// admin_commands.cpp - the administrator's account.
#include <limits.h>
#include <stddef.h>
#include <string.h>

#include "base/text.h"
#include "tools/accounts.h"
#include "tools/ktctl.h"
#include "tools/password_input.h"

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

int store(const AdminConf& wanted) {
  const int result = SaveAdminConf(&wanted);
  // What is new has been checked.
  if (result == -1) {
    return fail(kRefused,
                "the name or the password stored so far holds a character that none may hold: "
                "it has to be changed first");
  }
  AdminConf stored;
  const int unread = read_admin(stored);
  if (unread != kDone) return unread;
  const bool arrived = result == 0 && are_equal(kFields, &wanted, &stored) &&
                       strcmp(wanted.password, stored.password) == 0;
  return arrived ? kDone : accounts_not_written();
}

}  // namespace

int show_admin(const Request&) {
  AdminConf admin;
  const int unread = read_admin(admin);
  if (unread != kDone) return unread;
  print_fields(kFields, &admin);
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
  return code == kDone ? store(admin) : code;
}

int set_admin_password(const Request&) {
  AdminConf admin;
  Password password;
  int code = read_admin(admin);
  if (code == kDone) code = read_password(password);
  AccountsEdit edit;
  if (code == kDone) code = edit.begin();
  if (code == kDone) code = read_admin(admin);
  if (code != kDone) return code;
  copy_cut(admin.password, sizeof admin.password, password.text);
  return store(admin);
}

}  // namespace kt::tools
