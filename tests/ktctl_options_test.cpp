// What --dry-run, --lock-timeout, --json and --shell mean to the groups log, cron, sd,
// event, schedule, user, admin, ntp, zone and xml, and to dst.
#include <filesystem>
#include <map>
#include <sstream>

#include "base/file_lock.h"
#include "tests/json_check.h"
#include "tests/ktctl_support.h"

using namespace kt::test;
using std::string;

namespace {

const string kLog = "/tmp/debug/user/nc.log", kCrontab = "/mnt/ramdisk/crontab", kXml = "/tmp/a.xml";
const string kText = "it's\n`id` \xf0\x9f\x8e\xa5";
const string kHostile = "a'b\"c $(touch /tmp/pwned) `touch /tmp/pwned` \\n *";
const string kEntry =
    "is=2|es=2,2,09:00,17:00;8,18:00,24:00|et=1|acts=email:1;sd:1|ei=10|ea=asf,0,0,0|en=" + kHostile.substr(0, 8);
const string kFull =
    "[SYSTEM]\ndate_format=0\nntp_updated_time=20160826\nntp_mode=1\nntp_server=a\nntp_server2=\nntp_server3=c\n"
    "ntp_retry=15/8\nntp_date=0\nntp_hour=4\nntp_min=5\n[EVENT]\nevent_trigger=1\nevent_jpeg_fps=5\nevent3_entry=" +
    kEntry +
    "\n[USER]\nlogin_check=1\nuser1=ann,secret\nuser3=b'o `b,secret\nadmin_name=root\nadmin_password=secret\n"
    "[LOG]\nsyslog_server=" +
    kHostile + "\n[VIDEO]\nvideo_schedule=1\nvideo_define2=7,09:00,17:00\n";

// All that a camera keeps but for locks, with or without the times at which it changed.
std::map<string, string> tree(bool with_times) {
  std::map<string, string> files;
  for (const char* root : {"/mnt", "/etc", "/tmp", "/dev/mtd3", "/dev/mtd4"}) {
    std::error_code none;
    std::vector<string> paths = {root};
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root, none)) paths.push_back(entry.path());
    for (const string& path : paths) {
      struct stat status = {};
      if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || path.ends_with(".lock")) continue;
      if (path.starts_with("/tmp/run.") || path == "/tmp/in") continue;
      if (path[1] != 'd') files[path] = std::to_string(status.st_mode) + read_file(path);  // of flash the times tell
      if (!with_times) continue;
      files[path] += std::to_string(status.st_ino) + "." + std::to_string(status.st_mtim.tv_nsec);
    }
  }
  return files;
}

string difference(const std::map<string, string>& before, const std::map<string, string>& after) {
  string paths;
  for (const auto* one : {&before, &after}) {
    const auto& other = one == &before ? after : before;
    for (const auto& [path, content] : *one) {
      if (other.count(path) == 0 || other.at(path) != content) paths += path + "\n";
    }
  }
  return paths;
}

// A command with more options behind its name.
string with(string command, const string& options) {
  const size_t end = command.find(' ', command.starts_with("dst") ? 0 : command.find(' ') + 1);
  return command.insert(std::min(end, command.size()), options);
}

class KtctlOptions : public testing::Test {
 protected:
  void SetUp() override { refill(); }
  static void refill() {
    ASSERT_EQ(system("rm -rf /mnt/ramdisk/* /tmp/debug /tmp/mmcsd* /tmp/a.xml /tmp/ntp_retry /dev/mmcblk0; "
                     "mkdir -p /mnt/ramdisk/env /tmp/debug/user /tmp/debug/cgi"),
              0);
    write_file(kDefaults, "");
    write_file("/etc/logfile", "[T]\n1=%s by %s\n2=%d%%\n[LOG]\n2=cleared\n");
    write_file(kSettings, kFull);
    write_file(kCrontab, "0 * * * * root x y\nL0 * * * * root x\n\t@daily nobody " + kHostile +
                             "\n1 * * * * root z \x1b\n5 4 * * * root ntp_setcron\n");
    write_file(kLog, "1795226760 " + kHostile + "\n1795226700 caf\xc3\xa9 \xe9\x1b\n");
    write_file(kXml, "<?xml version=\"1.0\"?>\n<a x=\"'$(id)&quot;\">\n  <b>it's\n`id` \xf0\x9f\x8e\xa5</b>\n</a>\n");
    write_file("/tmp/in", "n3w\n");
    setenv("TZ", "CET-1", 1);
  }
};

struct DryRun {
  string arguments;
  string said;            // behind "would "
  bool also_done = true;  // the run that is not dry, too
};

