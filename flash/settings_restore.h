// settings_restore.h - steps of putting the settings back in place.
#ifndef KTCOMM_FLASH_SETTINGS_RESTORE_H
#define KTCOMM_FLASH_SETTINGS_RESTORE_H

namespace kt {

// Removes the settings directory on the RAM disk.
void fl_clear_env_dir();

}  // namespace kt

#endif
