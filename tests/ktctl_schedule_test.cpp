// ktctl's groups schedule and event, and the week that they draw.
#include <ktcomm/sched.h>
#include <time.h>

#include <chrono>
#include <functional>
#include <random>
#include <sstream>

#include "tests/ktctl_support.h"
#include "tools/schedule_item.h"
#include "tools/week_grid.h"

using namespace kt::test;
using namespace kt::tools;
using std::string;

namespace {

constexpr time_t kSunday = 1795305600;  // 2026-11-22 00:00 UTC
time_t g_now;                           // 0 for the real time

}  // namespace

extern "C" time_t time(time_t* out) noexcept {
  using std::chrono::system_clock;
  const time_t now = g_now != 0 ? g_now : system_clock::to_time_t(system_clock::now());
  if (out != nullptr) *out = now;
  return now;
}

namespace {

const string kActs = "acts=op1:0;op2:0;email:1;ftpu:0;im:0;httpn:0;httppost:0;wlled:0;smbc:0;sd:0;op3:0;op4:0;";
const string kDoor = "event3_entry=xx=1|is=2|es=3,2,09:00,17:00;8,18:00,24:00|et=1|acts=email:1|ei=10|en=door|en=2nd\n";
const string kYard = "event7_entry=isx=1|is=-1|es=0,1,00:00,01:00|en=back yard|ea=JPG,1\n";
const string kEvents = "[EVENT]\nevent_trigger=1\n" + kDoor + kYard;

class KtctlSchedule : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env /tmp/debug/cgi"), 0);
    write_file(kDefaults, "");
    write_file(kSettings, kEvents);
    setenv("TZ", "UTC0", 1);
    g_now = 0;
  }
};

string replaced(string text, const string& from, const string& to) {
  return text.find(from) == string::npos ? "no " + from : text.replace(text.find(from), from.size(), to);
}

TEST_F(KtctlSchedule, items_are_valid_or_told_why_not) {
  const std::pair<string, string> kCases[] = {
      // items between '|'
      {"valid", "9,00:00,24:00| 1x, 9:+5,10:0y|8,0:0,0:1|1,9:0,10:0               and more"},
      {"it is empty", "|"},
      {"DAY,HH:MM,HH:MM is wanted", "1,2|1,1:0,2|1,1:0|1;1:0,2:0"},
      {"it has more than 25 characters", "1,10:0,0000000000000000011"},
      {"the day is not 1 to 9", "0,1:0,2:0|10,1:0,2:0|-1,1:0,2:0"},
      {"the start is no time from 00:00 to 23:59", "1,24:0,24:0|1,1:60,2:0|1,-1:0,2:0"},
      {"the end is no time from 00:00 to 24:00", "1,1:0,24:01|1,1:0,25:00|1,1:0,2:60"},
      {"the end is not after the start", "1,2:0,2:0|1,2:5,1:59"}};
  string arguments, out, item;
  for (const auto& [verdict, items] : kCases) {
    for (std::istringstream list(items); std::getline(list, item, '|'); out += item + ": " + verdict + "\n") {
      arguments += " '" + item + "'";
    }
  }
  expect_run("schedule check" + arguments, 3, out, "");
  expect_run("schedule check 8,0:00,0:01", 0, "8,0:00,0:01: valid\n", "");

  std::mt19937 random(3);
  for (int round = 0; round < 100000; ++round) {
    item = string("1,10:20,11:3015:20:25:30:35").substr(0, 13 + random() % 15);
    for (int i = 0; i < 4; ++i) item[random() % item.size()] = ",:0259 -x"[random() % 9];
    SchSlot slot;
    const char* const reason = read_item(item.c_str(), slot);
    ASSERT_EQ(reason == nullptr, check_sche_item(item.c_str(), 0) == 0) << item;
    ASSERT_STRNE(reason, "it is no schedule item") << item;
  }
}

