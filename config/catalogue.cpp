#include <stdio.h>
#include <string.h>

#include "base/paths.h"
#include "base/unique_file.h"
#include "config/ini_line.h"
#include "ktcomm/config.h"

namespace kt {
namespace {

constexpr int kMessageLimit = 128;

struct NumberKey {
  char text[12];
  explicit NumberKey(int number) { (void)snprintf(text, sizeof text, "%d", number); }
};

// Takes the values of the lines that follow the first message into the slots
// behind it. The line behind the last slot is read too, and dropped.
int fill_slots(int count, char (*out)[256], FILE* catalogue) {
  int filled = 1;
  IniLine line;
  while (line.read(catalogue)) {
    const char first = line.text[0];
    if (filled >= count || first == '\r' || first == '\n' || first == '[') break;
    std::string_view value = strip_line_end(line.view());
    const size_t equals = value.find('=');
    if (equals == std::string_view::npos) continue;
    value.remove_prefix(equals + 1);
    store_value(value, out[filled++], kMessageLimit);
  }
  return filled;
}

}  // namespace
}  // namespace kt

using namespace kt;

int PRO_GetMsgSize(const char* section) {
  const unique_file catalogue = open_file(paths::kMessages, "re");
  int total = 0;
  if (catalogue.ok()) (void)PRO_GetInt(section, "total", &total, catalogue.get());  // 0 else
  return total;
}

int PRO_GetMsgByIndex(const char* section, int first, int count, char (*out)[256],
                      const char* path) {
  if (out == nullptr) return -1;
  unique_file catalogue = open_file(path != nullptr ? path : paths::kMessages, "re");
  if (!catalogue.ok()) return -1;
  if (PRO_GetStr(section, NumberKey(first).text, out[0], kMessageLimit, catalogue.get()) != 0) {
    // The contract: a catalogue without the first message stays open.
    (void)catalogue.release();
    return -1;
  }
  return fill_slots(count, out, catalogue.get());
}

void GetErrMsg2(const char* section, int code, char* out, int size) {
  if (out == nullptr) return;
  const unique_file catalogue = open_file(paths::kWebMessages, "re");
  if (!catalogue.ok()) {
    // Whatever the size: every caller's buffer holds this sentence.
    (void)sprintf(out, "Can't find file %s, Unknown Error", paths::kWebMessages);
    return;
  }
  char text[257] = {};  // one more than the limit, for a text of exactly that length
  (void)PRO_GetStr(section, NumberKey(code).text, text, sizeof text - 1, catalogue.get());
  if (text[0] == '\0') {
    memcpy(out, "Unknown Error", sizeof "Unknown Error");
  } else if (size > 0) {
    (void)snprintf(out, static_cast<size_t>(size), "%s", text);
  }
}
