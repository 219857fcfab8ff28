// The event log: entries, the file they are kept in, reading it, settings.
#include <ktcomm/log.h>
#include <ktcomm/util_time.h>
#include <limits.h>

#include <chrono>
#include <random>

#include "tests/log_support.h"

using namespace kt::test;
using std::string, std::to_string;

namespace {

constexpr char kLog[] = "/tmp/debug/user/nc.log", kWrapped[] = "/tmp/SYS_LOG_start_wrap";
constexpr char kCatalogue[] = "/etc/logfile";
constexpr size_t kLimit = 16384;
const string y(256, 'y'), z(252, 'z');

int g_steps_left = -1;  // of an insertion, until the process is killed
void take_step() { g_steps_left-- == 0 ? raise(SIGKILL) : 0; }

}  // namespace

extern "C" {
ssize_t write(int fd, const void* data, size_t size) {
  take_step();
  const ssize_t written = libc("write", &write)(fd, data, size);
  return take_step(), written;
}
void* memmove(void* to, const void* from, size_t size) noexcept {
  if (g_steps_left < 0) return libc("memmove", &memmove)(to, from, size);
  for (size_t i = size; i-- > 0; static_cast<char*>(to)[i] = static_cast<const char*>(from)[i]) {
    if (i % 2000 == 0) take_step();
  }
  return to;
}
}

namespace {

class EventLog : public CameraTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(system("rm -rf /tmp/debug /tmp/SYS*; mkdir -p /tmp/debug/user /tmp/debug/system /mnt/ramdisk/env"), 0);
    for (const char* path : {kDefaults, kSettings}) write_file(path, "");
    write_file(kCatalogue, "[LOG]\n1=log is full\n2=log cleared\n3=%s did %d\n4=" + y + "\n");
    set_zone("KTT-5:45");
  }
};

// The lines of the log, once its shape has been checked.
std::vector<string> lines_of_log() {
  const string content = exists(kLog) ? read_file(kLog) : "";
  EXPECT_LE(content.size(), kLimit);
  for (const string& line : lines_of(content)) EXPECT_LE(line.size(), 254u);
  return lines_of(content);
}

// The newest line without its time, which is about now; "" for an empty log.
string newest() {
  if (lines_of_log().empty()) return "";
  const string line = lines_of_log()[0];
  EXPECT_NEAR(static_cast<double>(time(nullptr)), atof(line.c_str()), 2);
  return line.substr(line.find(' ') + 1);
}

// What GetLogFromFile_in gives; "-" when it leaves the pointer alone.
string read_log(long since = 0, int iso = 0) {
  char untouched[] = "-", *text = untouched;
  EXPECT_EQ(GetLogFromFile_in(&text, since, iso), 0);
  const string copy = text != nullptr ? text : "(null)";
  if (text != untouched) free(text);
  return copy;
}

TEST_F(EventLog, levels_and_failures) {
  const std::tuple<string, const char*, int, int, int, string> kCases[] = {
      // level, number, result, what is traced
      {"", "LOG", 3, 3, 0, ":log message ok,{"},
      {"log_level=1", "LOG", 1, 3, 0, "log message ok"},
      {"log_level=1", "LOG", 2, 3, 0, ": level=2 > 1\n"},
      {"log_level=1", "LOG", 4, 3, -1, ": level=4 is wrong \n"},
      {"log_level=9", "LOG", 3, 3, 0, "log message ok"},
      {"", "LOG", 0, 99, -1, ": get sec=LOG, index=99 failed\n"},
      {"", "LOG\n", 0, 3, 0, "log message ok"},
      {"", nullptr, 0, 3, -1, ", index=3 failed\n"},
      {"none", "LOG", 0, 3, -1, ": open /mnt/ramdisk/env/system.conf failed\n"},
      {"no catalogue", "LOG", 0, 3, -1, ": open /etc/logfile failed\n"},
      {"no folder", "LOG", 0, 3, -1, ":SaveMessageToLogFile failed\n"}};
  for (const auto& [settings, category, level, number, result, traced] : kCases) {
    SetUp();
    write_file(kSettings, "[LOG]\n" + settings + "\n");
    if (settings == "none") unlink(kSettings);
    if (settings == "no catalogue") unlink(kCatalogue);
    if (settings == "no folder") rmdir("/tmp/debug/user");
    EXPECT_EQ(AddLog(category, level, number, "bob", 7), result) << traced;
    const string trace = read_file("/tmp/debug/system/0-0.log");
    EXPECT_TRUE(trace.find("]AddLog(") != trace.npos && trace.find(traced) != trace.npos) << trace;
    EXPECT_EQ(newest(), traced.find("message ok") != traced.npos ? "bob did 7" : "");
  }
}

