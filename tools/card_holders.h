// card_holders.h - the processes that keep the SD card from being unmounted.
#ifndef KTCOMM_TOOLS_CARD_HOLDERS_H
#define KTCOMM_TOOLS_CARD_HOLDERS_H

#include <stdio.h>

namespace kt::tools {

struct Holders {
  int found = 0;
  int unknown = 0;  // processes that only root may look into
};

struct Holder {
  int pid;
  const char* command;
  const char* path;
};

// Calls `use` for each process that has a file on the card open, runs one, or works
// below it, with the first such path.
Holders find_card_holders(void (*use)(const Holder& holder, void* context), void* context);

// Writes a line for each of them. The first line begins with `first`, the others are
// indented as far.
Holders print_card_holders(FILE* out, const char* first);

}  // namespace kt::tools

#endif
