// card_holders.h - the processes that keep the SD card from being unmounted.
#ifndef KTCOMM_TOOLS_CARD_HOLDERS_H
#define KTCOMM_TOOLS_CARD_HOLDERS_H

#include <stdio.h>

namespace kt::tools {

struct Holders {
  int found = 0;
  int unknown = 0;  // processes that only root may look into
};

// Writes a line for each process that has a file on the card open, runs one, or
// works below it: process id, command and the first such path. The first line
// begins with `first`, the others are indented as far.
Holders print_card_holders(FILE* out, const char* first);

}  // namespace kt::tools

#endif