TEST_F(EventLog, texts_that_ask_for_other_arguments_do_no_harm) {
  const char* const kStored[][2] = {{"none", "none"},   {"100%%", "100%"},
                                    {"%s", "bob"},      {"%-5s|%02d|%x", "bob  |07|8"},
                                    {"%s%100d", "bob"}, {"95%", "95%"}};
  for (const auto& [text, stored] : kStored) {
    write_file(kCatalogue, string("[LOG]\n1=") + text + "\n");
    EXPECT_EQ(AddLog("LOG", 0, 1, "bob", 7, 8), 0);
    EXPECT_EQ(newest().find(stored), 0u) << text;
  }
  for (const char* const text : {"%n", "%d %hhn", "%1$n", "%99999d", "%.2147483000d"}) {
    write_file(kCatalogue, string("[LOG]\n1=") + text + "\n");
    EXPECT_EQ(AddLog("LOG", 0, 1, 7), -1) << text;
  }
}

TEST_F(EventLog, one_line_of_254_characters_an_entry) {
  const string now = to_string(time(nullptr)) + " ", cut = y.substr(0, 254 - now.size());
  const string kCases[][2] = {{"own line feed\n", "own line feed"},
                              {"forged\n123 entry\n\n", "forged 123 entry "},
                              {y, cut},
                              {cut + "y", cut},
                              {cut + "\n", cut}};
  for (const auto& [text, stored] : kCases) {
    EXPECT_EQ(AddLogDbg("%s", text.c_str()), 0);
    EXPECT_EQ(newest(), stored);
    unlink(kLog);
    EXPECT_EQ(SaveMessageToLogFile((now + text).c_str(), 1), 0);
    EXPECT_EQ(read_file(kLog), now + stored + "\n");
    unlink(kLog);
  }
  EXPECT_EQ(SaveMessageToLogFile("", 1) + SaveMessageToLogFile(nullptr, 1) + AddLogDbg(nullptr), -3);
  EXPECT_EQ(in_child([] { return close(0) + SaveMessageToLogFile("1 a\n", 1); }), 255);
  EXPECT_EQ(newest(), "");
}

// What the file must hold, kept the simple way.
string model(const string& log, const string& entry) {
  const string all = entry + log;
  return all.size() <= kLimit ? all : all.substr(0, all.rfind('\n', kLimit - 1) + 1);
}

TEST_F(EventLog, first_overflow_is_noted_once_until_cleared) {
  std::mt19937 random(1);
  for (int round = 0; round < 3; ++round) {
    string expected = exists(kLog) ? read_file(kLog) : "";
    for (int i = 0; i < 1500; ++i) {
      const size_t room = kLimit - expected.size();  // filled to the byte where possible
      const size_t length = room > 3 && room < 250 ? room - 3 : random() % 249;
      const string entry = "7 " + string(length, 'e') + "\n";
      const bool first = entry.size() > room && !exists(kWrapped);
      ASSERT_EQ(SaveMessageToLogFile(entry.c_str(), 55), 0);
      expected = model(expected, entry + (first && round < 2 ? "55 log is full\n" : ""));
      ASSERT_TRUE(read_file(kLog) == expected && (!first || exists(kWrapped))) << i;
    }
    ASSERT_TRUE(exists(kWrapped));
    EXPECT_EQ(ClearLog(), 0);
    EXPECT_FALSE(exists(kWrapped));
    EXPECT_EQ(newest(), "log cleared");
    EXPECT_EQ(lines_of_log().size(), 1u);
    if (round == 1) write_file(kCatalogue, "[LOG]\n2=log cleared\n");
  }
}

TEST_F(EventLog, foreign_content_neither_overruns_nor_stops_the_log) {
  string lines;
  while (lines.size() < 50000) lines += to_string(lines.size()) + " old\n";
  const std::tuple<const char*, string, int> kCases[] = {
      {"zeros", string(3000, '\0'), 0},
      {"far too long", lines, 0},
      {"filled to the byte", string(kLimit - 6, 'x'), 0},
      {"one endless line", string(20000, 'x'), -1},
      {"line feed behind the limit", string(kLimit - 6, 'x') + "\n", -1},
      {"line feed before the limit", string(kLimit - 7, 'x') + "\nyyyyyyyyyy", 0}};
  for (const auto& [what, content, result] : kCases) {
    write_file(kLog, content);
    write_file(kWrapped, "");
    EXPECT_EQ(SaveMessageToLogFile("9 new\n", 9), result) << what;
    EXPECT_TRUE(read_file(kLog) == (result == 0 ? model(content, "9 new\n") : content)) << what;
    EXPECT_EQ(read_log() != "-", result == 0) << what;
    EXPECT_EQ(ClearLog(), 0);
    EXPECT_EQ(newest(), "log cleared");
  }
}

