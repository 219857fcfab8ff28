/* util_loop.h - a loop over descriptors, deferred calls, signals as descriptors.
 *
 * Shared rules:
 * - Nothing is locked: a set or a list, and what is in it, is used by one thread at
 *   a time. Callbacks run in the thread that runs the set or list.
 * - Functions returning int return 0, and -1 for a null argument and where stated,
 *   with nothing changed. Null is never followed, and freeing null does nothing.
 * - Sets, events and actions are made by their `_init` in memory of the caller's or
 *   by their `_new` on the heap; only the latter may be given to a freeing function.
 *   A record of zeros will do for an empty set or list.
 * - What is deleted goes out of its set or list and still knows its follower, so
 *   that a walk can go on from it. Deleting it once more changes nothing. What is
 *   added goes to the end, also when it is in that set or list already; it must not
 *   be in another. */
#ifndef KTCOMM_UTIL_LOOP_H
#define KTCOMM_UTIL_LOOP_H

#include <ktcomm/export.h>
#include <ktcomm/util_text.h>

KT_BEGIN_DECLS

/* ---- Descriptor events ------------------------------------------------- */

typedef struct cf_fdevent cf_fdevent;
typedef struct cf_fdevents cf_fdevents;

/* Called when the descriptor of `event` is ready; `arg` is the argument given with
 * the callback. What it returns is ignored. */
typedef int (*cf_fdevent_callback)(cf_fdevents *set, cf_fdevent *event, int fd, void *arg);

/* A descriptor and what is called when it can be read from or written to: one of
 * the two, never both. The fields may be changed while the event is in a set; the
 * next pass of the loop goes by them. */
struct cf_fdevent {
  int fd;
  cf_fdevent_callback read_cb;
  void *read_arg;
  cf_fdevent_callback write_cb;
  void *write_arg;
  cf_list link;
};

/* A set of events, first come first: a circular list through `head`, which is no
 * event itself. */
struct cf_fdevents {
  cf_fdevent head; /* fd -1, no callbacks */
  void *reserved[9];
};

/* Makes `event` one that is in no set. Returns -1 also when both callbacks are
 * given. Neither may be given: the event is never called. */
KT_EXPORT int cf_fdevent_init(cf_fdevent *event, int fd, cf_fdevent_callback read_cb,
                              void *read_arg, cf_fdevent_callback write_cb, void *write_arg);

/* cf_fdevent_init of a new event; null when that refuses or memory runs out. */
KT_EXPORT cf_fdevent *cf_fdevent_new(int fd, cf_fdevent_callback read_cb, void *read_arg,
                                     cf_fdevent_callback write_cb, void *write_arg);

/* Frees an event that is in no set; its descriptor stays open. Returns 0. */
KT_EXPORT int cf_fdevent_free(cf_fdevent *event);

/* Nothing to do; returns 0. */
KT_EXPORT int cf_fdevent_exit(void);

/* The event behind `event`, in a circle: the first one for the set's head, and the
 * head, which is the set itself, behind the last. Null when the link is null.
 *   for (e = cf_fdevent_get_next(&set->head); e != &set->head; ...) */
KT_EXPORT cf_fdevent *cf_fdevent_get_next(cf_fdevent *event);

/* Makes `set` an empty one; events that were in it are not touched. */
KT_EXPORT int cf_fdevents_init(cf_fdevents *set);

/* A new empty set; null when memory runs out. */
KT_EXPORT cf_fdevents *cf_fdevents_new(void);

/* Frees the set and none of its events. Returns 0. */
KT_EXPORT int cf_fdevents_free(cf_fdevents *set);

/* Nothing to do; returns 0. */
KT_EXPORT int cf_fdevents_exit(void);

/* Puts `event` at the end of `set`. */
KT_EXPORT int cf_fdevents_add(cf_fdevents *set, cf_fdevent *event);

/* Takes `event` out of `set`; returns 0 also when it was in none. The longer names
 * then close its descriptor (`fd` becomes -1), free the event, or both, also when it
 * was in no set. */
KT_EXPORT int cf_fdevents_del(cf_fdevents *set, cf_fdevent *event);
KT_EXPORT int cf_fdevents_del_close(cf_fdevents *set, cf_fdevent *event);
KT_EXPORT int cf_fdevents_del_free(cf_fdevents *set, cf_fdevent *event);
KT_EXPORT int cf_fdevents_del_close_free(cf_fdevents *set, cf_fdevent *event);

/* Takes every event out of the set; none is freed, no descriptor closed. */
KT_EXPORT int cf_fdevents_del_all(cf_fdevents *set);

