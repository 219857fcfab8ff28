// settings_check.h - is a settings file fit to be stored?
#ifndef KTCOMM_FLASH_SETTINGS_CHECK_H
#define KTCOMM_FLASH_SETTINGS_CHECK_H

namespace kt {

// True when the file can be read and holds printable ASCII, CR and LF only, up
// to its end or its first 0 byte.
[[nodiscard]] bool valid_chk_conf_file(const char* path);

}  // namespace kt

#endif
