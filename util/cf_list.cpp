#include <stddef.h>

#include "ktcomm/util_text.h"

#if __SIZEOF_POINTER__ == 4
static_assert(offsetof(cf_list, prev) == 0 && offsetof(cf_list, next) == 4 && sizeof(cf_list) == 8);
#endif

namespace {

void link_between(cf_list* prev, cf_list* e, cf_list* next) {
  next->prev = e;
  *e = {prev, next};
  prev->next = e;
}

}  // namespace

void cf_list_init(cf_list* head) {
  *head = {head, head};
}

void cf_list_insert_next(cf_list* p, cf_list* e) {
  link_between(p, e, p->next);
}

void cf_list_insert_pre(cf_list* p, cf_list* e) {
  link_between(p->prev, e, p);
}

int cf_list_del(cf_list* e) {
  if (e->next == e) return -1;
  e->prev->next = e->next;
  e->next->prev = e->prev;
  return 0;
}
