// Counting the lines of a settings file and judging whether it is fit to be saved.
//
// Input: the file.
#include "fuzz/fuzz.h"
#include "ktcomm/flash.h"

using namespace kt::fuzz;

namespace {

constexpr char kFile[] = "/tmp/fuzz.conf";

int lines_of(const std::string& content) {
  int lines = 0;
  for (size_t at = 0; at < content.size() && content[at] != '\0'; ++at) {
    const int byte = static_cast<unsigned char>(content[at]);
    if (byte == '\n') ++lines;
    if (byte != '\n' && byte != '\r' && (byte < ' ' || byte > '~')) return -3;
  }
  return lines;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string content = Input(data, size).rest();
  write_file(kFile, content);
  expect_same("lines", calc_conf_line_num_and_check_ascii(kFile), lines_of(content));
  expect_same("the file stays", read_file(kFile), content);
  return 0;
}
