#include <stddef.h>
#include <stdlib.h>

#include "base/unique_malloc.h"
#include "ktcomm/util_loop.h"
#include "util/event_list.h"

#if __SIZEOF_POINTER__ == 4
static_assert(offsetof(cf_event_action, a) == 0 && offsetof(cf_event_action, b) == 4 &&
              offsetof(cf_event_action, callback) == 8 && offsetof(cf_event_action, c) == 12 &&
              offsetof(cf_event_action, d) == 16 && offsetof(cf_event_action, link) == 20 &&
              sizeof(cf_event_action) == 28);
#endif

namespace kt {
namespace {

// A run keeps its place with an action of its own behind the one being called, so
// that any action may go and come meanwhile. It is known by what it calls; callers
// do not get to see it.
int pass_by(void*, void*, void*, void*) {
  return 0;
}

bool is_place(cf_list* link) {
  return owner_of<cf_event_action>(link)->callback == pass_by;
}

cf_list* next_action(const cf_list* link) {
  cf_list* next = link->next;
  while (next != nullptr && next != link && is_place(next)) next = next->next;
  return next;
}

// Calls what stands behind `place`, and so on up to the end of the list, or until the
// list was freed, which leaves `place` alone.
void run_behind(cf_list* place, const cf_list* head) {
  for (cf_list* link = next_action(place); link != head && link != place;
       link = next_action(place)) {
    (void)cf_list_del(place);  // it is not alone
    cf_list_insert_next(link, place);
    const cf_event_action& action = *owner_of<cf_event_action>(link);
    if (action.callback != nullptr) (void)action.callback(action.a, action.b, action.c, action.d);
  }
}

}  // namespace
}  // namespace kt

int cf_event_action_init(cf_event_action* action, cf_event_callback callback, void* a, void* b,
                         void* c, void* d) {
  if (action == nullptr) return -1;
  *action = {a, b, callback, c, d, {&action->link, &action->link}};
  return 0;
}

cf_event_action* cf_event_action_new(cf_event_callback callback, void* a, void* b, void* c,
                                     void* d) {
  auto* const action = static_cast<cf_event_action*>(malloc(sizeof(cf_event_action)));
  (void)cf_event_action_init(action, callback, a, b, c, d);  // refuses only the null returned
  return action;
}

int cf_event_action_free(cf_event_action* action) {
  const kt::unique_malloc<cf_event_action> freed(action);
  return 0;
}

int cf_event_actions_add(cf_event_action* list, cf_event_action* action) {
  if (list == nullptr || action == nullptr) return -1;
  kt::append_to_list(&list->link, &action->link);
  return 0;
}

cf_event_action* cf_event_actions_safe_add(cf_event_action* list, cf_event_action* action) {
  if (list != nullptr) {
    (void)cf_event_actions_add(list, action);  // a null action leaves the list as it is
    return list;
  }
  if (action != nullptr && !kt::is_linked(&action->link)) cf_list_init(&action->link);
  return action;
}

int cf_event_actions_del(cf_event_action* list, cf_event_action* action) {
  if (list == nullptr || action == nullptr || action == list) return -1;
  return kt::unlink_from_list(&action->link);
}

cf_event_action* cf_event_action_get_next(cf_event_action* action) {
  if (action == nullptr) return nullptr;
  cf_list* const next = kt::next_action(&action->link);
  return next == nullptr ? nullptr : kt::owner_of<cf_event_action>(next);
}

int cf_event_actions_go(cf_event_action* list) {
  if (list == nullptr) return -1;
  (void)kt::first_of(&list->link);
  cf_event_action place = {};
  place.callback = kt::pass_by;
  cf_list_insert_next(&list->link, &place.link);
  kt::run_behind(&place.link, &list->link);
  (void)kt::unlink_from_list(&place.link);  // out already when the list was freed
  return 0;
}

void cf_event_actions_free(cf_event_action* list) {
  if (list == nullptr) return;
  kt::empty_list(&list->link, [](cf_list* link) {
    if (kt::is_place(link)) {
      cf_list_init(link);  // tells its run to end
    } else {
      (void)cf_event_action_free(kt::owner_of<cf_event_action>(link));
    }
  });
}
