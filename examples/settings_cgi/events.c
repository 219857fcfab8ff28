/* events.c - the ten events, their schedules and actions. */
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "settings_cgi.h"

#define EVENTS 10
#define SLOTS 10
#define ITEM_SIZE 25 /* the text of a schedule item, the NUL counted */
#define ACTIONS (sizeof event_action_tab / sizeof event_action_tab[0])
#define FORMATS (sizeof file_format_tab / sizeof file_format_tab[0])
#define JPEG 4 /* index in file_format_tab */

/* The schedule that a document wants: all its items, each followed by ';'. */
typedef struct Plan {
  int enable;
  int count;
  char items[SLOTS * ITEM_SIZE + 1];
} Plan;

/* A name ends at '|' in the text in which events are stored. */
static bool is_event_name(const char* text) {
  return strchr(text, '|') == NULL;
}

static Taker take_event, take_action, take_actions, take_format, take_schedule, take_item;
static Shower show_actions, show_format, show_schedule, show_each_event;

static const Field config_fields[] = {
    NUMBER_FIELD("trigger", EventConfig, trigger, 0, 1),
    NUMBER_FIELD("jpeg_fps", EventConfig, jpeg_fps, 0, INT_MAX),
    {.name = "event", .take = take_event, .show = show_each_event, .repeats = true},
    {.name = NULL},
};

static const Field event_fields[] = {
    TEXT_FIELD("name", EventEntry, name, is_event_name),
    NUMBER_FIELD("enabled", EventEntry, enabled, 0, 1),
    NUMBER_FIELD("input_source", EventEntry, input_source, 0, INT_MAX),
    NUMBER_FIELD("type", EventEntry, type, 0, INT_MAX),
    NUMBER_FIELD("interval", EventEntry, interval, 0, INT_MAX),
    {.name = "actions", .take = take_actions, .show = show_actions},
    {.name = "format", .take = take_format, .show = show_format},
    NUMBER_FIELD("rec1", EventEntry, rec1, 0, INT_MAX),
    NUMBER_FIELD("rec2", EventEntry, rec2, 0, INT_MAX),
    NUMBER_FIELD("rec3", EventEntry, rec3, 0, INT_MAX),
    {.name = "schedule", .take = take_schedule, .show = show_schedule},
    {.name = NULL},
};

static const Field action_fields[] = {
    {.name = "action", .take = take_action, .repeats = true},
    {.name = NULL},
};

static const Field plan_fields[] = {
    NUMBER_FIELD("enable", Plan, enable, 0, 1),
    {.name = "item", .take = take_item, .repeats = true},
    {.name = NULL},
};

int load_events(EventConfig* events) {
  return ReadEventConf(events);
}

bool is_schedule_item(const char* item) {
  int day, hour, minute, end_hour, end_minute;
  char again[ITEM_SIZE];
  if (strlen(item) >= ITEM_SIZE || check_sche_item(item, 0) != 0) return false;
  if (sscanf(item, "%d,%d:%d,%d:%d", &day, &hour, &minute, &end_hour, &end_minute) != 5)
    return false;
  (void)snprintf(again, sizeof again, "%d,%02d:%02d,%02d:%02d", day, hour, minute, end_hour,
                 end_minute);
  return strcmp(item, again) == 0;
}

/* ---- Documents in ----------------------------------------------------------- */

static int take_action(mxml_node_t* element, void* record, Fault* fault) {
  const char* name = text_of(element);
  for (unsigned bit = 0; name != NULL && bit < ACTIONS; ++bit) {
    if (strcmp(event_action_tab[bit], name) != 0) continue;
    *(unsigned*)record |= 1u << bit;
    return 0;
  }
  return refuse(fault, BAD_VALUE, "there is no such action");
}

static int take_actions(mxml_node_t* element, void* record, Fault* fault) {
  EventEntry* event = record;
  event->actions = 0;
  return take_children(element, action_fields, &event->actions, fault);
}

static int take_format(mxml_node_t* element, void* record, Fault* fault) {
  EventEntry* event = record;
  const char* name = text_of(element);
  for (int format = 0; name != NULL && format < (int)FORMATS; ++format) {
    if (strcmp(file_format_tab[format], name) != 0) continue;
    event->format = format;
    event->is_jpeg = format == JPEG;
    return 0;
  }
  return refuse(fault, BAD_VALUE, "there is no such format");
}

static int take_item(mxml_node_t* element, void* record, Fault* fault) {
  Plan* plan = record;
  const char* item = text_of(element);
  const size_t used = strlen(plan->items);
  if (item == NULL || !is_schedule_item(item))
    return refuse(fault, BAD_VALUE, "a schedule item has the form DAY,HH:MM,HH:MM");
  if (plan->count++ == SLOTS)
    return refuse(fault, TOO_MANY, "a schedule has at most %d items", SLOTS);
  (void)snprintf(plan->items + used, sizeof plan->items - used, "%s;", item);
  return 0;
}

