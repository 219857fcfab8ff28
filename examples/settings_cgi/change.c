/* change.c - what a document wants changed, checked before anything is. */
#include <string.h>

#include "settings_cgi.h"

static const Field change_fields[] = {
    {.name = "users", .take = take_users},
    {.name = "admin", .take = take_admin},
    {.name = "clock", .take = take_clock},
    {.name = "events", .take = take_events},
    {.name = "key", .take = take_key, .repeats = true},
    {.name = NULL},
};

static Taker take_config;
static const Field top_fields[] = {
    {.name = "config", .take = take_config},
    {.name = NULL},
};

static int load(Settings* settings, Fault* fault) {
  const int lock = take_lock(SETTINGS_LOCK_PATH, fault);
  if (lock < 0) return -1;
  const bool loaded = load_accounts(&settings->accounts) == 0 &&
                      load_clock(&settings->clock) == 0 && load_events(&settings->events) == 0;
  (void)kt_task_queue_out(lock);
  return loaded ? 0 : refuse(fault, CANNOT_READ, "the settings cannot be read");
}

static int take_config(mxml_node_t* element, void* record, Fault* fault) {
  return take_children(element, change_fields, record, fault);
}

static int check_outcome(const Change* change, Fault* fault) {
  if (!change->users && !change->admin && !change->clock && !change->events &&
      change->key_count == 0)
    return refuse(fault, BAD_DOCUMENT, "the document names nothing to change");
  return check_accounts(change, fault) != 0 ? -1 : check_clock(change, fault);
}

int read_change(mxml_node_t* document, Change* change, Fault* fault) {
  const char* top = mxmlGetElement(document);
  int code;
  memset(change, 0, sizeof *change);
  if (load(&change->before, fault) != 0) return -1;
  change->after = change->before;
  if (top != NULL && top[0] == '?') { /* the XML declaration holds the rest */
    code = take_children(document, top_fields, change, fault);
  } else if (top != NULL && strcmp(top, "config") == 0) {
    code = take_config(document, change, fault);
  } else {
    code = refuse(fault, BAD_DOCUMENT, "the top element is not config");
  }
  return code == 0 ? check_outcome(change, fault) : code;
}

bool is_current(const Change* change) {
  const Settings *before = &change->before, *after = &change->after;
  return same_accounts(&before->accounts, &after->accounts) &&
         same_clock(&before->clock, &after->clock) &&
         same_events(&before->events, &after->events) && same_keys(change);
}
