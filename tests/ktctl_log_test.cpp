// ktctl's commands for the event log, timed jobs and the SD card.
//
// Mounting is played, for which the card's commands are called in this process.
#include <errno.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <time.h>

#include <functional>

#include "base/file_lock.h"
#include "tests/json_check.h"
#include "tests/ktctl_support.h"
#include "tools/ktctl.h"

using namespace kt::test;
using kt::tools::Option, kt::tools::Request;
using std::string;

namespace {

constexpr char kLog[] = "/tmp/debug/user/nc.log", kCrontab[] = "/mnt/ramdisk/crontab", kCard[] = "/dev/mmcblk0",
               kMounts[] = "/tmp/mounts", kQueue[] = "/tmp/mmcsd_todo.lock", kFormat[] = "/tmp/mmcsd_sdfmt.lock";
const string kC = "/mnt/ramdisk/crontab: ", kL = "/etc/logfile: ", kForms = "*, N, N-M or N-M/S from ";

bool g_interrupt, g_busy;

int refuse(int error) { return errno = error, -1; }

}  // namespace

extern "C" {
int mount(const char* device, const char*, const char*, unsigned long, const void*) noexcept {
  const string card = read_file(device) + string(512, ' ');
  if (card.substr(510, 2) != "\x55\xAA") return refuse(EINVAL);
  if (g_interrupt) raise(SIGTERM);
  write_file(kMounts, "/dev/mmcblk0 /mnt/mmc vfat rw 0 0\n");
  return 0;
}
int umount2(const char*, int) noexcept { return g_busy ? refuse(EBUSY) : unlink(kMounts); }
int statfs(const char*, struct statfs* fs) noexcept {
  *fs = {};
  if (!exists(kMounts)) return 0;
  fs->f_type = 0x4D44;
  fs->f_bsize = 1 << 20;
  fs->f_blocks = 2000;
  fs->f_bfree = 1040;
  return 0;
}
FILE* fopen(const char* path, const char* mode) {
  const bool played = strcmp(path, "/proc/mounts") == 0 || strcmp(path, "/proc/partitions") == 0;
  return libc("fopen", fopen)(played ? ("/tmp" + string(path + 5)).c_str() : path, mode);
}
}