TEST_F(KtctlOptions, a_dry_run_says_what_a_run_does_and_touches_nothing) {
  const string kNothing = "change nothing", kJob = kCrontab + ": ", kNone = kJob + "there is no such job";
  const string kEvent = "set [EVENT] event3_entry from \"" + kEntry + "\" to \"";
  const DryRun kRuns[] = {
      {"log add 'a\xc3\xa9'", "add to " + kLog + ": a\xc3\xa9"},
      {"log add --message T 1 he me", "add to " + kLog + ": he by me"},
      {"log add --message T 2 50", "add to " + kLog + ": 50%"},
      {"log clear", "empty " + kLog},
      {"log settings log_level=1 log_mode=0", "set [LOG] log_mode from 1 to 0\nwould set [LOG] log_level from 3 to 1"},
      {"log settings syslog_server=", "set [LOG] syslog_server from \"" + kHostile + "\" to \"\""},
      {"log settings log_level=3", kNothing},
      {"cron add 1 2 3 4 5 'a b'", "add to " + kJob + "1 2 3 4 5 root a b"},
      {"cron add --linear 1 2 3 4 5 a", "add to " + kJob + "L1 2 3 4 5 root a"},
      {"cron add 0 '*' '*' '*' '*' 'x y'", "move to the end of " + kJob + "0 * * * * root x y"},
      {"cron add 5 4 '*' '*' '*' ntp_setcron", kNothing},
      {"cron remove --command x",
       "remove from " + kJob + "0 * * * * root x y\nwould remove from " + kJob + "L0 * * * * root x"},
      {"cron remove 0 '*' '*' '*' '*' 'x y'", "remove from " + kJob + "0 * * * * root x y"},
      {"cron remove --linear 0 '*' '*' '*' '*' x", "remove from " + kJob + "L0 * * * * root x"},
      {"cron remove --command z", "remove from " + kJob + "1 * * * * root z ?"},
      {"cron start", "start /usr/sbin/crond", false},
      {"cron stop", kNothing},
      {"sd settings rec_enable=1 schedule2=9,00:00,24:00",
       "set [SDCARD] rec_enable from 0 to 1\nwould set [SDCARD] schedule1 from \"\" to \"9,00:00,24:00\""},
      {"sd settings stream_id=1", kNothing},
      {"event set 3 rec2=4", kEvent + kEntry.substr(0, kEntry.size() - 16) + ",4,0|en=" + kHostile.substr(0, 8) + "\""},
      {"event set 3 type=1", kNothing},
      {"event remove 3", kEvent + "\""},
      {"event settings trigger=0 jpeg_fps=9",
       "set [EVENT] trigger from 1 to 0\nwould set [EVENT] jpeg_fps from 5 to 9"},
      {"event settings trigger=1", kNothing},
      {"user add new", "add user new, number 2"},
      {"user remove ann", "remove user ann, number 1"},
      {"user password ann", "set the password of user ann"},
      {"user rights ann pt=1 io=0", "set ann's right pt from 0 to 1"},
      {"user rights ann pt=0", kNothing},
      {"admin set name=boss", "set the administrator's name from \"root\" to \"boss\""},
      {"admin set timeout=5", kNothing},
      {"admin password", "set the administrator's password"},
      {"ntp set hour=6", "set [SYSTEM] hour from 4 to 6\nwould remove from " + kJob +
                             "5 4 * * * root ntp_setcron\nwould add to " + kJob + "5 6 * * * root ntp_setcron"},
      {"ntp set hour=4", kNothing},
      {"ntp set date=7", "set [SYSTEM] date from 0 to 7\nwould remove from " + kJob +
                             "5 4 * * * root ntp_setcron\nwould add to " + kJob + "5 4 * * 0 root ntp_setcron"},
      {"ntp set mode=0", "set [SYSTEM] mode from 1 to 0\nwould remove from " + kJob + "5 4 * * * root ntp_setcron"},
      {"ntp sync", "run /usr/local/bin/kt_time_control -n in the background", false},
      {"dst on", "turn daylight saving on"},
      {"dst off", kNothing},
      {"xml set " + kXml + " /a/b new", "replace " + kXml},
      {"xml set " + kXml + " /a/b \"it's\n\\`id\\` \xf0\x9f\x8e\xa5\"", kNothing}};
  for (const DryRun& run : kRuns) {
    refill();
    const auto before = tree(true), content = tree(false);
    const string dry = with(run.arguments, " --dry-run --lock-timeout 9");
    EXPECT_EQ(ktctl(dry, "</tmp/in"), (Result{0, "would " + run.said + "\n", ""})) << dry;
    EXPECT_EQ(difference(before, tree(true)), "") << dry;
    if (!run.also_done) continue;
    EXPECT_EQ(ktctl(run.arguments, "</tmp/in").code, 0) << run.arguments;
    EXPECT_EQ(difference(content, tree(false)) != "", run.said != kNothing)
        << run.arguments << difference(content, tree(false));
  }
  expect_fails(1, "sd ",
               "mount~/dev/mmcblk0: no card|unmount~/dev/mmcblk0: no card|format --yes~/dev/mmcblk0: no card");
  expect_fails(1, "",
               "event remove 4~4: there is|event reload~there is no event daemon|user remove new~new: there is|"
               "xml set /tmp/none /a x~/tmp/none: not found");
  expect_fails(2, "", "log settings level=4~level: there is no|sd format~sd format erases all|dst 1~1: on or off");
  expect_fails(3, "",
               "log settings log_level=4~log_level: 4: a number from 0 to 3 is|user rights ann pt=2~pt: 2: a number|"
               "ntp set hour=24~hour: 24: a number");
  write_file("/tmp/ntp_retry", "");
  expect_run("ntp set --dry-run minute=5", 0, "would remove /tmp/ntp_retry\n", "");
  expect_run("log add --dry-run --message T --level 3 2 1", 0, "would add to " + kLog + ": 1%\n", "");
  write_file(kSettings, "[LOG]\nlog_level=2\n");
  expect_run("log add --dry-run --message T --level 3 2 1", 0, "would change nothing\n",
             "@: log_level is 2: nothing of level 3 is added");
}

