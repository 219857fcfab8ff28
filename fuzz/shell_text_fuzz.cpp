// Texts made fit for the shell and for markup, with the shell itself as the judge.
//
// Input: size of the buffer; the text.
#include <stdio.h>
#include <stdlib.h>

#include "base/io.h"
#include "fuzz/fuzz.h"
#include "ktcomm/util_process.h"

using namespace kt::fuzz;

namespace {

// What the shell prints for the arguments, each with a line feed behind it.
std::string printed(const std::string& arguments) {
  const std::string command = "exec printf '%s\\n' " + arguments;
  FILE* const shell = popen(command.c_str(), "re");
  std::string output(2 * arguments.size() + 2, '\0');
  output.resize(static_cast<size_t>(kt::read_fully(fileno(shell), output.data(), output.size())));
  expect_same(command.c_str(), pclose(shell), 0);
  return output;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size()) text.replace(at, what.size(), by);
  return text;
}

// The text as one quoted word; empty when there is none.
std::string judge_word(const std::string& text, size_t size) {
  std::vector<char> out(3 * text.size() + 3, '#'), small(size, '#');
  const int length = static_cast<int>(text.size());
  char* const word = shell_cmd_paras_convert(text.data(), length, out.data(), static_cast<int>(out.size()));
  expect_same("a word is made", word != nullptr, !text.empty() && text.size() <= 519);
  if (word == nullptr) return "";
  std::string whole = word;
  expect(shell_cmd_paras_convert(text.data(), length, small.data(), static_cast<int>(size)) != nullptr, "cut word");
  expect_same("word cut to its buffer", std::string(small.data()), whole.substr(0, size - 1));

  std::vector<char> in_place(3 * text.size() + 3, '#');
  text.copy(in_place.data(), text.size());
  (void)shell_cmd_paras_convert(in_place.data(), length, in_place.data(), static_cast<int>(in_place.size()));
  expect_same("word made in place", std::string(in_place.data()), whole);
  return whole;
}

// The text escaped, where that makes it one word for the shell; else empty.
std::string judge_escaped(const std::string& text) {
  char* escaped = nullptr;
  expect_same("result of escaping", escape_sequence(text.c_str(), &escaped), 0);
  const std::string result = escaped;
  free(escaped);
  const bool background = !text.empty() && text.back() == '&';
  std::string rest = result;
  for (const char* const special : {";", "|", "&"}) rest = replaced(rest, std::string("\\") + special, special);
  expect_same("text with the escapes taken out", replaced(rest, "\\\\", "\\"), text);
  return background || text.empty() || text.find_first_of(" \t\n$`\"'<>()*?[]#~!{}=^") != text.npos ? "" : result;
}

void judge_quotes(const std::string& text, size_t size) {
  std::vector<char> out(size, '#');
  expect_same("result of tx_quot", tx_quot(out.data(), text.c_str(), static_cast<int>(size)), 0);
  std::string wanted;
  for (const char c : text) {
    const std::string unit = c == '"' ? "&quot;" : std::string(1, c);
    if (wanted.size() + unit.size() >= size) break;
    wanted += unit;
  }
  wanted.resize(size, '\0');
  expect_same("text with quotes", std::string(out.begin(), out.end()), wanted);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const size_t limit = static_cast<unsigned>(input.number()) % 1000 + 1;
  const std::string text = up_to_nul(input.rest());
  judge_quotes(text, limit);
  const std::string word = judge_word(text, limit), escaped = judge_escaped(text);
  std::string wanted;
  if (!word.empty()) wanted += text + "\n";
  if (!escaped.empty()) wanted += text + "\n";
  if (!wanted.empty()) expect_same("what the shell makes of it", printed(word + " " + escaped), wanted);
  return 0;
}
