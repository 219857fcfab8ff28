// unique_malloc.h - memory from malloc that frees itself.
#ifndef KTCOMM_BASE_UNIQUE_MALLOC_H
#define KTCOMM_BASE_UNIQUE_MALLOC_H

#include <stdlib.h>

#include <memory>

namespace kt {

struct FreeDeleter {
  void operator()(void* memory) const { ::free(memory); }
};

template <typename T>
using unique_malloc = std::unique_ptr<T, FreeDeleter>;

// Memory for `count` objects of a plain type, not initialised; null when there
// is none. unique_malloc<char[]> p = allocate<char>(100);
template <typename T>
[[nodiscard]] unique_malloc<T[]> allocate(size_t count) {
  if (count > static_cast<size_t>(-1) / sizeof(T)) return nullptr;
  return unique_malloc<T[]>(static_cast<T*>(::malloc(count * sizeof(T))));
}

}  // namespace kt

#endif
