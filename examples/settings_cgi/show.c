/* show.c - what GET answers. */
#include <string.h>

#include "settings_cgi.h"

static const struct {
  const char* query;
  int (*show)(mxml_node_t* config, Fault* fault);
} documents[] = {
    {"users", show_users},
    {"clock", show_clock},
    {"events", show_events},
};

static int show_query(const char* query, mxml_node_t* config, Fault* fault) {
  static const char section[] = "section=";
  if (strncmp(query, section, sizeof section - 1) == 0)
    return show_section(config, query + sizeof section - 1, fault);
  for (size_t i = 0; i < sizeof documents / sizeof documents[0]; ++i) {
    if (strcmp(query, documents[i].query) == 0) return documents[i].show(config, fault);
  }
  return refuse(fault, query[0] == '\0' ? BAD_REQUEST : NOT_FOUND,
                "ask for ?section=NAME, ?users, ?clock or ?events");
}

int show(const char* query, mxml_node_t* config, Fault* fault) {
  const int lock = take_lock(SETTINGS_LOCK_PATH, fault);
  if (lock < 0) return -1;
  const int code = show_query(query, config, fault);
  (void)kt_task_queue_out(lock);
  return code;
}
