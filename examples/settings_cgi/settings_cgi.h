/* settings_cgi.h - what the files of settings_cgi share.
 *
 * A topic (accounts, clock, events, keys) is one file with the same few steps:
 *   load_*   the records as they are stored now
 *   take_*   what a document says, checked, put over them
 *   check_*  what can be told only when the whole document is known
 *   save_*   the record writers, and the event log
 * Nothing is written before every check has passed. */
#ifndef SETTINGS_CGI_H
#define SETTINGS_CGI_H

#include <ktcomm.h>
#include <mxml.h>
#include <stdbool.h>
#include <stddef.h>

#define SETTINGS_PATH "/mnt/ramdisk/env/system.conf"
#define DEFAULTS_PATH "/etc/def_sys.conf"

/* The lock of the settings. Every writer takes it by itself for each key, so it must
 * not be held around one. Readers take none: held around several, it keeps those from
 * seeing a file that is being written. */
#define SETTINGS_LOCK_PATH "/tmp/cgi_locker.lock"

/* ---- What can be wrong (http.c) */

/* The attribute "errno" of an answer; http.c has the HTTP status of each. */
typedef enum FaultCode {
  DONE = 0,
  BAD_REQUEST = 1,   /* the request makes no sense */
  BAD_DOCUMENT = 2,  /* the body is no document, or not of the form wanted */
  BAD_VALUE = 3,     /* a value that cannot be */
  DUPLICATE = 4,     /* two accounts of one name */
  TOO_MANY = 5,      /* more than there is room for */
  FORBIDDEN = 6,     /* not given out, or not changed this way */
  NOT_FOUND = 7,     /* no such path, section or key */
  BAD_METHOD = 8,    /* neither GET, HEAD nor POST */
  NO_LENGTH = 9,     /* a body of unknown length */
  TOO_LONG = 10,     /* a body beyond 20480 bytes */
  TOO_SLOW = 11,     /* a body that does not come */
  BUSY = 12,         /* other changes are under way */
  CANNOT_READ = 13,  /* the settings cannot be read */
  CANNOT_WRITE = 14, /* a record could not be written */
  CANNOT_SAVE = 15   /* written, but not saved to flash */
} FaultCode;

typedef struct Fault {
  FaultCode code;
  char text[256]; /* one sentence for "errstr" */
} Fault;

