#include "tools/settings_changes.h"

#include <errno.h>
#include <fcntl.h>
#include <ktcomm/config.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "tools/ktctl.h"
#include "tools/replace_file.h"
#include "tools/settings_lock.h"
#include "tools/settings_write.h"

namespace kt::tools {
namespace {

// What a reader has for a key, from the factory defaults where the text lacks it.
class CurrentValue {
 public:
  CurrentValue(std::string_view text, const Change& change) {
    value_ = find_in_text(text, change.section.text(), change.key);
    if (value_ ||
        PRO_GetStr(change.section.text(), change.key, default_.text, kValueLimit, nullptr) != 0) {
      return;
    }
    value_ = default_.text;
  }
  CurrentValue(const CurrentValue&) = delete;
  CurrentValue& operator=(const CurrentValue&) = delete;

  [[nodiscard]] const std::optional<std::string_view>& get() const { return value_; }

 private:
  Value default_;
  std::optional<std::string_view> value_;
};

void tell(const Change& change, const std::optional<std::string_view>& current) {
  if (current) {
    (void)would("set [%s] %s from \"%.*s\" to \"%s\"", change.section.text(), change.key,
                static_cast<int>(current->size()), current->data(), change.value);
  } else {
    (void)would("set [%s] %s to \"%s\"", change.section.text(), change.key, change.value);
  }
}

// Makes the changes that are some, and counts them; -1 when there is no memory.
template <typename F>
[[nodiscard]] int apply(std::span<const Change> changes, Text& text, F tell_one) {
  int count = 0;
  for (const Change& change : changes) {
    const CurrentValue current(text.view(), change);
    if (current.get() == change.value) continue;
    tell_one(change, current.get());
    if (!set_in_text(text, change.section.text(), change.key, change.value)) return -1;
    ++count;
  }
  return count;
}

int out_of_memory() {
  return fail(kSystemError, "out of memory");
}

int rewrite(const char* path, std::span<const Change> changes) {
  Text text;
  const unique_file file = open_file(path, "re");
  if (!file.ok() || !text.read(file.get())) return fail_errno(path);
  const int count = apply(changes, text, [](const Change&, const auto&) {});
  if (count < 0) return out_of_memory();
  const int code = count != 0 ? replace_file(path, text.view()) : kDone;
  if (code == kDone) ::sync();
  return code;
}

// Whether a file could be made at `path`.
[[nodiscard]] bool can_be_made(const char* path) {
  const char* const slash = strrchr(path, '/');
  StringBuffer<kLongestPath> directory;
  directory.append(slash != nullptr ? std::string_view(path, static_cast<size_t>(slash - path) + 1)
                                    : std::string_view("."));
  return ::access(directory.c_str(), W_OK | X_OK) == 0;
}

int fail_unwritten(const char* path) {
  return fail(kSystemError, "%s: not written: %s", path, strerror(errno));
}

}  // namespace

int check_target(const char* path) {
  if (!check_path(path)) return kRefused;
  struct stat status;
  if (::stat(path, &status) == 0 && !S_ISREG(status.st_mode)) {
    return fail(kRefused, "%s: no regular file", path);
  }
  return kDone;
}

int write_changes(const char* path, std::span<const Change> changes) {
  if (changes.empty()) return kDone;
  if (const int code = wait_until_unlocked(); code != kDone) return code;
  const Uninterrupted uninterrupted;
  SettingsLock lock;
  if (const int code = lock.wait(); code != kDone) return code;
  const bool is_new = open_fd(path, O_WRONLY | O_CREAT | O_EXCL, 0666).ok();
  if (!is_new && errno != EEXIST) return fail_unwritten(path);
  const int code = rewrite(path, changes);
  if (is_new && code != kDone) (void)::unlink(path);  // it was not there before
  return code;
}

int tell_changes(const char* path, std::span<const Change> changes) {
  Text text;
  if (::access(path, F_OK) == 0) {
    if (const int code = read_settings(path, text); code != kDone) return code;
  } else if (!can_be_made(path)) {
    return fail_unwritten(path);
  }
  const int count = apply(changes, text, tell);
  if (count < 0) return out_of_memory();
  return count != 0 ? kDone : would("change nothing");
}

}  // namespace kt::tools
