// Settings: looking keys up, setting one.
#include <fcntl.h>
#include <ktcomm/config.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "bench/bench.h"
#include "bench/hand.h"

namespace kt::bench {
namespace {

// A section of 23 keys on lines 332 to 355 of the factory defaults.
constexpr char kSection[] = "EVENT", kHeader[] = "[EVENT]";
constexpr char kTitle[] = "title", kSystem[] = "[SYSTEM]";

// The keys of that section, 22 of them.
std::vector<std::string> keys_of_section() {
  std::vector<std::string> keys;
  FILE* const file = fopen(kSettings, "re");
  char line[512];
  bool inside = false;
  while (fgets(line, sizeof line, file) != nullptr && keys.size() < 22) {
    if (*line == '[') {
      inside = strncmp(line, kHeader, sizeof kHeader - 1) == 0;
    } else if (inside) {
      keys.emplace_back(line, strcspn(line, "="));
    }
  }
  fclose(file);
  require(keys.size() == 22, "finding 22 keys");
  return keys;
}

// Line by line from the start of the file, as one would write it first.
bool scan_lines(FILE* file, const char* key, char* out, size_t size) {
  char line[512];
  const size_t key_length = strlen(key);
  rewind(file);
  do {
    if (fgets(line, sizeof line, file) == nullptr) return false;
  } while (strncmp(line, kHeader, sizeof kHeader - 1) != 0);
  while (fgets(line, sizeof line, file) != nullptr && *line != '[') {
    const char* text = line + strspn(line, " ");
    if (strncmp(text, key, key_length) != 0) continue;
    text += key_length;
    text += strspn(text, " ");
    if (*text != '=') continue;
    ++text;
    (void)snprintf(out, size, "%.*s", static_cast<int>(strcspn(text, "\r\n")), text);
    return true;
  }
  return false;
}

void add_lookups() {
  const std::vector<std::string> keys = keys_of_section();
  static FILE* const file = fopen(kSettings, "re");
  const auto library = [keys] {
    char value[256];
    for (const std::string& key : keys) {
      require(PRO_GetStr(kSection, key.c_str(), value, sizeof value - 1, file) == 0, "PRO_GetStr");
    }
  };
  const auto lines = [keys] {
    char value[256];
    for (const std::string& key : keys) {
      require(scan_lines(file, key.c_str(), value, sizeof value), "the scan");
    }
  };
  add("22 keys of a late section / a scan by line for each", {{Aim::kRatio, 0.4}}, library, lines);
}

bool is_current(const char* value) {
  const int fd = open(kSettings, O_RDONLY | O_CLOEXEC);
  char current[512];
  const bool found = find_key(fd, kSystem, kTitle, current, sizeof current);
  close(fd);
  return found && strcmp(current, value) == 0;
}

// The whole file with the one line replaced; the settings of a camera fit the buffer.
void write_changed(int out, const char* value) {
  static char text[65536];
  const int in = open(kSettings, O_RDONLY | O_CLOEXEC);
  size_t size = 0;
  for (ssize_t count; (count = read(in, text + size, 4096)) > 0;)
    size += static_cast<size_t>(count);
  close(in);
  const char* const line = strstr(text, "\ntitle=") + 1;
  const char* const rest = strchr(line, '\n');
  char changed[512];
  const int length = snprintf(changed, sizeof changed, "title=%s", value);
  const auto left = static_cast<size_t>(text + size - rest);
  require(write(out, text, static_cast<size_t>(line - text)) > 0 &&
              write(out, changed, static_cast<size_t>(length)) == length &&
              write(out, rest, left) == static_cast<ssize_t>(left),
          "write");
}

void set_by_hand(const char* value) {
  if (is_current(value)) return;
  const int lock = open("/tmp/cgi_locker.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  (void)flock(lock, LOCK_EX);
  char copy[] = "/tmp/tXXXXXX", command[128];
  close(mkostemp(copy, O_CLOEXEC));
  const int out = open(copy, O_WRONLY | O_TRUNC | O_CLOEXEC);
  write_changed(out, value);
  close(out);
  (void)snprintf(command, sizeof command, "/bin/cp -f %s %s > /dev/null 2> /dev/null", copy,
                 kSettings);
  shell(command);
  sync();
  unlink(copy);
  (void)flock(lock, LOCK_UN);
  close(lock);
}

void set_by_library(const char* value) {
  require(PRO_SetStr("SYSTEM", kTitle, value, kSettings) == 0, "PRO_SetStr");
}

// Each call sets another value than the one before it.
auto alternating(void (*set)(const char*)) {
  return [set] {
    static bool odd = false;
    set((odd = !odd) ? "Garage door" : "Front door");
  };
}

}  // namespace

void add_all() {
  install_settings();
  add_lookups();
  const Plan changed = {{Aim::kRatio, 1.03}, 61, 4, Clock::kWithChildren};
  add("PRO_SetStr, changed", changed, alternating(set_by_library), alternating(set_by_hand));
  // A value of its own that the benchmark before does not set.
  set_by_library("Kitchen");
  add(
      "PRO_SetStr, unchanged", {{Aim::kRatio, 1.2}}, [] { set_by_library("Kitchen"); },
      [] { set_by_hand("Kitchen"); }, [] { set_by_library("Kitchen"); });
}

}  // namespace kt::bench
