// Editing settings files of others, against an editor that does literally what the
// contract says, over a list of lines.
//
// Input: operation (0 to 2 PRO_SetStr_In with that mode, 3 PRO_iSetStr, 4 PRO_SetStr,
// 5 PRO_DelSect, 6 PRO_RenSect, 7 a pass with PRO_u2sect), section, key or new section,
// value (of a pass only its length counts, as how it ends); the settings file.
#include "base/unique_file.h"
#include "fuzz/fuzz.h"
#include "fuzz/ini.h"
#include "ktcomm/config.h"

using namespace kt::fuzz;

namespace {

constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf";
enum Operation : int { kAssign, kBare, kPrefix, kAnyCase, kUnlessCurrent, kDelete, kRename, kPass, kOperations };

// With a line feed at its end.
std::string finished(const std::string& text) { return text.empty() || text.back() == '\n' ? text : text + "\n"; }

// What the lines of a file become.
class Editor {
 public:
  Editor(Operation operation, const Text& section, std::string key, const std::string& value)
      : operation_(operation),
        any_case_(operation == kAnyCase),
        section_(section),
        key_(std::move(key)),
        value_(operation == kBare ? "\n" : "=" + value + "\n") {}

  // Nothing where the edit has to fail.
  std::optional<std::string> edit(const std::string& file) {
    if (section_.is_null()) return edit_flat(file);
    const std::string header = ini_header(section_.str());
    if (header.empty()) return std::nullopt;
    const auto start = section_start(file, header);
    if (!start) return finished(file) + header + "\n" + key_ + value_;
    size_t at = *start;
    for (const std::string& line : pieces_of(std::string_view(file).substr(at), 511)) {
      const std::string before = file.substr(0, at);
      if (line[0] == '[') return finished(before) + key_ + value_ + file.substr(at);
      if (matches(line)) {
        const size_t place = line.find_first_not_of(' ');
        return before + (key_.empty() ? "" : line.substr(place, key_.size())) + value_ +
               behind_line(file, at + line.size());
      }
      at += line.size();
    }
    return finished(file) + key_ + value_;
  }

 private:
  // As ini_section, but for a line feed in the name, which stays.
  std::optional<size_t> section_start(const std::string& file, const std::string& header) const {
    size_t at = 0;
    for (const std::string& line : pieces_of(file, 511)) {
      at += line.size();
      if (line[0] == '[' && ini_begins(line, header, any_case_)) return at;
    }
    return std::nullopt;
  }

  // What follows the line that the piece before `at` is part of.
  static std::string behind_line(const std::string& file, size_t at) {
    if (file[at - 1] == '\n') return file.substr(at);
    const size_t end = file.find('\n', at);
    return end == file.npos ? "" : file.substr(end + 1);
  }

  bool matches(const std::string& line) const {
    const size_t place = std::min(line.find_first_not_of(' '), line.size());
    if (!ini_begins(line.substr(place), key_, any_case_)) return false;
    if (operation_ == kPrefix) return true;
    const size_t next = line.find_first_not_of(' ', place + key_.size());
    const char c = next < line.size() ? line[next] : '\0';
    return operation_ == kBare ? c == '\r' || c == '\n' : c == '=';
  }

  std::string edit_flat(const std::string& file) const {
    std::string edited;
    bool replaced = false, skipping = false;
    for (const std::string& line : pieces_of(file, 511)) {
      const char next = line.size() > key_.size() ? line[key_.size()] : '\0';
      const bool found = !skipping && operation_ != kPrefix && ini_begins(line, key_, any_case_) &&
                         (next == ' ' || next == (operation_ == kBare ? '\n' : '='));
      if (found) edited += line.substr(0, key_.size()) + value_;
      if (!found && !skipping) edited += line;
      replaced = replaced || found;
      skipping = (found || skipping) && line.back() != '\n';
    }
    return replaced ? edited : finished(edited) + key_ + value_;
  }