TEST_F(KtctlOptions, json_is_json_and_eval_gets_every_value_back) {
  const string kRights = ",~pt~:false,~admin~:false,~io~:false,~audio_in~:false,~audio_out~:false}";
  const string kEscaped = "a'b\\~c $(touch /tmp/pwned) `touch /tmp/pwned` \\\\n *";
  const string kEvent =
      "~name~:~a'b\\~c $(~,~enabled~:false,~type~:1,~source~:2,~interval~:10,~actions~:[~email~,~sd~],"
      "~format~:~asf~,~rec1~:0,~rec2~:0,~rec3~:0,~schedule~:[~2,09:00,17:00~,~8,18:00,24:00~]}";
  const string kNewest =
      "{~entries~:[{~time~:1795226760,~date~:~2026-11-21T03:06:00+01:00~,~message~:~" + kEscaped + "~}";
  const string kOldest =
      ",{~time~:1795226700,~date~:~2026-11-21T03:05:00+01:00~,~message~:~caf\\u00e9 \\u00e9\\u001b~}]}";
  const struct {
    string arguments;
    int code;
    string json;  // how the document begins, with '~' for '"'
    const char* variable;
    string value;
  } kCases[] = {
      {"log show --since 1795226760", 0, kNewest + "]}", "entries_1_message", kHostile},
      {"log show", 0, kNewest + kOldest, "entries_2_message", "caf\xc3\xa9 \xe9\x1b"},
      {"log settings", 0, "{~log_mode~:true,~log_level~:3,~syslog_mode~:false,~syslog_server~:~" + kEscaped,
       "syslog_server", kHostile},
      {"cron list", 0, "{~jobs~:[{~line~:1,~linear~:false,~nickname~:~~,~minute~:~0~,", "jobs_3_command", kHostile},
      {"cron check", 3, "{~file~:~/mnt/ramdisk/crontab~,~refused~:[{~line~:2,~reason~:~a l", "refused_2_line", "3"},
      {"sd status", 1, "{~state~:~no_card~}", "state", "no_card"},
      {"sd settings", 0, "{~rec_enable~:false,~stream_id~:1,~disk_ctrl~:0,", "file_size_bytes", "10485760"},
      {"event list", 0, "{~trigger~:true,~events~:[{~number~:3," + kEvent + "]}", "events_1_schedule_2",
       "8,18:00,24:00"},
      {"event show 3", 0, "{~number~:3," + kEvent, "name", kHostile.substr(0, 8)},
      {"event settings", 0, "{~trigger~:true,~jpeg_fps~:5}", "jpeg_fps", "5"},
      {"schedule check 9,1:0,2:0 \"'\\`\"", 3, "{~items~:[{~item~:~9,1:0,2:0~,~valid~:true,~reason~:~~},{",
       "items_2_item", "'`"},
      {"schedule now event", 0, "{~active~:true,~now~:~", "until", ""},
      {"schedule now 3", 1, "{~active~:false,~now~:~", "off", "the event is disabled"},
      {"schedule now 3", 1, "{~active~:false,~now~:~", "until", ""},
      {"schedule week video", 0, "{~active~:", "week_1_until", "Sat 17:00"},
      {"schedule week 3", 0, "{~active~:false", "items_2_meaning", "Mon-Fri 18:00-24:00"},
      {"user list", 0,
       "{~users~:[{~number~:1,~name~:~ann~" + kRights + ",{~number~:3,~name~:~b'o `b~" + kRights +
           "],~max_users~:20,~login_required~:true}",
       "users_2_name", "b'o `b"},
      {"user rights ann", 0, "{" + kRights.substr(1), "audio_out", "0"},
      {"admin show", 0, "{~name~:~root~,~timeout~:5}", "name", "root"},
      {"ntp show", 0, "{~mode~:1,~server1~:~a~,~server2~:~~,~server3~:~c~,~updated_time~:2016", "retry", "15/8"},
      {"zone list", 0, "{~zones~:[{~index~:0,~offset~:~UTC-12:00~,~offset_minutes~:-720,", "zones", "85"},
      {"zone check 33", 3, "{~index~:33,~offset~:~UTC+2:00~,~offset_minutes~:120,~usable~:false,~use~:32}", "use",
       "32"},
      {"zone check 85", 1, "{~index~:85,~usable~:false,~use~:4}", "usable", "0"},
      {"dst", 0, "{~dst~:false}", "dst", "0"},
      {"xml get " + kXml + " /a/b", 0, "{~value~:~it's\\u000a`id` \\ud83c\\udfa5~}", "value", kText},
      {"xml attr " + kXml + " /a x", 0, "{~value~:~'$(id)\\~~}", "value", "'$(id)\""}};
  for (const auto& c : kCases) {
    const Result json = ktctl(with(c.arguments, " --json"));
    EXPECT_EQ(json.code, c.code) << c.arguments << json;
    string compact = compact_json(json.out);
    std::replace(compact.begin(), compact.end(), '"', '~');
    EXPECT_EQ(compact.substr(0, c.json.size()), c.json) << json;
    EXPECT_EQ(json.out.find("secret"), string::npos) << json;
    write_file("/tmp/sh", "eval \"$(ktctl " + with(c.arguments, " --shell") + ")\"\nprintf %s \"$" + c.variable +
                              "\" >/tmp/value\n");
    EXPECT_EQ(system("env -i PATH=$PATH TZ=$TZ sh /tmp/sh"), 0) << c.arguments;
    EXPECT_EQ(read_file("/tmp/value"), c.value) << c.arguments;
  }
  EXPECT_FALSE(exists("/tmp/pwned"));
}

