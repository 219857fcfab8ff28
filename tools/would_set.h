// would_set.h - what --dry-run says of records.
#ifndef KTCOMM_TOOLS_WOULD_SET_H
#define KTCOMM_TOOLS_WOULD_SET_H

#include <span>

#include "tools/fields.h"

namespace kt::tools {

// Says that nothing would change; kDone.
int would_change_nothing();

// Says of each field that differs that it would be set, "FIELD from OLD to NEW"
// behind `where`. Returns how many do.
int tell_field_changes(const char* where, std::span<const Field> fields, const void* before,
                       const void* after);

// The same, or that nothing would change; kDone.
int would_set(const char* where, std::span<const Field> fields, const void* before,
              const void* after);

}  // namespace kt::tools

#endif
