// Looking keys, sections and messages up in settings files of others, against a scanner
// that does literally what doc/settings-file.md says.
//
// Input: section, key, size of the buffer, the factory defaults; the settings file.
#include <stdlib.h>
#include <strings.h>

#include <optional>

#include "base/unique_file.h"
#include "fuzz/fuzz.h"
#include "fuzz/ini.h"
#include "ktcomm/config.h"

using namespace kt::fuzz;

namespace {

constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf", kDefaults[] = "/etc/def_sys.conf";
constexpr char kWebMessages[] = "/usr/local/www/adm/cgi_msg";

struct Found {
  std::string value;
  size_t behind;  // offset of what follows its line
};

std::optional<Found> look_up(const std::string& file, const Text& section, const std::string& key, size_t size) {
  const auto start = ini_section(file, section, false);
  if (!start) return std::nullopt;
  size_t at = *start;
  for (const std::string& line : pieces_of(std::string_view(file).substr(at), size > 512 ? size + 63 : 511)) {
    at += line.size();
    if (line[0] == '[') break;
    size_t place = std::min(line.find_first_not_of(' '), line.size());
    if (line.compare(place, key.size(), key) != 0) continue;
    place = std::min(line.find_first_not_of(' ', place + key.size()), line.size());
    if (line[place] != '=') continue;
    std::string value = up_to_nul(line.substr(place + 1));
    value.resize(value.find_last_not_of("\r\n") + 1);
    return Found{value.size() > size ? value.substr(0, size - 1) : value, at};
  }
  return std::nullopt;
}

// The messages that follow message `first`, up to three.
std::vector<std::string> messages(const std::string& file, const Found& first) {
  std::vector<std::string> found = {first.value};
  for (const std::string& line : pieces_of(std::string_view(file).substr(first.behind), 511)) {
    if (found.size() == 3 || line.find_first_of("\r\n[") == 0) break;
    std::string text = up_to_nul(line);
    text.resize(text.find_last_not_of("\r\n") + 1);
    const size_t equals = text.find('=');
    if (equals == text.npos) continue;
    text.erase(0, equals + 1);
    found.push_back(text.size() > 128 ? text.substr(0, 127) : text);
  }
  return found;
}

void judge_messages(Text& section, const std::string& file, int first) {
  const auto found = look_up(file, section, std::to_string(first), 128);
  if (!found) return;  // that would leave a stream open each time
  char slots[3][256];
  const auto wanted = messages(file, *found);
  expect_same("messages", static_cast<size_t>(PRO_GetMsgByIndex(section.get(), first, 3, slots, kSettings)),
              wanted.size());
  for (size_t i = 0; i < wanted.size(); ++i) expect_same("message", std::string(slots[i]), wanted[i]);
}

void judge_web_message(Text& section, const std::string& file, const std::string& defaults, int code) {
  const std::string key = std::to_string(code);
  auto found = look_up(file, section, key, 256);
  if (!found) found = look_up(defaults, section, key, 256);
  char text[300];
  write_file(kWebMessages, file);
  GetErrMsg2(section.get(), code, text, sizeof text);
  expect_same("web message", std::string(text), found && !found->value.empty() ? found->value : "Unknown Error");
}

void judge_sections(Text& section, const std::string& file, FILE* stream) {
  for (const bool any_case : {false, true}) {
    const auto wanted = section.is_null() ? std::nullopt : ini_section(file, section, any_case);
    const int result = any_case ? PRO_i2sect(section.get(), stream) : PRO_2sect(section.get(), stream);
    expect_same("section", result, wanted ? 0 : 1);
    if (wanted) expect_same("place of section", static_cast<size_t>(ftell(stream)), *wanted);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  Text section = input.text(), key = input.text();
  const size_t limit = static_cast<size_t>(input.number()) % 2000 + 1;
  const std::string defaults = input.line(), file = input.rest();
  write_file(kDefaults, defaults);
  write_file(kSettings, file);
  const kt::unique_file stream = kt::open_file(kSettings, "re");

  std::vector<char> out(limit + 1, '#');
  const int result = PRO_GetStr(section.get(), key.get(), out.data(), static_cast<int>(limit), stream.get());
  const auto stored = look_up(file, section, key.str(), limit);
  const auto wanted = stored ? stored : look_up(defaults, section, key.str(), limit);
  expect_same("result", result, wanted && !key.is_null() ? 0 : -1);
  if (result == 0) expect_same("value", std::string(out.data()), wanted->value);
  if (result == 0 && stored) expect_same("place", static_cast<size_t>(ftell(stream.get())), stored->behind);

  int number = 4711;
  const auto digits = look_up(file, section, key.str(), 63);
  if (digits && PRO_GetInt(section.get(), key.get(), &number, stream.get()) == 0) {
    expect_same("number", number, atoi(digits->value.c_str()));
  }
  judge_sections(section, file, stream.get());
  judge_messages(section, file, static_cast<int>(limit) % 10);
  judge_web_message(section, file, defaults, static_cast<int>(limit) % 10);
  return 0;
}
