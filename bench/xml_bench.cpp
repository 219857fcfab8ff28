// XML documents by path, against the same by hand on Mini-XML.
#include <ktcomm/net.h>
#include <mxml.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "bench/bench.h"

namespace kt::bench {
namespace {

using Node = mxml_node_t;

// What one of the web pages asks for: ten groups of five items.
std::string make_document() {
  std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<config>";
  for (int group = 0; group < 10; ++group) {
    text += "<group" + std::to_string(group) + ">";
    for (int item = 0; item < 5; ++item) {
      text += "<item id=\"" + std::to_string(item) + "\">value " + std::to_string(item) + "</item>";
    }
    text += "</group" + std::to_string(group) + ">";
  }
  return text + "</config>";
}

std::vector<std::string> make_paths() {
  std::vector<std::string> paths;
  for (int i = 0; i < 50; ++i) {
    paths.push_back("/config/group" + std::to_string(i / 5) + "/item[" + std::to_string(i % 5) +
                    "]");
  }
  return paths;
}

const std::string g_document = make_document();
const std::vector<std::string> g_paths = make_paths();

// Goes down a path, making what is missing where `make` says so.
Node* walk(Node* node, const char* path, bool make) {
  bool is_first = true;
  while (*path == '/') {
    const char* const name = path + 1;
    const size_t length = strcspn(name, "/[");
    char component[64];
    memcpy(component, name, length);
    component[length] = '\0';
    path = name + length;
    int index = 0;
    if (*path == '[') {
      index = static_cast<int>(strtol(path + 1, nullptr, 10));
      path += strcspn(path, "/");
    }
    Node* child = mxmlFindElement(node, node, component, nullptr, nullptr, MXML_DESCEND_FIRST);
    while (child != nullptr && index-- > 0) {
      child = mxmlFindElement(child, node, component, nullptr, nullptr, MXML_NO_DESCEND);
    }
    if (child == nullptr && is_first && strcmp(mxmlGetElement(node), component) == 0) child = node;
    if (child == nullptr && make) child = mxmlNewElement(node, component);
    if (child == nullptr) return nullptr;
    node = child;
    is_first = false;
  }
  return node;
}

void read_by_hand(Node* tree) {
  for (const std::string& path : g_paths) {
    Node* const text = mxmlGetFirstChild(walk(tree, path.c_str(), false));
    benchmark::DoNotOptimize(mxmlGetType(text) == MXML_OPAQUE ? mxmlGetOpaque(text)
                                                              : mxmlGetCDATA(text));
  }
}

void read_by_library(Node* tree) {
  for (const std::string& path : g_paths) {
    benchmark::DoNotOptimize(xml_get_node_value(tree, path.c_str()));
  }
}

// The new text is there before the old one goes, which it may come from.
void write_by_hand(Node* tree) {
  for (const std::string& path : g_paths) {
    Node* const node = walk(tree, path.c_str(), true);
    Node* const text = mxmlNewOpaque(node, "another value");
    for (Node* child; (child = mxmlGetFirstChild(node)) != text;) mxmlDelete(child);
  }
}

void write_by_library(Node* tree) {
  for (const std::string& path : g_paths) {
    require(write_to_xml(tree, path.c_str(), nullptr, "another value", 4) == 0, "write_to_xml");
  }
}

void make_by_hand() {
  Node* const tree = mxmlNewElement(MXML_NO_PARENT, "config");
  write_by_hand(tree);
  mxmlDelete(tree);
}

void make_by_library() {
  Node* const tree = mxmlNewElement(MXML_NO_PARENT, "config");
  write_by_library(tree);
  del_tree(tree);
}

// Reads a request and answers with it changed.
void answer(Node* (*load)(const char*), void (*read)(Node*), void (*write)(Node*),
            void (*free_tree)(Node*)) {
  static char text[16384];
  Node* const tree = load(g_document.c_str());
  read(tree);
  write(tree);
  require(mxmlSaveString(tree, text, sizeof text, MXML_NO_CALLBACK) > 0, "mxmlSaveString");
  free_tree(tree);
}

Node* load_by_hand(const char* text) {
  return mxmlLoadString(nullptr, text, MXML_OPAQUE_CALLBACK);
}

}  // namespace

void add_all() {
  static Node* const tree = load_tree(g_document.c_str());
  for (const std::string& path : g_paths) {
    require(xml_get_node_value(tree, path.c_str()) ==
                mxmlGetOpaque(mxmlGetFirstChild(walk(tree, path.c_str(), false))),
            "finding the same");
  }
  add(
      "XML, 50 paths read", {{Aim::kRatio, 1.05}}, [] { read_by_library(tree); },
      [] { read_by_hand(tree); });
  add(
      "XML, 50 paths written", {{Aim::kRatio, 1.05}}, [] { write_by_library(tree); },
      [] { write_by_hand(tree); });
  add("XML, 50 paths written, a new document", {{Aim::kRatio, 1.05}}, make_by_library,
      make_by_hand);
  add(
      "XML, a document parsed", {{Aim::kRatio, 1.05}},
      [] { del_tree(load_tree(g_document.c_str())); },
      [] { mxmlDelete(load_by_hand(g_document.c_str())); });
  add(
      "XML, parsed, read, written, serialised", {{Aim::kRatio, 1.05}},
      [] { answer(load_tree, read_by_library, write_by_library, del_tree); },
      [] { answer(load_by_hand, read_by_hand, write_by_hand, mxmlDelete); });
}

}  // namespace kt::bench
