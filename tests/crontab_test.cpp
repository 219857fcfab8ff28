// Crontab records, their lines, and the editing of the crontab.
#include <ktcomm/sched.h>
#include <limits.h>
#include <string.h>
#include <time.h>

#include <random>

#include "tests/support.h"

using namespace kt::test;

namespace {

using std::string;
using Entry = SchdEntry;

constexpr char kCrontab[] = "/mnt/ramdisk/crontab";
constexpr time_t kNow = 1795257296;  // 2026-11-21 10:34:56 UTC

ssize_t g_room = -1;  // bytes that write() still takes; -1: no limit
std::vector<string> g_commands;

}  // namespace

extern "C" time_t time(time_t*) noexcept { return kNow; }
extern "C" int system(const char* command) { return g_commands.push_back(command), 256; }
extern "C" ssize_t write(int fd, const void* data, size_t size) {
  if (g_room == 0) return errno = ENOSPC, -1;
  if (g_room > 0) g_room -= static_cast<ssize_t>(size = std::min(size, size_t(g_room)));
  return libc("write", &write)(fd, data, size);
}

namespace {

constexpr int o = -1;  // a number that is not given

Entry job(const char* command, int minute = o) {
  Entry entry = {"", 7, o, o, o, o, o, o, o, o, o, o, o, o, o, minute, o};
  return strcpy(entry.command, command), entry;
}

TEST(CheckField, numbers_lie_in_the_range_of_their_field) {
  const int kRanges[5][2] = {{0, 6}, {1, 12}, {1, 31}, {0, 23}, {0, 59}};  // in the record's order
  for (size_t i = 0; i < 15; ++i) {
    const auto [low, high] = kRanges[i / 3];
    for (const int value : {o, 0, low, high, high + 1, -2, INT_MIN, INT_MAX}) {
      const int in_range = value >= low && value <= high ? 0 : -1;
      EXPECT_EQ(SCHDCheckRange(value, low, high), in_range);
      Entry entry = job("x");
      memcpy(&entry.wday_step + i, &value, sizeof value);
      EXPECT_EQ(SCHDCheckField(&entry), value == o ? 0 : in_range) << value << " as number " << i;
    }
  }
}

TEST(CheckField, a_command_has_up_to_128_characters_and_keeps_127) {
  const std::tuple<size_t, int, int, size_t> kCases[] = {{0, o, -1, 0},      {127, o, 0, 127},  {128, o, 0, 127},
                                                         {128, 13, -1, 127}, {129, o, -1, 129}, {132, o, -1, 132}};
  for (const auto& [length, month, result, left] : kCases) {
    Entry entry = job("");
    entry.month_start = month;
    entry.reserved = 0;
    memset(static_cast<void*>(&entry), 'c', length);
    const unsigned reserved = entry.reserved;
    EXPECT_EQ(SCHDCheckField(&entry), result) << length;
    EXPECT_EQ(strnlen(reinterpret_cast<char*>(&entry), 132), left) << length;
    EXPECT_EQ(entry.reserved, reserved);
  }
}

TEST(Line, is_made_of_the_fields_and_fills_the_buffer) {
  Entry longest = {"", 7, 2, 1, 6, 10, 10, 12, 10, 10, 31, 10, 10, 23, 10, 10, 59};
  memset(longest.command, 'c', 128);  // no NUL
  const std::tuple<Entry, int, string> kCases[] = {
      {job("a  b"), 0, "* * * * * root a  b\n"},
      {job("x", 5), -1, "L5 * * * * root x\n"},
      {{"x", 7, o, o, o, o, o, o, o, o, o, o, o, o, 5, 0, 30}, 0, "0-30/5 * * * * root x\n"},
      {{"x", 7, o, o, o, o, o, o, o, o, o, 5, 0, o, 5, o, 30}, 0, "* 0 * * * root x\n"},
      {{"x", 7, o, 5, 6, o, 4, o, o, 3, o, o, 2, o, o, 1, o}, 0, "1 2 3 4 5-6 root x\n"},
      {longest, 1, "L10-59/10 10-23/10 10-31/10 10-12/10 1-6/2 root " + string(127, 'c') + "\n"}};
  for (const auto& [entry, linear, line] : kCases) {
    for (const size_t size : {180, 190}) {
      string out(200, '#'), expected = line;
      expected.resize(size);
      expected.resize(200, '#');
      EXPECT_EQ(SCHDConvtUserFormat(&entry, out.data(), static_cast<int>(size), linear), 0);
      EXPECT_EQ(out, expected);
    }
  }
}

TEST(Line, refusals_write_nothing_and_wild_records_do_not_overrun) {
  string out(182, '#');
  Entry entry;
  memset(&entry, '-', sizeof entry);  // no NUL anywhere, long numbers
  for (const int size : {179, 0, -1, INT_MIN}) { EXPECT_EQ(SCHDConvtUserFormat(&entry, out.data(), size, 0), -4); }
  expect_all(-1, {SCHDConvtUserFormat(nullptr, out.data(), 180, 0), SCHDConvtUserFormat(&entry, nullptr, 180, 0)});
  EXPECT_EQ(out, string(182, '#'));
  EXPECT_EQ(SCHDConvtUserFormat(&entry, out.data(), 180, 0), 0);
  EXPECT_EQ(strlen(out.c_str()), 179u);
  EXPECT_EQ(out.substr(180), "##");
}

TEST(CutFields, what_follows_the_nth_blank) {
  // The line, its length, n; the result and what is written, '|' for NUL.
  const std::tuple<const char*, int, int, int, string> kCases[] = {
      {"1 2 3\n", 6, 1, 0, "2 3|"}, {"1 2 3\n", 6, 2, 0, "3|"},      {"1 2 3\n", 6, 3, -1, ""},
      {"1 2 3\n", 6, 0, 0, ""},     {"1 2 3\n", 0, 1, -1, ""},       {"1 2 3\n", -6, 1, -1, ""},
      {"1 2 3\n", 6, -1, -1, ""},   {"1 2 3\n", 6, INT_MAX, -1, ""}, {"1 2 3\n", 3, 1, 0, "2"},
      {"1 2 3\n", 2, 1, -1, ""},    {"1  3", 4, 1, 0, " 3"},         {"1\t2 3", 5, 1, 0, "3"},
      {"1 \n", 3, 1, 0, "|"},       {"1 2\n\n", 5, 1, 0, "2\n|"},    {"a\0b c\n", 6, 1, 0, "c|"},
      {nullptr, 6, 1, -1, ""}};
  for (const auto& [line, length, n, result, written] : kCases) {
    string out(8, '#');
    EXPECT_EQ(SCHDCutFields(line, length, n, out.data()), result) << written;
    std::replace(out.begin(), out.end(), '\0', '|');
    EXPECT_EQ(out, written + string(8 - written.size(), '#'));
  }
  EXPECT_EQ(SCHDCutFields("a b", 3, 1, nullptr), -1);
}

class Edit : public CameraTest {
 protected:
  void SetUp() override {
    setenv("TZ", "XYZ-5:45", 1);  // 16:19:56 there
    ASSERT_EQ(run("rm -rf /mnt/ramdisk /tmp/crontab.*; mkdir -p /mnt/ramdisk"), 0);
    char suffix[5];
    ASSERT_EQ(SCHDGetRandom4(suffix), 0);
    copy_ = string("/tmp/crontab.") + suffix;
  }

