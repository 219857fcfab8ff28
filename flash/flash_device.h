// flash_device.h - a flash partition open for reading and writing.
#ifndef KTCOMM_FLASH_FLASH_DEVICE_H
#define KTCOMM_FLASH_FLASH_DEVICE_H

#include <fcntl.h>
#include <stdio.h>

#include "ktcomm/flash.h"

namespace kt {

class FlashDevice {
 public:
  explicit FlashDevice(const char* partition) : fd_(flash_open(partition, O_RDWR)) {}
  FlashDevice(const FlashDevice&) = delete;
  FlashDevice& operator=(const FlashDevice&) = delete;
  ~FlashDevice() {
    if (ok()) (void)close();  // after a failure that was reported already
  }

  [[nodiscard]] bool ok() const { return fd_ > 0; }
  [[nodiscard]] bool seek(long long offset) { return flash_lseek(fd_, offset, SEEK_SET) >= 0; }
  [[nodiscard]] bool read(void* data, unsigned size) {
    return flash_read(fd_, static_cast<unsigned char*>(data), size) == static_cast<int>(size);
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
