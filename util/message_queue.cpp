#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include "ktcomm/util_process.h"

namespace kt {
namespace {

enum Receive : int { kFailed = -1, kNoMessage = -2 };

[[nodiscard]] bool check(int id, const void* message, int size) {
  if (id >= 0 && message != nullptr && size > 0) return true;
  errno = EINVAL;
  perror("input parameters error!\n");
  return false;
}

// What the system counts: the record without its type. A record too small for a
// type becomes a size that the system refuses.
size_t payload_size(int size) {
  return static_cast<size_t>(size) - sizeof(long);
}

}  // namespace
}  // namespace kt

int msg_init(int key) {
  const int id = msgget(key, 0);
  return id >= 0 ? id : msgget(key, IPC_CREAT | 0666);
}

int kt_msg_send(int id, const void* message, int size, int flags) {
  if (!kt::check(id, message, size)) return -1;
  return msgsnd(id, message, kt::payload_size(size), flags);
}

int msg_send(int id, const void* message, int size) {
  return kt_msg_send(id, message, size, 0);
}

int kt_msg_recv(int id, long type, void* buffer, int size, int flags) {
  if (!kt::check(id, buffer, size)) return kt::kFailed;
  memset(buffer, 0, static_cast<size_t>(size));
  const ssize_t count = msgrcv(id, buffer, kt::payload_size(size), type, flags);
  if (count >= 0) return static_cast<int>(count);
  if (flags != IPC_NOWAIT) return kt::kFailed;
  if (errno == ENOMSG) return kt::kNoMessage;
  perror("receive message error!\n");
  return kt::kFailed;
}

int msg_recv(int id, long type, void* buffer, int size) {
  return kt_msg_recv(id, type, buffer, size, 0);
}

int msg_exit(int id) {
  if (id < 0) {
    errno = EINVAL;
    perror("queue id error!\n");
    return -1;
  }
  if (msgctl(id, IPC_RMID, nullptr) == 0) return 0;
  perror("delete message queue failed!\n");
  return -1;
}