static int take_schedule(mxml_node_t* element, void* record, Fault* fault) {
  EventEntry* event = record;
  Plan plan = {.enable = (int)event->schedule.enable};
  if (take_children(element, plan_fields, &plan, fault) != 0) return -1;
  memset(&event->schedule, 0, sizeof event->schedule);
  return set_sch_fmt(&event->schedule, (unsigned)plan.enable, plan.items);
}

/* An event that is there already keeps what the document does not name; an empty
 * name takes it out. */
static int take_event(mxml_node_t* element, void* record, Fault* fault) {
  const char* index = xml_get_attr_value(element, "/", "index");
  int number;
  if (index == NULL || !read_number(index, 1, EVENTS, &number))
    return refuse(fault, BAD_VALUE, "the index of an event is 1 to %d", EVENTS);
  EventEntry* event = &((EventConfig*)record)->events[number - 1];
  if (take_children(element, event_fields, event, fault) != 0) return -1;
  event->input_source_copy = event->input_source;
  if (event->enabled == 0) event->schedule.enable = 0; /* not kept for one that is off */
  if (event->name[0] != '\0') return 0;
  if (find_xml_node(element, "/name") == NULL)
    return refuse(fault, BAD_VALUE, "event %d has no name", number);
  memset(event, 0, sizeof *event);
  return 0;
}

int take_events(mxml_node_t* element, void* record, Fault* fault) {
  Change* change = record;
  EventConfig* events = &change->after.events;
  change->events = true;
  if (take_children(element, config_fields, events, fault) != 0) return -1;
  for (int i = 0; i < EVENTS; ++i) {
    /* goes into the entry of an event in use, as the reader sets it */
    if (events->events[i].name[0] != '\0') events->events[i].jpeg_fps = events->jpeg_fps;
  }
  return 0;
}

bool same_events(const EventConfig* a, const EventConfig* b) {
  return memcmp(a->events, b->events, sizeof a->events) == 0 && a->trigger == b->trigger &&
         a->jpeg_fps == b->jpeg_fps;
}

/* ---- Saving ----------------------------------------------------------------- */

int save_events(const EventConfig* before, const EventConfig* after) {
  if (SaveEventConf(after) != 0) return -1;
  (void)RestartEvent(); /* no daemon is no failure: it reads the events when it starts */
  for (int i = 0; i < EVENTS; ++i) {
    if (memcmp(&before->events[i], &after->events[i], sizeof before->events[i]) != 0)
      (void)AddLog("EVENT", LOG_LEVEL, 10, i + 1);
  }
  return 0;
}

/* ---- Documents out ---------------------------------------------------------- */

static void show_actions(mxml_node_t* parent, const void* record) {
  const EventEntry* event = record;
  mxml_node_t* actions = mxmlNewElement(parent, "actions");
  for (unsigned bit = 0; bit < ACTIONS; ++bit) {
    if ((event->actions >> bit & 1u) != 0) (void)add_text(actions, "action", event_action_tab[bit]);
  }
}

static void show_format(mxml_node_t* parent, const void* record) {
  (void)add_text(parent, "format", file_format_tab[((const EventEntry*)record)->format]);
}

static void show_schedule(mxml_node_t* parent, const void* record) {
  const SchSlotSet* set = &((const EventEntry*)record)->schedule;
  mxml_node_t* schedule = mxmlNewElement(parent, "schedule");
  (void)add_number(schedule, "enable", (int)set->enable);
  for (int i = 0; i < SLOTS && set->slots[i].day_mask != 0; ++i) {
    const SchSlot* slot = &set->slots[i];
    char item[64];
    (void)snprintf(item, sizeof item, "%d,%02u:%02u,%02u:%02u",
                   event_sch_day_bit2num((int)slot->day_mask), slot->start / 60, slot->start % 60,
                   slot->end / 60, slot->end % 60);
    (void)add_text(schedule, "item", item);
  }
}

static void show_each_event(mxml_node_t* parent, const void* record) {
  const EventConfig* config = record;
  for (int i = 0; i < EVENTS; ++i) {
    if (config->events[i].name[0] == '\0') continue;
    mxml_node_t* event = mxmlNewElement(parent, "event");
    mxmlElementSetAttrf(event, "index", "%d", i + 1);
    show_fields(event, event_fields, &config->events[i]);
  }
}

int show_events(mxml_node_t* config, Fault* fault) {
  EventConfig events;
  if (load_events(&events) != 0) return refuse(fault, CANNOT_READ, "the events cannot be read");
  show_fields(mxmlNewElement(config, "events"), config_fields, &events);
  return 0;
}
