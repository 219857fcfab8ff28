#include "tools/xml_document.h"

#include <stdio.h>
#include <string.h>

#include "base/unique_file.h"
#include "tools/ktctl.h"
#include "tools/replace_file.h"
#include "tools/settings_input.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

constexpr char kBlanks[] = " \t\r\n";

bool is_standard(const char* path) {
  return strcmp(path, "-") == 0;
}

int does_not_parse(const char* path) {
  return fail(kRefused,
              "%s: it does not parse: one XML element is wanted, or nodes behind a <?xml ...?>",
              is_standard(path) ? "standard input" : path);
}

// All of a stream; null when it cannot be read or holds a NUL byte.
unique_malloc<char> read_text(FILE* stream) {
  char* text = nullptr;
  size_t size = 0;
  const ssize_t length = ::getdelim(&text, &size, '\0', stream);
  unique_malloc<char> owner(text);
  if (length < 1 || text[length - 1] == '\0') return nullptr;
  return owner;
}

// `text` is the document without its last line feed.
int would_write(const char* path, const char* text) {
  if (is_standard(path)) return would("print the document");
  const unique_file file = open_file(path, "re");
  if (!file.ok()) return fail_errno(path);
  const unique_malloc<char> stored = read_text(file.get());
  const size_t length = strlen(text);
  if (stored != nullptr && strncmp(stored.get(), text, length) == 0 &&
      strcmp(stored.get() + length, "\n") == 0) {
    return would_change_nothing();
  }
  return would("replace %s", path);
}

}  // namespace

bool parses_whole(const char* xml) {
  const char* const last = strrchr(xml, '>');
  if (last == nullptr || last[1 + strspn(last + 1, kBlanks)] != '\0') return false;
  // A byte that makes the parser stop, between two nodes, hides this one.
  constexpr char kEnd[] = "<ktctl-end/>";
  const size_t length = strlen(xml);
  const unique_malloc<char[]> text = allocate<char>(length + sizeof kEnd);
  if (text == nullptr) return false;
  memcpy(text.get(), xml, length);
  memcpy(text.get() + length, kEnd, sizeof kEnd);
  return read_from_xmlstr(text.get(), "/ktctl-end", nullptr, nullptr) == 0;
}

unique_malloc<char> serialise(mxml_node_t* node) {
  mxmlSetWrapMargin(0);  // attributes stay on their line
  unique_malloc<char> text(mxmlSaveAllocString(node, MXML_NO_CALLBACK));
  const size_t length = text != nullptr ? strlen(text.get()) : 0;
  if (length != 0 && text.get()[length - 1] == '\n') text.get()[length - 1] = '\0';
  return text;
}

int read_document(const char* path, Tree& tree) {
  unique_file file;
  if (!is_standard(path)) {
    const int unfit = open_settings(path, file);
    if (unfit != kDone) return unfit;
  }
  FILE* const stream = file.ok() ? file.get() : stdin;
  const unique_malloc<char> text = read_text(stream);
  if (ferror(stream) != 0) return fail_errno(path);
  if (text == nullptr || !parses_whole(text.get())) return does_not_parse(path);
  tree.reset(load_tree(text.get() + strspn(text.get(), kBlanks)));
  return tree != nullptr ? kDone : does_not_parse(path);
}

int write_document(const char* path, mxml_node_t* tree, const char* node_path, bool dry_run) {
  const unique_malloc<char> text = serialise(tree);
  if (text == nullptr) return fail(kSystemError, "out of memory");
  const Tree again(load_tree(text.get()));
  const unique_malloc<char> same = again != nullptr ? serialise(again.get()) : nullptr;
  if (same == nullptr || strcmp(same.get(), text.get()) != 0 ||
      find_xml_node(again.get(), node_path) == nullptr) {
    return fail(kRefused,
                "not written: it would not be read back: PATH holds names that no element has, "
                "or TEXT characters that no document has");
  }
  if (dry_run) return would_write(path, text.get());
  const size_t length = strlen(text.get());
  text.get()[length] = '\n';  // in place of its NUL
  if (!is_standard(path)) return replace_file(path, {text.get(), length + 1});
  (void)fwrite(text.get(), 1, length + 1, stdout);
  return kDone;
}

}  // namespace kt::tools
