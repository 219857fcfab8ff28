/* accounts.c - the administrator, the users and their permissions. */
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "settings_cgi.h"

/* A user as a document has it: an account and the bits of its slot in the masks. */
typedef struct Rights {
  int pt, adm, io, audio_in, audio_out;
} Rights;

typedef struct User {
  UserEntry entry;
  Rights rights;
} User;

/* The users that a document wants: all of them. */
typedef struct UserList {
  const Accounts* stored;
  int login_check;
  int count;
  User users[KT_USERS];
} UserList;

static const Field user_fields[] = {
    TEXT_FIELD("name", User, entry.name, NULL),
    {.name = "password",
     .offset = offsetof(User, entry.password),
     .size = KT_USER_PASSWORD_SIZE,
     .secret = true},
    NUMBER_FIELD("pt_ctrl", User, rights.pt, 0, 1),
    NUMBER_FIELD("adm_ctrl", User, rights.adm, 0, 1),
    NUMBER_FIELD("io_ctrl", User, rights.io, 0, 1),
    NUMBER_FIELD("audio_in_ctrl", User, rights.audio_in, 0, 1),
    NUMBER_FIELD("audio_out_ctrl", User, rights.audio_out, 0, 1),
    {.name = NULL},
};

static Taker take_user;
static const Field list_fields[] = {
    NUMBER_FIELD("login_check", UserList, login_check, 0, 1),
    {.name = "user", .take = take_user, .repeats = true},
    {.name = NULL},
};

static const Field admin_fields[] = {
    TEXT_FIELD("name", AdminConf, name, NULL),
    {.name = "password",
     .offset = offsetof(AdminConf, password),
     .size = KT_USER_PASSWORD_SIZE,
     .secret = true},
    NUMBER_FIELD("timeout", AdminConf, timeout, 0, INT_MAX),
    {.name = NULL},
};

int load_accounts(Accounts* accounts) {
  if (USER_RdAllCfg(&accounts->all) != 0) return -1;
  return ReadAllUserPTPerm(&accounts->pan_tilt);
}

/* ---- One slot --------------------------------------------------------------- */

static User user_in(const Accounts* accounts, int slot) {
  const unsigned bit = (unsigned)slot;
  const User user = {
      .entry = accounts->all.users.users[slot],
      .rights.pt = (int)(accounts->pan_tilt >> bit & 1u),
      .rights.adm = (int)(accounts->all.admin_rights >> bit & 1u),
      .rights.io = (int)(accounts->all.io >> bit & 1u),
      .rights.audio_in = (int)(accounts->all.audio_in >> bit & 1u),
      .rights.audio_out = (int)(accounts->all.audio_out >> bit & 1u),
  };
  return user;
}

static void set_bit(unsigned* mask, int slot, int value) {
  *mask = (*mask & ~(1u << slot)) | (unsigned)value << slot;
}

static void put_user(Accounts* accounts, int slot, const User* user) {
  accounts->all.users.users[slot] = user->entry;
  set_bit(&accounts->pan_tilt, slot, user->rights.pt);
  set_bit(&accounts->all.admin_rights, slot, user->rights.adm);
  set_bit(&accounts->all.io, slot, user->rights.io);
  set_bit(&accounts->all.audio_in, slot, user->rights.audio_in);
  set_bit(&accounts->all.audio_out, slot, user->rights.audio_out);
}

/* The slot of a name, the first free one for ""; -1 when there is none. */
static int slot_of(const Accounts* accounts, const char* name) {
  for (int slot = 0; slot < KT_USERS; ++slot) {
    if (strcmp(accounts->all.users.users[slot].name, name) == 0) return slot;
  }
  return -1;
}

static bool same_but_name(const User* a, const User* b) {
  return strcmp(a->entry.password, b->entry.password) == 0 &&
         memcmp(&a->rights, &b->rights, sizeof a->rights) == 0;
}

/* ---- Documents in ----------------------------------------------------------- */

static int check_account(const char* name, const char* password, Fault* fault) {
  char entry[KT_USER_NAME_SIZE + KT_USER_PASSWORD_SIZE];
  char name_seen[KT_USER_NAME_SIZE], password_seen[KT_USER_PASSWORD_SIZE];
  /* In an entry the first comma ends the name. */
  (void)snprintf(entry, sizeof entry, "%s,%s", name, password);
  if (strchr(name, ',') != NULL || check_user_data(entry, name_seen, password_seen) == 1) {
    return refuse(fault, BAD_VALUE,
                  "an account's name has 1 to %d printable characters without , and ;",
                  KT_USER_NAME_SIZE - 1);
  }
  if (check_user_data(entry, name_seen, password_seen) != 0)
    return refuse(fault, BAD_VALUE, "a password has no , and ;");
  return 0;
}

