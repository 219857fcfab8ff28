#include "tools/log_message.h"

#include <ktcomm/config.h>
#include <ktcomm/log.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <optional>

#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "tools/lock_timeout.h"
#include "tools/message_format.h"
#include "tools/number.h"
#include "tools/plain_text.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

constexpr int kTextLimit = 256;  // a text of the limit takes a byte more
constexpr int kMostLevel = 3;

struct Message {
  const char* category;
  int level = 0;
  int number = 0;
  char text[kTextLimit + 1] = "";
  MessageFormat format;
};

int refuse(const Message& message, const char* why) {
  return fail(kRefused, "%s: [%s] %d: \"%s\": %s", paths::kEventCatalogue, message.category,
              message.number, message.text, why);
}

int read_options(const Request& request, Message& message) {
  if (const char* const wanted = request.value(Option::kLevel)) {
    const auto level = parse_number(wanted);
    if (!level || *level < 0 || *level > kMostLevel) {
      return fail(kUsage, "--level: %s: a number from 0 to %d is wanted", wanted, kMostLevel);
    }
    message.level = *level;
  }
  const auto number = parse_number(request.arguments[0]);
  if (!number) return fail(kUsage, "NUMBER: %s: a number is wanted", request.arguments[0]);
  message.number = *number;
  message.category = request.value(Option::kMessage);
  return check_plain("CATEGORY", message.category) ? kDone : kRefused;
}

// Looks the text up as AddLog will.
int look_up(Message& message) {
  const unique_file catalogue = open_file(paths::kEventCatalogue, "re");
  if (!catalogue.ok()) return fail_errno(paths::kEventCatalogue);
  StringBuffer<15> key;
  key.append_format("%d", message.number);
  if (PRO_GetStr(message.category, key.c_str(), message.text, kTextLimit, catalogue.get()) != 0) {
    return fail(kNotFound, "%s: [%s] %d: not found", paths::kEventCatalogue, message.category,
                message.number);
  }
  const char* const unfit = read_format(message.text, message.format);
  return unfit != nullptr ? refuse(message, unfit) : kDone;
}

// What a format does not ask for is passed over. It was looked at: the compiler cannot.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename T>
int add(const Message& message, bool dry_run, const T (&a)[MessageFormat::kMost]) {
  static_assert(MessageFormat::kMost == 8);
  if (!dry_run) {
    return AddLog(message.category, message.level, message.number, a[0], a[1], a[2], a[3], a[4],
                  a[5], a[6], a[7]);
  }
  StringBuffer<kLongestEntry> text;
  text.append_format(message.text, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]);
  return would("add to %s: %s", paths::kEventLog, text.c_str());
}
#pragma GCC diagnostic pop

std::optional<int> parse_argument(const char* text, char kind) {
  const auto number = parse_number<long long>(text);
  const bool is_signed = kind == 'd' || kind == 'i';
  const long long lowest = is_signed ? INT_MIN : 0;
  const long long highest = is_signed ? INT_MAX : static_cast<long long>(UINT_MAX);
  if (!number || *number < lowest || *number > highest) return std::nullopt;
  return static_cast<int>(*number);
}

// The arguments as all texts or all numbers; the others stay as they are.
struct Arguments {
  const char* texts[MessageFormat::kMost] = {};
  int numbers[MessageFormat::kMost] = {};
};

int convert(const Request& request, const Message& message, Arguments& arguments) {
  char** const given = request.arguments + 1;  // behind the number
  if (request.count - 1 != message.format.count) {
    return fail(kRefused, "%s: [%s] %d: \"%s\": %d arguments wanted, %d given",
                paths::kEventCatalogue, message.category, message.number, message.text,
                message.format.count, request.count - 1);
  }
  for (int i = 0; i < message.format.count; ++i) {
    if (message.format.of_texts()) {
      if (!check_plain("ARGUMENT", given[i])) return kRefused;
      arguments.texts[i] = given[i];
      continue;
    }
    const char kind = message.format.kinds[i];
    const auto number = parse_argument(given[i], kind);
    if (!number) return fail(kRefused, "ARGUMENT: %s: no number for %%%c", given[i], kind);
    arguments.numbers[i] = *number;
  }
  return kDone;
}

}  // namespace

int read_log_settings(SysLogData& data) {
  SettingsLock lock;
  lock.try_for_a_moment();
  unique_file settings;
  const int unfit = open_settings(paths::kSettings, settings);
  if (unfit != kDone) return unfit;
  return SysLogReadData(&data) == 0 ? kDone : fail_errno(paths::kSettings);
}

int wait_for_log(const Request& request) {
  constexpr mode_t kMode = 0644;
  if (!request.has(Option::kLockTimeout) || ::access(paths::kEventLog, F_OK) != 0) return kDone;
  FlockFile log;
  return take_lock(log, paths::kEventLog, kMode);
}

int add_message(const Request& request) {
  Message message;
  Arguments arguments;
  SysLogData settings = {};
  int code = read_options(request, message);
  if (code == kDone) code = look_up(message);
  if (code == kDone) code = convert(request, message, arguments);
  if (code == kDone) code = read_log_settings(settings);
  if (code != kDone) return code;
  if (message.level > settings.log_level && settings.log_level <= kMostLevel) {
    if (request.dry_run()) (void)would_change_nothing();
    return fail(kDone, "%s: log_level is %d: nothing of level %d is added", paths::kSettings,
                settings.log_level, message.level);
  }
  code = wait_for_log(request);
  if (code != kDone) return code;
  const Uninterrupted uninterrupted;
  const int result = message.format.of_texts() ? add(message, request.dry_run(), arguments.texts)
                                               : add(message, request.dry_run(), arguments.numbers);
  if (result == 0) return kDone;
  return fail(kSystemError, "%s: not added: the log could not be written", paths::kEventLog);
}

}  // namespace kt::tools
