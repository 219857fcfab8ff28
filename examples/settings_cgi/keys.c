/* keys.c - sections as they are, and single keys that belong to no record. */
#include <fnmatch.h>
#include <stdio.h>
#include <string.h>

#include "settings_cgi.h"

#define NAME_CHARACTERS "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_"
#define LONGEST_NAME 61
#define LONGEST_LINE 510 /* and a line feed: what a line of the settings holds */

/* What single keys may not be, or have to be; the first row that fits counts. */
typedef struct KeyRule {
  const char *section, *key;        /* patterns of fnmatch */
  bool (*valid)(const char* value); /* null = not changed here */
} KeyRule;

static bool is_optional_item(const char* value) {
  return value[0] == '\0' || is_schedule_item(value);
}
static bool is_switch(const char* value) {
  return strcmp(value, "0") == 0 || strcmp(value, "1") == 0;
}

static const KeyRule rules[] = {
    /* have records of their own */
    {"USER", "*", NULL},
    {"SYSTEM", "ntp_*", NULL},
    {"SYSTEM", "daylight_saving", NULL},
    {"SYSTEM", "time_zone", NULL},
    {"EVENT", "event_trigger", NULL},
    {"EVENT", "event_jpeg_fps", NULL},
    {"EVENT", "event*_entry", NULL},
    /* the product's own; with another cfg_ver the next boot takes the defaults */
    {"Manufacture", "*", NULL},
    {"SYSTEM", "cfg_ver", NULL},
    /* the plain schedules */
    {"EVENT", "event_define*", is_optional_item},
    {"VIDEO", "video_define*", is_optional_item},
    {"EVENT", "event_schedule", is_switch},
    {"VIDEO", "video_schedule", is_switch},
};

/* Keys whose value is not given out. */
static const char* const secrets[] = {"*password*", "*_psk", "wl_key[0-9]*", "*_community"};

static const KeyRule* rule_for(const char* section, const char* key) {
  for (size_t i = 0; i < sizeof rules / sizeof rules[0]; ++i) {
    if (strcmp(rules[i].section, section) == 0 && fnmatch(rules[i].key, key, 0) == 0)
      return &rules[i];
  }
  return NULL;
}

static bool is_secret(const char* key) {
  for (size_t i = 0; i < sizeof secrets / sizeof secrets[0]; ++i) {
    if (fnmatch(secrets[i], key, 0) == 0) return true;
  }
  return false;
}

static bool is_name(const char* name) {
  const size_t length = name != NULL ? strlen(name) : 0;
  return length > 0 && length <= LONGEST_NAME && strspn(name, NAME_CHARACTERS) == length;
}

/* ---- Documents in ----------------------------------------------------------- */

static bool read_key(const KeyChange* change, char value[LONGEST_LINE + 2]) {
  FILE* settings = fopen(SETTINGS_PATH, "rte");
  const bool found =
      PRO_GetStr(change->section, change->key, value, LONGEST_LINE + 1, settings) == 0;
  if (settings != NULL) (void)fclose(settings);
  return found;
}

static bool is_named_before(const Change* change, const KeyChange* key) {
  for (const KeyChange* other = change->keys; other < key; ++other) {
    if (strcmp(other->section, key->section) == 0 && strcmp(other->key, key->key) == 0) return true;
  }
  return false;
}

static int check_key(const KeyChange* change, Fault* fault) {
  if (!is_name(change->section) || !is_name(change->key) || change->value == NULL)
    return refuse(fault, BAD_DOCUMENT, "a key has the attributes section and name and a text");
  const KeyRule* rule = rule_for(change->section, change->key);
  if (rule != NULL && rule->valid == NULL) {
    return refuse(fault, FORBIDDEN, "%s of %s is not changed as a single key", change->key,
                  change->section);
  }
  if (strlen(change->key) + 1 + strlen(change->value) > LONGEST_LINE)
    return refuse(fault, BAD_VALUE, "the value of %s is too long", change->key);
  char value[LONGEST_LINE + 2];
  (void)snprintf(value, sizeof value, "%s", change->value);
  if (!make_printable(value) || (rule != NULL && !rule->valid(value)))
    return refuse(fault, BAD_VALUE, "%s cannot have this value", change->key);
  if (!read_key(change, value))
    return refuse(fault, NOT_FOUND, "there is no key %s in %s", change->key, change->section);
  return 0;
}

