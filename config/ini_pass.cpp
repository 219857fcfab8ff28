#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "base/shell.h"
#include "base/temp_file.h"
#include "config/ini_line.h"
#include "ktcomm/config.h"

constinit FILE* ifp = nullptr;

namespace kt {
namespace {

// The one rewrite pass of the process; its input is `ifp`.
struct Pass {
  FILE* out;
  char copy[kTempPathSize];
};
constinit Pass g_pass = {};

enum Closing { kCopyRest = 1, kGiveUp = 2, kSkipSection = 3 };

[[nodiscard]] bool write_text(std::string_view text) {
  return fwrite(text.data(), 1, text.size(), g_pass.out) == text.size();
}

[[nodiscard]] bool copy_rest() {
  IniLine line;
  while (line.read(ifp)) {
    if (!write_text(line.view())) return false;
  }
  return ferror(ifp) == 0;
}

[[nodiscard]] bool skip_section() {
  IniLine line;
  while (line.read(ifp)) {
    if (line.is_header()) return write_text(line.view());
  }
  return true;
}

// Closes both streams; false when something written was lost.
[[nodiscard]] bool close_streams() {
  unique_file in(ifp);
  unique_file out(g_pass.out);
  ifp = nullptr;
  g_pass.out = nullptr;
  return out.ok() && out.close();
}

void delete_copy() {
  if (g_pass.copy[0] != '\0') (void)::unlink(g_pass.copy);  // gone is what it shall be
  g_pass.copy[0] = '\0';
}

void give_up() {
  (void)close_streams();  // nothing of it is kept
  delete_copy();
}

// Puts the copy in place; false when something written to it was lost.
[[nodiscard]] bool commit(const char* path, int file_mode) {
  const bool whole = close_streams();
  if (whole) {
    (void)run_shell("/bin/cp -f %s %s > /dev/null 2> /dev/null", g_pass.copy, path);
    ::sync();
  }
  delete_copy();
  if (whole && file_mode != -1) {
    (void)run_shell("/bin/chmod %d %s > /dev/null 2> /dev/null", file_mode, path);
  }
  return whole;
}

// Ends the pass; true when its copy was put in place.
bool end_pass(const char* path, int file_mode, int how) {
  const bool open = ifp != nullptr && g_pass.out != nullptr && path != nullptr;
  if (open && how != kGiveUp && (how != kSkipSection || skip_section()) &&
      ((how != kCopyRest && how != kSkipSection) || copy_rest())) {
    return commit(path, file_mode);
  }
  give_up();
  return false;
}

// True when nothing is left to read.
[[nodiscard]] bool is_at_end(FILE* stream) {
  const int next = fgetc(stream);
  return next == EOF || ungetc(next, stream) == EOF;
}

// Copies up to the header of `header`; 0 found, 1 not found, -1 error.
int copy_to_header(const SectionHeader& header, bool append) {
  IniLine line;
  bool complete = true;
  while (line.read(ifp)) {
    const bool found = header.matches(line.view(), LetterCase::kExact);
    if ((!found || append) && !write_text(line.view())) return -1;
    // A header that ends the file without a line feed gets one, like any last line.
    if (found && append && !line.is_complete() && is_at_end(ifp) && !write_text("\n")) return -1;
    if (found) return 0;
    complete = line.is_complete();
  }
  if (ferror(ifp) != 0) return -1;
  if (!append) return 1;
  return (complete || write_text("\n")) && write_text(header.text()) && write_text("\n") ? 1 : -1;
}

}  // namespace
}  // namespace kt

using namespace kt;

FILE* PRO_uopen(const char* path) {
  give_up();
  unique_file in = open_file(open_or_create(path), "r");
  if (!in.ok()) return nullptr;
  g_pass.out = create_temp_file(g_pass.copy, "/tmp/uXXXXXX").release();
  if (g_pass.out != nullptr) ifp = in.release();
  return g_pass.out;
}

int PRO_u2sect(const char* section, int append) {
  if (section == nullptr || ifp == nullptr || g_pass.out == nullptr) return -1;
  cut_at_line_feed(section);
  const SectionHeader header(section);
  return header.valid() ? copy_to_header(header, append == 1) : -1;
}

int PRO_uclose(const char* path, int file_mode, int how) {
  (void)end_pass(path, file_mode, how);  // its failures are not reported
  return 0;
}

int PRO_DelSect(const char* section, const char* path) {
  if (PRO_uopen(path) == nullptr) return -1;
  const bool found = PRO_u2sect(section, 0) == 0;
  // Deleting a section that is not there is no error: it is gone, as wanted.
  return found ? PRO_uclose(path, 666, kSkipSection) : PRO_uclose(path, -1, kGiveUp);
}

int PRO_RenSect(const char* section, const char* new_section, const char* path) {
  if (new_section == nullptr) return -1;
  const SectionHeader header({new_section, strcspn(new_section, "\n")});
  if (!header.valid() || PRO_uopen(path) == nullptr) return -1;
  const bool found = PRO_u2sect(section, 0) == 0;
  if (found) cut_at_line_feed(new_section);
  const bool written = found && write_text(header.text()) && write_text("\n");
  return end_pass(path, -1, written ? kCopyRest : kGiveUp) ? 0 : -1;
}