TEST_F(EventLog, writers_in_many_processes_tear_nothing) {
  for (int round = 0; round < 25; ++round) {
    ASSERT_EQ(ClearLog(), 0);
    ASSERT_TRUE(in_processes(6, [round](int id) {
      std::mt19937 random(static_cast<unsigned>(round * 6 + id));
      for (int i = 0; i < 40;) {  // -1: the lock was busy for too long
        i += 1 + AddLogDbg("p%d n%d %s.", id, i, string(1 + random() % 180, 'e').c_str());
      }
      return 0;
    }));
    int next[6] = {40, 40, 40, 40, 40, 40}, notices = 0;
    for (const string& line : lines_of_log()) {
      const string text = line.substr(line.find(' ') + 1);
      int id = 0, number = 0, length = 0;
      if (sscanf(text.c_str(), "p%1d n%d %*[e].%n", &id, &number, &length) == 2) {
        ASSERT_TRUE(number == --next[id] && text.size() == static_cast<size_t>(length)) << line;
      } else {
        notices += text == "log is full";
        ASSERT_TRUE(text == "log is full" || text == "log cleared") << line;
      }
    }
    ASSERT_EQ(notices, 1);
  }
}

TEST_F(EventLog, killed_writer_leaves_a_usable_log) {
  string before, kept;  // all of them, and those that no insertion may lose
  for (int i = 0; before.size() < kLimit - 200; ++i) {
    before += to_string(i) + " " + string(static_cast<size_t>(i % 180), 'e') + "\n";
    if (before.size() < kLimit - 3 * 255) kept = before;
  }
  write_file(kWrapped, "");
  int step = 0;
  for (int status = -SIGKILL; status == -SIGKILL; ++step) {
    write_file(kLog, before);
    status = in_child([step] { return g_steps_left = step, AddLogDbg("%s", y.c_str()); });
    EXPECT_LE(read_file(kLog).size(), kLimit) << step;
    EXPECT_EQ(AddLogDbg("after"), 0);
    const string log = read_file(kLog);
    for (const string& line : lines_of(kept)) EXPECT_NE(log.find("\n" + line + "\n"), log.npos) << step;
    EXPECT_NE(read_log().find(" after\n"), string::npos);
  }
  EXPECT_GE(step, 8);
}

TEST_F(EventLog, locked_log_is_given_up_after_a_tenth_of_a_second) {
  write_file(kLog, "1 old\n");
  FILE* const holder = fopen(kLog, "re");
  ASSERT_EQ(flock(fileno(holder), LOCK_EX), 0);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(AddLogDbg("new"), -1);
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - before;
  EXPECT_TRUE(waited.count() >= 0.089 && waited.count() < 0.6) << waited.count();
  EXPECT_EQ(ClearLog(), -1);
  EXPECT_EQ(read_file(kLog), "1 old\n");
  fclose(holder);
}

TEST_F(EventLog, relay_gets_a_dated_copy) {
  // Mode, number of the date's form if there is one, form sent: 3 for nothing sent.
  const std::tuple<string, string, size_t> kCases[] = {{"1", "0", 0}, {"1", "1", 1}, {"1", "2", 2}, {"1", "3", 1},
                                                       {"1", "", 1},  {"0", "", 3},  {"2", "", 3},  {"", "", 3}};
  const Relay relay("/tmp/syslog.log");
  for (const auto& [mode, number_of_form, form] : kCases) {
    const string system = number_of_form.empty() ? "" : "date_format=" + number_of_form;
    write_file(kSettings, "[LOG]\nsyslog_mode=" + mode + "\n[SYSTEM]\n" + system + "\n");
    for (const int number : {3, 4}) {
      EXPECT_EQ(AddLog("LOG", 0, number, "amy", 1), 0);
      const time_t now = atol(read_file(kLog).c_str());
      char dates[3][32];
      strftime(dates[0], 32, "%Y-%m-%d %T ", localtime(&now));
      strftime(dates[1], 32, "%m/%d/%Y %T ", localtime(&now));
      strftime(dates[2], 32, "%d/%m/%Y %T ", localtime(&now));
      const string line = (dates[form % 3] + (number == 3 ? "amy did 1" : y)).substr(0, 254) + "\n";
      EXPECT_EQ(relay.receive(), form == 3 ? "(none)" : line) << mode << system;
    }
  }
}