  static int run(const string& script) { return libc("system", &system)(script.c_str()); }

  string copy_;
};

using Editor = int (*)(Entry*);
constexpr Editor kEditors[] = {SCHDAddSchedule, SCHDAddLinearSchedule, SCHDDelSchedule, SCHDDelLinearSchedule,
                               SCHDDelScheduleByCmd};

const string kJob = "5 * * * * root job\n";

TEST_F(Edit, lines) {
  const std::tuple<const char*, string, Editor, string> kCases[] = {
      {"new crontab: the line alone", "(none)", SCHDAddSchedule, kJob},
      {"no crontab is made", "(none)", SCHDDelSchedule, "(none)"},
      {"unfinished equal line", "#\n5 * * * * root job", SCHDAddSchedule, "#\n" + kJob},
      {"blank behind", "5 * * * * root job \n", SCHDDelSchedule, "5 * * * * root job \n"},
      {"unfinished line equals none", "#\n5 * * * * root job", SCHDDelSchedule, "#\n5 * * * * root job"},
      {"by command: any time, linear, arguments, unfinished",
       "L1 * * * * root job\n* * * * * root job -x y\n1 2 3 4 5 root jobs\n1 2 3 4 5 me job", SCHDDelScheduleByCmd,
       "1 2 3 4 5 root jobs\n"},
      {"by command: sixth blank alone counts", "* * * * *  root job\n* * * * * job\n* * * * * me job\t-x\n",
       SCHDDelScheduleByCmd, "* * * * *  root job\n* * * * * job\n* * * * * me job\t-x\n"}};
  for (const auto& [what, before, editor, after] : kCases) {
    unlink(kCrontab);
    if (before != "(none)") write_file(kCrontab, before);
    write_file(copy_, "left by one that was killed\n");
    Entry entry = job("job", 5);
    EXPECT_EQ(editor(&entry), 0) << what;
    EXPECT_EQ(read_file(kCrontab), after) << what;
    EXPECT_TRUE(!exists(copy_) || after == "(none)") << what;
  }
}

TEST_F(Edit, foreign_lines_are_kept_byte_for_byte) {
  std::mt19937 random(1);
  string noise(5000, '\0');
  for (char& c : noise) c = "\0 \r\tjob*L5\xff"[random() % 11];
  const string front = "0 0 0 0 0 ", edge = front + string(241, 'u') + " jo";  // the 255th character comes next
  const std::pair<string, const char*> kLines[] = {                            // and the editors that take them out
                                                   {noise, ""},
                                                   {"5 * * * * root job", "024"},
                                                   {noise.substr(9, 300), ""},
                                                   {"L5 * * * * root job", "134"},
                                                   {front + "root job " + noise, "4"},
                                                   {front + "root job" + string(1, '\0'), ""},
                                                   {string(255, 'x') + "5 * * * * root job", ""},
                                                   {string(255, ' ') + "L5 * * * * root job", ""},
                                                   {front + string(240, 'u') + " job", "4"},
                                                   {edge + "bs", ""},
                                                   {edge + "b behind", ""},
                                                   {edge + "b", ""}};
  for (const auto& last : kLines) {
    for (size_t e = 0; e < 10; ++e) {  // every editor, with a finished last line and one that is not
      const string end = e < 5 ? "\n" : "";
      const char editor = static_cast<char>('0' + e % 5);
      string before, after;
      for (const auto& [text, takers] : kLines) {
        before += text + "\n";
        if (strchr(takers, editor) == nullptr) after += text + "\n";
      }
      const bool equals = end != "" || editor == '4' || editor < '2';  // deleting takes whole lines for equal
      if (!equals || strchr(last.second, editor) == nullptr) after += last.first + (editor < '2' ? "\n" : end);
      if (editor < '2') after += (editor == '1' ? "L" : "") + kJob;
      write_file(kCrontab, before + last.first + end);
      Entry entry = job("job", 5);
      EXPECT_EQ(kEditors[e % 5](&entry), 0);
      EXPECT_TRUE(read_file(kCrontab) == after) << editor << end << last.first;
    }
  }
}

TEST_F(Edit, failures_lose_nothing) {
  const string kHeader =
      "SHELL=/bin/sh\nPATH=/sbin:/bin:/usr/sbin:/usr/bin:/usr/local/bin\nMAILTO=root\nHOME=/\n\n"
      "# run-parts\n";
  const std::tuple<mode_t, string, int, int, string> kCases[] = {
      // Mask, what is done before, results of adding and of removing, what is left.
      {022, "rm $C; mkdir $C; echo kept >$C/file", -1, -1, "kept\n"},
      {022, "rm -r /mnt/ramdisk", -3, 0, "(none)"},
      {022, "rm -r /mnt/ramdisk; echo >/mnt/ramdisk", -3, 0, "(none)"},
      {022, "mkdir $T # name of the copy", -3, -3, kJob},
      {022, "mkdir $T; rm $C", -3, 0, kHeader},
      {022, "ln -s /dev/full $T", -1, -1, kJob},
      {0777, ": # copy that cannot be read again", -1, -1, kJob},
      {022, "ln -sf /proc/self/mem $C # opens, but cannot be read", -1, -1, ""},
      {022, "chmod 200 $C", -1, -1, kJob},
      {022, "chmod 400 $C", -1, -1, kJob}};
  for (const auto& [mask, set_up, added, removed, after] : kCases) {
    for (const Editor editor : kEditors) {
      write_file(kCrontab, kJob);
      ASSERT_EQ(run("C=/mnt/ramdisk/crontab T=" + copy_ + "; " + set_up), 0);
      Entry entry = job("other");
      const bool adding = editor == SCHDAddSchedule || editor == SCHDAddLinearSchedule;
      umask(mask);
      EXPECT_EQ(editor(&entry), adding ? added : removed) << set_up;
      umask(022);
      (void)chmod(kCrontab, 0700);
      const string left = read_file(string(kCrontab) + (after == "kept\n" ? "/file" : ""));
      EXPECT_EQ(left, adding || after != kHeader ? after : "(none)") << set_up;
      EXPECT_TRUE(rmdir(copy_.c_str()) == 0 || !exists(copy_)) << set_up;
      ASSERT_EQ(run("rm -rf /mnt/ramdisk; mkdir /mnt/ramdisk"), 0);
    }
  }
}

TEST_F(Edit, a_crontab_cut_short_is_whole_in_the_copy) {
  write_file(kCrontab, string(1000, 'x'));
  Entry entry = job("job", 5);
  g_room = 300;
  EXPECT_EQ(SCHDAddSchedule(&entry), -1);
  g_room = -1;
  EXPECT_EQ(read_file(copy_), string(1000, 'x') + "\n" + kJob);
}

TEST_F(Edit, invalid_records_touch_nothing) {
  write_file(kCrontab, kJob);
  for (const Editor editor : kEditors) {
    Entry long_command = job(""), wrong_minute = job("job", 60);
    memset(static_cast<void*>(&long_command), 'c', 129);
    for (Entry* entry : {static_cast<Entry*>(nullptr), &long_command, &wrong_minute}) { EXPECT_EQ(editor(entry), -2); }
  }
  EXPECT_EQ(SCHDCheckField(nullptr), -1);
  EXPECT_EQ(read_file(kCrontab), kJob);
}

TEST_F(Edit, the_copy_is_named_after_the_local_minute_and_second) {
  string out(6, '#');
  EXPECT_EQ(SCHDGetRandom4(out.data()) - SCHDGetRandom4(nullptr), 1);
  EXPECT_EQ(out.replace(2, 2, "xx"), string("19xx\0#", 6));
}

TEST(Daemon, is_started_and_stopped_by_command_whatever_that_returns) {
  g_commands.clear();
  expect_all(0, {SCHDStartSchedule(), SCHDStopSchedule()});
  EXPECT_EQ(g_commands, (std::vector<string>{"/usr/sbin/crond    >/dev/null 2>/dev/null &",
                                             "/usr/bin/killall crond>/dev/null 2>/dev/null"}));
}

}  // namespace
