// taken_trace.h - what the library traced for settings and flash work.
#ifndef KTCOMM_TESTS_TAKEN_TRACE_H
#define KTCOMM_TESTS_TAKEN_TRACE_H

#include <regex>

#include "tests/support.h"

namespace kt::test {

// The lines traced since the last call, each as its level, a blank and the
// message, with "()" for "(line number)".
inline std::string take_trace() {
  std::string lines;
  for (const std::string& name : files_in("/tmp/debug/cgi", "0-")) {
    const std::string path = "/tmp/debug/cgi/" + name;
    lines += std::regex_replace(read_file(path), std::regex("\\[(.)\\](\\[[^\\]\\n]*\\]){3}"), "$1 ");
    unlink(path.c_str());
  }
  return std::regex_replace(lines, std::regex("\\(\\d+\\)"), "()");
}

}  // namespace kt::test

#endif
