#include <stddef.h>
#include <stdlib.h>

#include "base/unique_fd.h"
#include "base/unique_malloc.h"
#include "ktcomm/util_loop.h"
#include "util/event_list.h"

#if __SIZEOF_POINTER__ == 4
static_assert(offsetof(cf_fdevent, fd) == 0 && offsetof(cf_fdevent, read_cb) == 4 &&
              offsetof(cf_fdevent, read_arg) == 8 && offsetof(cf_fdevent, write_cb) == 12 &&
              offsetof(cf_fdevent, write_arg) == 16 && offsetof(cf_fdevent, link) == 20 &&
              sizeof(cf_fdevent) == 28);
static_assert(offsetof(cf_fdevents, reserved) == 28 && sizeof(cf_fdevents) == 64);
#endif
static_assert(offsetof(cf_fdevents, head) == 0, "callers compare events with their set");

namespace kt {
namespace {

// A member of `set`, or one that could be.
bool is_event(const cf_fdevents* set, const cf_fdevent* event) {
  return set != nullptr && event != nullptr && event != &set->head;
}

void close_descriptor(cf_fdevent& event) {
  const unique_fd fd(event.fd);
  event.fd = -1;
}

}  // namespace
}  // namespace kt

int cf_fdevent_init(cf_fdevent* event, int fd, cf_fdevent_callback read_cb, void* read_arg,
                    cf_fdevent_callback write_cb, void* write_arg) {
  if (event == nullptr || (read_cb != nullptr && write_cb != nullptr)) return -1;
  *event = {fd, read_cb, read_arg, write_cb, write_arg, {&event->link, &event->link}};
  return 0;
}

cf_fdevent* cf_fdevent_new(int fd, cf_fdevent_callback read_cb, void* read_arg,
                           cf_fdevent_callback write_cb, void* write_arg) {
  kt::unique_malloc<cf_fdevent> event(static_cast<cf_fdevent*>(malloc(sizeof(cf_fdevent))));
  const int made = cf_fdevent_init(event.get(), fd, read_cb, read_arg, write_cb, write_arg);
  return made == 0 ? event.release() : nullptr;
}

int cf_fdevent_free(cf_fdevent* event) {
  const kt::unique_malloc<cf_fdevent> freed(event);
  return 0;
}

int cf_fdevent_exit(void) {
  return 0;
}

cf_fdevent* cf_fdevent_get_next(cf_fdevent* event) {
  if (event == nullptr || event->link.next == nullptr) return nullptr;
  return kt::owner_of<cf_fdevent>(event->link.next);
}

int cf_fdevents_init(cf_fdevents* set) {
  if (set == nullptr) return -1;
  *set = {};
  return cf_fdevent_init(&set->head, -1, nullptr, nullptr, nullptr, nullptr);
}

cf_fdevents* cf_fdevents_new(void) {
  cf_fdevents* const set = static_cast<cf_fdevents*>(malloc(sizeof(cf_fdevents)));
  (void)cf_fdevents_init(set);  // refuses only the null that is returned
  return set;
}

int cf_fdevents_free(cf_fdevents* set) {
  const kt::unique_malloc<cf_fdevents> freed(set);
  return 0;
}

int cf_fdevents_exit(void) {
  return 0;
}

int cf_fdevents_add(cf_fdevents* set, cf_fdevent* event) {
  if (!kt::is_event(set, event)) return -1;
  kt::append_to_list(&set->head.link, &event->link);
  return 0;
}

int cf_fdevents_del(cf_fdevents* set, cf_fdevent* event) {
  if (!kt::is_event(set, event)) return -1;
  (void)kt::unlink_from_list(&event->link);  // being in no set is as good
  return 0;
}

int cf_fdevents_del_close(cf_fdevents* set, cf_fdevent* event) {
  if (cf_fdevents_del(set, event) != 0) return -1;
  kt::close_descriptor(*event);
  return 0;
}

int cf_fdevents_del_free(cf_fdevents* set, cf_fdevent* event) {
  return cf_fdevents_del(set, event) == 0 ? cf_fdevent_free(event) : -1;
}

int cf_fdevents_del_close_free(cf_fdevents* set, cf_fdevent* event) {
  return cf_fdevents_del_close(set, event) == 0 ? cf_fdevent_free(event) : -1;
}

int cf_fdevents_del_all(cf_fdevents* set) {
  if (set == nullptr) return -1;
  kt::empty_list(&set->head.link, [](cf_list*) {});
  return 0;
}

int cf_fdevents_free_all(cf_fdevents* set) {
  if (set == nullptr) return -1;
  kt::empty_list(&set->head.link,
                 [](cf_list* link) { (void)cf_fdevent_free(kt::owner_of<cf_fdevent>(link)); });
  return cf_fdevent_init(&set->head, -1, nullptr, nullptr, nullptr, nullptr);
}

void cf_fdevents_free_all_self(cf_fdevents* set) {
  (void)cf_fdevents_free_all(set);  // refuses only null
  (void)cf_fdevents_free(set);
}
