// xml_document.h - whole XML documents, out of files and back into them.
#ifndef KTCOMM_TOOLS_XML_DOCUMENT_H
#define KTCOMM_TOOLS_XML_DOCUMENT_H

#include <ktcomm/net.h>
#include <mxml.h>

#include <memory>

#include "base/unique_malloc.h"

namespace kt::tools {

struct TreeDeleter {
  void operator()(mxml_node_t* tree) const { del_tree(tree); }
};
using Tree = std::unique_ptr<mxml_node_t, TreeDeleter>;

// Each returns kDone, or the exit code after it has said what is wrong. A path of
// "-" is standard input, and standard output.

// Refuses documents of which a part would be lost.
[[nodiscard]] int read_document(const char* path, Tree& tree);

// Refuses a tree that would not be read back as it is, with the node `node_path`.
// The file is replaced at once or not at all; in a dry run it is only said.
[[nodiscard]] int write_document(const char* path, mxml_node_t* tree, const char* node_path,
                                 bool dry_run);

// A node as XML without the line feed that goes behind it, null when memory runs out.
[[nodiscard]] unique_malloc<char> serialise(mxml_node_t* node);

// Whether XML parses up to its end, so that nothing of it would be left out.
[[nodiscard]] bool parses_whole(const char* xml);

}  // namespace kt::tools

#endif
