/* util_text.h - a growable text buffer and an intrusive linked list.
 *
 * Neither locks anything: one thread at a time, or the caller's own lock.
 * Nothing is ever printed. */
#ifndef KTCOMM_UTIL_TEXT_H
#define KTCOMM_UTIL_TEXT_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

/* ---- cf_string: growable text ------------------------------------------ */

/* Text in a heap buffer with a NUL at index `len`; `size` is at least `len` + 1
 * and never shrinks. A record of zeros is an empty text without a buffer.
 *
 * `len` is what the record believes, which is more than strlen(str) after a
 * count that the text did not fill: all between is NUL. Counts and lengths are
 * in bytes without the NUL. A buffer that is too small grows to exactly what is
 * needed. `s` may lie in the buffer of `d`.
 *
 * Null arguments are refused. Functions returning int return 0, or -1 for a
 * null argument or when memory runs out, with the record as it was. */
typedef struct cf_string {
  char *str;
  unsigned long len;
  unsigned long size;
} cf_string;

/* A new text of the first `n` characters of `s`, filled up with NULs where `s`
 * is shorter: `len` is `n` either way, `size` is `n` + 251 so that the first
 * appends find room. Null when `s` is null or memory runs out; the caller frees
 * it with cf_string_free. */
KT_EXPORT cf_string *cf_string_new_len(const char *s, unsigned n);

/* cf_string_new_len of the whole of `s`. */
KT_EXPORT cf_string *cf_string_new(const char *s);

/* cf_string_new_len of the characters from `start` to `end`, both included.
 * Null also when either is null or `start` lies after `end`. */
KT_EXPORT cf_string *cf_string_new_start_end(const char *start, const char *end);

/* Frees the buffer and the record; null is ignored. */
KT_EXPORT void cf_string_free(cf_string *string);

/* Makes `d` a copy of `s`. */
KT_EXPORT int cf_string_safe_cp(cf_string *d, const char *s);

/* Makes `d` a copy of at most `n` characters of `s`. The buffer grows to `n` + 1
 * bytes even when `s` is shorter; `len` is the length of what was copied. */
KT_EXPORT int cf_string_safe_cp_n(cf_string *d, const char *s, unsigned n);

/* Appends the whole of `s` behind `len`. */
KT_EXPORT int cf_string_safe_cat(cf_string *d, const char *s);

/* Appends at most `n` characters of `s` behind `len`, which grows by `n` even
 * when `s` is shorter. */
KT_EXPORT int cf_string_safe_cat_n(cf_string *d, const char *s, unsigned n);

/* ---- cf_list: circular, doubly linked ---------------------------------- */

/* A link, embedded anywhere in the owner's own record. The list's head is a link
 * of its own: `next` is the first element, `prev` the last, and an empty list's
 * head points to itself both ways. The list owns nothing and allocates nothing.
 * Arguments are not checked: a null one is the caller's fault. */
typedef struct cf_list {
  struct cf_list *prev;
  struct cf_list *next;
} cf_list;

/* Makes `head` an empty list. */
KT_EXPORT void cf_list_init(cf_list *head);

/* Puts `e` directly after `p`; at the front of the list when `p` is its head. */
KT_EXPORT void cf_list_insert_next(cf_list *p, cf_list *e);

/* Puts `e` directly before `p`; at the back of the list when `p` is its head. */
KT_EXPORT void cf_list_insert_pre(cf_list *p, cf_list *e);

/* Takes `e` out of its list. `e` itself still points to its old neighbours, so a
 * second cf_list_del of it corrupts the list.
 * Returns 0; -1 with nothing changed when `e` points to itself (an empty head). */
KT_EXPORT int cf_list_del(cf_list *e);

KT_END_DECLS

#endif