TEST_F(KtctlSchedule, a_plan_is_active_exactly_when_the_library_says_so) {
  std::mt19937 random(7);
  for (int round = 0; round < 80; ++round) {
    string settings = "[VIDEO]\nvideo_schedule=" + std::to_string(random() % 5) + "\n", joined;
    std::vector<int> edges = {0, kDayMinutes - 1};
    for (unsigned i = 0; i < round % 11U; ++i) {
      const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
      const unsigned start = below(1500), end = below(1500);
      char item[64];
      snprintf(item, sizeof item, "%u,%02u:%02u,%02u:%02u", below(10), start / 60, start % 60, end / 60, end % 60);
      if (below(3) == 0) item[below(2) == 0 ? 2 : below(13)] = "-x9, "[below(5)];
      settings += "video_define" + std::to_string(1 + random() % 10) + "=" + item + "\n";
      joined += item + string(";");
      for (const unsigned at : {start, end}) edges.insert(edges.end(), {int(at + 1439) % 1440, int(at) % 1440});
    }
    write_file(kSettings, settings);
    EvtSchRecord list;
    SchSlotSet set;
    ASSERT_EQ(ReadAceSch(&list) + set_sch_fmt(&set, random() % 4, joined.data()), 0);
    const WeekPlan plan(list), set_plan(set);
    for (int minute = 0; minute < kWeekMinutes; ++minute) {
      g_now = kSunday + minute * 60 + 59;
      set.last_minute = ~0U;
      ASSERT_EQ(set_plan.is_active(minute), chk_sch_from_mm(&set) == 1) << joined << minute;
    }
    for (size_t i = 0; i < 7 * edges.size(); ++i) {
      const int minute = int(i % 7) * kDayMinutes + edges[i / 7];
      g_now = kSunday + minute * 60;
      ASSERT_EQ(plan.is_active(minute), schedule_chk(1) == 1) << settings << minute;
    }
  }
}

TEST_F(KtctlSchedule, a_week_is_drawn_half_an_hour_a_cell) {
  SchSlotSet set;
  char items[] = "2,00:00,00:59;2,23:59,24:00;9,12:00,13:00;7,23:30,24:00";
  ASSERT_EQ(set_sch_fmt(&set, 1, items), 0);
  const string kDots(22, '.'), kRow = "|.." + kDots + "##" + kDots, kSame = "Tue " + kRow + "|\n";
  const string kWeek = "     00  02  04  06  08  10  12  14  16  18  20  22  24\nSun " + kRow + "|\nMon |#+" + kDots +
                       "##" + kDots.substr(1) + "+|\n" + kSame + replaced(kSame, "Tue", "Wed") +
                       replaced(kSame, "Tue", "Thu") + replaced(kSame, "Tue", "Fri") + "Sat " + kRow.substr(0, 48) +
                       "#|\n     # active  + partly  . inactive  ";
  const std::tuple<int, const char*, size_t, string> kCases[] = {{0, "Sun", 0, "o now, in"},
                                                                 {kDayMinutes + 30, "Mon", 1, "@ now, "},
                                                                 {kDayMinutes + 59, "Mon", 1, "o now, in"},
                                                                 {kWeekMinutes - 1, "Sat", 47, "@ now, "}};
  for (const auto& [now, day, cell, mark] : kCases) {
    testing::internal::CaptureStdout();
    draw_week(WeekPlan(set), now);
    string expected = kWeek + mark + "active\n";
    expected[expected.find(day) + 5 + cell] = mark[0];
    EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
  }
}

// Until when the answer stays, found by asking the library about minute after minute.
string asked(const std::function<int()>& ask, time_t now) {
  g_now = now;
  const int answer = ask();
  for (int minute = 0; minute < kWeekMinutes && ask() == answer; ++minute) g_now += 60 - g_now % 60;
  char moment[40];
  strftime(moment, sizeof moment, "active until %a %H:%M\n", localtime(&g_now));
  const bool changes = ask() != answer;
  g_now = 0;
  if (!changes) return answer == 1 ? "always active\n" : "never active\n";
  return (answer == 1 ? "" : "in") + string(moment);
}

TEST_F(KtctlSchedule, now_is_as_the_library_says_and_until_it_says_otherwise) {
  const string kItems[] = {"2,09:00,17:00;8,18:00,24:00", "9,00:00,00:01;9,12:00,24:00", "8,00:00,24:00", "9,0:0,24:0",
                           "1,0:0,24:0;2,0:0,24:0;3,0:0,1:0;5,0:0,24:0;6,0:0,24:0;7,0:0,24:0"};
  for (int round = 0; round < 24; ++round) {
    const string items = kItems[round % 5];
    std::istringstream list(items);
    string settings = "[EVENT]\nevent_trigger=1\nevent4_entry=en=door|es=1," + items + "\n[VIDEO]\nvideo_define", item;
    for (char i = '2'; std::getline(list, item, ';'); ++i) settings += i + ("=" + item) + "\nvideo_define";
    write_file(kSettings, settings + "10=\n");
    const time_t now = time(nullptr);
    const int west = int(now / 60 % 1440) + (round < 10 ? 0 : (round - 16) * 165);  // of 00:00, in minutes
    char zone[32];
    snprintf(zone, sizeof zone, "XYZ%c%d:%02d", west < 0 ? '-' : '+', abs(west) / 60 % 25, abs(west) % 60);
    setenv("TZ", zone, 1);
    EventConfig config;
    ASSERT_EQ(ReadEventConf(&config), 0);
    SchSlotSet& set = config.events[3].schedule;
    const bool stored = round % 2 == 0;
    const auto ask = [&] { return stored ? schedule_chk(1) : (set.last_minute = ~0U, chk_sch_from_mm(&set)); };
    const string expected = asked(ask, now);
    const int code = expected.find("inactive") == 0 || expected.find("never") == 0 ? 1 : 0;
    const Result result = ktctl(stored ? "schedule now video" : "schedule now door");
    const bool same_minute = now / 60 == time(nullptr) / 60;
    EXPECT_TRUE(!same_minute || result == (Result{code, expected, ""})) << settings << zone << expected << result;
    round -= same_minute ? 0 : 1;
  }
}

