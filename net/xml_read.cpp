#include "net/xml_path.h"
#include "net/xml_trace.h"

using namespace kt;

int read_from_xml(Node* tree, const char* path, Node** node, char* text) {
  if (tree == nullptr || path == nullptr) {
    KT_TRACE_XML(__func__, "%s(%d):request error\n");
    return kBadRequest;
  }
  if (*path != '/') {
    KT_TRACE_XML(__func__, "%s(%d): format error , p=%s\n", path);
    return kRefused;
  }
  const Place place = walk(tree, path, Missing::kFails);
  if (place.result == kBadRequest) KT_TRACE_XML(__func__, "%s(%d):request error\n");
  if (place.result == kNoNode) KT_TRACE_XML(__func__, "%s(%d):node is NULL error\n");
  if (place.result != kDone) return place.result;
  if (node != nullptr) *node = place.node;
  if (text != nullptr && first_child(place.node) != nullptr) {
    (void)serialise_children(place.node, text);  // as much as fits
  }
  return kDone;
}

Node* find_xml_node(Node* tree, const char* path) {
  Node* node = nullptr;
  (void)read_from_xml(tree, path, &node, nullptr);  // stays null when it fails
  return node;
}

const char* xml_get_node_value(Node* tree, const char* path) {
  return opaque_or_cdata(first_child(find_xml_node(tree, path)));
}

const char* xml_get_attr_value(Node* tree, const char* path, const char* name) {
  return attribute(find_xml_node(tree, path), name);
}
