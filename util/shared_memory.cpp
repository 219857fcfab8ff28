#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "ktcomm/util_process.h"

namespace kt {
namespace {

struct Segment {
  int id;
  bool is_new;
};

// Without IPC_CREAT the first call succeeds on a segment that was there already,
// whose content is somebody else's.
Segment get_segment(int key, size_t size, int flags) {
  const int created = shmget(key, size, flags | IPC_EXCL);
  if (created >= 0) return {created, key == IPC_PRIVATE || (flags & IPC_CREAT) != 0};
  return {shmget(key, size, flags), false};
}

}  // namespace
}  // namespace kt

void* pub_attach_shm(void** address, unsigned long size, int key, int flags) {
  const unsigned long page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
  if (size > UINTPTR_MAX - (page - 1)) return nullptr;
  const size_t rounded = (size + page - 1) / page * page;
  const kt::Segment segment = kt::get_segment(key, rounded, flags);
  if (segment.id < 0) return nullptr;
  void* const memory = shmat(segment.id, nullptr, 0);
  if (reinterpret_cast<intptr_t>(memory) == -1) return nullptr;
  if (segment.is_new) memset(memory, 0, rounded);
  if (address != nullptr) *address = memory;
  return memory;
}

int pub_detach_shm(void* address) {
  if (address != nullptr) (void)shmdt(address);  // no segment there: nothing to detach
  return 0;
}
