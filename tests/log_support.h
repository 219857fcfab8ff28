// log_support.h - what the tests of trace and event log share.
#ifndef KTCOMM_TESTS_LOG_SUPPORT_H
#define KTCOMM_TESTS_LOG_SUPPORT_H

#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>

#include "tests/support.h"

namespace kt::test {

// Takes the place of a relay daemon.
struct Relay {
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);

  explicit Relay(const char* path) {
    sockaddr_un address = {AF_UNIX, ""};
    unlink(strcpy(address.sun_path, path));
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) abort();
  }
  ~Relay() { close(fd); }

  std::string receive() const {  // "(none)" when none waits
    char text[16384];
    const ssize_t count = recv(fd, text, sizeof text, MSG_DONTWAIT);
    return count < 0 ? "(none)" : std::string(text, static_cast<size_t>(count));
  }
};

// The lines of a text; the last one must be whole too.
inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  EXPECT_TRUE(text.empty() || text.back() == '\n');
  for (size_t begin = 0, end; (end = text.find('\n', begin)) != text.npos; begin = end + 1) {
    lines.push_back(text.substr(begin, end - begin));
  }
  return lines;
}

inline void set_zone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

}  // namespace kt::test

#endif
