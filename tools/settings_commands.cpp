// settings_commands.cpp - look at settings and edit them.
#include <ktcomm/config.h>
#include <stdio.h>
#include <sys/stat.h>

#include <optional>

#include "base/unique_file.h"
#include "tools/ktctl.h"
#include "tools/printer.h"
#include "tools/settings_changes.h"
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

// Begins to edit a section, for --dry-run without keeping others off: asks for a name
// and a path that will do, the lock, the file and the section in it. Returns kDone or
// what is to be the exit code.
int begin_edit(const Request& request, const Section& section, Edit& edit) {
  const char* const path = request.file;
  if (!check_section(path, section) || !check_path(path)) return kRefused;
  if (request.dry_run()) {
    edit.lock.try_for_a_moment();
  } else {
    if (const int code = wait_until_unlocked(); code != kDone) return code;
    edit.uninterrupted.emplace();
    if (const int code = edit.lock.wait(); code != kDone) return code;
  }
  unique_file file;
  const int unfit = open_settings(path, file);
  if (unfit != kDone) return unfit;
  return has_section(path, section) ? kDone : section_not_found(path, section);
}

[[nodiscard]] long long file_size(const char* path) {
  struct stat status;
  return ::stat(path, &status) == 0 ? status.st_size : -1;
}

void print_section(Printer& printer, const Settings& settings, std::string_view section) {
  StringBuffer<kLongestLine> name;
  name.append(section);
  printer.begin_object(name.c_str());
  for (const Setting& setting : settings.all()) {
    if (setting.section != section) continue;
    StringBuffer<kLongestLine> key;
    key.append(setting.key);
    printer.text(key.c_str(), setting.value);
  }
  printer.end_object();
}

// For programs: each section that a reader can find is an object, or the `wanted` one
// alone.
int print_settings(const Request& request, std::string_view text, const Section* wanted) {
  Settings settings;
  if (!settings.read(text)) return fail(kSystemError, "out of memory");
  Printer printer(request);
  if (wanted != nullptr) {
    print_section(printer, settings, wanted->text());
    return kDone;
  }
  const auto all = settings.all();
  if (!all.empty() && all.front().section.empty()) print_section(printer, settings, "");
  for (PieceReader pieces(text); pieces.next();) {
    const Piece& piece = pieces.piece();
    if (piece.is_header() && is_found(text, piece))
      print_section(printer, settings, piece.section());
  }
  return kDone;
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
  if (request.has(Option::kJson)) {
    Printer printer(request);
    printer.text("section", section.text());
    printer.text("key", key);
    printer.text("value", value.text);
    return kDone;
  }
  if (request.has(Option::kShell)) {
    print_quoted(value.text);
    (void)putchar('\n');
  } else {
    (void)puts(value.text);
  }
  return kDone;
}

int set_value(const Request& request) {
  const Change change = {Section(request.arguments[0]), request.arguments[1], request.arguments[2]};
  if (!request.dry_run()) {
    return store_value(request.file, change.section, change.key, change.value);
  }
  if (!check_assignment(request.file, change.section, change.key, change.value)) return kRefused;
  const int unfit = check_target(request.file);
  return unfit == kDone ? tell_changes(request.file, {&change, 1}) : unfit;
}

int unset_section(const Request& request) {
  const Section section(request.arguments[0]);
  Edit edit;
  const int refused = begin_edit(request, section, edit);
  if (refused != kDone) return refused;
  if (request.dry_run()) return would("remove [%s] from %s", section.text(), request.file);
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
  const int refused = begin_edit(request, old_section, edit);
  if (refused != kDone) return refused;
  if (has_section(request.file, new_section)) {
    return fail(kRefused, "%s: [%s]: there is such a section already", request.file,
                new_section.text());
  }
  if (request.dry_run()) {
    return would("rename [%s] to [%s] in %s", old_section.text(), new_section.text(), request.file);
  }
  if (PRO_RenSect(old_section.text(), new_section.text(), request.file) != 0 ||
      !has_section(request.file, new_section)) {
    return not_written(request.file, old_section);
  }
  return kDone;
}

// What is printed is read before: whoever reads our output may take his time, and the
// lock must not be held as long.
int show_settings(const Request& request) {
  Text text;
  if (const int code = read_settings(request.file, text); code != kDone) return code;
  const Section section(request.count != 0 ? request.arguments[0] : "");
  std::string_view lines = text.view();
  if (request.count != 0) {
    const auto found = lines_of_section(text.view(), section.text());
    if (section.over_long() || !found) return section_not_found(request.file, section);
    lines = *found;
  }
  if (request.for_programs()) {
    return print_settings(request, text.view(), request.count != 0 ? &section : nullptr);
  }
  (void)fwrite(lines.data(), 1, lines.size(), stdout);
  return kDone;
}

}  // namespace kt::tools
