// settings_commands.cpp - look at settings and edit them.
#include <ktcomm/config.h>
#include <stdio.h>
#include <sys/stat.h>

#include <optional>

#include "base/line_reader.h"
#include "base/unique_file.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"
#include "tools/settings_write.h"

namespace kt::tools {
namespace {

[[nodiscard]] bool has_section(const char* path, const Section& section) {
  const unique_file file = open_file(path, "re");
  return file.ok() && PRO_2sect(section.text(), file.get()) == 0;
}

int section_not_found(const char* path, const Section& section) {
  return fail(kNotFound, "%s: [%s]: not found", path, section.text());
}

struct Edit {
  std::optional<Uninterrupted> uninterrupted;
  SettingsLock lock;
};

// Begins to edit a section: asks for a name and a path that will do, the lock,
// the file and the section in it. Returns kDone or what is to be the exit code.
int begin_edit(const char* path, const Section& section, Edit& edit) {
  if (!check_section(path, section) || !check_path(path)) return kRefused;
  if (const int code = wait_until_unlocked(); code != kDone) return code;
  edit.uninterrupted.emplace();
  if (const int code = edit.lock.wait(); code != kDone) return code;
  unique_file file;
  const int unfit = open_settings(path, file);
  if (unfit != kDone) return unfit;
  return has_section(path, section) ? kDone : section_not_found(path, section);
}

[[nodiscard]] long long file_size(const char* path) {
  struct stat status;
  return ::stat(path, &status) == 0 ? status.st_size : -1;
}

// Copies the lines up to the next section, or all with `whole`; false when some
// could not be read or kept.
[[nodiscard]] bool copy_lines(FILE* file, bool whole, FILE* out) {
  char line[512];
  while (const size_t length = read_line(file, line, sizeof line)) {
    if (!whole && line[0] == '[') break;
    if (fwrite(line, 1, length, out) != length) return false;
  }
  return ferror(file) == 0;
}

// What `show` prints, collected in memory: whoever reads our output may take
// his time, and the lock must not be held as long.
int collect_lines(const Request& request, FILE* out) {
  SettingsLock lock;
  lock.try_for_a_moment();
  unique_file file;
  const int unfit = open_settings(request.file, file);
  if (unfit != kDone) return unfit;
  const bool whole = request.count == 0;
  if (!whole) {
    const Section section(request.arguments[0]);
    if (section.over_long() || PRO_2sect(section.text(), file.get()) != 0) {
      return section_not_found(request.file, section);
    }
  }
  return copy_lines(file.get(), whole, out) ? kDone : fail_errno(request.file);
}

}  // namespace

int get_value(const Request& request) {
  const Section section(request.arguments[0]);
  const char* const key = request.arguments[1];
  Value value;
  {
    SettingsLock lock;
    lock.try_for_a_moment();
    unique_file file;
    const int unfit = open_settings(request.file, file);
    if (unfit != kDone) return unfit;
    if (section.over_long() || !read_value(section, key, file.get(), value)) {
      return fail(kNotFound, "%s: [%s] %s: not found", request.file, section.text(), key);
    }
  }
  (void)puts(value.text);
  return kDone;
}

int set_value(const Request& request) {
  const Section section(request.arguments[0]);
  return store_value(request.file, section, request.arguments[1], request.arguments[2]);
}

int unset_section(const Request& request) {
  const Section section(request.arguments[0]);
  Edit edit;
  const int refused = begin_edit(request.file, section, edit);
  if (refused != kDone) return refused;
  // A second section of the same name would come to light otherwise.
  while (has_section(request.file, section)) {
    const long long before = file_size(request.file);
    if (PRO_DelSect(section.text(), request.file) != 0 || file_size(request.file) >= before) {
      return not_written(request.file, section);
    }
  }
  return kDone;
}

int rename_section(const Request& request) {
  const Section old_section(request.arguments[0]);
  const Section new_section(request.arguments[1]);
  if (!check_section(request.file, new_section)) return kRefused;
  Edit edit;
  const int refused = begin_edit(request.file, old_section, edit);
  if (refused != kDone) return refused;
  if (has_section(request.file, new_section)) {
    return fail(kRefused, "%s: [%s]: there is such a section already", request.file,
                new_section.text());
  }
  if (PRO_RenSect(old_section.text(), new_section.text(), request.file) != 0 ||
      !has_section(request.file, new_section)) {
    return not_written(request.file, old_section);
  }
  return kDone;
}

int show_settings(const Request& request) {
  char* text = nullptr;
  size_t length = 0;
  unique_file memory(::open_memstream(&text, &length));
  if (!memory.ok()) return fail(kSystemError, "out of memory");
  const int code = collect_lines(request, memory.get());
  const bool complete = memory.close();
  const unique_malloc<char> owner(text);
  if (code != kDone) return code;
  if (!complete) return fail(kSystemError, "out of memory");
  (void)fwrite(text, 1, length, stdout);
  return kDone;
}

}  // namespace kt::tools
