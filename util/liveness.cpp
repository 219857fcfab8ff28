#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>

#include "base/unique_fd.h"
#include "ktcomm/util_process.h"

namespace kt {
namespace {

[[nodiscard]] unique_fd tcp_socket() {
  return unique_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

[[nodiscard]] bool is_port(int port) {
  return port > 0 && port <= UINT16_MAX;
}

[[nodiscard]] bool listen_on_loopback(int fd, int port) {
  struct sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0 &&
         listen(fd, 1) == 0;
}

}  // namespace
}  // namespace kt

int CFToggleProcessAlive(int port) {
  if (!kt::is_port(port)) return -1;
  kt::unique_fd fd = kt::tcp_socket();
  if (!fd.ok() || !kt::listen_on_loopback(fd.get(), port)) return -1;
  (void)fd.release();  // it proves for the life of the process that we run
  return 0;
}

int CFIsProcessAlive(int port) {
  if (!kt::is_port(port)) return -1;
  const kt::unique_fd fd = kt::tcp_socket();
  if (!fd.ok()) return -1;
  return kt::listen_on_loopback(fd.get(), port) ? 0 : 1;
}
