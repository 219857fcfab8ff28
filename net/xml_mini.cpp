#include "net/xml_mini.h"

#include <mxml.h>
#include <string.h>

#include <utility>

namespace kt {
namespace {

constexpr char kRoot[] = "root";

// A name that no tag can spell, not even with character entities: a "</root>" in
// the text must not close the element that it is parsed below.
constexpr char kUnspeakable[] = "\x01";

// What fails is told by results. There is no asking for the callback that was
// set before, so that it cannot be put back.
void stay_silent(const char* /*message*/) {}

// These bytes are in no UTF-8 text. They make Mini-XML 3 go on in UTF-16, and
// then past the NUL at the end of the text.
bool may_turn_into_utf16(const char* text) {
  return strchr(text, '\xFE') != nullptr || strchr(text, '\xFF') != nullptr;
}

// Serialises one node, without the line feed that serialising adds, which only
// an empty text goes without. Returns the length that it has uncut.
size_t serialise(Node* node, char* text, size_t size) {
  const int length = mxmlSaveString(node, text, static_cast<int>(size), MXML_NO_CALLBACK);
  const size_t without_line_feed = length > 0 ? static_cast<size_t>(length) - 1 : 0;
  if (without_line_feed < size) text[without_line_feed] = '\0';
  return without_line_feed;
}

}  // namespace

void TreeDeleter::operator()(Node* tree) const {
  mxmlDelete(tree);
}

unique_tree new_root() {
  return unique_tree(mxmlNewElement(MXML_NO_PARENT, kRoot));
}

unique_tree parse_below_root(const char* text) {
  if (may_turn_into_utf16(text)) return nullptr;
  mxmlSetErrorCallback(stay_silent);
  unique_tree root(mxmlNewElement(MXML_NO_PARENT, kUnspeakable));
  if (mxmlGetElement(root.get()) == nullptr) return nullptr;
  const bool is_parsed =  // an empty text counts as an error there
      *text == '\0' || mxmlLoadString(root.get(), text, MXML_OPAQUE_CALLBACK) == root.get();
  if (!is_parsed || mxmlSetElement(root.get(), kRoot) != 0) return nullptr;
  return root;
}

bool is_declaration(Node* node) {
  const char* const name = mxmlGetElement(node);
  if (name == nullptr || mxmlGetCDATA(node) != nullptr) return false;
  return name[0] == '?' || (name[0] == '!' && strncmp(name, "!--", 3) != 0);
}

// Sections and comments are elements to Mini-XML, too.
bool is_element(Node* node) {
  const char* const name = mxmlGetElement(node);
  return name != nullptr && (name[0] != '!' || is_declaration(node));
}

bool has_name(Node* node, const char* name) {
  const char* const its_name = mxmlGetElement(node);
  return its_name != nullptr && strcmp(its_name, name) == 0;
}

Node* first_child(Node* node) {
  return mxmlGetFirstChild(node);
}

Node* next_sibling(Node* node) {
  return mxmlGetNextSibling(node);
}

Node* find_child(Node* parent, const char* name) {
  return mxmlFindElement(parent, parent, name, nullptr, nullptr, MXML_DESCEND_FIRST);
}

Node* find_next(Node* parent, Node* child, const char* name) {
  return mxmlFindElement(child, parent, name, nullptr, nullptr, MXML_NO_DESCEND);
}

// A node whose text could not be copied is one that Mini-XML would crash on.

Node* add_element(Node* parent, const char* name) {
  if (!is_element(parent)) return nullptr;
  unique_tree node(mxmlNewElement(parent, name));
  return mxmlGetElement(node.get()) != nullptr ? node.release() : nullptr;
}

bool add_cdata(Node* parent, const char* text) {
  unique_tree node(mxmlNewCDATA(MXML_NO_PARENT, text));
  if (mxmlGetElement(node.get()) == nullptr) return false;
  add_node(parent, std::move(node));
  return true;
}

Node* add_opaque(Node* parent, const char* text) {
  unique_tree node(mxmlNewOpaque(parent, text));
  return mxmlGetOpaque(node.get()) != nullptr ? node.release() : nullptr;
}

void add_node(Node* parent, unique_tree node) {
  mxmlAdd(parent, MXML_ADD_AFTER, MXML_ADD_TO_PARENT, node.release());
}

void move_children(Node* from, Node* to) {
  while (Node* const child = mxmlGetFirstChild(from)) {
    mxmlAdd(to, MXML_ADD_AFTER, MXML_ADD_TO_PARENT, child);
  }
}

void delete_children(Node* node, Node* kept) {
  for (Node* child; (child = mxmlGetFirstChild(node)) != kept;) mxmlDelete(child);
}

unique_tree detach(Node* node) {
  mxmlRemove(node);
  return unique_tree(node);
}

const char* opaque_or_cdata(Node* node) {
  return mxmlGetType(node) == MXML_OPAQUE ? mxmlGetOpaque(node) : mxmlGetCDATA(node);
}

const char* attribute(Node* node, const char* name) {
  return mxmlElementGetAttr(node, name);
}

void set_attribute(Node* node, const char* name, const char* value) {
  mxmlElementSetAttr(node, name, value);
}

bool serialise_children(Node* node, char* text) {
  text[0] = '\0';
  size_t used = 0;
  for (Node* child = first_child(node); child != nullptr; child = next_sibling(child)) {
    used += serialise(child, text + used, kLongestText + 1 - used);
    if (used > kLongestText) return false;
  }
  return true;
}

}  // namespace kt
