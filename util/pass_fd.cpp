#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "base/io.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/unique_fd.h"
#include "ktcomm/util_process.h"

namespace kt {
namespace {

constexpr size_t kMaxDescriptors = 2;

#if __SIZEOF_POINTER__ == 4
static_assert(CMSG_SPACE(kMaxDescriptors * sizeof(int)) == 20 && CMSG_LEN(sizeof(int)) == 16);
#endif

[[nodiscard]] bool connect_to_server(int fd) {
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  copy_cut(address.sun_path, sizeof address.sun_path, paths::kDescriptorServer);
  return retry_eintr([&] {
           return connect(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address);
         }) == 0;
}

// The descriptor named in the record itself; 0 or below for none.
int second_descriptor(const void* message) {
  const unsigned char* const at =
      static_cast<const unsigned char*>(message) + KT_FD_MESSAGE_SECOND_FD;
  const uint32_t value = static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
                         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
  return static_cast<int>(value);
}

[[nodiscard]] bool send_record(int socket_fd, int fd, const void* message) {
  const int descriptors[kMaxDescriptors] = {fd, second_descriptor(message)};
  const size_t size = (descriptors[1] > 0 ? 2 : 1) * sizeof(int);
  alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof descriptors)] = {};
  struct iovec data = {const_cast<void*>(message), KT_FD_MESSAGE_SIZE};
  struct msghdr header = {};
  header.msg_iov = &data;
  header.msg_iovlen = 1;
  header.msg_control = control;
  header.msg_controllen = sizeof control;
  struct cmsghdr* const rights = CMSG_FIRSTHDR(&header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = static_cast<decltype(rights->cmsg_len)>(CMSG_LEN(size));
  memcpy(CMSG_DATA(rights), descriptors, size);
  // No SIGPIPE: a server that has gone away is a failed send, not our end.
  return retry_eintr([&] { return sendmsg(socket_fd, &header, MSG_NOSIGNAL); }) != -1;
}

}  // namespace
}  // namespace kt

int pass_fd_and_message(int fd, const void* message) {
  if (message == nullptr) return -1;
  kt::unique_fd socket_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket_fd.ok()) {
    (void)puts(" create socket error");
    return -1;
  }
  if (!kt::connect_to_server(socket_fd.get())) {
    (void)puts("connect failed");
    (void)socket_fd.release();  // stays open without a server, as callers know it
    return -1;
  }
  return kt::send_record(socket_fd.get(), fd, message) ? 0 : -1;
}