/* A user that is there already keeps what the document does not name. */
static int take_user(mxml_node_t* element, void* record, Fault* fault) {
  UserList* list = record;
  const char* name = xml_get_node_value(element, "/name");
  const int slot = name != NULL && name[0] != '\0' ? slot_of(list->stored, name) : -1;
  User user = {.entry = {.name = ""}};
  if (list->count >= KT_USERS || list->count >= list->stored->all.users.max_user)
    return refuse(fault, TOO_MANY, "there is no room for more than %d users", list->count);
  if (slot >= 0) user = user_in(list->stored, slot);
  if (take_children(element, user_fields, &user, fault) != 0) return -1;
  if (check_account(user.entry.name, user.entry.password, fault) != 0) return -1;
  if (slot < 0 && find_xml_node(element, "/password") == NULL)
    return refuse(fault, BAD_VALUE, "the new user %s has no password", user.entry.name);
  list->users[list->count++] = user;
  return 0;
}

/* Permissions go by slot: who stays keeps the slot, new users get free ones. */
static void place_users(const UserList* list, Accounts* accounts) {
  const User nobody = {.entry = {.name = ""}};
  bool placed[KT_USERS] = {false};
  for (int slot = 0; slot < KT_USERS; ++slot) put_user(accounts, slot, &nobody);
  for (int i = 0; i < list->count; ++i) {
    const int slot = slot_of(list->stored, list->users[i].entry.name);
    if (slot < 0 || accounts->all.users.users[slot].name[0] != '\0') continue;
    put_user(accounts, slot, &list->users[i]);
    placed[i] = true;
  }
  for (int i = 0; i < list->count; ++i) {
    if (!placed[i]) put_user(accounts, slot_of(accounts, ""), &list->users[i]);
  }
}

int take_users(mxml_node_t* element, void* record, Fault* fault) {
  Change* change = record;
  UserList list = {.stored = &change->before.accounts,
                   .login_check = change->before.accounts.all.users.login_check};
  change->users = true;
  if (take_children(element, list_fields, &list, fault) != 0) return -1;
  change->after.accounts.all.users.login_check = list.login_check;
  place_users(&list, &change->after.accounts);
  return 0;
}

int take_admin(mxml_node_t* element, void* record, Fault* fault) {
  Change* change = record;
  AdminConf* admin = &change->after.accounts.all.admin;
  change->admin = true;
  if (take_children(element, admin_fields, admin, fault) != 0) return -1;
  return check_account(admin->name, admin->password, fault);
}

int check_accounts(const Change* change, Fault* fault) {
  if (!change->users && !change->admin) return 0;
  if (user_dup_check(&change->after.accounts.all) == 0) return 0;
  return refuse(fault, DUPLICATE, "two accounts have the same name");
}

bool same_accounts(const Accounts* a, const Accounts* b) {
  const AdminConf *admin = &a->all.admin, *other = &b->all.admin;
  for (int slot = 0; slot < KT_USERS; ++slot) {
    const User one = user_in(a, slot), two = user_in(b, slot);
    if (strcmp(one.entry.name, two.entry.name) != 0 || !same_but_name(&one, &two)) return false;
  }
  return strcmp(admin->name, other->name) == 0 && strcmp(admin->password, other->password) == 0 &&
         admin->timeout == other->timeout && a->all.users.login_check == b->all.users.login_check;
}

/* ---- Saving ----------------------------------------------------------------- */

static void log_users(const Accounts* before, const Accounts* after) {
  for (int slot = 0; slot < KT_USERS; ++slot) {
    const User old = user_in(before, slot), now = user_in(after, slot);
    if (strcmp(old.entry.name, now.entry.name) == 0) {
      if (!same_but_name(&old, &now)) (void)AddLog("USER", LOG_LEVEL, 5, now.entry.name);
      continue;
    }
    if (old.entry.name[0] != '\0') (void)AddLog("USER", LOG_LEVEL, 6, old.entry.name);
    if (now.entry.name[0] != '\0') (void)AddLog("USER", LOG_LEVEL, 4, now.entry.name);
  }
}

/* The writers run /usr/local/bin/auth themselves. USER_WrAllCfg leaves the mask of
 * administration and the administrator to their own writers. */
int save_accounts(const Change* change) {
  const Accounts* after = &change->after.accounts;
  if (change->users &&
      (USER_WrAllCfg(&after->all) != 0 || SetAllUserAdminPerm(&after->all.admin_rights) != 0 ||
       SetAllUserPTPerm(&after->pan_tilt) != 0))
    return -1;
  if (change->admin && SaveAdminConf(&after->all.admin) != 0) return -1;
  if (change->users) log_users(&change->before.accounts, after);
  if (change->admin) (void)AddLog("USER", LOG_LEVEL, 7);
  return 0;
}

/* ---- Documents out ---------------------------------------------------------- */

int show_users(mxml_node_t* config, Fault* fault) {
  Accounts accounts;
  if (load_accounts(&accounts) != 0)
    return refuse(fault, CANNOT_READ, "the accounts cannot be read");
  show_fields(mxmlNewElement(config, "admin"), admin_fields, &accounts.all.admin);
  mxml_node_t* users = mxmlNewElement(config, "users");
  mxmlElementSetAttrf(users, "limit", "%d", accounts.all.users.max_user);
  (void)add_number(users, "login_check", accounts.all.users.login_check);
  for (int slot = 0; slot < KT_USERS; ++slot) {
    const User user = user_in(&accounts, slot);
    if (user.entry.name[0] != '\0') show_fields(mxmlNewElement(users, "user"), user_fields, &user);
  }
  return 0;
}