/* Frees every event of the set, which is empty then; closes no descriptor. */
KT_EXPORT int cf_fdevents_free_all(cf_fdevents *set);

/* cf_fdevents_free_all, and frees the set as well. */
KT_EXPORT void cf_fdevents_free_all_self(cf_fdevents *set);

/* Runs the set: waits for ever until descriptors are ready, collects the callbacks
 * of all of them, then calls these in the order of the set; and again.
 *
 * A callback may add, delete, close and free any event, its own included, and
 * empty the set, but not free the set. What has been collected is still called in
 * the same pass, once, with the descriptor and argument as they were: the event
 * that it is given may then be stale, where another callback freed it, and so may
 * be the descriptor. An event added by a callback is waited on from the next pass.
 *
 * Descriptors below 0 and from 1024 on cannot be waited on and are passed over. When
 * memory runs out, at least the first 16 that are ready are called; the others, still
 * ready, have to wait for the next pass.
 * Returns -1 when the set is empty, when none of its descriptors can be waited on,
 * or when select() fails, as it does for a closed descriptor (errno EBADF); otherwise
 * never. Signals do not end it. */
KT_EXPORT int cf_fdevents_trigger(cf_fdevents *set);

/* ---- Event actions: deferred calls -------------------------------------- */

/* What an action calls; what it returns is ignored. */
typedef int (*cf_event_callback)(void *a, void *b, void *c, void *d);

/* One call to be made later, callback(a, b, c, d). A list of actions is circular and
 * headed by an action of its own, which is neither called nor freed with it. */
typedef struct cf_event_action {
  void *a;
  void *b;
  cf_event_callback callback;
  void *c;
  void *d;
  cf_list link;
} cf_event_action;

/* Makes `action` one that is in no list, or the head of an empty one. Without a
 * callback it calls nothing. */
KT_EXPORT int cf_event_action_init(cf_event_action *action, cf_event_callback callback, void *a,
                                   void *b, void *c, void *d);

/* A new action; null when memory runs out. */
KT_EXPORT cf_event_action *cf_event_action_new(cf_event_callback callback, void *a, void *b,
                                               void *c, void *d);

/* Frees an action that is in no list. Returns 0. */
KT_EXPORT int cf_event_action_free(cf_event_action *action);

/* Puts `action` at the end of `list`. */
KT_EXPORT int cf_event_actions_add(cf_event_action *list, cf_event_action *action);

/* cf_event_actions_add that returns the list. Without a list `action` itself is
 * returned, and heads a new list from now on. */
KT_EXPORT cf_event_action *cf_event_actions_safe_add(cf_event_action *list,
                                                     cf_event_action *action);

/* Takes `action` out of `list`; -1 also when it is in none. */
KT_EXPORT int cf_event_actions_del(cf_event_action *list, cf_event_action *action);

/* The action behind `action`, in a circle: the first one for the head of a list, and
 * the head behind the last. Null when the link is null. */
KT_EXPORT cf_event_action *cf_event_action_get_next(cf_event_action *action);

/* Calls every action of the list, first come first; they stay in the list. A call
 * may add actions, which are called too, and delete and free any, its own included,
 * but must leave the head. */
KT_EXPORT int cf_event_actions_go(cf_event_action *list);

/* Frees every action of the list, which is empty then. */
KT_EXPORT void cf_event_actions_free(cf_event_action *list);

/* ---- Signals as a descriptor -------------------------------------------- */

/* Makes the signals listed, up to a number of 0 or below, readable: each one that comes
 * puts its number, an int, into a pipe. The handlers are set with signal().
 *
 * There is one such pipe in a process. A second call makes a new one, into which all
 * signals of both calls go, and closes the first with what is in it: delete the event
 * on it before. After a fork the child calls this for a pipe of its own, since it
 * would write to its parent's. A pipe that is full (16384 signals unread in 64 KiB)
 * takes no more; these are lost. Numbers that are no signals, or cannot be caught,
 * are passed over.
 * Returns the end to read from, blocking, for cf_fdevent_new and
 * cf_sigfd_get_next_signal; only cf_sigfd_close may close it. Both ends are
 * close-on-exec. Returns -1 when the pipe cannot be made, with the former one intact. */
KT_EXPORT int cf_sigfd_open(int signo, ...);

/* Closes both ends of the pipe, if there is one. The handlers stay in place: signals
 * are taken and forgotten. */
KT_EXPORT void cf_sigfd_close(void);

/* Waits for the next signal in the pipe `fd` and returns its number; -1 when reading
 * fails or the pipe has ended. */
KT_EXPORT int cf_sigfd_get_next_signal(int fd);

KT_END_DECLS

#endif
