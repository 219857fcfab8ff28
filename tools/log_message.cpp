#include "tools/log_message.h"

#include <ktcomm/config.h>
#include <ktcomm/log.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <optional>

#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "tools/message_format.h"
#include "tools/number.h"
#include "tools/plain_text.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"

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

int add(const Message& message, const char* const (&texts)[MessageFormat::kMost]) {
  // What a format does not ask for is passed over.
  return AddLog(message.category, message.level, message.number, texts[0], texts[1], texts[2],
                texts[3], texts[4], texts[5], texts[6], texts[7]);
}

int add(const Message& message, const int (&numbers)[MessageFormat::kMost]) {
  return AddLog(message.category, message.level, message.number, numbers[0], numbers[1], numbers[2],
                numbers[3], numbers[4], numbers[5], numbers[6], numbers[7]);
}
static_assert(MessageFormat::kMost == 8);

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
  unique_file settings;
  const int unfit = open_settings(paths::kSettings, settings);
  if (unfit != kDone) return unfit;
  return SysLogReadData(&data) == 0 ? kDone : fail_errno(paths::kSettings);
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
    return fail(kDone, "%s: log_level is %d: nothing of level %d is added", paths::kSettings,
                settings.log_level, message.level);
  }
  const Uninterrupted uninterrupted;
  const int result =
      message.format.of_texts() ? add(message, arguments.texts) : add(message, arguments.numbers);
  if (result == 0) return kDone;
  return fail(kSystemError, "%s: not added: the log could not be written", paths::kEventLog);
}

}  // namespace kt::tools