  Operation operation_;
  bool any_case_;
  const Text& section_;
  std::string key_, value_;
};

// The header and the lines below it replaced by `text`; just the header for a new one.
std::optional<std::string> replace_section(const std::string& file, const Text& section, const std::string& text,
                                           bool whole) {
  const auto start = ini_section(file, section, false);
  if (section.is_null() || !start) return std::nullopt;
  size_t header = 0, end = *start;
  for (const std::string& line : pieces_of(file.substr(0, *start), 511)) header = *start - line.size();
  for (const std::string& line : pieces_of(std::string_view(file).substr(*start), 511)) {
    if (!whole || line[0] == '[') break;
    end += line.size();
  }
  return file.substr(0, header) + text + file.substr(end);
}

struct Wanted {
  int result;
  std::string file;
};

Wanted wanted_edit(Operation operation, const Text& section, const Text& key, const Text& value,
                   const std::string& file) {
  if (operation == kDelete) return {0, replace_section(file, section, "", true).value_or(file)};
  const std::string name = key.str();
  if (operation == kRename) {
    const std::string header = ini_header(name.substr(0, name.find('\n')));
    if (key.is_null() || header.empty()) return {-1, file};
    const auto edited = replace_section(file, section, header + "\n", false);
    return {edited ? 0 : -1, edited.value_or(file)};
  }
  if (key.is_null() || (value.is_null() && operation != kBare)) return {-1, file};
  const auto edited = Editor(operation, section, name, value.str()).edit(file);
  return {edited ? 0 : -1, edited.value_or(file)};
}

// A pass with the header kept and made where missing, and "new" written behind it.
Wanted wanted_pass(const Text& section, int how, const std::string& file) {
  const std::string name = section.str(), header = ini_header(name.substr(0, name.find('\n')));
  const auto start = ini_section(file, section, false);
  if (section.is_null() || header.empty()) return {-1, file};
  std::string copied = start ? file.substr(0, *start) : finished(file) + header;
  if (!start || *start == file.size()) copied = finished(copied);
  copied += "new\n";
  size_t rest = start.value_or(file.size());
  for (const std::string& line : pieces_of(std::string_view(file).substr(rest), 511)) {
    if (how != 3 || line[0] == '[') break;
    rest += line.size();
  }
  return {start ? 0 : 1, how == 2 ? file : how == 1 || how == 3 ? copied + file.substr(rest) : copied};
}

int run_pass(Text& section, int how) {
  FILE* const out = PRO_uopen(kSettings);
  expect(out != nullptr, "a pass opens");
  const int result = PRO_u2sect(section.get(), 1);
  if (result >= 0) expect(fputs("new\n", out) >= 0, "a line is written");
  return PRO_uclose(kSettings, -1, result < 0 ? 2 : how), result;
}

int run(Operation operation, Text& section, Text& key, Text& value) {
  switch (operation) {
    case kAnyCase:
      return PRO_iSetStr(section.get(), key.get(), value.get(), kSettings);
    case kUnlessCurrent:
      return PRO_SetStr(section.get(), key.get(), value.get(), kSettings);
    case kDelete:
      return PRO_DelSect(section.get(), kSettings);
    case kRename:
      return PRO_RenSect(section.get(), key.get(), kSettings);
    default:
      return PRO_SetStr_In(section.get(), key.get(), value.get(), kSettings, operation);
  }
}

// The value that a reader finds, if any.
std::optional<std::string> value_of(Text& section, Text& key) {
  const kt::unique_file stream = kt::open_file(kSettings, "re");
  char value[512];
  if (PRO_GetStr(section.get(), key.get(), value, sizeof value - 1, stream.get()) != 0) return std::nullopt;
  return value;
}

// Whether a line of key and value is one for a reader, too.
bool is_readable(const Text& section, const std::string& key, const std::string& value) {
  return !section.is_null() && section.str().find('\n') == std::string::npos && key.find_first_of(" [") != 0 &&
         (key + value).find_first_of("\r\n") == std::string::npos && key.size() + value.size() < 400;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const auto operation = static_cast<Operation>(static_cast<unsigned>(input.number()) % kOperations);
  Text section = input.text(), key = input.text(), value = input.text();
  const std::string file = input.rest();
  write_file("/etc/def_sys.conf", "");
  write_file(kSettings, file);
  if (operation == kUnlessCurrent && value_of(section, key) == value.str() && !value.is_null()) {
    expect_same("result for the current value", run(operation, section, key, value), 0);
    expect_same("file with the current value", read_file(kSettings), file);
    return 0;
  }
  const int how = static_cast<int>(value.str().size() % 5);
  const Wanted wanted =
      operation == kPass ? wanted_pass(section, how, file) : wanted_edit(operation, section, key, value, file);
  const int result = operation == kPass ? run_pass(section, how) : run(operation, section, key, value);
  expect_same("result", result, wanted.result);
  expect_same("file", read_file(kSettings), wanted.file);
  if ((operation == kAssign || operation >= kAnyCase) && operation < kDelete && wanted.result == 0 &&
      is_readable(section, key.str(), value.str())) {
    const auto stored = operation == kAnyCase ? value.str() : value_of(section, key).value_or("(none)");
    expect_same("value read back", stored, value.str());
  }
  return 0;
}
