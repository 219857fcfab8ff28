#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <utility>

#include "base/paths.h"
#include "base/shell.h"
#include "base/unique_dir.h"
#include "base/unique_file.h"
#include "flash/settings_archive.h"
#include "flash/settings_check.h"
#include "flash/settings_copy.h"
#include "flash/trace.h"
#include "ktcomm/flash.h"

namespace kt {
namespace {

constexpr char kStep[] = "kt_flash_set_env";
constexpr int kAttempts = 3;

[[nodiscard]] bool write_count(unique_file file, int lines) {
  return file.ok() && fprintf(file.get(), "%d", lines) > 0 && file.close();
}

[[nodiscard]] bool create_line_control_file() {
  KT_TRACE_TWICE_OF(kStep, Progress, "%s(%d)ENV: %s(%d) can't find line control file. \n");
  unique_file file = open_file(paths::kSettingsLineCount, "w+e");
  if (!file.ok()) {
    KT_TRACE_TWICE_OF(kStep, Failure, "%s(%d)ENV: %s(%d) can't create line control file \n");
    return false;
  }
  const int lines = calc_conf_line_num_and_check_ascii(paths::kSettings);
  KT_TRACE_TWICE_OF(kStep, Progress, "%s(%d)ENV: %s(%d) line_cnt = %d.\n", lines);
  if (lines < 0) {
    KT_TRACE_TWICE_OF(kStep, Failure,
                      "%s(%d)ENV: %s(%d) calculate line count fail. line_cnt = %d\n", lines);
  }
  if (lines >= 0 && write_count(std::move(file), lines)) return true;
  (void)::unlink(paths::kSettingsLineCount);  // none is better than a wrong one
  return false;
}

// Checks the settings and brings the count up to date; a file that says the
// same already is left alone, so that the archive stays the same, too.
[[nodiscard]] bool refresh_line_control_file(unique_file file) {
  char stored[257] = {};
  const size_t size = fread(stored, 1, sizeof stored - 1, file.get());
  file.reset();
  if (!valid_chk_conf_file(paths::kSettings)) {
    KT_TRACE_TWICE_OF(kStep, Failure, "%s(%d)ENV: %s(%d) validate fail \n");
    (void)run_shell("/bin/rm -rf /mnt/ramdisk/env >/dev/null 2>/dev/null");  // fails either way
    return false;
  }
  const int lines = calc_conf_line_num_and_check_ascii(paths::kSettings);
  StringBuffer<15> current;
  current.append_format("%d", lines);
  if (current.view() == std::string_view(stored, size)) return true;
  return write_count(open_file(paths::kSettingsLineCount, "we"), lines);
}

[[nodiscard]] bool keep_line_control_file() {
  unique_file file = open_file(paths::kSettingsLineCount, "re");
  return file.ok() ? refresh_line_control_file(std::move(file)) : create_line_control_file();
}

// An attempt counts only when the *other* copy already holds the same archive:
// a copy is stored here beside one that is known to be good.
[[nodiscard]] bool store_beside(const char* archive, const SettingsCopy& chosen,
                                const SettingsCopy& other) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (fl_write_file_to_flash(archive, chosen) && compare_file_content(archive, other))
      return true;
  }
  return false;
}

}  // namespace
}  // namespace kt

using namespace kt;

int kt_flash_set_env(int copy) {
  if (copy != 0 && copy != 1) return -1;
  const SettingsCopy& chosen = copy == 0 ? kNormal : kBackup;
  const SettingsCopy& other = copy == 0 ? kBackup : kNormal;
  srandom(static_cast<unsigned>(time(nullptr)));
  if (!unique_dir(paths::kSettingsDirectory).ok() || !keep_line_control_file()) return -1;

  SettingsArchive archive;
  if (!archive.pack(SettingsArchive::kCzf) || !archive.measure()) return -1;
  if (!archive.digest()) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) calculate md5 value fail\n");
    return -1;
  }
  if (!archive_fits(archive.header().length, chosen)) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) archive does not fit\n");
    return -1;
  }
  // Without the header the chosen copy fails its digest at the next boot, and
  // the other one serves: giving up is no failure.
  if (!store_beside(archive.path(), chosen, other)) return 0;
  KT_TRACE_TWICE(Progress, "%s(%d)ENV: %s(%d) open %s\n", chosen.label);
  if (!write_copy_header(archive.header(), sizeof(CopyHeader), chosen)) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) write env header fail\n");
    return -1;
  }
  return 0;
}
