// mac_address.h - the camera's MAC address.
#ifndef KTCOMM_SDCARD_MAC_ADDRESS_H
#define KTCOMM_SDCARD_MAC_ADDRESS_H

#include <stddef.h>

namespace kt {

constexpr size_t kMacBytes = 6;

// Reads the address of the system's first Ethernet interface, the one of lowest
// index; false when there is none.
[[nodiscard]] bool get_mac_address(unsigned char (&mac)[kMacBytes]);

// Writes it in lowercase hexadecimal digits with `separator`, unless that is NUL,
// between the bytes; `size` counts the NUL. False, with `out` untouched, when it
// does not fit.
[[nodiscard]] bool transcode_mac_to_string_by_separator(const unsigned char (&mac)[kMacBytes],
                                                        char separator, char* out, size_t size);

}  // namespace kt

#endif
