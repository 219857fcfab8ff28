#include "net/xml_path.h"

namespace kt {
namespace {

constexpr int (*kModes[])(Node* node, const char* text) = {
    add_xmlstring_to_node, replace_xmlstring_to_node, add_string_to_node, replace_string_to_node,
    add_cdata_to_node};
constexpr int kLastMode = sizeof kModes / sizeof kModes[0];

// Without a text there is nothing to put, and no mode to ask for.
int put(Node* node, const char* text, int mode) {
  if (text == nullptr) return kDone;
  return mode >= 1 && mode <= kLastMode ? kModes[mode - 1](node, text) : kRefused;
}

}  // namespace
}  // namespace kt

using namespace kt;

int write_to_xml(Node* tree, const char* path, Node** node, const char* text, int mode) {
  if (tree == nullptr || path == nullptr || *path != '/') return kBadRequest;
  Place place = walk(tree, path, Missing::kIsMade);
  if (place.result != kDone) return place.result;
  const int result = put(place.node, text, mode);
  if (result != kDone) return result;
  (void)place.made.release();  // part of the tree from now on
  if (node != nullptr) *node = place.node;
  return kDone;
}
