// The debug trace: lines, files, rotation, relay, flash requests, settings.
#include <errno.h>
#include <ktcomm/log.h>
#include <signal.h>
#include <sys/msg.h>

#include <array>
#include <regex>
#include <sstream>

#include "tests/log_support.h"

using namespace kt::test;
using std::regex_match, std::string, std::to_string;

namespace {

using Words = std::array<int, 5>;      // of a flash request
using Info = std::array<unsigned, 2>;  // sequence number, file number
struct Message {
  long type;
  Words words;
};
const string kSystem = "/tmp/debug/system/", kMisc = "/tmp/debug/misc/";

int queue() { return msgget(0x12345678, IPC_CREAT | 0666); }

std::vector<Words> requests() {
  std::vector<Words> all;
  for (Message m; msgrcv(queue(), &m, sizeof(Words), 1, IPC_NOWAIT) == sizeof(Words);) { all.push_back(m.words); }
  return all;
}

Info read_info(const string& directory, int sub) {
  const string content = read_file(directory + "~" + to_string(sub) + ".info");
  Info info = {};
  EXPECT_EQ(content.copy(reinterpret_cast<char*>(&info), sizeof info), sizeof info);
  return info;
}

class Trace : public Relay, public CameraTest {
 protected:
  Trace() : Relay("/tmp/syslog.daemon") {}
  void SetUp() override {
    ASSERT_EQ(system("cd /tmp && rm -rf debug && mkdir -p debug/system debug/kernel debug/misc && "
                     "mv syslog.daemon debug"),
              0);
    (void)requests();
  }
};

TEST(Modules, rows_are_what_programs_expect) {
  std::ostringstream text;
  for (const auto& [name, slots, size, count, keep, level] : mod_define) {
    text << (name != nullptr ? name : "end") << ' ' << count << keep[0] << keep[1] << level << ',';
    EXPECT_TRUE(slots == keep[0] + keep[1] && size == (name != nullptr ? 16384 : 0)) << name;
  }
  EXPECT_EQ(text.str(),
            "system 1108,kernel 2408,sensor_daemon 2008,stream_server 2218,event 2208,upnpigd 1008,"
            "upnp 1008,web 1208,cgi 1208,dhcpc 1108,ntp 1008,ddns 1008,ftpc 1008,smtpc 1008,oem 1008,"
            "misc 1108,stunnel_https 1008,end 0000,");
}

TEST_F(Trace, line_holds_level_module_local_time_and_sequence_number) {
  set_zone("KTT-5:45");
  const time_t before = time(nullptr);
  write_file(kSystem + "~0.info", "\5\5\5\5\5\5\5");  // a short one reads as zeros
  expect_all(0, {KT_DEBUGn_in(8, 0, 0, "%s(%d)a\n", "main", 12), KT_DEBUGn_in(-3, 0, 0, "%5.1f", 2.25)});
  const std::regex form(R"((\[8\]\[system\]\[(.{19}) \d{6}\]\[0\]main\(12\)a\n))"
                        R"((\[-3\]\[system\]\[.{19} \d{6}\]\[1\]  2.2))");
  const string content = read_file(kSystem + "0-0.log");
  std::smatch parts;
  ASSERT_TRUE(regex_match(content, parts, form)) << content;
  for (const size_t line : {1, 3}) EXPECT_EQ(receive(), parts[line]);
  tm local = {};
  strptime(parts[2].str().c_str(), "%Y-%m-%d %H:%M:%S", &local);
  EXPECT_TRUE(before <= mktime(&local) && mktime(&local) <= time(nullptr)) << content;

  EXPECT_EQ(KT_DEBUGn_in(4, 0, 1, "%s\n", string(12000, 'x').c_str()), 0);
  EXPECT_EQ(read_file(kSystem + "1-0.log").size(), 10239u);
  EXPECT_EQ(read_info(kSystem, 1), (Info{1, 0}));
}

TEST_F(Trace, filtered_and_wrong_calls_touch_nothing) {
  const char* const no_format = nullptr;
  mod_define[1].level = 4;
  errno = 4711;
  const std::array<int, 3> kCalls[] = {{9, 0, 0}, {5, 1, 0}, {1, -1, 0}, {1, 17, 0}, {1, 0, -1}, {1, 0, 2}};
  for (const auto& [level, module, sub] : kCalls) EXPECT_EQ(KT_DEBUGn_in(level, module, sub, "%d\n", 1), -1) << module;
  EXPECT_TRUE(KT_DEBUGn_in(1, 0, 0, no_format) == -1 && errno == 4711);
  mod_define[1].level = 8;
  EXPECT_TRUE(files_in("/tmp/debug/system").empty() && files_in("/tmp/debug/kernel").empty());
  EXPECT_EQ(receive(), "(none)");
}

TEST_F(Trace, rotation) {
  const std::tuple<const char*, int, int, unsigned, size_t, unsigned, string, string> kCases[] = {
      // module, sub-log, file, its size before a line of 100 bytes, rotates, deleted, kept
      {"exactly full", 0, 0, 5, 16284, 0, "0-2", "0-3"},
      {"one byte more", 0, 0, 5, 16285, 1, "0-3", "0-4"},
      {"beyond the limit", 0, 0, 5, 20000, 1, "0-3", "0-2"},
      {"no file below 0", 0, 0, 0, 16384, 1, "0-4294967294", "0--2"},
      {"keep of the sub-log", 1, 1, 2, 16384, 1, "1-1", "1-0"},
      {"keep 4", 1, 0, 9, 16384, 1, "0-4", "0-5"}};
  for (const auto& [what, module, sub, file, size, rotates, deleted, kept] : kCases) {
    SCOPED_TRACE(what);
    const string directory = string("/tmp/debug/") + mod_define[module].name + "/", start = directory + to_string(sub);
    const auto log = [&](unsigned number) { return start + "-" + to_string(number) + ".log"; };
    const Info info = {7, file};
    write_file(directory + "~" + to_string(sub) + ".info", {reinterpret_cast<const char*>(&info), sizeof info});
    write_file(log(file), string(size, 'x'));
    for (const string& name : {deleted, kept}) write_file(directory + name + ".log", "");
    // "[4][system]", 28 bytes of date and "[7]" come before the message.
    EXPECT_EQ(KT_DEBUGn_in(4, module, sub, "%s", string(100 - 42, 'm').c_str()), 0);
    EXPECT_EQ(read_info(directory, sub), (Info{8, file + rotates}));
    EXPECT_EQ(read_file(log(file)).size(), size + (rotates ? 0 : 100));
    EXPECT_EQ(read_file(log(file + 1)).size(), rotates ? 100 : strlen("(none)"));
    EXPECT_EQ(requests(), std::vector(rotates, Words{0, module, sub, int(file), 0}));
    EXPECT_TRUE(exists(directory + deleted + ".log") != rotates && exists(directory + kept + ".log"));
    ASSERT_EQ(system(("rm -f " + directory + "*").c_str()), 0);
  }
}

TEST_F(Trace, neither_missing_directory_nor_stuck_relay_stops_anybody) {
  errno = 4711;
  EXPECT_TRUE(KT_DEBUGn_in(4, 11, 0, "lost\n") == 0 && errno == 4711);
  EXPECT_TRUE(regex_match(receive(), std::regex(R"(\[4\]\[ddns\].*\[0\]lost\n)")));
  EXPECT_FALSE(exists("/tmp/debug/ddns"));
  alarm(20);  // the relay is full after some ten datagrams
  for (int i = 0; i < 300; ++i) EXPECT_EQ(KT_DEBUGn_in(4, 0, 0, "%d\n", i), 0);
  alarm(0);
  EXPECT_EQ(read_info(kSystem, 0), (Info{300, 0}));
}

TEST_F(Trace, eight_processes_lose_and_double_nothing) {
  constexpr unsigned kLines = 2000;
  mod_define[15].keep[0] = 1 << 20;  // every file stays, to be read below
  ASSERT_TRUE(in_processes(8, [](int id) {
    int failed = 0;
    for (unsigned i = 0; i < kLines; ++i) failed |= KT_DEBUGn_in(4, 15, 0, "p%d n%u\n", id, i);
    return failed;
  }));
  mod_define[15].keep[0] = 1;
  const Info info = read_info(kMisc, 0);
  unsigned number, id, count, sequence = 0, next[8] = {};
  for (unsigned file = 0; file <= info[1]; ++file) {
    const string content = read_file(kMisc + "0-" + to_string(file) + ".log");
    ASSERT_TRUE(content.size() <= 16384 && (content.size() > 16384 - 80 || file == info[1]));
    for (const string& line : lines_of(content)) {
      ASSERT_EQ(sscanf(line.c_str(), "[4][misc][%*26c][%u]p%1u n%u", &number, &id, &count), 3) << line;
      ASSERT_TRUE(number == sequence++ && count == next[id]++) << line;
    }
  }
  expect_all(8 * kLines, {info[0], sequence});
  EXPECT_EQ(requests().size(), info[1]);
}

TEST_F(Trace, waiting_for_the_flash_ends_with_the_answer) {
  EXPECT_TRUE(in_processes(2, [](int daemon) {
    if (daemon == 0) return save_debug_to_flash(3, 1, -6, 1) == 0 && exists("/tmp/debug/saved") ? 0 : 1;
    Message message = {};
    if (msgrcv(queue(), &message, sizeof(Words), 1, 0) != sizeof(Words)) return 2;
    usleep(50000);
    write_file("/tmp/debug/saved", "");
    message.type = 19;
    return msgsnd(queue(), &message, sizeof(Words), 0) == 0 && message.words == Words{19, 3, 1, -6, 1} ? 0 : 3;
  }));
}

TEST_F(Trace, without_a_request_sent_no_answer_is_waited_for) {
  static volatile int alarms = 0;
  signal(SIGALRM, [](int) { alarms = alarms + 1; });
  msqid_ds status = {};
  msgctl(queue(), IPC_STAT, &status);
  status.msg_qbytes = 1;  // sending waits for room until a signal comes
  ASSERT_EQ(msgctl(queue(), IPC_SET, &status), 0);
  ualarm(50000, 50000);
  EXPECT_EQ(save_debug_to_flash(3, 1, 1, 1), 0);
  ualarm(0, 0);
  EXPECT_EQ(alarms, 1);
  signal(SIGALRM, SIG_DFL);
  EXPECT_EQ(msgctl(queue(), IPC_RMID, nullptr), 0);
}

TEST_F(Trace, console_and_card_prints) {
  ASSERT_EQ(rename("/dev/console", "/dev/console.real"), 0);
  EXPECT_TRUE(console_printf("%s", "nobody") == 0 && !exists("/dev/console"));
  write_file("/dev/console", string(3000, '-'));
  EXPECT_EQ(console_printf("%s", string(2500, 'x').c_str()), 0);
  EXPECT_EQ(read_file("/dev/console"), string(2047, 'x') + string(953, '-'));
  ASSERT_EQ(rename("/dev/console.real", "/dev/console"), 0);
  EXPECT_EQ(mmcsd_printf(nullptr, "%d", 1) + mmcsd_printf("/nowhere/card.log", "%d", 1), -2);
  for (const int card : {1, 2}) EXPECT_EQ(mmcsd_printf("/tmp/debug/card", "%d\n", card), 0);
  const std::regex form(R"((\[[A-Z][a-z]{2} [ \d]\d \d{4} \d\d:\d\d:\d\d\] )1\n\1(2)\n)");
  EXPECT_TRUE(regex_match(read_file("/tmp/debug/card"), form)) << read_file("/tmp/debug/card");
}

TEST_F(Trace, settings_have_defaults_and_bounds) {
  ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env"), 0);
  write_file(kDefaults, ""), write_file(kSettings, "[DEBUG]\nsyslog_server=" + string(65, 's'));
  DebugConfig config[2] = {{7, "u", 7}, {0x23232323, "", 0}};
  EXPECT_EQ(DEBUGReadConfigData(config), 0);
  EXPECT_EQ(config->syslog_server, string(64, 's'));
  EXPECT_TRUE(config->syslog_mode == 0 && config->syslog_port == 514 && config[1].syslog_mode == 0x23232323);
  const DebugConfig written = {2, "log.example", 1514};
  write_file(kSettings, "");
  EXPECT_EQ(DEBUGWriteConfigData(&written), 0);
  EXPECT_EQ(read_file(kSettings), "[DEBUG]\nsyslog_mode=2\nsyslog_port=1514\nsyslog_server=log.example\n");
  ASSERT_EQ(system("rm -rf /mnt/ramdisk/env"), 0);
  expect_all(-1, {DEBUGReadConfigData(config), DEBUGWriteConfigData(&written), DEBUGReadConfigData(nullptr),
                  DEBUGWriteConfigData(nullptr)});
  EXPECT_EQ(config->syslog_port, 514);
}

}  // namespace
