// schedule_item.h - schedule items, "day,HH:MM,HH:MM", as people meet them.
#ifndef KTCOMM_TOOLS_SCHEDULE_ITEM_H
#define KTCOMM_TOOLS_SCHEDULE_ITEM_H

#include <ktcomm/sched.h>

#include "base/string_buffer.h"

namespace kt::tools {

// Fills `slot` from an item that check_sche_item finds valid, with the numbers that
// it looked at. Returns null, or what is wrong with the item.
[[nodiscard]] const char* read_item(const char* item, SchSlot& slot);

// An item of one of the plain schedules as schedule_chk reads it, which takes
// anything; a day code that is unknown gives no days.
[[nodiscard]] SchSlot read_plain_item(const char* item);

// "2,09:00,17:00"
using ItemText = StringBuffer<40>;
[[nodiscard]] ItemText item_text(const SchSlot& slot);

// "Mon 09:00-17:00", "Mon-Fri ...", "daily ..."; "never" where it ends before it
// starts, or has no days.
[[nodiscard]] ItemText item_meaning(const SchSlot& slot);

// "Sun" to "Sat".
[[nodiscard]] const char* day_name(int day);

}  // namespace kt::tools

#endif
