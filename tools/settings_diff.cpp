// settings_diff.cpp - what differs from the factory defaults, from what flash holds or
// from another file.
#include <stdio.h>
#include <string.h>

#include "tools/flash_copies.h"
#include "tools/ktctl.h"
#include "tools/plain_text.h"
#include "tools/printer.h"
#include "tools/settings_input.h"

namespace kt::tools {
namespace {

void print_header(std::string_view section) {
  (void)putchar('[');
  print_plain(section);
  (void)puts("]");
}

[[nodiscard]] bool has_section(std::span<const Setting> settings, std::string_view section) {
  for (const Setting& setting : settings) {
    if (setting.section == section) return true;
  }
  return false;
}

// Prints the differences of two texts: as `diff -u` does, "-" what is theirs and "+"
// what is ours, below the section.
class Comparison {
 public:
  // With `inherits` a setting that is only theirs is ours, too.
  Comparison(Printer& printer, const Settings& theirs, const Settings& ours, bool inherits)
      : printer_(printer), theirs_(theirs), ours_(ours), inherits_(inherits) {}

  // Returns whether there are any.
  [[nodiscard]] bool print(const char* their_path, const char* our_path);

 private:
  void print_one(const Setting* theirs, const Setting* ours);
  void print_line(char sign, const Setting& setting) const;
  void print_only_theirs(std::string_view section);

  Printer& printer_;
  const Settings& theirs_;
  const Settings& ours_;
  const bool inherits_;
  const char* their_path_ = nullptr;
  const char* our_path_ = nullptr;
  const Setting* last_ = nullptr;  // printed
};

void Comparison::print_line(char sign, const Setting& setting) const {
  (void)putchar(sign);
  print_plain(setting.key);
  (void)putchar('=');
  print_plain(setting.value);
  (void)putchar('\n');
}

// Either may be null.
void Comparison::print_one(const Setting* theirs, const Setting* ours) {
  const Setting& one = ours != nullptr ? *ours : *theirs;
  const bool is_new_section = last_ == nullptr || last_->section != one.section;
  if (!printer_.plain()) {
    printer_.begin_object(nullptr);
    printer_.text("section", one.section);
    printer_.text("key", one.key);
    if (theirs != nullptr) printer_.text("theirs", theirs->value);
    if (ours != nullptr) printer_.text("ours", ours->value);
    printer_.end_object();
  } else {
    if (last_ == nullptr) (void)printf("--- %s\n+++ %s\n", their_path_, our_path_);
    if (is_new_section) print_header(one.section);
    if (theirs != nullptr) print_line('-', *theirs);
    if (ours != nullptr) print_line('+', *ours);
  }
  last_ = &one;
}

void Comparison::print_only_theirs(std::string_view section) {
  if (inherits_) return;
  for (const Setting& setting : theirs_.all()) {
    if (setting.section == section && ours_.find(section, setting.key) == nullptr) {
      print_one(&setting, nullptr);
    }
  }
}

bool Comparison::print(const char* their_path, const char* our_path) {
  their_path_ = their_path;
  our_path_ = our_path;
  const auto ours = ours_.all();
  for (size_t i = 0; i < ours.size(); ++i) {
    const Setting* const theirs = theirs_.find(ours[i].section, ours[i].key);
    if (theirs == nullptr || theirs->value != ours[i].value) print_one(theirs, &ours[i]);
    const bool is_last = i + 1 == ours.size() || ours[i + 1].section != ours[i].section;
    if (is_last) print_only_theirs(ours[i].section);
  }
  const auto theirs = theirs_.all();
  for (size_t i = 0; i < theirs.size(); ++i) {
    const bool is_first = i == 0 || theirs[i - 1].section != theirs[i].section;
    if (is_first && !has_section(ours, theirs[i].section)) print_only_theirs(theirs[i].section);
  }
  return last_ != nullptr;
}

struct Target {
  const char* name;  // null for a file
  const char* path;
  int copy;  // in flash, or kNeither
};

constexpr Target kTargets[] = {{"defaults", paths::kDefaultSettings, kNeither},
                               {"normal", paths::kNormalCopy, kNormalIndex},
                               {"backup", paths::kBackupCopy, kBackupIndex}};
constexpr std::span<const Target> kAllTargets = kTargets;
constexpr std::span<const Target> kSaved = {&kTargets[1], 2};

// A whole file and the settings in it.
struct Compared {
  Text text;
  Settings settings;

  [[nodiscard]] int parse() {
    return settings.read(text.view()) ? kDone : fail(kSystemError, "out of memory");
  }
};

int read_target(const Target& target, Compared& content) {
  if (target.copy != kNeither) {
    const Content held = read_copy(target.copy, content.text);
    if (held == Content::kSettings) return content.parse();
    if (held == Content::kUnknown) return fail(kSystemError, "%s", kNotUnpackedReason);
    return fail(kNotFound, "%s: holds no settings that a boot would take", target.path);
  }
  const int code = read_settings(target.path, content.text);
  return code == kDone ? content.parse() : code;
}

// Tells what differs; kNotFound when something does.
int compare(Printer& printer, const Target& target, const Request& request, const Compared& ours) {
  Compared theirs;
  const int code = read_target(target, theirs);
  if (code != kDone) return code;
  const bool inherits = target.name != nullptr && target.copy == kNeither;
  Comparison comparison(printer, theirs.settings, ours.settings, inherits);
  if (comparison.print(target.path, request.file)) return kNotFound;
  if (inherits || theirs.text.view() == ours.text.view()) return kDone;
  return fail(kNotFound, "%s: the same settings, but the texts differ", target.path);
}

int compare_all(Printer& printer, std::span<const Target> targets, const Request& request,
                const Compared& ours) {
  int worst = kDone;
  for (const Target& target : targets) {
    printer.begin_object(nullptr);
    if (!printer.plain()) printer.text("against", target.path);
    printer.begin_list("differences");
    const int code = compare(printer, target, request, ours);
    printer.end_list();
    if (!printer.plain()) printer.flag("equal", code == kDone);
    printer.end_object();
    if (code > worst) worst = code;
  }
  return worst;
}

}  // namespace

int diff_settings(const Request& request) {
  const char* const wanted = request.count != 0 ? request.arguments[0] : "";
  Target file = {nullptr, wanted, kNeither};
  std::span<const Target> targets = kAllTargets;
  if (strcmp(wanted, "saved") == 0) {
    targets = kSaved;
  } else if (wanted[0] != '\0') {
    targets = {&file, 1};
    for (const Target& target : kTargets) {
      if (strcmp(wanted, target.name) == 0) file = target;
    }
  }
  Compared ours;
  int code = read_settings(request.file, ours.text);
  if (code == kDone) code = ours.parse();
  if (code != kDone) return code;
  Printer printer(request);
  if (!printer.plain()) printer.text("file", request.file);
  printer.begin_list("comparisons");
  return compare_all(printer, targets, request, ours);
}

}  // namespace kt::tools
