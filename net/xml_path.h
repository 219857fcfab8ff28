// xml_path.h - from the top of a tree to the node that a path names.
#ifndef KTCOMM_NET_XML_PATH_H
#define KTCOMM_NET_XML_PATH_H

#include "net/xml_mini.h"

namespace kt {

enum : int {
  kDone = 0,
  kBadRequest = 1,
  kNoNode = 2,
  kNoXml = 3,
  kRefused = 500,
};

enum class Missing { kFails, kIsMade };

struct Place {
  int result = kDone;  // kBadRequest for a negative index, or kNoNode
  Node* node = nullptr;
  unique_tree made;  // the topmost element made; deletes all of them unless released
};

// `path` begins with '/'.
[[nodiscard]] Place walk(Node* tree, const char* path, Missing missing);

}  // namespace kt

#endif