namespace {

void run(const string& command) { ASSERT_EQ(system(command.c_str()), 0) << command; }

// The newest entry without its time.
string newest() {
  const string log = read_file(kLog), line = log.substr(0, log.find('\n'));
  return line.substr(line.find(' ') + 1);
}

class Commands : public testing::Test {
 protected:
  void SetUp() override {
    run("test ! -b /dev/mmcblk0 || mv /dev/mmcblk0 /dev/real_card");
    run("rm -rf /mnt/ramdisk/* /tmp/debug/user/* /tmp/mmcsd* /tmp/mounts");
    run("mkdir -p /mnt/ramdisk/env /mnt/mmc /tmp/debug/user");
    write_file(kDefaults, "");
    write_file(kSettings, "[SYSTEM]\ndate_format=0\n");
    g_interrupt = g_busy = false;
  }
  void TearDown() override { run("rm -f /dev/mmcblk0; test ! -b /dev/real_card || mv /dev/real_card /dev/mmcblk0"); }
};

TEST_F(Commands, log_add_fills_in_only_what_fits_the_catalogue) {
  const string fits(243, 'v');
  string catalogue =
      "[T]\n1=100%% done\n2=%s by %s\n3=%d %i %u %04x|\n4=%s %d\n5=%d%d%d%d%d%d%d%d\n6=%d%d%d%d%d%d%d%d%d\n";
  catalogue += "7=" + string(128, '-') + "%s\n";
  const std::pair<string, string> kAdded[] = {
      {"'a %s text'", "a %s text"},
      {fits, fits},
      {"'caf\xc3\xa9'", "caf\xc3\xa9"},
      {"--message T 1", "100% done"},
      {"--message T 2 %d me", "%d by me"},
      {"--message T 3 -2147483648 2147483647 4294967295 10", "-2147483648 2147483647 4294967295 000a|"},
      {"--message T 5 1 2 3 4 5 6 7 8", "12345678"},
      {"--message T 7 end", string(128, '-') + "end"},
      {"--message T --level 2 1", "100% done"}};
  write_file(kSettings, "[LOG]\nlog_level=2\n");
  write_file("/etc/logfile", catalogue);
  for (const auto& [arguments, added] : kAdded) {
    expect_run("log add " + arguments, 0, "", "");
    EXPECT_EQ(newest(), added);
  }
  const string before = read_file(kLog);
  expect_run("log add --message T --level 3 1", 0, "", "@: log_level is 2: nothing of level 3 is added");
  expect_fails(1, "log add ", "--message T 8~/etc/logfile: [T] 8: not found");
  expect_fails(2, "log add ",
               "a b~log add takes one TEXT; see ktctl log add --help|--level 1 a~--level is for messages|"
               "--message T x~NUMBER: x: a number is wanted|--message T --level 4 1~--level: 4: a number from 0 to 3");
  expect_fails(3, "log add ",
               fits +
                   "v~TEXT: 244 characters, 243 fit|''~TEXT: an entry has at least one character|"
                   "'a\nb'~TEXT: control character 0x0a at place 2|'\x7f'~TEXT: control character 0x7f at place 1|"
                   "--message 'T\n' 1~CATEGORY: control character 0x0a at place 2");
  expect_fails(
      3, "log add --message T ",
      "2 a '\x1b'~ARGUMENT: control character 0x1b at place 1|3 2147483648 0 0 0~ARGUMENT: 2147483648: no number for "
      "%d|3 0 0 -1 0~ARGUMENT: -1: no number for %u|3 0 1x 0 0~ARGUMENT: 1x: no number for %i|"
      "2 a b c~/etc/logfile: [T] 2: \"%s by %s\": 2 arguments wanted, 3 given|"
      "2 a~/etc/logfile: [T] 2: \"%s by %s\": 2 arguments wanted, 1 given|"
      "4 a 1~/etc/logfile: [T] 4: \"%s %d\": it mixes texts and numbers|"
      "6 1~/etc/logfile: [T] 6: \"%d%d%d%d%d%d%d%d%d\": it has more than 8 conversions");
  EXPECT_EQ(read_file(kLog), before);
  for (const string format : {"%5s", "%ld", "%", "%*d", "%.3d", "%n", "%100d", "%-s", "%c"}) {
    write_file("/etc/logfile", "[T]\n1=" + format + "\n");
    const string reason = "\": it has a conversion other than %s, %d, %i, %u and %x";
    expect_run("log add --message T 1 1", 3, "", kL + "[T] 1: \"" + format + reason);
  }
  run("rm /etc/logfile");
  expect_run("log add --message T 1", 1, "", "/etc/logfile: not found");
  run("rm -r /tmp/debug/user");
  expect_run("log add a", 4, "", string(kLog) + ": not added: the log could not be written");
}

TEST_F(Commands, log_show_begins_where_it_is_told) {
  const time_t now = time(nullptr);
  const string kOld = "2026-11-21 03:05:00 old\n", kNew = "2026-11-21 03:06:00 a?_\n";
  expect_run("log show", 0, "", "");
  write_file(kLog, "1795226760 a\x1f_\n1795226700 old\n");
  const std::pair<const char*, string> kCases[] = {{"", kNew + kOld},
                                                   {"--since 1795226700", kNew + kOld},
                                                   {"--since 1795226701", kNew},
                                                   {"--since 2026-11-21T03:05:01", kNew},
                                                   {"--since '2026-11-21 03:06'", kNew},
                                                   {"--since 2026-11-21", kNew + kOld},
                                                   {"--since 2026-11-22", ""},
                                                   {"--since 99999999999999d", kNew + kOld},
                                                   {"--iso --since 1795226701", "2026-11-21T03:06:00+01:00 a?_\n"}};
  setenv("TZ", "CET-1", 1);
  for (const auto& [arguments, out] : kCases) expect_run(string("log show ") + arguments, 0, out, "");
  unsetenv("TZ");
  for (const string wrong :
       {"", "1w", "-5", "5 m", "2026-02-30", "2026-1-01", "2026-11-21 24:00", "2026-11-21 03:05:", "x"}) {
    expect_run(
        "log show --since '" + wrong + "'", 2, "",
        wrong + ": no time: seconds since 1970, YYYY-MM-DD[ HH:MM[:SS]], or an age such as 90s, 30m, 2h, 1d is wanted");
  }
  for (const auto& [age, seconds] : {std::pair{"100s", 100}, {"30m", 1800}, {"2h", 7200}, {"1d", 86400}}) {
    write_file(kLog, std::to_string(now - seconds + 60) + " in\n" + std::to_string(now - seconds - 60) + " out\n");
    const string out = ktctl(string("log show --since ") + age).out;
    EXPECT_TRUE(out.find(" in\n") != out.npos && out.find(" out\n") == out.npos) << age << out;
  }
  write_file("/etc/logfile", "[LOG]\n2=cleared\n");
  expect_run("log clear", 0, "", "");
  EXPECT_EQ(newest(), "cleared");
  unlink(kSettings);
  expect_run("log show", 1, "", "@: not found");
}

TEST_F(Commands, log_settings_are_printed_and_set_together) {
  const string server(64, 's'), kSet = "log_mode=1\nlog_level=1\nsyslog_mode=1\nsyslog_server=" + server;
  expect_run("log settings", 0, "log_mode=1\nlog_level=3\nsyslog_mode=0\nsyslog_server=\nsyslog_port=514\n", "");
  expect_fails(3, "log settings ",
               "syslog_mode=1~syslog_server: needed while log_mode and syslog_mode are both on|"
               "log_level=0 syslog_port=65536~syslog_port: 65536: a number from 1 to 65535 is wanted|syslog_server=" +
                   server + "s~syslog_server: more than 64 characters");
  expect_run("log settings syslog_mode=1 log_mode=0 log_level=1", 0, "", "");
  expect_run("log settings log_mode=1 syslog_server=" + server, 0, "", "");
  expect_run("log settings", 0, kSet + "\nsyslog_port=514\n", "");
}

TEST_F(Commands, cron_add_and_remove_edit_exactly_one_job) {
  const string kJob = "1 2 3 4 5 root a b\n", kWhole = kJob + "L0-59/5 * * * * root a\n# c\n";
  const string none = "~" + kC + "there is no such job|", long_command(127, 'c');
  const std::pair<string, string> kCases[] = {
      {"add 1 2 3 4 5 'a b'", kWhole.substr(kJob.size()) + kJob},
      {"add '*/5' '*' '*' '*' '*' a", kWhole + "0-59/5 * * * * root a\n"},
      {"add --linear 0-30 1-23/2 31 dec Sat x", kWhole + "L0-30 1-23/2 31 12 6 root x\n"},
      {"add '*' '*' '*' '*' '*/6' " + long_command, kWhole + "* * * * 0-6/6 root " + long_command + "\n"},
      {"remove 1 2 3 4 5 'a b'", kWhole.substr(kJob.size())},
      {"remove --linear '*/5' '*' '*' '*' '*' a", kJob + "# c\n"},
      {"remove --command a", "# c\n"}};
  for (const auto& [arguments, after] : kCases) {
    write_file(kCrontab, kWhole);
    expect_run("cron " + arguments, 0, "", "");
    EXPECT_EQ(read_file(kCrontab), after) << arguments;
  }
  write_file(kCrontab, kWhole);
  expect_fails(1, "cron remove ",
               "--linear 1 2 3 4 5 'a b'" + none + "'*/5' '*' '*' '*' '*' a" + none + "--command b" + none);
  expect_fails(2, "cron remove ", "--command a 1 2 3 4 5 a~--command stands alone|1 2 3~cron remove takes a whole job");
  expect_fails(3, "cron remove ", "--command 'a b'~--command: a b: one word is wanted, the command's first");
  expect_fails(
      3, "cron add ",
      "60 1 1 1 1 a~MINUTE: 60: *, N, N-M or N-M/S from 0 to 59 is wanted|1 1 1 1-13 1 a~MONTH: 1-13: N-M from 1 to 12|"
      "1 1 1 1 7 a~WDAY: 7: *, N, N-M or N-M/S from 0 to 6|1,2 1 1 1 1 a~MINUTE: 1,2: *, N, N-M or N-M/S from 0 to 59|"
      "5-4 1 1 1 1 a~MINUTE: 5-4: it ends before it|5/2 1 1 1 1 a~MINUTE: 5/2: a step needs a range, N-M/S|"
      "1-5/0 1 1 1 1 a~MINUTE: 1-5/0: a step from 1 to 59|1 1 1 1 1 ''~COMMAND: it is empty or begins with a blank|"
      "1 1 1 1 1 'a\n* * * * * root b'~COMMAND: control character 0x0a at place 2|1 1 1 1 1 " +
          long_command + "c~COMMAND: 128 characters, 127 fit");
  run("rm -r /mnt/ramdisk/crontab; mkdir /mnt/ramdisk/crontab");
  expect_run("cron add 1 1 1 1 1 a", 4, "",
             kC + "not changed: it could not be read or written, or its copy in /tmp not be written");
}

TEST_F(Commands, signals_wait_until_the_crontab_and_the_log_are_whole) {
  kt::FlockFile log;
  ASSERT_TRUE(log.open(kLog, 0644) && log.lock() && mkfifo(kCrontab, 0600) == 0);
  for (const char* command : {"log clear", "cron add 1 1 1 1 1 a", "cron remove --command a"}) {
    Process process(command);  // gets stuck on the way
    for (int i = 0; i < 500 && !process.blocks(SIGTERM) && !process.ended(); ++i) usleep(1000);
    EXPECT_TRUE(process.blocks(SIGTERM) && process.blocks(SIGINT)) << command;
    kill(process.pid(), SIGKILL);
    process.wait();
  }
}

TEST_F(Commands, cron_list_aligns_the_jobs) {
  expect_run("cron list", 0, "", "");
  write_file(kCrontab, "SHELL=/bin/sh\n\n# x\n");
  expect_run("cron list", 0, "", "");
  write_file(kCrontab, "A = b c d e f g h\n0-59/5 * 1 1 1 root a  b\x1b\n\t@daily nobody c\n1 2 3\nL*\t1 * * * root d");
  expect_run("cron list", 0,
             "  MINUTE  HOUR  MDAY  MONTH  WDAY  USER    COMMAND\n"
             "  0-59/5  *     1     1      1     root    a  b?\n"
             "  @daily                           nobody  c\n"
             "L *       1     *     *      *     root    d\n",
             kC.substr(0, kC.size() - 1) + "4: no job");
}

TEST_F(Commands, cron_check_names_every_line_that_a_daemon_refuses) {
  const std::pair<string, string> kLines[] = {
      {"# 99 comment \x01", ""},
      {" \t", ""},
      {"PATH = /bin:/sbin", ""},
      {"_A1=", ""},
      {"*/5 0-23/2,7 1,15 jan-Mar,12 sun,7 root echo a=b", ""},
      {"@daily root x", ""},
      {"5 * * * * /bin/echo hello", "/bin/echo: no such user; is that column missing?"},
      {"often root a = b", "too few columns: five of time, the user and the command are wanted"},
      {"5 * * * * root", "too few columns: five of time, the user and the command are wanted"},
      {"@daily root", "too few columns: the nickname, the user and the command are wanted"},
      {"@noon root x", "@noon: no such nickname"},
      {"1 1,24 * * * root x", "HOUR: 24: " + kForms + "0 to 23 is wanted"},
      {"1 1 1 mo * root x", "MONTH: mo: " + kForms + "1 to 12 is wanted"},
      {"1 1 1 1 8 root x", "WDAY: 8: " + kForms + "0 to 7 is wanted"},
      {"1, 1 1 1 1 root x", "MINUTE: : " + kForms + "0 to 59 is wanted"},
      {"2A=1 1 1 1 1 root x", "MINUTE: 2A=1: " + kForms + "0 to 59 is wanted"},
      {"L* * * * * root x", "a linear line, for which a daemon that knows none may ignore the whole file"},
      {"* * * * * root x\r", "control character 0x0d at place 17"},
      {"* * * * * root " + string(984, 'x'), ""},
      {"* * * * * root " + string(985, 'x'), "1000 characters, at most 999 are read"}};
  string content, expected;
  int number = 0;
  for (const auto& [line, reason] : kLines) {
    content += line + "\n";
    ++number;
    if (!reason.empty()) expected += "/tmp/tab:" + std::to_string(number) + ": " + reason + "\n";
  }
  write_file("/tmp/tab", content + "# end");
  expected += "/tmp/tab:" + std::to_string(number + 1) +
              ": no line feed at the end, for which a daemon may ignore the whole file\n";
  expect_run("cron check /tmp/tab", 3, expected, "");
  expect_run("cron check", 1, "", kC + "not found");
  write_file(kCrontab, kLines[4].first + "\n");
  expect_run("cron check", 0, "", "");
}

TEST_F(Commands, cron_start_tells_when_the_daemon_does_not_stay) {
  ASSERT_TRUE(exists("/usr/lib/crond/crond")) << "the camera has no real cron daemon (package cron)";
  const auto pid_of_daemon = [] { return run("pidof crond >/tmp/pid || true"), read_file("/tmp/pid"); };
  run("ln -sf /bin/busybox /tmp/crond && /tmp/crond -c /run");
  const string other = pid_of_daemon();
  expect_run("cron start", 0, "", "");
  EXPECT_EQ(pid_of_daemon(), other) << "a second one";
  for (int i = 0; i < 2; ++i) expect_run("cron stop", 0, "", "");
  EXPECT_EQ(pid_of_daemon(), "");
  expect_run("cron start", 0, "", "");
  EXPECT_NE(pid_of_daemon(), "");
  expect_run("cron stop", 0, "", "");
  kt::FlockFile lock;  // a daemon that finds it taken ends
  ASSERT_TRUE(lock.open("/run/crond.pid", 0644) && lock.lock());
  expect_run("cron start", 4, "", "/usr/sbin/crond: not running 3 seconds after its start");
}

// ---- The SD card ----------------------------------------------------------

// What a command prints and its exit code, run in this process.
Result card(int (*command)(const Request&), std::initializer_list<Option> options = {}) {
  Request request;
  for (const auto option : options) request.values[static_cast<unsigned>(option)] = "given";
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int code = command(request);
  return {code, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}
Result show() { return card(kt::tools::show_card); }
Result format() { return card(kt::tools::format_card, {Option::kYes}); }

// A process on the card by its directory or an open file.
pid_t hold(const char* directory, const char* file) {
  const pid_t pid = start_child([=] {
    const int fd = open(file, O_RDONLY | O_CREAT, 0666);
    return fd < 0 || chdir(directory) != 0 ? 1 : execl("/bin/sleep", "sleep", "100", nullptr);
  });
  const string line = "/proc/" + std::to_string(pid) + "/cmdline";
  for (int i = 0; i < 1000 && !read_file(line).starts_with("sleep"); ++i) usleep(1000);
  return pid;
}

TEST_F(Commands, sd_status_tells_state_use_and_who_holds_the_card) {
  expect_run("sd status", 1, "state       no card\n", "");
  run("truncate -s 4M /dev/mmcblk0; mkdir -p /mnt/mmc/ktmmc/02005e100001 /mnt/mmc2");
  write_file("/tmp/partitions", " 179 0 2048000 mmcblk0\n");
  const string head = "card        1.9 GiB, 2097152000 bytes\nrecordings  /mnt/mmc/ktmmc/02005e100001\n";
  const string idle = "recorder    does not record\noperation   none\n", nobody = "held by     nobody\n";
  const string unmounted = "state       not mounted\n" + head;
  EXPECT_EQ(show(), (Result{0, unmounted + idle + nobody, ""}));
  EXPECT_EQ(format(), (Result{0, "", ""}));
  const string use = "use         [#####.....] 48% of 1.9 GiB used, 1.0 GiB free\n";
  EXPECT_EQ(show().out, "state       mounted, ready to be written\n" + use + head + idle + nobody);
  run("chmod 555 /mnt/mmc");
  EXPECT_EQ(show().out, "state       mounted, read-only\n" + use + head + idle + nobody);
  run("chmod 755 /mnt/mmc; touch /tmp/mmcsd_rec.lock /tmp/mmcsd_sdop.lock");

  const pid_t first = hold("/mnt/mmc2", "/mnt/mmc/file"), other = hold("/mnt/mmc2", "/mnt/mmc2/file"),
              second = hold("/mnt/mmc", "/dev/null");
  const auto holder = [](pid_t pid, const string& path) { return std::to_string(pid) + "  sleep 100  " + path + "\n"; };
  const string held = holder(first, "/mnt/mmc/file"), also = holder(second, "/mnt/mmc");
  EXPECT_EQ(show().out, "state       mounted, ready to be written\n" + use + head +
                            "recorder    records\noperation   none, but one that was killed has left "
                            "/tmp/mmcsd_sdop.lock\nheld by     " +
                            held + "            " + also);
  {
    kt::FlockFile turn;
    ASSERT_TRUE(turn.open(kQueue, 0700) && turn.lock());
    for (const auto& [mark, what] : {std::pair{"rm -f /tmp/mmcsd_sdop.lock", "begins or ends"},
                                     {"touch /tmp/mmcsd_sdop.lock", "unmounts"},
                                     {"touch /tmp/mmcsd_sdfmt.lock", "formats"}}) {
      run(mark);
      EXPECT_NE(show().out.find("\noperation   " + string(what) + "\n"), string::npos) << what;
    }
    EXPECT_EQ(show().out.find("state       being formatted\ncard"), 0u);
  }
  run("rm /tmp/mmcsd_rec.lock /tmp/mmcsd_sdfmt.lock");
  g_busy = true;
  EXPECT_EQ(card(kt::tools::unmount_card),
            (Result{4, "", "ktctl: /dev/mmcblk0: not unmounted\n  held by  " + held + "           " + also}));
  for (const pid_t pid : {first, other, second}) EXPECT_EQ(kill(pid, SIGKILL) + wait_for_child(pid), -SIGKILL);
}

TEST_F(Commands, sd_dry_runs_leave_the_card_alone_and_programs_learn_of_it) {
  run("truncate -s 4M /dev/mmcblk0; mkdir -p /mnt/mmc/ktmmc/02005e100001; touch /tmp/mmcsd_rec.lock");
  write_file("/tmp/partitions", " 179 0 2048000 mmcblk0\n");
  const auto would = [](int (*command)(const Request&), const string& plan) {
    EXPECT_EQ(card(command, {Option::kDryRun, Option::kYes}), (Result{0, "would " + plan + "\n", ""}));
  };
  const auto learned = [] { return compact_json(card(kt::tools::show_card, {Option::kJson}).out); };
  const string facts =
      "\"card_bytes\":2097152000,\"recordings\":\"/mnt/mmc/ktmmc/02005e100001\",\"recordings_there\":true,"
      "\"recorder\":true,\"operation\":\"none\",\"left_behind\":\"\",\"held_by\":[";
  would(kt::tools::mount_card, "mount /dev/mmcblk0 and let the recorder record");
  would(kt::tools::format_card, "pause the recorder and format /dev/mmcblk0");
  would(kt::tools::unmount_card, "change nothing");
  EXPECT_FALSE(exists(kMounts) || exists(kFormat));
  EXPECT_EQ(learned(), "{\"state\":\"not_mounted\"," + facts + "],\"not_looked_into\":0}");
  run("rm /tmp/mmcsd_rec.lock");
  EXPECT_EQ(format().code, 0);
  run("touch /tmp/mmcsd_rec.lock");
  would(kt::tools::mount_card, "change nothing");
  would(kt::tools::unmount_card, "pause the recorder and unmount /dev/mmcblk0");
  EXPECT_TRUE(exists(kMounts));
  const pid_t holder = hold("/mnt/mmc", "/dev/null");
  EXPECT_EQ(learned(),
            "{\"state\":\"ready\",\"total_bytes\":2097152000,\"used_bytes\":1006632960,\"free_bytes\":1090519040,"
            "\"used_percent\":48," +
                facts + "{\"pid\":" + std::to_string(holder) +
                ",\"command\":\"sleep 100\",\"path\":\"/mnt/mmc\"}],"
                "\"not_looked_into\":0}");
  EXPECT_EQ(kill(holder, SIGKILL) + wait_for_child(holder), -SIGKILL);
}

TEST_F(Commands, sd_mount_and_unmount_are_done_once_and_tell_the_recorder) {
  run("truncate -s 4M /dev/mmcblk0; mkdir -p /mnt/mmc/ktmmc; rm -rf /tmp/standin; /usr/bin/hydra");
  const string log = "/tmp/standin/hydra.log";
  EXPECT_EQ(card(kt::tools::mount_card), (Result{4, "", "ktctl: /dev/mmcblk0: not mounted: Invalid argument\n"}));
  run("/sbin/mkfs.vfat /dev/mmcblk0 >/dev/null 2>&1");
  EXPECT_EQ(card(kt::tools::unmount_card), (Result{0, "", ""}));
  EXPECT_EQ(read_file(log), "start\n") << "nothing was to be done";
  for (int i = 0; i < 2; ++i) EXPECT_EQ(card(kt::tools::mount_card), (Result{0, "", ""}));
  EXPECT_EQ(read_file(log), "start\nsignal 22\n");
  EXPECT_EQ(card(kt::tools::unmount_card), (Result{0, "", ""}));
  EXPECT_FALSE(exists(kMounts));
  EXPECT_EQ(read_file(log), "start\nsignal 22\nsignal 18\nsignal 22\n");
  run("killall hydra");
}

TEST_F(Commands, sd_format_can_be_given_up_until_it_begins) {
  run("truncate -s 4M /dev/mmcblk0");
  const auto in_default = [] { return signal(SIGINT, SIG_DFL), alarm(20), format().code; };
  {
    kt::FlockFile turn;
    ASSERT_TRUE(turn.open(kQueue, 0700) && turn.lock());
    const pid_t waiting = start_child(in_default);
    usleep(100000);
    EXPECT_FALSE(exists(kFormat));
    kill(waiting, SIGINT);
    EXPECT_EQ(wait_for_child(waiting), -SIGINT);
  }
  g_interrupt = true;
  EXPECT_EQ(in_child(in_default), -SIGTERM);
  EXPECT_TRUE(exists(kMounts) && !exists(kFormat)) << "cut off";
}

TEST_F(Commands, sd_settings_are_packed_and_keep_their_units) {
  const auto fields = [](const string& numbers, const string& first, const string& second) {
    string out = numbers + "schedule1=" + first + "\nschedule2=" + second + "\n";
    for (int i = 3; i <= 10; ++i) out += "schedule" + std::to_string(i) + "=\n";
    return out;
  };
  const string kDefault =
      "rec_enable=0\nstream_id=1\ndisk_ctrl=0\nfile_ctrl=60\nduration_s=3600\n"
      "file_size_bytes=10485760\n";
  const string kSet =
      "rec_enable=1\nstream_id=2\ndisk_ctrl=3\nfile_ctrl=4\nduration_s=120\nfile_size_bytes=4294967296\n";
  const string a = "9,00:00,24:00", b = "1,09:00,17:00";
  expect_run("sd settings", 0, fields(kDefault, "", ""), "");
  expect_run("sd settings schedule5=" + b + " schedule2=" + a, 0, "", "");
  expect_run("sd settings", 0, fields(kDefault, a, b), "");
  expect_run(
      "sd settings rec_enable=1 stream_id=2 disk_ctrl=3 file_ctrl=4 duration_s=120 file_size_bytes=4294967296 "
      "schedule1=",
      0, "", "");
  expect_run("sd settings", 0, fields(kSet, b, ""), "");
  expect_fails(
      3, "sd settings ",
      "duration_s=61~duration_s: 61: whole minutes are wanted|file_size_bytes=~file_size_bytes: : a multiple of|"
      "file_size_bytes=1048577~file_size_bytes: 1048577: a multiple of 1048576 is wanted|"
      "schedule2=1,9:00,17:000~schedule2: 1,9:00,17:000: DAY,HH:MM,HH:MM is wanted, DAY from 1 (Sunday) to 9|"
      "schedule10=1,17:00,09:00~schedule10: 1,17:00,09:00: DAY|'schedule3=1,09:00,17:00;'~schedule3: more than 13");
  unlink(kSettings);
  expect_run("sd settings rec_enable=1", 1, "", "@: not found");
}

}  // namespace
