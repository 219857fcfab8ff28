// fuzz.h - what the fuzz targets share: inputs, files in the private camera, the judge.
//
// Every PARSER_fuzz.cpp defines LLVMFuzzerTestOneInput. libFuzzer calls it, or the
// replay program does.
#ifndef KTCOMM_FUZZ_FUZZ_H
#define KTCOMM_FUZZ_FUZZ_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <algorithm>
#include <concepts>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace kt::fuzz {

// A C string in memory of exactly its size, so that the sanitizers see a step past it.
class Text {
 public:
  explicit Text(std::string_view text) : bytes_(text.begin(), text.end()) {
    bytes_.push_back('\0'), bytes_.shrink_to_fit();
  }
  // Null for the text "\0", spelled out.
  [[nodiscard]] char* get() { return is_null() ? nullptr : bytes_.data(); }
  [[nodiscard]] bool is_null() const { return view() == "\\0"; }
  // Up to the first NUL, as C sees it.
  [[nodiscard]] std::string str() const { return bytes_.data(); }

 private:
  [[nodiscard]] std::string_view view() const { return {bytes_.data(), bytes_.size() - 1}; }
  std::vector<char> bytes_;
};

// What C sees of a text.
inline std::string up_to_nul(std::string text) { return text.resize(std::min(text.find('\0'), text.size())), text; }

// An input is text, which can be read and written by hand: a line for each argument,
// in which "\n" spelled out is a line feed, and then the document to parse.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] std::string line();
  [[nodiscard]] Text text() { return Text(line()); }
  [[nodiscard]] int number();  // the next line; 0 for other texts
  [[nodiscard]] std::string rest() const { return std::string(rest_); }

 private:
  std::string_view rest_;
};

void write_file(const char* path, std::string_view content);
[[nodiscard]] std::string read_file(const char* path);  // empty without such a file

// The lines of a text, each with its line feed; of a longer one pieces of `longest`.
[[nodiscard]] std::vector<std::string> pieces_of(std::string_view text, size_t longest = SIZE_MAX);

[[nodiscard]] bool begins_with(std::string_view text, std::string_view prefix);

// What time() says from now on, to the library too; 0 = the real time.
void set_time(time_t now);

// Ends the program, which makes the input a failed one.
[[noreturn]] void condemn(const char* what, const std::string& got, const std::string& wanted);

inline std::string shown(const std::string& text) { return text; }
std::string shown(std::integral auto number) { return std::to_string(number); }

// The judge's verdict on one result.
void expect_same(const char* what, const auto& got, const auto& wanted) {
  if (!(got == wanted)) condemn(what, shown(got), shown(wanted));
}
inline void expect(bool holds, const char* what, const std::string& about = "") {
  if (!holds) condemn(what, about, "that it holds");
}

}  // namespace kt::fuzz

#endif
