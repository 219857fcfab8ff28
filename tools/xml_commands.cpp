// xml_commands.cpp - look into XML documents and change them.
#include <ktcomm/net.h>
#include <stdio.h>
#include <string.h>

#include "base/unique_file.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/printer.h"
#include "tools/xml_document.h"

namespace kt::tools {
namespace {

enum Mode : int { kAddXml = 1, kReplaceXml = 2, kAddText = 3, kReplaceText = 4, kAddCdata = 5 };
enum : int { kBadRequest = 1, kNoNode = 2 };

int bad_path(const char* path) {
  return fail(kRefused, "PATH: %s: /NAME[INDEX]/... is wanted, INDEX counted from 0", path);
}

// Reads the document and finds the node in it. Returns kDone, or the exit code
// after it has said why not.
int find_node(const char* file, const char* path, Tree& tree, mxml_node_t*& node) {
  const int unread = read_document(file, tree);
  if (unread != kDone) return unread;
  switch (read_from_xml(tree.get(), path, &node, nullptr)) {
    case 0:
      return kDone;
    case kNoNode:
      return fail(kNotFound, "%s: %s: not found", file, path);
    default:
      return bad_path(path);
  }
}

// Null for a node that is no text.
const char* text_of(mxml_node_t* node) {
  return mxmlGetType(node) == MXML_OPAQUE ? mxmlGetOpaque(node) : mxmlGetCDATA(node);
}

bool holds_texts_only(mxml_node_t* node) {
  mxml_node_t* child = mxmlGetFirstChild(node);
  while (child != nullptr && text_of(child) != nullptr) child = mxmlGetNextSibling(child);
  return child == nullptr;
}

[[nodiscard]] bool write_content(mxml_node_t* node, FILE* out) {
  const bool texts = holds_texts_only(node);
  mxml_node_t* child = mxmlGetFirstChild(node);
  for (; child != nullptr; child = mxmlGetNextSibling(child)) {
    const unique_malloc<char> xml = texts ? nullptr : serialise(child);
    const char* const text = texts ? text_of(child) : xml.get();
    if (text == nullptr) return false;
    (void)fputs(text, out);
  }
  return true;
}

void print_value(const Request& request, const char* value) {
  Printer printer(request);
  if (printer.plain()) {
    (void)puts(value);
  } else {
    printer.text("value", value);
  }
}

int print_content(const Request& request, mxml_node_t* node) {
  char* text = nullptr;
  size_t length = 0;
  unique_file memory(::open_memstream(&text, &length));
  const bool complete =
      memory.ok() && write_content(node, memory.get()) && memory.close() && text != nullptr;
  memory.reset();  // which gives `text` its place when something failed before
  const unique_malloc<char> owner(text);
  if (!complete) return fail(kSystemError, "out of memory");
  print_value(request, text);
  return kDone;
}

int mode_of(const Request& request) {
  const bool adds = request.has(Option::kAdd);
  if (request.has(Option::kCdata)) return kAddCdata;
  if (request.has(Option::kXml)) return adds ? kAddXml : kReplaceXml;
  return adds ? kAddText : kReplaceText;
}

// Sections are only ever added: in their place an empty text comes first.
int write_node(mxml_node_t* tree, const char* path, const char* text, int mode, bool adds) {
  const int cleared =
      mode == kAddCdata && !adds ? write_to_xml(tree, path, nullptr, "", kReplaceText) : 0;
  return cleared != 0 ? cleared : write_to_xml(tree, path, nullptr, text, mode);
}

// Whether markup would go into a document whole.
bool is_markup(const char* text) {
  return strchr(text, '<') == nullptr || parses_whole(text);
}

}  // namespace

int get_xml(const Request& request) {
  Tree tree;
  mxml_node_t* node = nullptr;
  const int code = find_node(request.arguments[0], request.arguments[1], tree, node);
  return code == kDone ? print_content(request, node) : code;
}

int get_xml_attribute(const Request& request) {
  const char* const file = request.arguments[0];
  const char* const path = request.arguments[1];
  const char* const name = request.arguments[2];
  Tree tree;
  mxml_node_t* node = nullptr;
  const int code = find_node(file, path, tree, node);
  if (code != kDone) return code;
  const char* const value = xml_get_attr_value(tree.get(), path, name);
  if (value == nullptr) return fail(kNotFound, "%s: %s: %s: no such attribute", file, path, name);
  print_value(request, value);
  return kDone;
}

int set_xml(const Request& request) {
  const char* const file = request.arguments[0];
  const char* const path = request.arguments[1];
  const char* const text = request.arguments[2];
  if (request.has(Option::kXml) && request.has(Option::kCdata)) {
    return fail(kUsage, "--xml and --cdata exclude each other");
  }
  Tree tree;
  const int unread = read_document(file, tree);
  if (unread != kDone) return unread;
  const int mode = mode_of(request);
  if (request.has(Option::kXml) && !is_markup(text)) return fail(kRefused, "TEXT does not parse");
  switch (write_node(tree.get(), path, text, mode, request.has(Option::kAdd))) {
    case 0:
      return write_document(file, tree.get(), path, request.dry_run());
    case kBadRequest:
      return bad_path(path);
    case kNoNode:
      return fail(kRefused, "PATH: %s: the index leaves a gap", path);
    default:
      return fail(kRefused, "PATH: %s: no element, or TEXT does not parse", path);
  }
}

}  // namespace kt::tools
