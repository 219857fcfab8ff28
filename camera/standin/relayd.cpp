// relayd.cpp - stands in for the relay to a remote syslog server.
//
// Appends every datagram that reaches /tmp/debug/syslog.daemon (trace lines) and
// /tmp/syslog.log (event-log entries) to the files of the same names in
// /tmp/relay.
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "daemon.h"

namespace {

struct Relay {
  const char* socket_path;
  const char* file;
};
constexpr Relay kRelays[] = {
    {"/tmp/debug/syslog.daemon", "/tmp/relay/syslog.daemon"},
    {"/tmp/syslog.log", "/tmp/relay/syslog.log"},
};
constexpr size_t kCount = sizeof kRelays / sizeof kRelays[0];

int listen_at(const char* path) {
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  (void)unlink(path);
  if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    perror(path);
    _exit(1);
  }
  return fd;
}

}  // namespace

int main() {
  (void)mkdir("/tmp/relay", 0777);
  pollfd sockets[kCount];
  for (size_t i = 0; i < kCount; ++i) sockets[i] = {listen_at(kRelays[i].socket_path), POLLIN, 0};
  camera::become_daemon();
  static char datagram[65536];
  for (;;) {
    if (poll(sockets, kCount, -1) < 0) continue;
    for (size_t i = 0; i < kCount; ++i) {
      if (!(sockets[i].revents & POLLIN)) continue;
      const ssize_t size = recv(sockets[i].fd, datagram, sizeof datagram, 0);
      if (size > 0) camera::append(kRelays[i].file, datagram, static_cast<size_t>(size));
    }
  }
}