TEST_F(EventLog, reading) {
  const string b = "1970-01-01 05:45:09 b\n";
  const std::tuple<const char*, string, long, int, string> kCases[] = {
      // since, iso, "-" for none
      {"all, newest first", "86400 d c\n9 b\n", 0, 0, "1970-01-02 05:45:00 d c\n" + b},
      {"iso", "86400 b\n", 0, 1, "1970-01-02T05:45:00+05:45 b\n"},
      {"iso is 1 only", "9 b\n", 0, 2, b},
      {"up to the first older one", "9 b\n3 a\n8 b\n", 8, 0, b},
      {"since itself counts", "9 b\n", 9, 0, b},
      {"since later", "9 b\n", 10, 0, "-"},
      {"up to the first that is no entry", "9 b\nx\n9 b\n", 0, 0, b},
      {"a number alone is none", "9\n9 b\n", 0, 0, "-"},
      {"nor one with a blank", "9 \n9 b\n", 0, 0, "-"},
      {"longest", "9 " + z + "\n9 b\n", 0, 0, "1970-01-01 05:45:09 " + z + "\n" + b},
      {"empty", "", 0, 0, "-"}};
  write_file(kSettings, "[SYSTEM]\ndate_format=0\n");
  for (const auto& [what, content, since, iso, expected] : kCases) {
    write_file(kLog, content);
    EXPECT_EQ(read_log(since, iso), expected) << what;
  }
  unlink(kLog);
  char untouched[] = "", *text = untouched;
  EXPECT_EQ(GetLogFromFile(&text), 0);
  unlink(kSettings);
  EXPECT_EQ(GetLogFromFile(&text) + GetLogFromFile(nullptr), -2);
  EXPECT_EQ(text, untouched);
}

TEST_F(EventLog, settings_have_defaults_and_bounds) {
  SysLogData data[2] = {{7, 7, 7, "u", 7}, {0x23232323, 0, 0, "", 0}};
  const auto read = [&] {
    EXPECT_EQ(SysLogReadData(data) + data[1].log_mode, 0x23232323);
    const string modes = to_string(data->log_mode) + to_string(data->log_level) + to_string(data->syslog_mode);
    return modes + "/" + data->syslog_server + "/" + to_string(data->syslog_port);
  };
  EXPECT_EQ(read(), "130//514");
  const string s64(64, 's'), start = "[LOG]\nlog_mode=0\nlog_level=2\nsyslog_mode=1\n";
  for (const string& server : {s64.substr(1), s64, s64 + "s", s64 + s64}) {
    write_file(kSettings, start + "syslog_port=9\nsyslog_server=" + server);
    EXPECT_EQ(read(), "021/" + server.substr(0, 64) + "/9");
  }
  write_file(kSettings, "");
  SysLogData written = {1, 2, 1, "", 99};
  EXPECT_TRUE(SysLogWriteData(&written) == -1 && read_file(kSettings).empty());
  written.log_mode = 0;
  EXPECT_EQ(SysLogWriteData(&written), 0) << "no server, but nothing to send either";
  memset(written.syslog_server, 's', sizeof written.syslog_server);
  EXPECT_EQ(SysLogWriteData(&written), 0);
  EXPECT_EQ(read_file(kSettings), start + "syslog_server=" + s64 + "\nsyslog_port=99\n");
  ASSERT_EQ(system("rm -rf /mnt/ramdisk/env"), 0);
  expect_all(-1, {SysLogWriteData(&written), SysLogReadData(data), SysLogReadData(nullptr), SysLogWriteData(nullptr)});
  EXPECT_EQ(data->syslog_server, s64);
}

TEST(TimeText, iso8601_local_time_with_offset) {
  // Zone, time, size of the buffer, text: "#" for failure.
  const std::tuple<const char*, long, int, string> kCases[] = {
      {"KTT-1", 1795226700, 26, "2026-11-21T03:05:00+01:00"},
      {"KTT3:30", 0, 64, "1969-12-31T20:30:00-03:30"},
      {"UTC0", -1, 64, "1969-12-31T23:59:59+00:00"},
      {"UTC0", sizeof(long) == 8 ? LONG_MAX : 0, sizeof(long) == 8 ? 64 : 0, "#"},
      {"KTT-1", 0, 25, "#"},
      {"UTC0", 0, -1, "#"}};
  for (const auto& [zone, time, size, expected] : kCases) {
    set_zone(zone);
    char out[65] = "#";
    EXPECT_EQ(get_time_iso8601_string(out, size, time), expected == "#" ? -1 : 0);
    EXPECT_EQ(out, expected);
  }
  EXPECT_EQ(get_time_iso8601_string(nullptr, 64, 0), -1);
}

}  // namespace
