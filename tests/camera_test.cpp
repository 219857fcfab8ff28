// The library among the firmware's data files and programs.
#include <ktcomm/config.h>
#include <ktcomm/flash.h>
#include <ktcomm/log.h>
#include <ktcomm/util.h>
#include <signal.h>
#include <string.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support.h"

using namespace kt::test;
using std::string;

namespace {

using Keys = std::vector<std::pair<string, string>>;

// The sections of a data file, in order; anything but headers, key lines, short
// lines and names that are there once fails.
std::vector<std::pair<string, Keys>> sections_of(const char* path) {
  static const std::regex form(R"(\[(.*)\]|([^=\[][^=]*)=(.*))");
  std::vector<std::pair<string, Keys>> sections;
  std::set<string> names;
  std::istringstream text(read_file(path));
  std::smatch parts;
  for (string line; std::getline(text, line);) {
    const bool good = line.size() < 256 && regex_match(line, parts, form) && (parts[1].matched || !sections.empty());
    EXPECT_TRUE(good) << path << ": " << line;
    if (!good) continue;
    if (parts[1].matched) sections.emplace_back(parts[1], Keys());
    if (parts[2].matched) sections.back().second.emplace_back(parts[2], parts[3]);
    const string name = sections.back().first + (parts[2].matched ? "=" + parts[2].str() : "");
    EXPECT_TRUE(names.insert(name).second) << path << ": twice " << name;
  }
  EXPECT_FALSE(sections.empty()) << path;
  return sections;
}

bool eventually(const char* path, const string& content) {
  for (int i = 0; i < 100 && read_file(path) != content; ++i) usleep(20000);
  return read_file(path) == content;
}

TEST(Data, factory_defaults_hold_every_section_that_the_library_reads) {
  EXPECT_GE(calc_conf_line_num_and_check_ascii(kDefaults), 300);
  std::set<string> missing = {"SYSTEM", "DEBUG", "LOG", "USER", "Manufacture", "EVENT", "VIDEO", "SDCARD"};
  for (const auto& [section, keys] : sections_of(kDefaults)) missing.erase(section);
  EXPECT_EQ(missing, std::set<string>());
  char version[33] = "";
  EXPECT_TRUE(PRO_GetStr("[SYSTEM]", "cfg_ver", version, 32, nullptr) == 0 && version[0] != '\0');
}

TEST(Data, message_catalogues_are_numbered_without_a_gap) {
  for (const auto& [section, keys] : sections_of("/share/message.txt")) {
    const int count = static_cast<int>(keys.size()) - 1;
    std::vector<char[256]> texts(keys.size());
    string name = section;  // the readers may cut it
    EXPECT_EQ(PRO_GetMsgSize(name.c_str()), count) << section;
    ASSERT_EQ(PRO_GetMsgByIndex(name.c_str(), 0, count, texts.data(), nullptr), count) << section;
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(keys[size_t(i)], std::pair(std::to_string(i), string(texts[size_t(i)]))) << section;
    }
  }
}

TEST(Data, error_messages_are_found_and_hold_no_conversion) {
  for (const auto& [section, keys] : sections_of("/usr/local/www/adm/cgi_msg")) {
    for (const auto& [code, text] : keys) {
      char out[256] = "";
      GetErrMsg2(section.c_str(), atoi(code.c_str()), out, sizeof out);
      EXPECT_EQ(out, text) << section;
      EXPECT_EQ(text.find('%'), string::npos) << section << ": " << text;
    }
  }
}

TEST(Data, event_texts_take_what_the_library_passes) {
  // Those that are logged without arguments, SD_RECORD with any number.
  std::map<string, bool> found = {{"LOG=1", false},    {"LOG=2", false},    {"SDCARD=3", false},   {"SDCARD=4", false},
                                  {"SDCARD=5", false}, {"SDCARD=6", false}, {"SD_RECORD=8", false}};
  for (const auto& [section, keys] : sections_of("/etc/logfile")) {
    for (const auto& [number, text] : keys) {
      const auto plain = found.find(section + "=" + number);
      if (plain != found.end()) plain->second = !text.empty();
      const bool bare = plain != found.end() || section == "SD_RECORD";
      EXPECT_TRUE(std::regex_match(text, std::regex(bare ? "[^%]*" : "([^%]|%[sd])*"))) << section << number << text;
    }
  }
  for (const auto& [name, is_there] : found) EXPECT_TRUE(is_there) << name;
}

TEST(Daemons, take_the_signals_that_the_library_sends) {
  const char *const lock = "/tmp/hydra.lock", *const log = "/tmp/standin/hydra.log";
  ASSERT_EQ(system("mkdir -p /mnt/mmc/ktmmc; /usr/bin/hydra -f one"), 0);
  const int pid = GetAppsPid("hydra");
  ASSERT_TRUE(pid > 0 && GetAppsPidBySpecFile("hydra", lock) == pid);
  EXPECT_EQ(SendSignal2PidFromFile(lock, 10), 0);
  ASSERT_TRUE(eventually(log, "start -f one\nsignal 10\n"));
  EXPECT_TRUE(kill(pid, 22) == 0 && eventually("/tmp/mmcsd_rec.lock", ""));
  EXPECT_TRUE(kill(pid, 18) == 0 && eventually("/tmp/mmcsd_rec.lock", "(none)"));
  EXPECT_TRUE(system("/usr/bin/killall hydra") == 0 && eventually(lock, "(none)"));
  EXPECT_EQ(read_file(log), "start -f one\nsignal 10\nsignal 22\nsignal 18\nsignal 15\n");
}

TEST(Daemons, save_a_full_trace_file_and_answer) {
  ASSERT_EQ(system("/usr/bin/debugd"), 0);
  ASSERT_EQ(mod_define[7].keep[0], 2u);
  const string line(1000, 'w');
  for (int i = 0; i < 40; ++i) EXPECT_EQ(KT_DEBUGn_in(4, 7, 0, "%s\n", line.c_str()), 0);
  const string first = read_file("/tmp/debug/web/0-0.log");
  EXPECT_GT(first.size(), 15000u);
  EXPECT_TRUE(eventually("/flash-debug/web/0-0.log", first));
  write_file("/tmp/debug/web/1-5.log", "waited for");
  EXPECT_EQ(save_debug_to_flash(7, 1, 5, 1), 0);
  EXPECT_EQ(read_file("/flash-debug/web/1-5.log"), "waited for");
}

TEST(Daemons, relay_traces_and_events) {
  ASSERT_EQ(system("/usr/bin/relayd; mkdir -p /mnt/ramdisk/env; cp /etc/def_sys.conf /mnt/ramdisk/env/system.conf"), 0);
  ASSERT_EQ(PRO_SetInt("LOG", "syslog_mode", 1, kSettings), 0);
  EXPECT_EQ(KT_DEBUGn_in(4, 16, 0, "to the relay\n"), 0);
  ASSERT_TRUE(eventually("/tmp/relay/syslog.daemon", read_file("/tmp/debug/stunnel_https/0-0.log")));
  EXPECT_EQ(AddLog("SDCARD", 2, 3), 0);
  const auto relayed = [] { return read_file("/tmp/relay/syslog.log").ends_with("The SD card was unmounted\n"); };
  for (int i = 0; i < 100 && !relayed(); ++i) usleep(20000);
  EXPECT_TRUE(relayed());
}

}  // namespace
