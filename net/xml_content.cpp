#include <string.h>

#include "base/unique_malloc.h"
#include "net/xml_path.h"
#include "net/xml_trace.h"

namespace kt {
namespace {

constexpr char kCdataEnd[] = "]]>";
constexpr size_t kBrackets = 2;

bool takes(Node* node, const char* text) {
  return node != nullptr && text != nullptr && is_element(node);
}

bool add_cdata_piece(Node* parent, const char* text, size_t length) {
  const unique_malloc<char[]> piece = allocate<char>(length + 1);
  if (piece == nullptr) return false;
  memcpy(piece.get(), text, length);
  piece[length] = '\0';
  return add_cdata(parent, piece.get());
}

// The sections below a root of their own; null when memory runs out.
unique_tree make_cdata(const char* text) {
  unique_tree sections = new_root();
  if (sections == nullptr) return nullptr;
  while (const char* const end = strstr(text, kCdataEnd)) {
    const char* const next = end + kBrackets;
    if (!add_cdata_piece(sections.get(), text, static_cast<size_t>(next - text))) return nullptr;
    text = next;
  }
  if (!add_cdata(sections.get(), text)) return nullptr;
  return sections;
}

// The nodes of `xml`, or itself as their text, below a root of their own.
unique_tree make_nodes(const char* xml) {
  unique_tree root = parse_below_root(xml);
  if (root == nullptr || *xml == '\0' || first_child(root.get()) != nullptr) return root;
  if (add_opaque(root.get(), xml) == nullptr) return nullptr;
  return root;
}

enum class Old { kStay, kGo };

// What is put in place of the children is made before they go: it may come from
// them, and when it cannot be made they stay.

int put_string(Node* node, const char* text, Old children) {
  if (!takes(node, text)) return kRefused;
  Node* opaque = nullptr;
  if (*text != '\0') {
    opaque = add_opaque(node, text);
    if (opaque == nullptr) return kRefused;
  }
  if (children == Old::kGo) delete_children(node, opaque);
  return kDone;
}

int put_nodes(Node* node, const char* xml, Old children, const char* function) {
  if (!takes(node, xml)) {
    KT_TRACE_XML(function, "%s(%d): tree or str is NULL\n");
    return kRefused;
  }
  const unique_tree nodes = make_nodes(xml);
  if (nodes == nullptr) {
    KT_TRACE_XML(function, "%s(%d): node is NULL\n");
    return kRefused;
  }
  if (children == Old::kGo) delete_children(node, nullptr);
  move_children(nodes.get(), node);
  return kDone;
}

}  // namespace
}  // namespace kt

using namespace kt;

int add_string_to_node(Node* node, const char* text) {
  return put_string(node, text, Old::kStay);
}

int replace_string_to_node(Node* node, const char* text) {
  return put_string(node, text, Old::kGo);
}

int add_cdata_to_node(Node* node, const char* text) {
  if (!takes(node, text)) return kRefused;
  if (*text == '\0') return kDone;
  const unique_tree sections = make_cdata(text);
  if (sections == nullptr) return kRefused;
  move_children(sections.get(), node);
  return kDone;
}

int add_xmlstring_to_node(Node* node, const char* xml) {
  return put_nodes(node, xml, Old::kStay, __func__);
}

int replace_xmlstring_to_node(Node* node, const char* xml) {
  return put_nodes(node, xml, Old::kGo, __func__);
}

int add_error_attribute(Node* node, const char* number, const char* text) {
  if (node == nullptr || !is_element(node) || is_declaration(node)) return kRefused;
  if (number != nullptr) set_attribute(node, "errno", number);
  if (text != nullptr) set_attribute(node, "errstr", text);
  return kDone;
}