TEST_F(KtctlOptions, a_lock_that_is_held_too_long_is_given_up) {
  const std::pair<string, string> kCases[] = {
      {"/tmp/cgi_locker.lock",
       "log settings log_level=1|sd settings stream_id=2|event set 3 type=2|event remove 3|event settings "
       "trigger=0|user remove ann|ntp set hour=6|dst on"},
      {"/tmp/accounts_edit.lock",
       "user add new|user password ann|user rights ann pt=1|admin set timeout=1|admin password"},
      {"/tmp/crontab_edit.lock", "cron add 1 1 1 1 1 x|cron remove --command x|ntp set hour=6"},
      {"/tmp/mmcsd_todo.lock", "sd mount|sd format --yes"},
      {kLog, "log add x|log add --message T 2 1|log clear"}};
  for (const auto& [path, commands] : kCases) {
    refill();
    write_file("/dev/mmcblk0", "");
    const auto before = tree(true);
    kt::FlockFile lock;
    ASSERT_TRUE(lock.open(path.c_str(), 0666) && lock.lock());
    std::istringstream list(commands);
    for (string command; std::getline(list, command, '|');) {
      for (const string option : {"--lock-timeout 0 ", "--dry-run --lock-timeout 0 "}) {
        const Result result = ktctl(option + command, "</tmp/in");
        EXPECT_TRUE(result.code == 5 && result.err.find("ktctl: " + path + ": ") == 0) << command << result;
      }
    }
    EXPECT_EQ(difference(before, tree(true)), "") << commands;
  }
}

TEST_F(KtctlOptions, what_has_begun_is_not_given_up_for_a_lock) {
  refill();
  const pid_t other = start_child([] {  // has the lock behind the first of several writes
    while (read_file(kSettings) == kFull) usleep(100);
    kt::FlockFile lock;
    return lock.open("/tmp/cgi_locker.lock", 0666) && lock.lock() && usleep(300'000) == 0 ? 0 : 1;
  });
  EXPECT_EQ(ktctl("--lock-timeout 0 user remove ann").code, 0);
  EXPECT_EQ(read_file(kSettings).find("ann"), string::npos);
  EXPECT_EQ(wait_for_child(other), 0);
}

}  // namespace
