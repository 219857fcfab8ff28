// replace_file.h - a file that changes all at once.
#ifndef KTCOMM_TOOLS_REPLACE_FILE_H
#define KTCOMM_TOOLS_REPLACE_FILE_H

#include <string_view>

namespace kt::tools {

// Gives the file at `path`, which there is, another content: by a new one beside it
// that takes its place, permissions and owner. Returns kDone, or the exit code after
// it has said why not; the file is as it was then.
[[nodiscard]] int replace_file(const char* path, std::string_view content);

}  // namespace kt::tools

#endif
