// account.h - what the accounts of users and administrator have in common.
#ifndef KTCOMM_SETTINGS_ACCOUNT_H
#define KTCOMM_SETTINGS_ACCOUNT_H

#include <string_view>

#include "ktcomm/settings.h"
#include "settings/section.h"

namespace kt {

inline constexpr Section kUserSection("USER");
inline constexpr char kEntrySeparator = ',';

// Takes "name,password" apart, whatever the characters; false, with `entry` all
// zeros, when a length is wrong.
[[nodiscard]] bool parse_user_entry(std::string_view text, UserEntry& entry);

// Whether all characters are printable and none separates stored values.
[[nodiscard]] bool is_account_text(std::string_view text);

}  // namespace kt

#endif
