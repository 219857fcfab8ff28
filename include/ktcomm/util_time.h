/* util_time.h - times as text. */
#ifndef KTCOMM_UTIL_TIME_H
#define KTCOMM_UTIL_TIME_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

/* Writes `time`, in seconds since the epoch, as ISO 8601 local time with its
 * offset from UTC: "2026-11-21T03:05:00+01:00", 25 characters. `size` counts the
 * NUL: 26 hold every year of four digits.
 * Returns 0; -1, with `out` untouched, when it is null, the text does not fit or
 * the local time cannot be told. */
KT_EXPORT int get_time_iso8601_string(char *out, int size, long time);

KT_END_DECLS

#endif
