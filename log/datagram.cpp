#include "log/datagram.h"

#include <sys/socket.h>
#include <sys/un.h>

#include "base/text.h"
#include "base/unique_fd.h"

namespace kt {

void send_datagram(const char* path, std::string_view text) {
  const unique_fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket.ok()) return;
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  copy_cut(address.sun_path, sizeof address.sun_path, path);
  (void)::sendto(socket.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const struct sockaddr*>(&address), sizeof address);
}

}  // namespace kt
