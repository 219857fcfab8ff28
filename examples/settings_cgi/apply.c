/* apply.c - a change, once it is known to be right: one lock, one save. */
#include "settings_cgi.h"

#define TURN_PATH "/tmp/settings_cgi.lock" /* held by the request that changes settings */

static void name_changed(mxml_node_t* result, const char* what) {
  (void)add_text(result, "changed", what);
}

/* Each writer stops at its first failure and rolls nothing back. What was written
 * then is in the settings in memory, but does not get into flash. */
static int failed(const char* what, Fault* fault) {
  return refuse(fault, CANNOT_WRITE, "%s could not be written: what could stays until power off",
                what);
}

static int write_change(const Change* change, Fault* fault) {
  const Settings *before = &change->before, *after = &change->after;
  if ((change->users || change->admin) && save_accounts(change) != 0)
    return failed("accounts", fault);
  if (change->clock && save_clock(&before->clock, &after->clock) != 0)
    return failed("the clock", fault);
  if (save_keys(change) != 0) return failed("keys", fault);
  if (change->events && save_events(&before->events, &after->events) != 0)
    return failed("events", fault);
  return 0;
}

/* Writers do not notice a RAM disk that is full: what the document wants has to be
 * what is stored now. */
static int check_written(mxml_node_t* document, Fault* fault) {
  static Change again;
  if (read_change(document, &again, fault) == 0 && is_current(&again)) return 0;
  return failed("the change", fault);
}

static void name_changes(const Change* change, mxml_node_t* result) {
  if (change->users) name_changed(result, "users");
  if (change->admin) name_changed(result, "admin");
  if (change->clock) name_changed(result, "clock");
  if (change->events) name_changed(result, "events");
  for (int i = 0; i < change->key_count; ++i) {
    mxml_node_t* element = add_text(result, "changed", "key");
    mxmlElementSetAttr(element, "section", change->keys[i].section);
    mxmlElementSetAttr(element, "name", change->keys[i].key);
  }
}

/* With -1 the settings were not fit to be saved, and have been restored from flash. */
static int save_to_flash(Fault* fault) {
  const int saved = fl_write_conf(SETTINGS_PATH);
  if (saved == 0) return AddLog("SYSTEM", LOG_LEVEL, 7), 0;
  (void)AddLog("SYSTEM", 0, 8, saved);
  return refuse(fault, CANNOT_SAVE,
                saved == -1 ? "the change could not be saved and may be undone"
                            : "the change could not be saved: it lives until power off");
}

/* One turn from the first look at the settings to the save: what is checked is still
 * so when it is written. */
int make_change(mxml_node_t* document, mxml_node_t* result, Fault* fault) {
  static Change change; /* too large for a small stack */
  const int turn = take_lock(TURN_PATH, fault);
  if (turn < 0) return -1;
  int code = read_change(document, &change, fault);
  if (code == 0) code = write_change(&change, fault);
  if (code == 0) code = check_written(document, fault);
  if (code == 0) code = save_to_flash(fault);
  if (code == 0) name_changes(&change, result);
  (void)kt_task_queue_out(turn);
  return code;
}