int take_key(mxml_node_t* element, void* record, Fault* fault) {
  Change* change = record;
  const KeyChange key = {xml_get_attr_value(element, "/", "section"),
                         xml_get_attr_value(element, "/", "name"), text_of(element)};
  if (change->key_count == MAX_KEYS) return refuse(fault, TOO_MANY, "more than %d keys", MAX_KEYS);
  KeyChange* place = &change->keys[change->key_count];
  *place = key;
  if (check_key(&key, fault) != 0) return -1;
  if (is_named_before(change, place))
    return refuse(fault, BAD_DOCUMENT, "key %s stands there twice", key.key);
  ++change->key_count;
  return 0;
}

bool same_keys(const Change* change) {
  for (int i = 0; i < change->key_count; ++i) {
    char value[LONGEST_LINE + 2];
    if (!read_key(&change->keys[i], value) || strcmp(value, change->keys[i].value) != 0)
      return false;
  }
  return true;
}

/* ---- Saving ----------------------------------------------------------------- */

int save_keys(const Change* change) {
  for (int i = 0; i < change->key_count; ++i) {
    const KeyChange* key = &change->keys[i];
    if (PRO_SetStr(key->section, key->key, key->value, SETTINGS_PATH) != 0) return -1;
    (void)AddLog("SYSTEM", LOG_LEVEL, 15, key->key, key->section);
  }
  return 0;
}

/* ---- Documents out ---------------------------------------------------------- */

/* Adds an element for each key of the section that `file` has and `parent` not yet. */
static bool list_keys(mxml_node_t* parent, const char* section, FILE* file) {
  char line[512];
  if (file == NULL || PRO_2sect(section, file) != 0) return false;
  while (fgets(line, sizeof line, file) != NULL && line[0] != '[') {
    const char* key = line + strspn(line, " ");
    size_t length = strcspn(key, "=\n");
    const bool has_value = key[length] == '=';
    while (length > 0 && key[length - 1] == ' ') --length;
    line[(size_t)(key - line) + length] = '\0';
    if (!has_value || !is_name(key)) continue;
    if (mxmlFindElement(parent, parent, "key", "name", key, MXML_DESCEND_FIRST) != NULL) continue;
    mxmlElementSetAttr(mxmlNewElement(parent, "key"), "name", key);
  }
  return true;
}

static void show_values(mxml_node_t* parent, const char* section, FILE* settings) {
  for (mxml_node_t* node = mxmlGetFirstChild(parent); node != NULL;
       node = mxmlGetNextSibling(node)) {
    const char* key = mxmlElementGetAttr(node, "name");
    char value[512] = "";
    if (is_secret(key)) {
      mxmlElementSetAttr(node, "secret", "1");
      continue;
    }
    (void)PRO_GetStr(section, key, value, sizeof value - 1, settings);
    (void)make_printable(value);
    (void)add_string_to_node(node, value);
  }
}

/* The keys in the order of the settings, then those that only the defaults have. */
int show_section(mxml_node_t* config, const char* section, Fault* fault) {
  if (!is_name(section)) return refuse(fault, BAD_REQUEST, "this is no name of a section");
  if (strcmp(section, "USER") == 0)
    return refuse(fault, FORBIDDEN, "the accounts are given out by ?users only");
  FILE* settings = fopen(SETTINGS_PATH, "rte");
  if (settings == NULL) return refuse(fault, CANNOT_READ, "the settings cannot be read");
  FILE* defaults = fopen(DEFAULTS_PATH, "rte");
  mxml_node_t* node = mxmlNewElement(config, "section");
  mxmlElementSetAttr(node, "name", section);
  bool found = list_keys(node, section, settings);
  if (list_keys(node, section, defaults)) found = true;
  show_values(node, section, settings);
  if (defaults != NULL) (void)fclose(defaults);
  (void)fclose(settings);
  return found ? 0 : refuse(fault, NOT_FOUND, "there is no section %s", section);
}
