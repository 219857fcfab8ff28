#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>
#include <utility>

#include "base/unique_malloc.h"
#include "net/xml_mini.h"

constinit struct _mxml_node_s* request_tree = nullptr;

namespace kt {
namespace {

constexpr size_t kLongestBody = 20480;

// The announced length of the request body; 0 for none that is acceptable.
size_t body_length() {
  const char* const text = getenv("CONTENT_LENGTH");
  if (text == nullptr) return 0;
  const char* const end = text + strlen(text);
  size_t length = 0;
  const auto [rest, error] = std::from_chars(text, end, length);
  const bool is_number = error == std::errc() && rest == end;
  return is_number && length <= kLongestBody ? length : 0;
}

// The next character of the body; EOF at its end. A signal does not end it.
int next_character() {
  int c = getc_unlocked(stdin);
  while (c == EOF && ferror(stdin) != 0 && errno == EINTR) {
    clearerr(stdin);
    c = getc_unlocked(stdin);
  }
  return c;
}

// Reads no byte more than `length`, so that what follows is still there for others.
bool read_body(char* body, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    const int c = next_character();
    if (c == EOF) return false;
    body[i] = static_cast<char>(c);
  }
  body[length] = '\0';
  return true;
}

// The one tree that the nodes below `root` make, taken out of there: null when there
// are none, or several and no declaration comes first.
unique_tree take_top(unique_tree root) {
  unique_tree top = detach(first_child(root.get()));
  if (is_declaration(top.get())) move_children(root.get(), top.get());
  if (first_child(root.get()) != nullptr) return nullptr;
  return top;
}

}  // namespace
}  // namespace kt

using namespace kt;

// Parsed below a root, unlike without one, Mini-XML refuses a document that is cut
// short and gives back all memory of one that is malformed.
Node* load_tree(const char* text) {
  if (text == nullptr) return nullptr;
  unique_tree root = parse_below_root(text);
  if (root == nullptr) return nullptr;
  return take_top(std::move(root)).release();
}

Node* load_tree_from_stdin() {
  const size_t length = body_length();
  if (length == 0) return nullptr;
  const unique_malloc<char[]> body = allocate<char>(length + 2);
  if (body == nullptr || !read_body(body.get(), length)) return nullptr;
  return load_tree(body.get());
}

void del_tree(Node* node) {
  TreeDeleter()(node);
}
