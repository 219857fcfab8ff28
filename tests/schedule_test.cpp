// Weekly schedules: items, the stored schedules, compiled slot sets.
#include <ktcomm/sched.h>
#include <string.h>
#include <time.h>

#include <sstream>

#include "tests/support.h"

using namespace kt::test;

namespace {

using std::string;

constexpr int kDay = 24 * 60;
constexpr time_t kSunday = 1795305600 - (5 * 60 + 45) * 60;  // 2026-11-22 00:00 at XYZ-5:45

time_t g_now;

// Moves the clock to a minute of the week, in local time.
void set_clock(int minute) { g_now = kSunday + minute * 60 + 59; }

}  // namespace

extern "C" time_t time(time_t* out) noexcept { return out != nullptr ? *out = g_now : g_now; }

namespace {

class Schedule : public CameraTest {
 protected:
  void SetUp() override {
    setenv("TZ", "XYZ-5:45", 1);
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env"), 0);
    write_file(kDefaults, "");
  }
};

TEST(Item, check) {
  const std::pair<int, string> kLists[] = {
      // of items between '|', with one result
      {0,
       "9,00:00,24:00|1,23:59,24:00|1,08:59,09:00|1,09:00,09:01| 1x, 9:+5,10:0y|1,09,10:00,11:00|"
       "1,9:00,0000000000010:00:|1,10:0,000000000000010:05"},
      {1,
       " |0,08:00,09:00|10,08:00,09:00|-1,08:00,09:00|1,08:00,24:30|1,24:00,24:00|1,08:60,09:00|"
       "1,08:59,25:00|1,08:59,09:60|1,-1:00,09:00|1,08:-1,09:00|1,08:00,-1:00|1,08:00,09:-1|"
       "1,09:00,08:59|1,09:00,09:00|1,09:00|1,09:00,10|1;09:00,10:00|,,::|4294967297,9:00,10:00|"
       "1,99999999999:00,10:00|1,10:0,00000000000000010:5"}};
  for (const auto& [result, list] : kLists) {
    std::istringstream items(list);
    for (string item; std::getline(items, item, '|');) EXPECT_EQ(check_sche_item(item.c_str(), 1), result) << item;
  }
  expect_all(1, {check_sche_item("", 0), check_sche_item("", ~0U) + 1, check_sche_item(nullptr, 1)});
  const std::unique_ptr<char[]> full(new char[25]);  // as in a record: no NUL
  memcpy(full.get(), "1,10:0,000000000000010:05", 25);
  EXPECT_EQ(check_sche_item(full.get(), 0), 0);
}

// What the stored schedule of either type says about a minute of the week. '@'
// in `settings` stands for the type.
int stored(int type, int minute, string settings) {
  for (size_t at; (at = settings.find('@')) != string::npos;) {
    settings.replace(at, 1, type == 0 ? "event" : "video");
  }
  write_file(kSettings, (type == 0 ? "[EVENT]\n" : "[VIDEO]\n") + settings);
  set_clock(minute);
  return schedule_chk(type);
}

TEST_F(Schedule, stored_rules) {
  const std::tuple<const char*, string, int> kCases[] = {
      // The result is that of Monday at 09:00.
      {"off", "@_schedule=0\n@_define1=1,00:00,00:01\n", 1},
      {"nothing at all", "", 1},
      {"empty items only", "@_define1=\n@_define5=\n", 1},
      {"mode missing is on", "@_define1=1,00:00,00:01\n", 0},
      {"other modes are on", "@_schedule=-7\n@_define1=1,00:00,00:01\n", 0},
      {"any item, gaps or not", "@_define2=1,0:0,1:0\n@_define10=2,09:00,17:00\n", 1},
      {"there are ten", "@_define0=2,09:00,17:00\n@_define1=1,00:00,01:00\n@_define11=2,09:00,17:00\n", 0},
      {"code 0", "@_define1=0,00:00,24:00\n", 0},
      {"garbage is an item outside", "@_define1=abc\n", 0},
      {"cut behind the end hour", "@_define1=9,01:00,17\n", 1},
      {"cut before the end", "@_define1=9,01:00\n", 0},
      {"the day has one digit", "@_define1=20,00:00,24:00\n", 0},
      {"a negative start is early", "@_define1=9,-1:00,10:00\n", 1},
      {"25 characters", "@_define1=9,      08:00,      09:01\n", 1},
      {"longer ones lose two", "@_define1=9,      08:00,      09:011\n", 0},
      {"hours have two digits", "@_define1=9,008:00,23:00\n", 0},
      {"a negative end is never reached", "@_define1=9,01:00,-1:00\n", 0}};
  for (const auto& [what, settings, result] : kCases)
    for (const int type : {0, 1}) EXPECT_EQ(stored(type, kDay + 540, settings), result) << what << type;
  expect_all(-1, {schedule_chk(-1), schedule_chk(2)});
  chmod(kSettings, 0400);
  EXPECT_EQ(schedule_chk(0), -1) << "must be open to writing";
  unlink(kSettings);
  EXPECT_EQ(schedule_chk(0), -1);
}

// A set between guard words, compiled from `items` over remains of another.
struct Compiled {
  unsigned guard = 0xA5A5A5A5;
  SchSlotSet set;
  unsigned guard_behind = 0xA5A5A5A5;
  string left;  // of the text, '|' for NUL