/* Notes what is wrong. Returns -1, for the caller to return in turn. */
int refuse(Fault* fault, FaultCode code, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* ---- Requests and answers (http.c) */

/* The variables of a request, "" where missing. */
typedef struct Request {
  const char *method, *path_info, *query, *length, *origin, *host;
} Request;

Request read_request(void);

/* Takes everything but PATH and TZ out of the environment: what a request says must
 * not become the environment of a shell. */
void forget_request(void);

/* Whether a browser sends this for a page of another site, which may not change
 * anything on behalf of who is logged in here. */
bool comes_from_elsewhere(const Request* request);

/* Reads the body; the caller deletes the tree. Returns null, `fault` noted, for none.
 * A body that takes more than 10 seconds ends the program with an answer. */
mxml_node_t* read_body(const Request* request, Fault* fault);

/* Writes the whole HTTP answer: the status of `code` and a document, whose body is
 * left out for HEAD. */
void answer(const Request* request, FaultCode code, mxml_node_t* document);
void answer_fault(const Request* request, const Fault* fault);

/* ---- Locks (lock.c) */

/* Waits for the lock at `path`, at most 10 seconds. Returns what kt_task_queue_out
 * takes, or -1 with `fault` noted. */
int take_lock(const char* path, Fault* fault);

/* ---- Documents and records (document.c) */

typedef int Taker(mxml_node_t* element, void* record, Fault* fault);
typedef void Shower(mxml_node_t* parent, const void* record);

/* One element of a document and the value of a record that it stands for: a number
 * (an int), a text, or, with `take`, a content of its own. A table of them ends with
 * one without a name. */
typedef struct Field {
  const char* name;
  size_t offset;                   /* in the record */
  size_t size;                     /* of a text, the NUL counted; 0 = a number */
  int low, high;                   /* range of a number */
  bool (*valid)(const char* text); /* for texts; null = all that is printable */
  Taker* take;
  Shower* show;
  bool secret;  /* never shown */
  bool repeats; /* any number of times, not just once */
} Field;

#define NUMBER_FIELD(element, Record, member, from, to) \
  { .name = (element), .offset = offsetof(Record, member), .low = (from), .high = (to) }
#define TEXT_FIELD(element, Record, member, check)                                               \
  {                                                                                              \
    .name = (element), .offset = offsetof(Record, member), .size = sizeof(((Record*)0)->member), \
    .valid = (check)                                                                             \
  }

/* Puts the children of `element` into `record`, each by its row of `fields`; what
 * is not named keeps its value. Returns 0, or -1 with `fault` noted: then the record
 * is changed as far as it came. */
int take_children(mxml_node_t* element, const Field* fields, void* record, Fault* fault);

/* Adds the values of `record` to `parent`, one element a field. */
void show_fields(mxml_node_t* parent, const Field* fields, const void* record);

/* The text of an element, "" for an empty one, or null when it holds elements. */
const char* text_of(mxml_node_t* element);

/* Add an element with a number or with a text made printable. Return it. */
mxml_node_t* add_number(mxml_node_t* parent, const char* name, int number);
mxml_node_t* add_text(mxml_node_t* parent, const char* name, const char* text);

/* Makes each character outside printable ASCII, which is all that the settings may
 * hold, a '?'. Returns whether there was none. */
bool make_printable(char* text);

/* Reads a plain decimal number. Returns false for anything else or out of range. */
bool read_number(const char* text, int low, int high, int* number);

/* ---- Topics */

typedef struct Accounts {
  UserAllConf all;
  unsigned pan_tilt;
} Accounts;

typedef struct Clock {
  NTPConf ntp;
  int daylight_saving;
  int time_zone;
} Clock;

#define MAX_KEYS 32
#define LOG_LEVEL 2 /* of what is written to the event log */

/* The texts belong to the tree of the request. */
typedef struct KeyChange {
  const char *section, *key, *value;
} KeyChange;

typedef struct Settings {
  Accounts accounts;
  Clock clock;
  EventConfig events;
} Settings;

/* All that one request asks for. */
typedef struct Change {
  Settings before, after;
  KeyChange keys[MAX_KEYS];
  int key_count;
  bool users, admin, clock, events; /* what the document names */
} Change;

int load_accounts(Accounts* accounts);
int load_clock(Clock* clock);
int load_events(EventConfig* events);

/* These belong to the table of the top element: `record` is the Change. */
Taker take_users, take_admin, take_clock, take_events, take_key;

int check_accounts(const Change* change, Fault* fault);
int check_clock(const Change* change, Fault* fault);

/* Whether both would be stored alike. */
bool same_accounts(const Accounts* a, const Accounts* b);
bool same_clock(const Clock* a, const Clock* b);
bool same_events(const EventConfig* a, const EventConfig* b);
bool same_keys(const Change* change); /* as the settings have them now */

/* Return 0, or -1 when a writer failed. */
int save_accounts(const Change* change);
int save_clock(const Clock* before, const Clock* after);
int save_events(const EventConfig* before, const EventConfig* after);
int save_keys(const Change* change);

/* What GET answers: each fills `config`, the top element. */
int show_users(mxml_node_t* config, Fault* fault);
int show_clock(mxml_node_t* config, Fault* fault);
int show_events(mxml_node_t* config, Fault* fault);
int show_section(mxml_node_t* config, const char* section, Fault* fault);

/* Whether `item` is a schedule item in exactly the form in which they are stored. */
bool is_schedule_item(const char* item);

/* ---- The two roads */

/* GET: fills `config` with what the query asks for. (show.c) */
int show(const char* query, mxml_node_t* config, Fault* fault);

/* Presets `change` with the settings as they are, puts the document over them and
 * checks the outcome. Writes nothing. (change.c) */
int read_change(mxml_node_t* document, Change* change, Fault* fault);

/* Whether all that a change asks for is so already. (change.c) */
bool is_current(const Change* change);

/* POST: waits its turn, reads the change, and then writes, tells the programs
 * concerned, logs, reads back and saves. Names in `result` what was changed. (apply.c) */
int make_change(mxml_node_t* document, mxml_node_t* result, Fault* fault);

#endif
