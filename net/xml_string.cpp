#include <utility>

#include "base/text.h"
#include "net/xml_path.h"
#include "net/xml_trace.h"

using namespace kt;

int read_from_xmlstr(const char* xml, const char* path, Node** node, char* text) {
  if (xml == nullptr) {
    KT_TRACE_XML(__func__, "%s(%d):xml is NULL error\n");
    return kNoXml;
  }
  unique_tree root = parse_below_root(xml);
  Node* found = nullptr;
  const int result = read_from_xml(root.get(), path, &found, text);
  if (result != kDone) {
    KT_TRACE_XML(__func__, "%s(%d):read error %d\n", result);
    return result;
  }
  if (node != nullptr) *node = (found == root.get() ? std::move(root) : detach(found)).release();
  return kDone;
}

int write_to_xmlstr(char* xml, const char* path, const char* text, int mode) {
  if (xml == nullptr) return kNoXml;
  const unique_tree root = parse_below_root(xml);
  const int result = write_to_xml(root.get(), path, nullptr, text, mode);
  if (result != kDone) return result;
  char content[kTextSize];
  if (!serialise_children(root.get(), content)) return kNoNode;
  copy_cut(xml, kTextSize, content);
  return kDone;
}
