// The library among the firmware's data files and programs.
#include <ktcomm/config.h>
#include <ktcomm/flash.h>
#include <ktcomm/log.h>
#include <ktcomm/util.h>
#include <signal.h>
#include <string.h>

#include <map>
#include <set>

#include "tests/support.h"

using namespace kt::test;
using std::string;

namespace {

using Keys = std::vector<std::pair<string, string>>;

// The sections of a data file, in order; anything but headers, key lines, short
// lines and names that are there once fails.
std::vector<std::pair<string, Keys>> sections_of(const char* path) {
  std::vector<std::pair<string, Keys>> sections;
  std::set<string> names;
  const string text = read_file(path);
  size_t end;
  for (size_t at = 0; (end = text.find('\n', at)) != string::npos; at = end + 1) {
    const string line = text.substr(at, end - at);
    const size_t equals = line.find('=');
    EXPECT_LT(line.size(), 256u) << path << ": " << line;
    if (line[0] == '[') {
      EXPECT_EQ(line.back(), ']') << path << ": " << line;
      sections.emplace_back(line.substr(1, line.size() - 2), Keys());
    } else if (equals == string::npos || sections.empty()) {
      ADD_FAILURE() << path << ": " << line;
      continue;
    } else {
      sections.back().second.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    const string name = sections.back().first + (line[0] == '[' ? "" : "=" + line.substr(0, equals));
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
  std::set<string> names;
  for (const auto& [section, keys] : sections_of(kDefaults)) names.insert(section);
  for (const char* name : {"SYSTEM", "DEBUG", "LOG", "USER", "Manufacture", "EVENT", "VIDEO", "SDCARD"}) {
    EXPECT_TRUE(names.count(name)) << name;
  }
  char version[33] = "";
  EXPECT_EQ(PRO_GetStr("[SYSTEM]", "cfg_ver", version, 32, nullptr), 0);
  EXPECT_STRNE(version, "");
}

TEST(Data, message_catalogues_are_numbered_without_a_gap) {
  for (const auto& [section, keys] : sections_of("/share/message.txt")) {
    const int count = static_cast<int>(keys.size()) - 1;
    std::vector<char[256]> texts(keys.size());
    string name = section;  // the readers may cut it
    EXPECT_EQ(PRO_GetMsgSize(name.c_str()), count) << section;
    ASSERT_EQ(PRO_GetMsgByIndex(name.c_str(), 0, count, texts.data(), nullptr), count) << section;
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(keys[static_cast<size_t>(i)].first, std::to_string(i)) << section;
      EXPECT_EQ(texts[static_cast<size_t>(i)], keys[static_cast<size_t>(i)].second) << section;
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
  std::map<string, std::map<string, string>> catalogue;
  for (const auto& [section, keys] : sections_of("/etc/logfile")) {
    for (const auto& [number, text] : keys) {
      catalogue[section][number] = text;
      for (size_t at = 0; (at = text.find('%', at)) != string::npos; at += 2) {
        EXPECT_NE(string("sd").find(text[at + 1]), string::npos) << text;
      }
    }
  }
  const std::pair<const char*, const char*> kWithoutArguments[] = {{"LOG", "1"},    {"LOG", "2"},    {"SDCARD", "3"},
                                                                   {"SDCARD", "4"}, {"SDCARD", "5"}, {"SDCARD", "6"}};
  for (const auto& [section, number] : kWithoutArguments) {
    EXPECT_NE(catalogue[section][number], "") << section << number;
    EXPECT_EQ(catalogue[section][number].find('%'), string::npos) << section << number;
  }
  EXPECT_NE(catalogue["SD_RECORD"]["8"], "");
  for (const auto& [number, text] : catalogue["SD_RECORD"]) {
    EXPECT_EQ(text.find('%'), string::npos) << text;  // logged with any number, without arguments
  }
}

TEST(Daemons, take_the_signals_that_the_library_sends) {
  ASSERT_EQ(system("/usr/bin/hydra -f one"), 0);
  const int pid = GetAppsPidBySpecFile("hydra", "/tmp/hydra.lock");
  EXPECT_EQ(GetAppsPid("hydra"), pid);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(SendSignal2PidFromFile("/tmp/hydra.lock", 10), 0);
  ASSERT_TRUE(eventually("/tmp/standin/hydra.log", "start -f one\nsignal 10\n"));
  ASSERT_EQ(system("mkdir -p /mnt/mmc/ktmmc"), 0);
  EXPECT_EQ(kill(pid, 22), 0);
  EXPECT_TRUE(eventually("/tmp/mmcsd_rec.lock", ""));
  EXPECT_EQ(kill(pid, 18), 0);
  EXPECT_TRUE(eventually("/tmp/mmcsd_rec.lock", "(none)"));
  EXPECT_EQ(system("/usr/bin/killall hydra"), 0);
  EXPECT_TRUE(eventually("/tmp/hydra.lock", "(none)"));
  EXPECT_EQ(read_file("/tmp/standin/hydra.log"), "start -f one\nsignal 10\nsignal 22\nsignal 18\nsignal 15\n");
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
  ASSERT_EQ(system("/usr/bin/relayd; mkdir -p /mnt/ramdisk/env; cp /etc/def_sys.conf "
                   "/mnt/ramdisk/env/system.conf"),
            0);
  ASSERT_EQ(PRO_SetInt("LOG", "syslog_mode", 1, kSettings), 0);
  EXPECT_EQ(KT_DEBUGn_in(4, 16, 0, "to the relay\n"), 0);
  ASSERT_TRUE(eventually("/tmp/relay/syslog.daemon", read_file("/tmp/debug/stunnel_https/0-0.log")));
  EXPECT_EQ(AddLog("SDCARD", 2, 3), 0);
  string relayed;
  for (int i = 0; i < 100 && relayed.find("The SD card was unmounted\n") == string::npos; ++i) {
    usleep(20000);
    relayed = read_file("/tmp/relay/syslog.log");
  }
  EXPECT_NE(relayed.find("The SD card was unmounted\n"), string::npos);
}

}  // namespace
