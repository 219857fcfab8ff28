// The event log: an entry into a full log, reading all of it.
#include <fcntl.h>
#include <ktcomm/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "bench/bench.h"
#include "bench/hand.h"

namespace kt::bench {
namespace {

constexpr char kLog[] = "/tmp/debug/user/nc.log", kCatalogue[] = "/etc/logfile";
constexpr size_t kLimit = 16384;

int read_number(const char* path, const char* section, const char* key) {
  char text[64] = "";
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  require(find_key(fd, section, key, text, sizeof text), key);
  close(fd);
  return atoi(text);
}

// Both settings in one opening, as the library has them.
void read_filter(int& mode, int& level) {
  char text[64] = "";
  const int fd = open(kSettings, O_RDONLY | O_CLOEXEC);
  require(find_key(fd, "[LOG]", "syslog_mode", text, sizeof text), "syslog_mode");
  mode = atoi(text);
  require(find_key(fd, "[LOG]", "log_level", text, sizeof text), "log_level");
  level = atoi(text);
  close(fd);
}

// Moves the log by what the record takes and cuts it at an entry's end.
void insert(const char* record, size_t length) {
  const int fd = open(kLog, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  require(flock(fd, LOCK_EX | LOCK_NB) == 0, "flock");
  struct stat status;
  require(fstat(fd, &status) == 0, "fstat");
  size_t size = static_cast<size_t>(status.st_size);
  if (size + length > kLimit) require(access("/tmp/SYS_LOG_start_wrap", F_OK) == 0, "a full log");
  require(pwrite(fd, record, length, status.st_size) == static_cast<ssize_t>(length), "pwrite");
  char* const text =
      static_cast<char*>(mmap(nullptr, size + length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  memmove(text + length, text, size);
  size += length;
  if (size > kLimit) {
    const char* const end = static_cast<const char*>(memrchr(text, '\n', kLimit));
    require(ftruncate(fd, end - text + 1) == 0, "ftruncate");
  }
  memcpy(text, record, length);
  munmap(text, size);
  (void)flock(fd, LOCK_UN);
  close(fd);
}

void add_by_hand(const char* version) {
  int mode, level;
  read_filter(mode, level);
  char format[257], message[257], record[512];
  const int catalogue = open(kCatalogue, O_RDONLY | O_CLOEXEC);
  require(find_key(catalogue, "[SYSTEM]", "1", format, sizeof format), "the message");
  close(catalogue);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  (void)snprintf(message, sizeof message, format, version);
#pragma GCC diagnostic pop
  const int length = snprintf(record, 256, "%ld %s\n", static_cast<long>(time(nullptr)), message);
  insert(record, static_cast<size_t>(length));
  require(mode == 0, "no relay");
  trace_by_hand(8, 0, 0, "%s(%d):log message ok,{%s}\n", "AddLog", 123, record);
}

void add_by_library(const char* version) {
  require(AddLog("SYSTEM", 1, 1, version) == 0, "AddLog");
}

// Every entry rendered into a text that grows by just that.
char* read_by_hand() {
  require(read_number(kSettings, "[SYSTEM]", "date_format") == 1, "date_format");
  FILE* const log = fopen(kLog, "re");
  char *text = nullptr, line[256], rendering[512];
  size_t size = 0;
  while (fgets(line, sizeof line, log) != nullptr) {
    char* message;
    const time_t time = strtol(line, &message, 10);
    struct tm local;
    (void)localtime_r(&time, &local);
    const auto length = static_cast<size_t>(
        snprintf(rendering, sizeof rendering, "%02d/%02d/%04d %02d:%02d:%02d %s", local.tm_mon + 1,
                 local.tm_mday, local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec,
                 message + 1));
    text = static_cast<char*>(realloc(text, size + length + 1));
    memcpy(text + size, rendering, length + 1);
    size += length;
  }
  fclose(log);
  return text;
}

char* read_by_library() {
  char* text = nullptr;
  require(GetLogFromFile(&text) == 0 && text != nullptr, "GetLogFromFile");
  return text;
}

void check_equal() {
  char *const library = read_by_library(), *const hand = read_by_hand();
  require(strcmp(library, hand) == 0, "reading the same log");
  free(library);
  free(hand);
}

}  // namespace

void add_all() {
  install_settings();
  unlink(kLog);
  for (int i = 0; i < 400; ++i) {  // more than it holds
    add_by_library("1.00.00");
    empty_trace(0);
  }
  check_equal();
  add(
      "AddLog, into a full log", {{Aim::kRatio, 1.05}, 201, 32}, [] { add_by_library("1.00.00"); },
      [] { add_by_hand("1.00.00"); }, [] { empty_trace(0); });
  add(
      "GetLogFromFile, a full log", {{Aim::kRatio, 1.3}}, [] { free(read_by_library()); },
      [] { free(read_by_hand()); });
}

}  // namespace kt::bench
