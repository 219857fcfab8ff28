// mtd_request.h - ioctl(2) on an MTD device.
#ifndef KTCOMM_FLASH_MTD_REQUEST_H
#define KTCOMM_FLASH_MTD_REQUEST_H

#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

namespace kt {

// C libraries disagree about the type of a request: `Request` is the type of
// the one at hand.
template <typename Request>
int mtd_request_by(int (*call)(int, Request, ...), int fd, unsigned long request, void* argument) {
  return call(fd, static_cast<Request>(request), argument);
}

// The result of ioctl; below 0 with errno when the device refuses or is no MTD.
[[nodiscard]] inline int mtd_request(int fd, unsigned long request, void* argument) {
  return mtd_request_by(::ioctl, fd, request, argument);
}

}  // namespace kt

#endif