  explicit Compiled(const string& items, unsigned enable = 1) : left(items) {
    memset(&set, 0xEE, sizeof set);
    EXPECT_EQ(set_sch_fmt(&set, enable, left.data()), 0);
    EXPECT_EQ(set.enable, enable);
    EXPECT_EQ(set.last_minute + set.last_result, 0u) << items;
    EXPECT_TRUE(guard == 0xA5A5A5A5 && guard_behind == 0xA5A5A5A5) << items;
    std::replace(left.begin(), left.end(), '\0', '|');
  }
  string slots() const {
    std::ostringstream text;
    for (const SchSlot& s : set.slots) text << s.day_mask << ':' << s.start << '-' << s.end << ' ';
    string used = text.str();
    while (used.ends_with(" 0:0-0 ") || used == "0:0-0 ") used.resize(used.size() - 6);
    return used;
  }
  int at(int minute) {
    set_clock(minute);
    return chk_sch_from_mm(&set);
  }
};

TEST_F(Schedule, goes_by_the_time_zone_of_the_moment) {
  write_file(kSettings, "[VIDEO]\nvideo_define1=9,01:00,01:02\n");
  set_clock(60);
  EXPECT_EQ(schedule_chk(1), 1);
  setenv("TZ", "XYZ-6:45", 1);
  EXPECT_EQ(schedule_chk(1), 0);
}

TEST_F(Schedule, compiling) {
  string eleven, left, ten_slots;
  for (int i = 0; i < 10; ++i) eleven += "2,0:1,0:2;", left += "2,0:1,0:2|", ten_slots += "2:1-2 ";
  const string kCases[][3] = {
      {"", "", ""},
      {"no digit;", "", "no digit;"},
      {"x; 7,09:05,17:10;8,1:2,3:4;9,0:1,0:2;", "64:545-1030 62:62-184 127:1-2 ",
       "x; 7,09:05,17:10|8,1:2,3:4|9,0:1,0:2|"},
      {"1,0:0,0:1;;2,0:0,0:1", "1:0-1 ", "1,0:0,0:1||2,0:0,0:1"},
      {"1,0:0,0:1;0,0:0,0:1;2,0:0,0:1;", "1:0-1 ", "1,0:0,0:1|0,0:0,0:1|2,0:0,0:1;"},
      {"3;4,01;6,1:2,3;20,1:0,2:0", "4:0-0 8:60-0 32:62-180 2:0-0 ", "3|4,01|6,1:2,3|20,1:0,2:0"},
      {eleven + "2,0:1,0:2;", ten_slots, left + "2,0:1,0:2;"}};
  for (const auto& [items, slots, rest] : kCases) {
    const Compiled compiled(items);
    EXPECT_EQ(compiled.slots() + "/" + compiled.left, slots + "/" + rest) << items;
  }
  // Active when off or empty; not so outside of the ten in use.
  expect_all(1, {Compiled("1,00:00,00:01", 0).at(600), Compiled("").at(600), 1 - Compiled(eleven).at(600)});

  SchSlotSet set;
  memset(&set, 0xEE, sizeof set);
  expect_all(1, {set_sch_fmt(nullptr, 1, left.data()), set_sch_fmt(&set, 1, nullptr)});
  EXPECT_EQ(set.enable, 0xEEEEEEEE) << "nothing stored";
  EXPECT_EQ(chk_sch_from_mm(nullptr), 0);
}

TEST_F(Schedule, an_answer_stands_for_its_minute_of_the_day) {
  Compiled c("2,00:00,10:00");
  EXPECT_EQ(c.at(kDay), 0) << "a set just filled knows 00:00 as not active";
  EXPECT_EQ(c.at(kDay + 1), 1);
  EXPECT_EQ(c.at(kDay), 1) << "asked for another minute in between";
  EXPECT_EQ(c.at(2 * kDay), 1) << "the same minute of the next day";
  c.set.slots[0].end = 0;
  EXPECT_EQ(c.at(kDay), 1) << "the slots are not looked at";
  EXPECT_EQ(c.at(kDay + 1), 0);
}

TEST_F(Schedule, days_and_minutes_of_every_code) {
  const std::tuple<const char*, int, int> kSpans[] = {{",09:00,17:00", 540, 1020}, {",00:00,24:00", 0, kDay}};
  for (const auto& [span, start, end] : kSpans) {
    for (int code = 1; code <= 9; ++code) {
      const string item = std::to_string(code) + span, settings = "@_define1=1,2:0,2:1\n@_define2=" + item;
      EXPECT_EQ(check_sche_item(item.c_str(), 0), 0) << item;
      Compiled compiled("1,2:0,2:1;" + item);
      for (const int at : {kDay - 1, 1020, 1019, 540, 539, 0}) {  // 00:00 must not be asked for first
        for (int day = 0; day < 7; ++day) {
          const bool inside = start <= at && at < end, named = code == 9 || code == day + 1;
          const bool workday = code == 8 && day % 6 != 0;
          const int minute = day * kDay + at;
          (void)compiled.at(7);  // an answer stands until another minute is asked for
          EXPECT_EQ(compiled.at(minute), inside && (named || workday)) << item << minute;
          EXPECT_EQ(stored(day % 2, minute, settings), inside && (named || code == 8)) << item << minute;
        }
      }
    }
  }
}

}  // namespace