const string kTen =
    "1,1:0,2:0;1,1:0,2:0;1,1:0,2:0;1,1:0,2:0;1,1:0,2:0;1,1:0,2:0;1,1:0,2:0;1,1:0,2:0;1,1:0,2:0;1,1:0,2:0";

TEST_F(KtctlSchedule, changes_are_exactly_those_asked_for) {
  const string kNew = "event1_entry=is=0|es=0,|et=0|" + replaced(kActs, "email:1", "email:0") +
                      "smbc_rec:0;sd_rec:0|ei=0|ea=asf,0,0,0|en=a\n";
  const std::tuple<string, string, string> kCases[] = {
      {"set 3 type=1 name=door", "|", "|"},
      {"set 3 type=2", "et=1", "et=2"},
      {"set 3 actions=sd_rec,email", "acts=email:1", kActs + "smbc_rec:0;sd_rec:1"},
      {"set 3 rec2=-4", "|en=2nd", "|en=2nd|ea=asf,0,-4,0"},
      {"set 3 enabled=1", "es=3", "es=1"},
      {"set 3 schedule=off", "es=3,2,09:00,17:00;8,18:00,24:00", "es=2,"},
      {"set 3 'schedule=1,1:2,3:4;9,5:0,24:0'", "3,2,09:00,17:00;8,18:00,24:00", "2,1,01:02,03:04;9,05:00,24:00"},
      {"set 7 enabled=0", "es=0,1,00:00,01:00", "es=2,"},
      {"set 7 source=4 rec1=2", "|is=-1|es=0,1,00:00,01:00|en=back yard|ea=JPG,1",
       "|is=4|es=0,1,00:00,01:00|en=back yard|ea=jpg:5,2,0,0"},
      {"set 1 name=a", kYard, kYard + kNew},
      {"remove 'back yard'", kYard, "event7_entry=\n"},
      {"settings trigger=0", "trigger=1", "trigger=0"},
      {"settings trigger=1 jpeg_fps=9", kYard, kYard + "event_jpeg_fps=9\n"}};
  for (const auto& [arguments, from, to] : kCases) {
    write_file(kSettings, kEvents);
    expect_run("event " + arguments, 0, "", "");
    EXPECT_EQ(read_file(kSettings), replaced(kEvents, from, to)) << arguments;
  }
}

TEST_F(KtctlSchedule, events_are_shown_and_unfit_changes_refused) {
  const string kList =
      "NO  NAME       ENABLED  TYPE  SOURCE  SCHEDULE            ACTIONS\n"
      " 3  door       no          1       2  Mon 09:00-17:00 +1  email\n"
      " 7  back yard  yes         0      -1  always              -\n";
  const string kDoorShown =
      "name=door\nenabled=0\ntype=1\nsource=2\ninterval=10\nactions=email\nformat=asf\n"
      "rec1=0\nrec2=0\nrec3=0\nschedule=2,09:00,17:00;8,18:00,24:00\n";
  const string kNone = ": there is no such event; see ktctl event list";
  const std::tuple<string, int, string, string> kCases[] = {
      {"event list", 0, kList, ""},
      {"event show door", 0, kDoorShown, ""},
      {"event settings", 0, "trigger=1\njpeg_fps=5\n", ""},
      {"event set 1 'name=a|b'", 3, "", "name: a|b: no | fits in"},
      {"schedule now door", 1, "inactive: the event is disabled\n", ""},
      {"schedule now 7", 0, "always active\n", ""}};
  for (const auto& [arguments, code, out, err] : kCases) expect_run(arguments, code, out, err);
  expect_fails(1, "",
               "event remove ''~: there is no such event; see ktctl event list|schedule week 1~1: there is no such");
  expect_fails(2, "event set ", "11 name=a~11: NUMBER is 1 to 10");
  expect_fails(
      3, "event set 1 ",
      "type=1~name: an event needs one|'name=back yard'~name: back yard: event 7 has|name=07~name: 07: numbers|"
      "name=a actions=email,s~actions: s: none of op1 op2 email ftpu im httpn httppost wlled smbc sd op3 op4 smbc_rec "
      "sd_rec|name=a format=jpeg~format: jpeg: none of asf mp4 3gp avi jpg flv swf|name=a 'schedule=1,1:0,2:0;1,2'~"
      "schedule: 1,2: DAY|name=a 'schedule=" +
          kTen + ";9,0:0,1:0'~schedule: more than 10 items");
  EXPECT_EQ(read_file(kSettings), kEvents);
  write_file(kSettings, replaced(kEvents, "trigger=1", "trigger=0"));
  expect_run("event list", 0, kList + "all events are off: event settings trigger=1\n", "");
  expect_run("schedule now 7", 1, "inactive: all events are off\n", "");
  write_file(kSettings, replaced(kEvents, "back yard", "4"));
  expect_run("event show 4", 1, "", "4" + kNone);
  unlink(kSettings);
  for (const char* c : {"event list", "event set 1 name=a", "schedule now event"}) expect_run(c, 1, "", "@: not found");
}

