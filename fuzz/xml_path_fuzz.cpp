// XML documents and the paths into them.
//
// Input: mode of writing, path, text; the document.
#include <mxml.h>
#include <stdlib.h>
#include <string.h>

#include "fuzz/fuzz.h"
#include "ktcomm/net.h"

using namespace kt::fuzz;

namespace {

constexpr size_t kBuffer = 1024;

std::string serialised(mxml_node_t* tree) {
  char* const text = mxmlSaveAllocString(tree, MXML_NO_CALLBACK);
  std::string result = text != nullptr ? text : "";
  free(text);
  return result;
}

// Whether a text goes into a document and comes back as it is.
bool is_plain(const std::string& text) {
  for (const char c : text) {
    if (c < ' ' || c > '~') return false;
  }
  return !text.empty();
}

// A document that was written is read as the same document.
void judge_serialising(mxml_node_t* tree) {
  Text text(serialised(tree));
  mxml_node_t* const again = load_tree(text.get());
  if (again == nullptr) return;  // such as several nodes at the top
  expect_same("document", serialised(again), text.str());
  del_tree(again);
}

void judge_reading(mxml_node_t* tree, Text& path) {
  mxml_node_t *node = nullptr, *found = find_xml_node(tree, path.get());
  std::vector<char> text(kBuffer, '#');
  const int result = read_from_xml(tree, path.get(), &node, text.data());
  if (!path.is_null() && path.str().find('/') != 0) expect_same("result for what is no path", result, 500);
  expect(node == found && (result == 0) == (found != nullptr), "a node is found both ways");
  if (found != nullptr && mxmlGetFirstChild(found) != nullptr) {
    expect(memchr(text.data(), '\0', kBuffer) != nullptr, "the text of a node ends");
  } else {
    expect_same("text without a node", text[0], '#');
  }
  (void)xml_get_attr_value(tree, path.get(), "errno");
}

void judge_writing(mxml_node_t* tree, Text& path, Text& text, int mode) {
  const std::string before = serialised(tree);
  mxml_node_t* node = nullptr;
  const int result = write_to_xml(tree, path.get(), &node, text.get(), mode);
  if (result != 0) {
    expect_same("document after a failed write", serialised(tree), before);
    return;
  }
  // A child of the top's own name comes first once it is there.
  const bool is_clear =
      mxmlFindElement(tree, tree, mxmlGetElement(tree), nullptr, nullptr, MXML_DESCEND_FIRST) == nullptr;
  if (is_clear) expect(find_xml_node(tree, path.get()) == node, "what is written is found", path.str());
  const char* const value = xml_get_node_value(node, "/");
  if ((mode == 4 || (mode == 5 && mxmlGetFirstChild(node) == mxmlGetLastChild(node))) && is_plain(text.str()) &&
      !text.is_null()) {
    expect_same("value", std::string(value != nullptr ? value : "(none)"), text.str());
  }
  if (add_error_attribute(node, "1", "2") == 0) {
    expect_same("attribute", std::string(xml_get_attr_value(node, "/", "errstr")), std::string("2"));
  }
}

// The same in a text; only what fits comes back.
void judge_text(const std::string& document, Text& path, Text& text, int mode) {
  std::vector<char> xml(std::max(kBuffer, document.size() + 1));
  memcpy(xml.data(), document.c_str(), document.size());
  if (write_to_xmlstr(xml.data(), path.get(), text.get(), mode) != 0) {
    expect_same("text after a failed write", std::string(xml.data()), document);
    return;
  }
  mxml_node_t* node = nullptr;
  std::vector<char> content(kBuffer, '#');
  if (read_from_xmlstr(xml.data(), path.get(), &node, content.data()) == 0) del_tree(node);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int mode = input.number();
  Text path = input.text(), text = input.text(), document(input.rest());
  mxml_node_t* const tree = load_tree(document.get());
  if (tree != nullptr) {
    judge_serialising(tree);
    judge_reading(tree, path);
    judge_writing(tree, path, text, mode);
    judge_reading(tree, path);
    // Names that a path makes are not checked, nor texts at the top put between tags.
    const bool is_declaration = strchr("?!", mxmlGetElement(tree)[0]) != nullptr;
    const bool is_name = path.str().find_first_not_of("/[]0123456789abcdefghijklmnopqrstuvwxyz") == std::string::npos;
    if (!is_declaration && is_name && is_plain(text.str())) { judge_serialising(tree); }
    del_tree(tree);
  }
  judge_text(document.str(), path, text, mode);
  return 0;
}
