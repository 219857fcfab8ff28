// json_check.h - a strict reader of JSON.
#ifndef KTCOMM_TESTS_JSON_CHECK_H
#define KTCOMM_TESTS_JSON_CHECK_H

#include <regex>
#include <string>

namespace kt::test {

// The document without the blanks between its parts; "no JSON: ..." for any text that a
// parser might not take, and for bytes beyond ASCII.
inline std::string compact_json(const std::string& text) {
  static const std::regex kPart(
      R"re([ \n]+|("([ !#-\[\]-~]|\\["\\/bfnrt]|\\u[0-9a-f]{4})*")|(-?(0|[1-9]\d*)|true|false|null)|[\[\]{},:])re");
  static const std::regex kWhole(R"re(\[([VS](,[VS])*)?\]|\{(S:[VS](,S:[VS])*)?\})re");
  std::string compact, shape;  // a string is an S, any other value a V
  std::smatch part;
  for (auto at = text.begin(); at != text.end(); at = part[0].second) {
    if (!regex_search(at, text.end(), part, kPart, std::regex_constants::match_continuous)) return "no JSON: " + text;
    if (part[0].str()[0] == ' ' || part[0].str()[0] == '\n') continue;
    compact += part[0];
    shape += part[1].matched ? "S" : part[3].matched ? "V" : part[0].str();
  }
  while (regex_search(shape, kWhole)) shape = regex_replace(shape, kWhole, "V");
  return shape == "V" ? compact : "no JSON: " + text;
}

}  // namespace kt::test

#endif