TEST_F(KtctlSchedule, what_show_prints_set_takes_and_the_library_would_store_alike) {
  string settings = "[EVENT]\nevent_trigger=1\nevent_jpeg_fps=12\n", all = "op1";
  for (int i = 1; i <= 10; ++i) settings += "event" + std::to_string(i) + "_entry=\n";
  for (int i = 1; i < 14; ++i) all += string(",") + event_action_tab[i];
  write_file(kSettings, settings);
  const string kFields[] = {"type=-3 source=4 interval=5 actions=" + all + " format=jpg rec1=1 rec2=2 rec3=3",
                            "enabled=0 'schedule=8,09:00,17:00;1,23:59,24:00' format=mp4",
                            "'schedule=" + kTen + "' actions=smbc"};
  for (int i = 0; i < 3; ++i) {
    const string number = std::to_string(i + 1), copy = std::to_string(i + 5);
    expect_run("event set " + number + " 'name=front door' " + kFields[i], 0, "", "");
    std::istringstream shown(ktctl("event show 'front door'").out);
    string arguments;
    for (string line; std::getline(shown, line);) arguments += " '" + line + "'";
    expect_run("event set " + number + arguments + " name=" + number + "th", 0, "", "");
    expect_run("event set " + copy + arguments, 0, "", "");
    EXPECT_EQ(ktctl("event show " + copy).out, shown.str());
    expect_run("event set " + copy + " name=copy" + copy, 0, "", "");
  }
  const string stored = read_file(kSettings);
  EventConfig config;
  ASSERT_EQ(ReadEventConf(&config) + SaveEventConf(&config), 0);
  EXPECT_EQ(read_file(kSettings), stored);
  EXPECT_EQ(config.events[0].name + string(config.events[6].name), "1thcopy7");
}

TEST_F(KtctlSchedule, a_week_lists_its_items_and_says_what_is_now) {
  write_file(kSettings, replaced(kEvents, "es=0,1,00:00,01:00", "es=1,1,00:00,01:00;x;9,1:0,2:0") +
                            "[VIDEO]\nvideo_define2=8,09:00,17:00\nvideo_define4=1\nvideo_define10=9,01:00,17\n");
  const std::tuple<string, string, string> kCases[] = {
      {"video", "Video schedule\n",
       " 2   8,09:00,17:00  daily 09:00-17:00\n"
       " 4   1              never; not valid: DAY,HH:MM,HH:MM is wanted\n"
       "10   9,01:00,17     daily 01:00-17:00; not valid: DAY,HH:MM,HH:MM is wanted\n"},
      {"event", "Event schedule\n", "no items, so always active\n"},
      {"door", "Event 3, door\n", " 1   2,09:00,17:00  Mon 09:00-17:00\n 2   8,18:00,24:00  Mon-Fri 18:00-24:00\n"},
      {"7", "Event 7, back yard\n", " 1   1,00:00,01:00  Sun 00:00-01:00\n 2   9,01:00,02:00  daily 01:00-02:00\n"}};
  for (const auto& [target, title, items] : kCases) {
    const string out = ktctl("schedule week " + target).out;
    const size_t list = out.find("\n\n") + 2, now = out.rfind("\nnow, ");
    EXPECT_EQ(out.substr(0, title.size()) + out.substr(list, now - list), title + items);
    EXPECT_EQ(out.substr(now + 17), ktctl("schedule now " + target).out);
  }
}

TEST_F(KtctlSchedule, the_daemon_is_told_to_reload_or_missing) {
  write_file("/tmp/hydra.lock", std::to_string(start_child([] { return 0; })) + "\n");
  while (waitpid(-1, nullptr, 0) > 0) {}
  expect_run("event reload", 1, "", "there is no event daemon to read the events again");
  ASSERT_EQ(system("/usr/bin/hydra"), 0);
  expect_run("event reload", 0, "", "");
  EXPECT_EQ(read_file("/tmp/standin/hydra.log"), "start\nsignal 10\n");
  EXPECT_EQ(system("kill $(cat /tmp/hydra.lock)"), 0);
}

}  // namespace
