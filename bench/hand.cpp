#include "bench/hand.h"

#include <fcntl.h>
#include <ktcomm/log.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "bench/bench.h"

namespace kt::bench {
namespace {

constexpr size_t kBlock = 4096;

// The lines of a file, a block at a time.
class Lines {
 public:
  explicit Lines(int fd) : fd_(fd) { (void)lseek(fd, 0, SEEK_SET); }

  // The next line, without its line feed; false at the end of the file.
  bool next(const char*& line, size_t& length) {
    for (;;) {
      const char* const begin = text_ + begin_;
      if (const void* const end = memchr(begin, '\n', end_ - begin_)) {
        length = static_cast<size_t>(static_cast<const char*>(end) - begin);
        line = begin;
        begin_ += length + 1;
        return true;
      }
      end_ -= begin_;
      memmove(text_, begin, end_);
      begin_ = 0;
      const ssize_t count = read(fd_, text_ + end_, kBlock);
      if (count <= 0) return false;
      end_ += static_cast<size_t>(count);
    }
  }

 private:
  const int fd_;
  size_t begin_ = 0, end_ = 0;
  char text_[2 * kBlock];
};

struct Progress {
  uint32_t sequence, file;
};

int open_trace_file(const char* module, int sub, const char* kind) {
  char path[128];
  (void)snprintf(path, sizeof path, "/tmp/debug/%s/~%d.%s", module, sub, kind);
  return open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0700);
}

void set_lock(int fd, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  (void)fcntl(fd, F_SETLKW, &lock);
}

void send_line(const char* line, size_t size) {
  const int relay = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un address = {AF_UNIX, "/tmp/debug/syslog.daemon"};
  (void)sendto(relay, line, size, MSG_DONTWAIT | MSG_NOSIGNAL,
               reinterpret_cast<struct sockaddr*>(&address), sizeof address);
  close(relay);
}

size_t write_stamp(char* line, size_t room, int level, const char* module, uint32_t sequence) {
  struct timeval now;
  (void)gettimeofday(&now, nullptr);
  const struct tm* const local = localtime(&now.tv_sec);
  return static_cast<size_t>(
      snprintf(line, room, "[%d][%s][%04d-%02d-%02d %02d:%02d:%02d %06lu][%u]", level, module,
               local->tm_year + 1900, local->tm_mon + 1, local->tm_mday, local->tm_hour,
               local->tm_min, local->tm_sec, static_cast<unsigned long>(now.tv_usec), sequence));
}

void append_to_log(const char* module, int sub, const Progress& progress, const char* line,
                   size_t size) {
  char path[128];
  (void)snprintf(path, sizeof path, "/tmp/debug/%s/%d-%u.log", module, sub, progress.file);
  const int log = open(path, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  struct stat status;
  require(fstat(log, &status) == 0 && status.st_size + static_cast<off_t>(size) <= 16384,
          "keeping the trace short");
  require(write(log, line, size) == static_cast<ssize_t>(size), "write");
  close(log);
}

}  // namespace

bool find_key(int fd, const char* section, const char* key, char* out, size_t size) {
  Lines lines(fd);
  const char* line;
  size_t length;
  const size_t section_length = strlen(section), key_length = strlen(key);
  do {
    if (!lines.next(line, length)) return false;
  } while (*line != '[' || length < section_length || memcmp(line, section, section_length) != 0);
  while (lines.next(line, length) && *line != '[') {
    const char* const end = line + length;
    while (line != end && *line == ' ') ++line;
    if (static_cast<size_t>(end - line) <= key_length || memcmp(line, key, key_length) != 0) {
      continue;
    }
    line += key_length;
    while (line != end && *line == ' ') ++line;
    if (line == end || *line++ != '=') continue;
    size_t count = static_cast<size_t>(end - line);
    while (count != 0 && line[count - 1] == '\r') --count;
    if (count >= size) count = size - 1;
    memcpy(out, line, count);
    out[count] = '\0';
    return true;
  }
  return false;
}

void trace_by_hand(int level, int module, int sub, const char* format, ...) {
  if (mod_define[module].level < level) return;
  const char* const name = mod_define[module].name;
  const int lock = open_trace_file(name, sub, "lock");
  set_lock(lock, F_WRLCK);
  const int info = open_trace_file(name, sub, "info");
  Progress progress = {};
  (void)!pread(info, &progress, sizeof progress, 0);

  char line[10240];
  size_t size = write_stamp(line, sizeof line, level, name, progress.sequence);
  va_list arguments;
  va_start(arguments, format);
  size += static_cast<size_t>(vsnprintf(line + size, sizeof line - size, format, arguments));
  va_end(arguments);

  append_to_log(name, sub, progress, line, size);
  ++progress.sequence;
  (void)!pwrite(info, &progress, sizeof progress, 0);
  close(info);
  set_lock(lock, F_UNLCK);
  close(lock);
  send_line(line, size);
}

void empty_trace(int module) {
  char path[128];
  (void)snprintf(path, sizeof path, "/tmp/debug/%s/0-0.log", mod_define[module].name);
  require(truncate(path, 0) == 0 || access(path, F_OK) != 0, "emptying a trace file");
}

void write_text(const char* path, const std::string& text) {
  FILE* const file = fopen(path, "we");
  require(file != nullptr, path);
  require(fwrite(text.data(), 1, text.size(), file) == text.size() && fclose(file) == 0, path);
}

std::string read_text(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  require(fd >= 0, path);
  std::string text;
  char block[kBlock];
  for (ssize_t count; (count = read(fd, block, sizeof block)) > 0;) {
    text.append(block, static_cast<size_t>(count));
  }
  close(fd);
  return text;
}

void install_settings() {
  shell("mkdir -p /mnt/ramdisk/env && cp /etc/def_sys.conf /mnt/ramdisk/env/system.conf");
}

void shell(const char* command) {
  require(system(command) == 0, command);
}

}  // namespace kt::bench
