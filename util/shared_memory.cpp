#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "ktcomm/util_process.h"

void* pub_attach_shm(void** address, unsigned long size, int key, int flags) {
  const unsigned long page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
  if (size > UINTPTR_MAX - (page - 1)) return nullptr;
  const size_t rounded = (size + page - 1) / page * page;
  // Without IPC_CREAT this finds a segment that was there, and clears it: those who share
  // one create it, whoever comes first.
  int id = shmget(key, rounded, flags | IPC_EXCL);
  const bool clear = id >= 0;
  if (id < 0) id = shmget(key, rounded, flags);
  if (id < 0) return nullptr;
  void* const memory = shmat(id, nullptr, 0);
  if (reinterpret_cast<intptr_t>(memory) == -1) return nullptr;
  if (clear) memset(memory, 0, rounded);
  if (address != nullptr) *address = memory;
  return memory;
}

int pub_detach_shm(void* address) {
  if (address != nullptr) (void)shmdt(address);  // no segment there: nothing to detach
  return 0;
}
