// user_commands.cpp - users: list, add, remove, their passwords and rights.
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "base/string_buffer.h"
#include "base/text.h"
#include "tools/accounts.h"
#include "tools/ktctl.h"
#include "tools/password_input.h"
#include "tools/plain_text.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

constexpr int kNoSlot = -1;

int limit_of(const Accounts& accounts) {
  return std::clamp(accounts.all.users.max_user, 0, KT_USERS);
}

int count_users(const Accounts& accounts) {
  int count = 0;
  for (const UserEntry& user : accounts.all.users.users) count += user.name[0] != '\0' ? 1 : 0;
  return count;
}

// The slot of a name; for "" the first free one.
int slot_of(const Accounts& accounts, const char* name) {
  for (int slot = 0; slot < KT_USERS; ++slot) {
    if (strcmp(accounts.all.users.users[slot].name, name) == 0) return slot;
  }
  return kNoSlot;
}

// Reads the accounts and finds one in them. Returns kDone, or the exit code after it
// has said why not.
int find_user(const char* name, Accounts& accounts, int& slot) {
  const int unread = read_accounts(accounts);
  if (unread != kDone) return unread;
  slot = name[0] != '\0' ? slot_of(accounts, name) : kNoSlot;
  if (slot != kNoSlot) return kDone;
  return fail(kNotFound, "%s: there is no such user; see ktctl user list", name);
}

// The same for a new one: puts it into a free slot, without any of the rights that a
// former user may have left there.
int place_user(const char* name, const Password& password, Accounts& before, Accounts& after) {
  const int unread = read_accounts(before);
  if (unread != kDone) return unread;
  const int slot = slot_of(before, "");
  const int limit = limit_of(before);
  if (slot == kNoSlot || count_users(before) >= limit) {
    return fail(kRefused, "there is no room for more than %d users", limit);
  }
  after = before;
  UserEntry& user = after.all.users.users[slot];
  copy_cut(user.name, sizeof user.name, name);
  copy_cut(user.password, sizeof user.password, password.text);
  set_rights(after, slot, {});
  return check_distinct(before.all, after.all, "NAME", name) ? kDone : kRefused;
}

const char* name_in(const Accounts& accounts, int slot) {
  return accounts.all.users.users[slot].name;
}

int width_of(const Field& right) {
  return static_cast<int>(std::max(strlen(right.name), strlen("yes")));
}

void print_user(const Accounts& accounts, int slot, int width) {
  const char* const name = name_in(accounts, slot);
  (void)printf("%2d  ", slot + 1);
  print_plain(name);
  (void)printf("%*s", width - static_cast<int>(strlen(name)), "");
  const Rights rights = rights_of(accounts, slot);
  const auto fields = right_fields();
  for (size_t i = 0; i < fields.size(); ++i) {
    (void)printf("  %*s", width_of(fields[i]), rights.flags[i] != 0 ? "yes" : "no");
  }
  (void)putchar('\n');
}

void list_for_people(const Accounts& accounts) {
  const UserConf& conf = accounts.all.users;
  size_t width = strlen("NAME");
  for (const UserEntry& user : conf.users) width = std::max(width, strlen(user.name));
  (void)printf("NO  %-*s", static_cast<int>(width), "NAME");
  for (const Field& field : right_fields()) (void)printf("  %*s", width_of(field), field.name);
  (void)putchar('\n');
  for (int slot = 0; slot < KT_USERS; ++slot) {
    if (conf.users[slot].name[0] != '\0') print_user(accounts, slot, static_cast<int>(width));
  }
  (void)printf("%d of %d users; a login is %s\n", count_users(accounts), limit_of(accounts),
               conf.login_check != 0 ? "required" : "not required");
}

void list_for_programs(const Accounts& accounts, const Request& request) {
  Printer printer(request);
  printer.begin_list("users");
  for (int slot = 0; slot < KT_USERS; ++slot) {
    if (name_in(accounts, slot)[0] == '\0') continue;
    const Rights rights = rights_of(accounts, slot);
    printer.begin_object(nullptr);
    printer.number("number", slot + 1);
    printer.text("name", name_in(accounts, slot));
    print_fields(printer, right_fields(), &rights);
    printer.end_object();
  }
  printer.end_list();
  printer.number("max_users", limit_of(accounts));
  printer.flag("login_required", accounts.all.users.login_check != 0);
}

}  // namespace

int list_users(const Request& request) {
  Accounts accounts;
  const int unread = read_accounts(accounts);
  if (unread != kDone) return unread;
  if (request.for_programs()) {
    list_for_programs(accounts, request);
  } else {
    list_for_people(accounts);
  }
  return kDone;
}

int add_user(const Request& request) {
  const char* const name = request.arguments[0];
  if (!check_account_name("NAME", name)) return kRefused;
  Accounts before;
  Accounts after;
  Password password = {};
  // Nobody is asked for the password of a user that cannot be.
  int code = place_user(name, password, before, after);
  if (code == kDone) code = read_password(password);
  AccountsEdit edit;
  if (code == kDone) code = edit.begin();
  if (code == kDone) code = place_user(name, password, before, after);
  if (code != kDone) return code;
  if (request.dry_run()) return would("add user %s, number %d", name, slot_of(after, name) + 1);
  write_rights(before, after);  // first: no moment with the rights of another
  write_users(after);
  return check_written(after);
}

int remove_user(const Request& request) {
  Accounts accounts;
  int slot = kNoSlot;
  AccountsEdit edit;
  int code = edit.begin();
  if (code == kDone) code = find_user(request.arguments[0], accounts, slot);
  if (code != kDone) return code;
  if (request.dry_run()) {
    return would("remove user %s, number %d", name_in(accounts, slot), slot + 1);
  }
  const Accounts before = accounts;
  accounts.all.users.users[slot] = {};
  set_rights(accounts, slot, {});
  write_users(accounts);
  write_rights(before, accounts);
  return check_written(accounts);
}

int set_user_password(const Request& request) {
  const char* const name = request.arguments[0];
  Accounts accounts;
  Password password;
  int slot = kNoSlot;
  int code = find_user(name, accounts, slot);
  if (code == kDone) code = read_password(password);
  AccountsEdit edit;
  if (code == kDone) code = edit.begin();
  if (code == kDone) code = find_user(name, accounts, slot);
  if (code != kDone) return code;
  if (request.dry_run()) return would("set the password of user %s", name);
  UserEntry& user = accounts.all.users.users[slot];
  copy_cut(user.password, sizeof user.password, password.text);
  write_users(accounts);
  return check_written(accounts);
}

int user_rights(const Request& request) {
  const char* const name = request.arguments[0];
  const std::span assignments(request.arguments + 1, static_cast<size_t>(request.count - 1));
  Accounts accounts;
  int slot = kNoSlot;
  AccountsEdit edit;
  int code = assignments.empty() ? kDone : edit.begin();
  if (code == kDone) code = find_user(name, accounts, slot);
  if (code != kDone) return code;
  Rights rights = rights_of(accounts, slot);
  if (assignments.empty()) {
    print_fields(request, right_fields(), &rights);
    return kDone;
  }
  const Rights rights_before = rights;
  code = set_fields(right_fields(), assignments, &rights);
  if (code != kDone) return code;
  if (request.dry_run()) {
    StringBuffer<63> where;
    where.append_format("%s's right", name);
    return would_set(where.c_str(), right_fields(), &rights_before, &rights);
  }
  const Accounts before = accounts;
  set_rights(accounts, slot, rights);
  write_rights(before, accounts);
  return check_written(accounts);
}

}  // namespace kt::tools
