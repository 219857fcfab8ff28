// debugd.cpp - stands in for the daemon that saves full trace files to flash.
//
// Serves the message queue 0x12345678: copies /tmp/debug/MODULE/S-N.log to
// /flash-debug/MODULE/S-N.log and then answers whoever waits. Module numbers are
// line numbers, from 0, of /etc/trace-modules.
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>

#include "daemon.h"

namespace {

constexpr key_t kQueue = 0x12345678;
constexpr long kSaveRequest = 1;

struct Request {
  long type;
  int32_t reply_type;  // 0: nobody waits
  int32_t module;
  int32_t sub_log;
  int32_t file_number;
  int32_t wait;
};
constexpr size_t kPayload = 5 * sizeof(int32_t);

// Without its line feed; empty when there is no such module.
void module_name(int number, char (&name)[64]) {
  name[0] = '\0';
  FILE* modules = fopen("/etc/trace-modules", "re");
  if (!modules) return;
  for (int line = 0; line <= number; ++line) {
    if (!fgets(name, sizeof name, modules)) name[0] = '\0';
  }
  (void)fclose(modules);
  name[strcspn(name, "\n")] = '\0';
}

void copy(const char* from, const char* to) {
  const int in = open(from, O_RDONLY | O_CLOEXEC);
  if (in < 0) return;
  (void)unlink(to);
  char piece[4096];
  ssize_t size;
  while ((size = read(in, piece, sizeof piece)) > 0) {
    camera::append(to, piece, static_cast<size_t>(size));
  }
  (void)close(in);
}

void save(const Request& request) {
  char module[64];
  module_name(request.module, module);
  if (!module[0]) return;
  char from[128], to[128];
  (void)snprintf(to, sizeof to, "/flash-debug/%s", module);
  (void)mkdir(to, 0777);
  (void)snprintf(from, sizeof from, "/tmp/debug/%s/%d-%d.log", module, request.sub_log,
                 request.file_number);
  (void)snprintf(to, sizeof to, "/flash-debug/%s/%d-%d.log", module, request.sub_log,
                 request.file_number);
  copy(from, to);
}

}  // namespace

int main() {
  const int queue = msgget(kQueue, IPC_CREAT | 0666);
  if (queue < 0) {
    perror("debugd: msgget");
    return 1;
  }
  camera::become_daemon();
  for (;;) {
    Request request{};
    if (msgrcv(queue, &request, kPayload, kSaveRequest, MSG_NOERROR) < 0) {
      if (errno == EINTR) continue;
      return 1;  // the queue was removed
    }
    save(request);
    if (request.reply_type <= 0) continue;
    request.type = request.reply_type;
    (void)msgsnd(queue, &request, kPayload, 0);
  }
}
