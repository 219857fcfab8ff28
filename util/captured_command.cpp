#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/io.h"
#include "base/unique_fd.h"
#include "base/unique_malloc.h"
#include "ktcomm/util_process.h"

namespace kt {
namespace {

constexpr size_t kChunk = 99;

// Moves a pipe's end away from the standard descriptors, where it comes to lie
// in a program that was started without them: in the child one end could then
// overwrite the other, or stay in place and be closed by the exec.
[[nodiscard]] bool move_above_standard(unique_fd& fd) {
  if (fd.get() <= STDERR_FILENO) {
    fd.reset(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  }
  return fd.ok();
}

// One standard stream of a command, on its way into a text. Without a text
// nothing is captured and every call is content.
class Capture {
 public:
  explicit Capture(cf_string* text) : text_(text) {}

  [[nodiscard]] bool open() {
    if (text_ == nullptr) return true;
    (void)cf_string_safe_cp(text_, "");  // without memory it stays as it was
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    read_end_.reset(ends[0]);
    write_end_.reset(ends[1]);
    return move_above_standard(read_end_) && move_above_standard(write_end_);
  }

  // In the child.
  [[nodiscard]] bool redirect(int standard_fd) {
    if (text_ == nullptr) return true;
    read_end_.reset();
    return retry_eintr([&] { return dup2(write_end_.get(), standard_fd); }) != -1;
  }

  // In the parent, which would never see the end of the stream otherwise.
  void close_write_end() { write_end_.reset(); }

  void read_to_end() {
    if (text_ == nullptr) return;
    char chunk[kChunk + 1] = {};
    for (;;) {
      const ssize_t count = retry_eintr([&] { return read(read_end_.get(), chunk, kChunk); });
      if (count <= 0) return;
      // Without memory the rest is read all the same: the child must get rid of it.
      (void)cf_string_safe_cat_n(text_, chunk, static_cast<unsigned>(count));
    }
  }

 private:
  cf_string* text_;
  unique_fd read_end_;
  unique_fd write_end_;
};

[[noreturn]] void execute(char* const argv[], Capture& out, Capture& err) {
  if (out.redirect(STDOUT_FILENO) && err.redirect(STDERR_FILENO)) (void)execvp(argv[0], argv);
  _exit(errno);
}

int exit_status(pid_t child) {
  int status = 0;
  // A status that the caller's SIGCHLD handling has taken away counts as success.
  if (retry_eintr([&] { return waitpid(child, &status, 0); }) == -1) return 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The program, its arguments and the null that ends both; null without memory.
unique_malloc<char* []> argument_vector(const char* program, va_list arguments) {
  va_list counted;
  va_copy(counted, arguments);
  size_t count = 1;
  while (va_arg(counted, char*) != nullptr) ++count;
  va_end(counted);

  unique_malloc<char*[]> argv = allocate<char*>(count + 1);
  if (argv == nullptr) return nullptr;
  argv[0] = const_cast<char*>(program);
  for (size_t i = 1; i <= count; ++i) argv[i] = va_arg(arguments, char*);
  return argv;
}

}  // namespace
}  // namespace kt

int cf_system(char* const argv[], cf_string* out, cf_string* err) {
  if (argv == nullptr || argv[0] == nullptr) return -1;
  kt::Capture output(out);
  kt::Capture errors(err);
  if (!output.open() || !errors.open()) return -1;

  const pid_t child = fork();
  if (child == -1) {
    perror("fork failed\n");
    return -1;
  }
  if (child == 0) kt::execute(argv, output, errors);

  output.close_write_end();
  errors.close_write_end();
  output.read_to_end();
  errors.read_to_end();
  return kt::exit_status(child);
}

int CFSystem2(cf_string* out, cf_string* err, const char* program, ...) {
  if (program == nullptr) return -1;
  va_list arguments;
  va_start(arguments, program);
  const kt::unique_malloc<char*[]> argv = kt::argument_vector(program, arguments);
  va_end(arguments);
  return argv == nullptr ? -1 : cf_system(argv.get(), out, err);
}
