#include "flash/settings_check.h"

#include <stdio.h>

#include "base/unique_file.h"
#include "ktcomm/flash.h"

namespace kt {
namespace {

enum CountResult : int { kNoName = -1, kNotReadable = -2, kBadByte = -3 };

// The number of line feeds, kNotReadable or kBadByte.
[[nodiscard]] int count_lines(const char* path) {
  const unique_file file = open_file(path, "re");
  if (!file.ok()) return kNotReadable;
  int lines = 0;
  int c;
  while ((c = getc_unlocked(file.get())) != EOF && c != '\0') {
    if (c == '\n') {
      ++lines;
    } else if (c != '\r' && (c < 32 || c > 126)) {
      return kBadByte;
    }
  }
  return ferror(file.get()) != 0 ? kNotReadable : lines;
}

}  // namespace

bool valid_chk_conf_file(const char* path) {
  return count_lines(path) >= 0;
}

}  // namespace kt

using namespace kt;

int calc_conf_line_num_and_check_ascii(const char* path) {
  if (path == nullptr) {
    (void)printf("File name is NULL\n");
    return kNoName;
  }
  const int lines = count_lines(path);
  if (lines == kNotReadable) (void)printf("Fail to open file\n");
  return lines;
}
