// Events and their entries, and the plain schedules.
#include <ktcomm/sched.h>
#include <string.h>
#include <sys/syscall.h>

#include <sstream>

#include "tests/taken_trace.h"

using namespace kt::test;
using std::string, std::to_string;

static int g_failing_write;  // counts down to the write that fails; 0 for none

extern "C" int flock(int fd, int operation) noexcept {
  if (operation == LOCK_EX && g_failing_write > 0 && --g_failing_write == 0) return errno = EIO, -1;
  return static_cast<int>(syscall(SYS_flock, fd, operation));
}

namespace {

struct Event : CameraTest {
  std::unique_ptr<EventConfig> config{new EventConfig};  // of their own, for the sanitizers
  std::unique_ptr<EvtSchRecord> list{new EvtSchRecord};
  void SetUp() override {
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env /tmp/debug/cgi"), 0);
    unlink(kSettings), write_file(kDefaults, ""), take_trace();
  }
};

string replaced(const string& text, const char* mark, const string& by) {
  return std::regex_replace(text, std::regex(mark), by);
}

TEST_F(Event, entries_are_read_and_saved) {
  string items, z(40, '0'), n(31, 'n'), long_ea(450, '3');
  for (char c = '0'; c <= '9'; ++c) items += string("7,01:00,02:0") + c + (c < '9' ? ";" : "");
  // An entry, and how it is saved, but for the names of the actions.
  const string kCases[][2] = {
      {"is=2|es=0,|et=1|acts=email:1|ei=10|ea=avi,1,2,3|en=door",
       "is=2|es=0,|et=1|acts=00100000000000|ei=10|ea=avi,1,2,3|en=door"},
      {"en=x|ea=JPG:7,4,5,6|is=-1|es=1,2,09:00,17:00;8,1:2,24:0|acts=op1:1;op2:0;smbc_rec:1;wlled:2;httppost:-1;;sd:0;"
       "op3;1:1",
       "is=-1|es=1,2,09:00,17:00;8,01:02,24:00|et=0|acts=10000011000010|ei=0|ea=jpg:9,4,5,6|en=x"},
      {"en=a|es=0,;;1,0:0,0:1;;3,0:2;|xis=4|is=3|is=5|ea=FLVx,1,y,3|acts=sd_rec:1;sd;op1;op2:;xim:1;OP3:1;op4=07",
       "is=3|es=0,1,00:00,00:01;3,00:02,00:00|et=0|acts=00000000000101|ei=0|ea=flv,1,0,0|en=a"},
      {"es=3," + items + ";1,0:1,0:2|ea=mp4,-1,-2,3|en=" + n + "mmm|acts=sd:1;im:1;ftpu:1;op3:1;smbc:1",
       "is=0|es=2," + items + "|et=0|acts=00011000111000|ei=0|ea=mp4,-1,-2,3|en=" + n},
      {"en=b|es=2,2," + z + "9:00," + z + "9:01;10,1:0,2:0;1,0:1,0:2|ea=3GP",
       "is=0|es=2,2,09:00,09:01|et=0|acts=00000000000000|ei=0|ea=3gp,0,0,0|en=b"},
      {"is=0002,0:1,0:2|es=1|ea=,1,2,3|en=c|", "is=2|es=1,|et=0|acts=00000000000000|ei=0|ea=asf,0,0,0|en=c"},
      {"en=e|es=|xis=3||is|=|ea=" + long_ea + ",1,2,3", "is=0|es=0,|et=0|acts=00000000000000|ei=0|ea=asf,1,2,3|en=e"},
      {"en=|en=f|es=-4", ""}};
  for (const auto& [entry, expected] : kCases) {
    memset(&*config, 0xEE, sizeof *config);
    write_file(kSettings, "[EVENT]\nevent_jpeg_fps=9\nevent10_entry=" + entry + "\nevent_trigger=-3\n");
    EXPECT_EQ(ReadEventConf(&*config), 0);
    const EventEntry& e = config->events[9];
    EXPECT_TRUE(e.input_source_copy == e.input_source && e.is_jpeg == (e.format == 4) &&
                e.jpeg_fps - (&e)[-1].jpeg_fps == 9);
    EXPECT_EQ(e.reserved1 | e.reserved2[0] | e.reserved2[10] | e.reserved3[0] | e.reserved3[2] | e.reserved4, 0);
    EXPECT_EQ(e.schedule.enable, std::regex_search(entry, std::regex("es=-?[134]"))) << entry;
    unlink(kSettings);
    EXPECT_EQ(SaveEventConf(&*config), 0);
    string saved = "[EVENT]\nevent_trigger=-3\nevent_jpeg_fps=9\n";
    for (int i = 1; i <= 10; ++i) saved += "event" + to_string(i) + "_entry=" + (i == 10 ? expected : "") + "\n";
    EXPECT_EQ(replaced(read_file(kSettings), "[a-z]\\w*:([01]);?", "$1"), saved);
  }
}

TEST_F(Event, saving_goes_on_and_never_overruns) {
  memset(&*config, 0x80, sizeof *config);  // 11 characters a number, names without NUL
  EventEntry &third = config->events[2], &last = config->events[9];
  memcpy(config->events[0].name, "a|b", 4), memcpy(config->events[1].name, "\n[USER]", 8);
  third.input_source = 1, third.interval = 2, third.rec1 = 3, third.rec2 = 4, third.rec3 = 5, third.format = 7;
  third.schedule.slots[0] = {2, 0, 9}, third.schedule.slots[1].day_mask = 0;
  last.enabled = last.schedule.enable = 1, last.format = 4;
  EXPECT_EQ(SaveEventConf(&*config), 0);
  const string saved = read_file(kSettings), name(31, '\x80'), trace = "8 SaveEventConf():event_name=";
  EXPECT_EQ(take_trace(), trace + "a\n" + trace + "\n" + replaced("########", "#", trace + name + "\n"));
  const string text =
      "3_entry=is=1|es=0,2,00:00,00:09|et=-2139062144|acts=op1:0;op2:0;email:0;ftpu:0;im:0;httpn:0;httppost:0;"
      "wlled:1;smbc:0;sd:0;op3:0;op4:0;smbc_rec:0;sd_rec:0|ei=2|ea=asf,3,4,5|en=" +
      name + "\n";
  EXPECT_NE(saved.find("|en=a\nevent2_entry=\nevent" + text), string::npos) << saved;
  EXPECT_EQ(saved.size() - saved.find("event10_entry"), 512u) << "just a line of the settings";
  for (const int failing : {1, 2}) {
    unlink(kSettings), g_failing_write = failing;
    EXPECT_EQ(SaveEventConf(&*config), -1);
    const char* const lost = failing == 1 ? "event_trigger.*\n" : "event_jpeg_fps.*\n";
    EXPECT_EQ(read_file(kSettings), replaced(saved, lost, "")) << "the others are written";
  }
}

TEST_F(Event, elements_are_found_at_their_place_only) {
  const char* const kCases[] = {// entry, key, value; "-" for none
                                "is=2|en=x",   "en", "x", "xis=1|is=2", "is", "2",    "xis=1",    "is", "-",
                                "is|is=|is=3", "is", "",  "is2=1",      "is", "-",    "a=is=1|b", "is", "-",
                                "a=is=1|b",    "b",  "-", "a=is=1|b",   "a",  "is=1", "",         "is", "-",
                                "|||a=b",      "a",  "b", "a==|",       "a",  "=",    "is=",      "i",  "-"};
  for (size_t i = 0; i < std::size(kCases); i += 3) {
    char out[16] = "-";
    EXPECT_EQ(get_element_from_event_entry(kCases[i], kCases[i + 1], out), kCases[i + 2] == string("-")) << i;
    EXPECT_STREQ(out, kCases[i + 2]) << i;
  }
  char entry[16] = "";
  EXPECT_EQ(add_element_to_event_entry(entry, "is", "") + add_element_to_event_entry(entry, "a", "b|c"), 0);
  EXPECT_EQ(get_element_from_event_entry(nullptr, "is", entry) + get_element_from_event_entry("is=1", nullptr, entry),
            2);
  EXPECT_EQ(get_element_from_event_entry("is=1", "is", nullptr) + add_element_to_event_entry(nullptr, "", ""), 2);
  EXPECT_EQ(add_element_to_event_entry(entry, nullptr, "") + add_element_to_event_entry(entry, "", nullptr), 2);
  EXPECT_STREQ(entry, "is=|a=b|c");
}

TEST_F(Event, days) {
  EXPECT_STREQ(file_format_tab[6], "swf");
  const int masks[] = {0, 1, 2, 4, 8, 16, 32, 64, 62, 127};
  for (int n = -300; n < 300; ++n) {
    EXPECT_EQ(event_sch_day_num2bit(n), n >= 0 && n < 10 ? masks[n] : 0) << n;
    EXPECT_EQ(event_sch_day_bit2num(n), (std::find(masks, masks + 10, n) - masks) % 10) << n;
  }
}

TEST_F(Event, is_due_by_switches_type_and_schedule) {
  const auto due = [&](int on, unsigned t) { return config->trigger = on, check_event_type_schedule(t, &*config); };
  for (EventEntry& e : config->events) e.type = 7, e.enabled = -1, e.schedule = {1, 9999, 0, {{127, 0, 0}}};  // never
  EXPECT_EQ(due(1, 7), 0);
  config->events[8].schedule.enable = 0, config->events[9].schedule.last_minute = 9999;
  EXPECT_EQ(due(-1, 7) * 100 + due(1, 8) * 10 + due(0, 7), 100);
  EXPECT_EQ(config->events[9].schedule.last_minute, 9999u) << "the first hit wins";
  config->events[8].enabled = 0;
  EXPECT_EQ(due(1, 7), 0);
}

TEST_F(Event, daemon_is_told_by_signal_10) {
  const pid_t daemon = start_child([] { return pause(); });
  write_file("/tmp/hydra.lock", to_string(daemon));
  EXPECT_EQ(RestartEvent(), 0);
  EXPECT_EQ(wait_for_child(daemon), -10);
}

TEST_F(Event, plain_schedules_are_saved_and_read) {
  const string s24(24, 'f'), s25 = s24 + 'f', wide(255, 'w');
  // Joined, stored, read again; without the first the items are saved.
  const string kCases[][3] = {
      {"1,00:00,24:00;;9,08:00,12:00;", "1,00:00,24:00;9,08:00,12:00;;", "1,00:00,24:00;9,08:00,12:00;"},
      {";1;2;3;4;5;6;7;8;9;10;11;12", "1;2;3;4;5;6;7;8;9;10;", "1;2;3;4;5;6;7;8;9;10;"},
      {";", "", ""},
      {wide + "x", wide, wide.substr(1, 24) + ";"},
      {"", ";" + s25 + ";a;;;;;;" + s24 + ";" + s25, s24 + ";a;" + s24 + ";" + s24 + ";"},
      {"", replaced("xxxxxxxxxx", "x", s25 + ";"), replaced("xxxxxxxxxx", "x", s24 + ";")}};
  for (size_t i = 0; i < 6 * std::size(kCases); ++i) {
    const auto& [joined, stored, read] = kCases[i / 6];
    const int video = i % 2 != 0, failing = static_cast<int>(i / 2 % 3);
    const string key = video ? "video_" : "event_", section = video ? "[VIDEO]\n" : "[EVENT]\n";
    memset(&*list, 0xEE, sizeof *list);
    memcpy(list->joined, joined.c_str(), std::min<size_t>(joined.size() + 1, 256));
    list->use_items = joined.empty(), list->mode = 3;
    string saved = section + (video ? "video_schedule=3\n" : ""), item, items;
    std::istringstream pieces(stored);
    for (int number = 1; number <= 10; ++number, item = "") {
      std::getline(pieces, item, ';');
      if (joined.empty()) strncpy(list->items[number - 1], item.c_str(), 25);
      if (failing != number + video) saved += key + "define" + to_string(number) + "=" + item + "\n";
    }
    write_file(kSettings, section), g_failing_write = failing;
    EXPECT_EQ((video ? SaveAceSch : SaveEvtSch)(&*list), failing == 0 ? 0 : -1);
    EXPECT_EQ(read_file(kSettings), video && failing == 1 ? section : saved) << "the mode comes first";
    if (failing != 0) continue;
    EXPECT_EQ((video ? ReadAceSch : ReadEvtSch)(&*list), 0);
    for (const auto& text : list->items) items += text[0] != '\0' ? text + string(";") : "";
    EXPECT_EQ(items + string(list->joined, 256), read + read + string(256 - read.size(), '\0'));
    EXPECT_EQ(list->mode * 10 + list->use_items, (video ? 30 : 10) + joined.empty());
  }
}

TEST_F(Event, without_settings_or_record_nothing_is_done) {
  config->trigger = config->events[0].type = list->mode = 7;
  EXPECT_EQ(ReadEventConf(&*config) + ReadEvtSch(&*list) + ReadAceSch(&*list), -3);
  EXPECT_EQ(config->trigger + config->events[0].type + list->mode, 21) << "untouched";
  EXPECT_EQ(ReadEventConf(nullptr) + SaveEventConf(nullptr) + check_event_type_schedule(0, nullptr), -2);
  EXPECT_EQ(ReadEvtSch(nullptr) + ReadAceSch(nullptr) + SaveEvtSch(nullptr) + SaveAceSch(nullptr), -4);
  write_file(kSettings, "");
  EXPECT_EQ(ReadEventConf(&*config) + config->jpeg_fps * 10 + config->trigger, 50) << "defaults";
}

}  // namespace
