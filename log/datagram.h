// datagram.h - copies of log lines for a relay on this camera.
#ifndef KTCOMM_LOG_DATAGRAM_H
#define KTCOMM_LOG_DATAGRAM_H

#include <string_view>

namespace kt {

// Sends `text` to the local datagram socket at `path`, if one listens there. It
// never waits: a relay that does not keep up loses lines, its senders lose no
// time.
void send_datagram(const char* path, std::string_view text);

}  // namespace kt

#endif
