// event_list.h - the lists of events and actions, which bear more than cf_list.
#ifndef KTCOMM_UTIL_EVENT_LIST_H
#define KTCOMM_UTIL_EVENT_LIST_H

#include <stddef.h>

#include "ktcomm/util_text.h"

namespace kt {

// The record that has `link` as its member of that name.
template <typename T>
T* owner_of(cf_list* link) {
  return reinterpret_cast<T*>(reinterpret_cast<char*>(link) - offsetof(T, link));
}

// The first link behind `head`, which is `head` itself in an empty list. A head of
// zeros becomes an empty list.
inline cf_list* first_of(cf_list* head) {
  if (head->next == nullptr) cf_list_init(head);
  return head->next;
}

inline bool is_linked(const cf_list* link) {
  return link->prev != nullptr && link->prev != link;
}

// Takes `link` out of its list; -1 when it is in none. Pointing back to itself tells
// that it is out; its follower is left as it was, for walks that delete as they go.
inline int unlink_from_list(cf_list* link) {
  if (!is_linked(link)) return -1;
  const int result = cf_list_del(link);
  link->prev = link;
  return result;
}

// Empties a list, giving each link to `dispose` when it is out.
template <typename F>
void empty_list(cf_list* head, F dispose) {
  cf_list* link = first_of(head);
  cf_list_init(head);
  while (link != head) {
    cf_list* const next = link->next;
    link->prev = link;
    dispose(link);
    link = next;
  }
}

// Puts `link` at the end of a list, also when it is in there already. Where else it
// may have been is not followed: that list can be long gone.
inline void append_to_list(cf_list* head, cf_list* link) {
  if (link == head) return;
  cf_list* at = first_of(head);
  if (is_linked(link)) {
    while (at != head && at != link) at = at->next;
    if (at == link) (void)cf_list_del(link);  // in the list, so it is not alone
  }
  cf_list_insert_pre(head, link);
}

}  // namespace kt

#endif
