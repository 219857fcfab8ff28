// system_section.h - where the settings of the clock are kept.
#ifndef KTCOMM_SETTINGS_SYSTEM_SECTION_H
#define KTCOMM_SETTINGS_SYSTEM_SECTION_H

#include "settings/section.h"

namespace kt {

inline constexpr Section kSystemSection("[SYSTEM]");

}  // namespace kt

#endif
