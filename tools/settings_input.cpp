#include "tools/settings_input.h"

#include <string.h>
#include <sys/stat.h>

#include <optional>

#include "tools/ktctl.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

struct BadByte {
  size_t place;  // from 1
  unsigned char value;
};

[[nodiscard]] std::optional<BadByte> find_bad_byte(std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (!is_printable(text[i])) return BadByte{i + 1, static_cast<unsigned char>(text[i])};
  }
  return std::nullopt;
}

// Whether `text`, the `part` of an assignment, holds bytes that can be saved only.
[[nodiscard]] bool check_bytes(const char* where, const char* part, const char* text) {
  const auto bad = find_bad_byte(text);
  if (!bad) return true;
  (void)fail(kRefused, "%s: the %s holds byte 0x%02x at place %zu, which no save would store",
             where, part, bad->value, bad->place);
  return false;
}

[[nodiscard]] bool refuse(const char* where, const char* why) {
  (void)fail(kRefused, "%s: %s", where, why);
  return false;
}

}  // namespace

Section::Section(std::string_view argument) {
  if (argument.size() >= 2 && argument.front() == '[' && argument.back() == ']') {
    argument.remove_prefix(1);
    argument.remove_suffix(1);
  }
  name_.append(argument);
}

int open_settings(const char* path, unique_file& file) {
  struct stat status;
  if (::stat(path, &status) != 0) return fail_errno(path);
  if (!S_ISREG(status.st_mode)) return fail(kRefused, "%s: no regular file", path);
  file = open_file(path, "re");
  return file.ok() ? kDone : fail_errno(path);
}

int read_settings(const char* path, Text& text) {
  SettingsLock lock;
  lock.try_for_a_moment();
  unique_file file;
  const int unfit = open_settings(path, file);
  if (unfit != kDone) return unfit;
  return text.read(file.get()) ? kDone : fail_errno(path);
}

bool check_section(const char* file, const Section& section) {
  StringBuffer<1200> where;
  where.append_format("%s: [%s]", file, section.text());
  if (section.empty()) return refuse(where.c_str(), "a section needs a name");
  if (section.over_long()) {
    return refuse(where.c_str(), "a section's name has at most 61 characters");
  }
  if (strpbrk(section.text(), "[]") != nullptr) {
    return refuse(where.c_str(), "a section's name holds no brackets");
  }
  return check_bytes(where.c_str(), "section", section.text());
}

bool check_assignment(const char* file, const Section& section, const char* key,
                      const char* value) {
  if (!check_section(file, section)) return false;
  StringBuffer<1800> where;
  where.append_format("%s: [%s] %s", file, section.text(), key);
  if (key[0] == '\0') return refuse(where.c_str(), "a key has at least one character");
  if (key[0] == '[') return refuse(where.c_str(), "a key that begins with [ is a section");
  if (strpbrk(key, "= ") != nullptr) return refuse(where.c_str(), "a key holds no = and no blank");
  if (!check_bytes(where.c_str(), "key", key) || !check_bytes(where.c_str(), "value", value)) {
    return false;
  }
  const size_t length = strlen(key) + strlen("=") + strlen(value) + strlen("\n");
  if (length <= kLongestLine) return true;
  (void)fail(kRefused, "%s: the line has %zu characters with its line feed, %zu fit", where.c_str(),
             length, kLongestLine);
  return false;
}

bool check_value(const char* where, const char* value) {
  return check_bytes(where, "value", value);
}

bool check_path(const char* path) {
  constexpr char kHarmless[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:=@%";
  const size_t length = strlen(path);
  if (length != 0 && length <= kLongestPath && path[0] != '-' &&
      strspn(path, kHarmless) == length) {
    return true;
  }
  return refuse(path,
                "the path of a file to be written is made of letters, digits and /._-+,:=@%, "
                "does not begin with - and has at most 1023 characters");
}

}  // namespace kt::tools
