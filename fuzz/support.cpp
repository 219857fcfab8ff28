// Inputs, files and the judge; and doubles of what would take most of a fuzz target's
// time: the shell, for the few commands that the parsers' surroundings run, and sync().
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

#include "base/io.h"
#include "base/unique_fd.h"
#include "fuzz/fuzz.h"
#include "ktcomm/log.h"

namespace kt::fuzz {

std::string Input::line() {
  const size_t end = std::min(rest_.find('\n'), rest_.size());
  std::string line(rest_, 0, end);
  rest_.remove_prefix(std::min(end + 1, rest_.size()));
  for (size_t at = 0; (at = line.find("\\n", at)) != line.npos; ++at) line.replace(at, 2, "\n");
  return line;
}

int Input::number() {
  const long number = strtol(line().c_str(), nullptr, 10);
  return static_cast<int>(number) == number ? static_cast<int>(number) : 0;
}

void write_file(const char* path, std::string_view content) {
  unique_fd file = open_fd(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  expect(file.ok() && write_fully(file.get(), content.data(), content.size()), "a file is written", path);
}

std::string read_file(const char* path) {
  const unique_fd file = open_fd(path, O_RDONLY);
  struct stat status = {};
  if (!file.ok() || fstat(file.get(), &status) != 0) return "";
  std::string content(static_cast<size_t>(status.st_size), '\0');
  expect_same(path, read_fully(file.get(), content.data(), content.size()), status.st_size);
  return content;
}

std::vector<std::string> pieces_of(std::string_view text, size_t longest) {
  std::vector<std::string> pieces;
  while (!text.empty()) {
    const size_t line = std::min(text.find('\n'), text.size() - 1) + 1;
    pieces.emplace_back(text, 0, std::min(line, longest));
    text.remove_prefix(pieces.back().size());
  }
  return pieces;
}

bool begins_with(std::string_view text, std::string_view prefix) { return text.compare(0, prefix.size(), prefix) == 0; }

void condemn(const char* what, const std::string& got, const std::string& wanted) {
  const auto ends = std::mismatch(got.begin(), got.end(), wanted.begin(), wanted.end());
  fprintf(stderr, "judge: %s: they differ from character %td on\n---- got ----\n%s\n---- wanted ----\n%s\n----\n", what,
          ends.first - got.begin(), got.c_str(), wanted.c_str());
  abort();
}

namespace {

constexpr char kDirectory[] = "/mnt/ramdisk/env", kSettings[] = "/mnt/ramdisk/env/system.conf";

time_t g_now = 0;

// Traces would fill the memory and wait for the debug daemon.
const bool g_ready = [] {
  for (mod_define_entry& module : mod_define) module.level = 0;
  mkdir(kDirectory, 0777);
  return true;
}();

void copy_file(const std::string& from, const std::string& to) { write_file(to.c_str(), read_file(from.c_str())); }

// An archive of the settings is the settings themselves.
void tar(const std::string& letters, const std::string& archive) {
  if (letters != "zxf") return copy_file(kSettings, "/mnt/ramdisk/" + archive);
  mkdir(kDirectory, 0777);
  copy_file(archive, kSettings);
}

void remove(const std::string& path) {
  if (path == kDirectory) {
    unlink(kSettings);
  } else {
    unlink(path.c_str());
  }
}

}  // namespace

void set_time(time_t now) { g_now = now; }

}  // namespace kt::fuzz

using namespace kt::fuzz;

extern "C" int system(const char* command) {
  std::vector<std::string> words;
  for (std::string_view rest = command; !rest.empty() && rest[0] != '>';) {
    const size_t end = std::min(rest.find(' '), rest.size());
    if (end != 0) words.emplace_back(rest, 0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  const std::string& last = words.back();
  if (words[0] == "/bin/cp") copy_file(words[2], words[3]);
  if (words[0] == "/bin/chmod") return chmod(last.c_str(), static_cast<mode_t>(strtoul(words[1].c_str(), nullptr, 8)));
  if (words[0] == "/bin/rm") kt::fuzz::remove(last);
  if (words[0] == "/bin/touch") write_file(last.c_str(), "");
  if (words[0] == "/bin/mkdir") mkdir(last.c_str(), 0777);
  if (words[0] == "cd") tar(words[3], words[4]);
  return 0;
}

extern "C" void sync() {}

extern "C" time_t time(time_t* result) noexcept {
  struct timeval real = {};
  if (g_now == 0) gettimeofday(&real, nullptr);
  const time_t now = g_now != 0 ? g_now : real.tv_sec;
  if (result != nullptr) *result = now;
  return now;
}
