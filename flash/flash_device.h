// flash_device.h - an open flash partition, by way of the exported calls.
#ifndef KTCOMM_FLASH_FLASH_DEVICE_H
#define KTCOMM_FLASH_FLASH_DEVICE_H

#include <fcntl.h>
#include <stdio.h>

#include "ktcomm/flash.h"

namespace kt {

class FlashDevice {
 public:
  // Open for writing, it is locked against other processes; O_RDONLY locks nothing.
  explicit FlashDevice(const char* partition, int flags = O_RDWR)
      : fd_(flash_open(partition, flags)) {}
  FlashDevice(const FlashDevice&) = delete;
  FlashDevice& operator=(const FlashDevice&) = delete;
  ~FlashDevice() {
    if (ok()) (void)close();  // after a failure that was reported already, or after looking
  }

  [[nodiscard]] bool ok() const { return fd_ > 0; }
  [[nodiscard]] long long size() { return flash_lseek(fd_, 0, SEEK_END); }
  [[nodiscard]] bool seek(long long offset) { return flash_lseek(fd_, offset, SEEK_SET) == offset; }
  [[nodiscard]] bool read(void* data, unsigned size) {
    // A failed flash_read gives 2: two bytes are read one by one, to tell.
    unsigned char* const bytes = static_cast<unsigned char*>(data);
    if (size == 2) return read(bytes, 1) && read(bytes + 1, 1);
    return flash_read(fd_, data, size) == static_cast<int>(size);
  }
  [[nodiscard]] bool write(const void* data, unsigned size) {
    return flash_write(fd_, static_cast<const unsigned char*>(data), size) ==
           static_cast<int>(size);
  }
  // False when something that was written before did not reach the chip.
  [[nodiscard]] bool close() {
    const int fd = fd_;
    fd_ = -1;
    return flash_close(fd) == 0;
  }

 private:
  int fd_;
};

}  // namespace kt

#endif
