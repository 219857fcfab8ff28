// xml_mini.h - all that the library asks of Mini-XML, version 3. Another major
// version is the work of xml_mini.cpp, the one file that includes <mxml.h>.
#ifndef KTCOMM_NET_XML_MINI_H
#define KTCOMM_NET_XML_MINI_H

#include <stddef.h>

#include <memory>

#include "ktcomm/net.h"

namespace kt {

using Node = struct _mxml_node_s;

struct TreeDeleter {
  void operator()(Node* tree) const;
};
// A tree that deletes itself, taking itself out of the tree it may be part of.
using unique_tree = std::unique_ptr<Node, TreeDeleter>;

// An element "root" without children.
[[nodiscard]] unique_tree new_root();

// The same with the nodes of `text` below; null when that does not parse.
[[nodiscard]] unique_tree parse_below_root(const char* text);

// What can have children: a declaration, too.
[[nodiscard]] bool is_element(Node* node);
// Of declarations that hold the nodes behind them: "<?...?>", "<!DOCTYPE ...>".
[[nodiscard]] bool is_declaration(Node* node);
[[nodiscard]] bool has_name(Node* node, const char* name);

[[nodiscard]] Node* first_child(Node* node);
[[nodiscard]] Node* next_sibling(Node* node);

// The first child element of that name, and the next of them behind `child`.
[[nodiscard]] Node* find_child(Node* parent, const char* name);
[[nodiscard]] Node* find_next(Node* parent, Node* child, const char* name);

// Add a last child; null or false, nothing added, when that is not possible.
[[nodiscard]] Node* add_element(Node* parent, const char* name);
[[nodiscard]] bool add_cdata(Node* parent, const char* text);
[[nodiscard]] Node* add_opaque(Node* parent, const char* text);
void add_node(Node* parent, unique_tree node);
void move_children(Node* from, Node* to);
// Deletes the children in front of `kept`, all for null.
void delete_children(Node* node, Node* kept);

// Takes `node`, which may be null, out of its tree.
[[nodiscard]] unique_tree detach(Node* node);

// What an opaque node or a CDATA section holds; null for others.
[[nodiscard]] const char* opaque_or_cdata(Node* node);

[[nodiscard]] const char* attribute(Node* node, const char* name);
void set_attribute(Node* node, const char* name, const char* value);

// The size of the buffers that nodes are serialised into: one byte is for the NUL, one
// for the line feed that serialising adds and that is taken off again.
constexpr size_t kTextSize = 1024;
constexpr size_t kLongestText = kTextSize - 2;

// Serialises all children, one behind the other, into `text`, cut to what fits and
// terminated. False when they were cut.
[[nodiscard]] bool serialise_children(Node* node, char* text);

}  // namespace kt

#endif
