// ktctl's groups user, admin, ntp, zone and xml, and its command dst.
#include <ktcomm/settings.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <sstream>

#include "base/file_lock.h"
#include "tests/ktctl_support.h"
#include "tools/ktctl.h"
#include "tools/password_input.h"

using namespace kt::test;
using std::string, std::to_string;

// A terminal, played on what is standard input: /tmp/tty has what it was told.
extern "C" int isatty(int fd) noexcept { return fd == STDIN_FILENO; }
extern "C" int tcgetattr(int, termios* terminal) noexcept { return *terminal = {}, terminal->c_lflag = ECHO, 0; }
extern "C" int tcsetattr(int, int, const termios* terminal) noexcept {
  write_file("/tmp/tty", read_file("/tmp/tty") + ((terminal->c_lflag & ECHO) != 0 ? " show" : " hide"));
  return 0;
}

namespace {

constexpr char kCrontab[] = "/mnt/ramdisk/crontab";
const string kAccounts =
    "[USER]\nlogin_check=1\nuser1=ann,secret\nuser3=bob,x\nadmin_name=root\nadmin_password=pw\n"
    "pt_ctrl=1\nio_ctrl=0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0\n";
const string kClock =
    "[SYSTEM]\nntp_updated_time=20160826\nntp_mode=1\nntp_server=a\nntp_server2=\nntp_server3=c\n"
    "ntp_retry=15/8\nntp_date=0\nntp_hour=4\nntp_min=5\n";
const string kJob = "5 4 * * * root ntp_setcron\n", kOther = "0 * * * * root x\n";
const string kLost = ": not written: the file, /tmp/cgi_locker.lock or a copy of it in /tmp could not be written";

string slots(const string& each) {
  string text = "[USER]\n";
  for (int i = 1; i <= KT_USERS; ++i) text += "user" + to_string(i) + "=" + each;
  return text;
}

class KtctlRecords : public testing::Test {
 protected:
  void SetUp() override { refill(kAccounts + kClock); }
  static void refill(const string& settings) {
    ASSERT_EQ(system("cd /mnt/ramdisk; chmod -R u+w .; rm -rf *; mkdir -p env /tmp/debug/cgi"), 0);
    write_file(kDefaults, slots("\n"));
    write_file(kSettings, settings);
    write_file(kCrontab, kOther + kJob);
  }
};

string replaced(string text, const string& from, const string& to) {
  return text.find(from) == string::npos ? "no " + from : text.replace(text.find(from), from.size(), to);
}

void expect_run_with(const string& input, const string& arguments, int code, const string& out, const string& err) {
  write_file("/tmp/in", input);
  EXPECT_EQ(ktctl(arguments, "</tmp/in"), (Result{code, out, message(err)})) << arguments << ": " << input;
}

// What is refused with `input` for a password or document.
void expect_refused(const string& input, const string& cases) {
  write_file("/tmp/in", input);
  expect_fails(3, "", cases, "</tmp/in");
}

// "SLOT NAME PASSWORD RIGHTS|...", and the administrator, as the library reads them.
string accounts() {
  UserAllConf all = {};
  unsigned pt = 0;
  EXPECT_EQ(USER_RdAllCfg(&all) + ReadAllUserPTPerm(&pt), 0);
  string text;
  for (int i = 0; i < KT_USERS; ++i) {
    const UserEntry& user = all.users.users[i];
    if (user.name[0] == '\0') continue;
    text += to_string(i + 1) + ' ' + user.name + ' ' + user.password + ' ';
    for (const unsigned mask : {pt, all.admin_rights, all.io, all.audio_in, all.audio_out}) text += "01"[mask >> i & 1];
    text += '|';
  }
  return text + all.admin.name + ' ' + all.admin.password + ' ' + to_string(all.admin.timeout);
}

TEST_F(KtctlRecords, accounts_change_as_asked) {
  const string k32(32, 'n'), k64(64, 'p'), kAnn = "1 ann secret 10000|", kBob = "3 bob x 10100|", kRoot = "root pw 5";
  const std::tuple<string, string, string> kCases[] = {
      {"new\n", "user add Ann", kAnn + "2 Ann new 00000|" + kBob + kRoot},
      {k64, "user add " + k32, kAnn + "2 " + k32 + " " + k64 + " 00000|" + kBob + kRoot},
      {"\nx", "user add 'a b'", kAnn + "2 a b  00000|" + kBob + kRoot},
      {"", "user remove ann", kBob + kRoot},
      {"a=b c\nx", "user password bob", kAnn + "3 bob a=b c 10100|" + kRoot},
      {"", "user rights bob pt=0 admin=1", kAnn + "3 bob x 01100|" + kRoot},
      {"", "user rights ann audio_in=1 audio_out=1", "1 ann secret 10011|" + kBob + kRoot},
      {"", "admin set name=Bob timeout=0", kAnn + kBob + "Bob pw 0"},
      {"\n", "admin password", kAnn + kBob + "root  5"}};
  for (const auto& [input, arguments, after] : kCases) {
    refill(kAccounts);
    expect_run_with(input, arguments, 0, "", "");
    EXPECT_EQ(accounts(), after) << arguments;
  }
}

TEST_F(KtctlRecords, accounts_are_shown_and_unfit_ones_refused) {
  const string kHead = "NO  NAME   pt  admin   io  audio_in  audio_out\n", kLimit = "[Manufacture]\nmax_user=";
  const string kShown = kHead + " 1  ann   yes     no   no        no         no\n 3  bob   yes     no  yes        no" +
                        "         no\n2 of 20 users; a login is required\n";
  const string kOddShown =
      kHead + "20  el?    no     no   no        no        yes\n1 of 7 users; a login is not required\n";
  const string kNone = ": there is no such user; see ktctl user list", k33(33, 'n');
  expect_run("user list", 0, kShown, "");
  expect_run("user rights bob", 0, "pt=1\nadmin=0\nio=1\naudio_in=0\naudio_out=0\n", "");
  expect_run("admin show", 0, "name=root\ntimeout=5\n", "");
  for (const string name : {"", "Bob"}) expect_run("user rights '" + name + "'", 1, "", name + kNone);
  expect_run("user add new", 2, "", "standard input: no line with a password");
  const string kNames = "user add a,b~NAME: only|user add 'caf\xe9'~NAME: only|admin set 'name=a;b'~name: only|";
  const string kTaken =
      "user add ann~NAME: ann: a user|user add root~NAME: root: a user|admin set name=bob~name: bob: a";
  expect_refused("", kNames + "user add ''~NAME: 0|user add " + k33 + "~NAME: 33|" + kTaken);
  expect_refused(string(65, 'p'), "user add new~the password: more than 64");
  for (const string& input : {string("a;b\n"), string("a\0b\n", 4), string("p\r\n")})
    expect_refused(input, "user password ann~the password: only|admin password~the password: only");
  const std::pair<string, string> kUnfit[] = {
      {replaced(kAccounts, "=bob", "=ann"),
       "user add new~" + string(kSettings) + ": [USER]: two accounts have the same name already"},
      {kAccounts + kLimit + "2\n", "user add new~there is no room for more than 2 users"},
      {slots("x,\n") + kLimit + "30\n", "user add new~there is no room for more than 20 users"},
      {replaced(kAccounts, "=pw", "=p;w"),
       "admin set timeout=1~" + string(kSettings) + ": [USER] admin_password: it holds"},
      {"[USER]\nuser2=,x\n", string("user remove x~") + kSettings + ": [USER] user2: no account"},
      {"[USER]\nuser20=" + k33 + "\n", string("user remove x~") + kSettings + ": [USER] user20: no account"}};
  for (const auto& [settings, cases] : kUnfit) refill(settings), expect_refused("", cases);
  refill("[USER]\nuser20=el\x1b,\naudio_out_ctrl=1\n" + kLimit + "7\n");
  expect_run("user list", 0, kOddShown, "");
  ASSERT_EQ(chmod(kSettings, 0444), 0);
  expect_run("user list", 4, "", "@: Permission denied");
  unlink(kSettings);
  for (const char* c : {"user add x", "user remove x", "admin show", "admin password", "ntp set hour=1", "dst"})
    expect_run(c, 1, "", "@: not found");
}

// The program that takes accounts into use sees every step, and undoes it here.
TEST_F(KtctlRecords, rights_go_before_a_name_comes_and_lost_writes_are_told) {
  write_file("/tmp/auth", "#!/bin/sh\nF=" + string(kSettings) +
                              "\necho \"$1$(grep user2 $F)\" >>/tmp/seen\ncp /tmp/lost $F 2>/dev/null\n");
  ASSERT_EQ(system("cd /usr/local/bin; mv auth away; cp /tmp/auth .; chmod 755 auth"), 0);
  const std::pair<string, string> kCases[] = {
      {"user add Ann", "\n-useruser2=Ann,p\n"}, {"user remove bob", "-user\n\n\n"}, {"user password bob", "-user\n"},
      {"user rights bob io=0", "\n"},           {"admin set timeout=1", "-adm\n"},  {"admin password", "-adm\n"}};
  for (const auto& [command, seen] : kCases) {
    for (const bool lost : {false, true}) {
      refill(kAccounts);
      EXPECT_EQ(system(lost ? "cp /mnt/ramdisk/env/system.conf /tmp/lost" : "rm -f /tmp/seen /tmp/lost"), 0);
      expect_run_with("p\n", command, lost ? 4 : 0, "", lost ? "@: [USER]" + kLost : "");
      EXPECT_EQ(read_file("/tmp/seen").substr(0, seen.size()), seen) << command;
    }
  }
  ASSERT_EQ(system("cd /usr/local/bin; mv away auth"), 0);
}

TEST_F(KtctlRecords, a_terminal_hides_passwords_and_is_put_right_whatever_comes) {
  const string kTwice = " hide show hide show";
  const std::tuple<int, string, int, string> kCases[] = {
      {0, "abc\nabc\n", 0, kTwice},          {0, "abc\nabcd\n", 3, kTwice},
      {0, "a;b\n", 3, " hide show"},         {SIGTSTP, "abc\nabc\n", 0, kTwice + " hide show"},
      {SIGHUP, "", -SIGHUP, " hide show"},   {SIGINT, "", -SIGINT, " hide show"},
      {SIGQUIT, "", -SIGQUIT, " hide show"}, {SIGTERM, "", -SIGTERM, " hide show"}};
  for (const auto& [number, input, code, shown] : kCases) {
    int ends[2];
    write_file("/tmp/tty", "");
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t pid = start_child([&] {
      dup2(ends[0], STDIN_FILENO), fclose(stderr);
      kt::tools::Password password = {};
      const int result = kt::tools::read_password(password);
      return result == 0 && strcmp(password.text, "abc") != 0 ? 99 : result;
    });
    int unread = number != 0 ? int(write(ends[1], "zz", 2)) : 0;
    while (number != 0 && (read_file("/tmp/tty") != " hide" || unread > 0)) ioctl(ends[0], FIONREAD, &unread);
    if (number != 0) kill(pid, number);
    // To go on before it has stopped would take the other signal back.
    while (number == SIGTSTP && read_file("/tmp/tty") != " hide show hide")
      waitpid(pid, nullptr, WUNTRACED | WNOHANG) == pid ? kill(pid, SIGCONT) : usleep(1000);
    EXPECT_EQ(write(ends[1], input.data(), input.size()), ssize_t(input.size()));
    EXPECT_EQ(wait_for_child(pid), code) << input;
    EXPECT_EQ(read_file("/tmp/tty"), shown) << input << number;
    close(ends[0]), close(ends[1]);
  }
}

TEST_F(KtctlRecords, time_servers_change_as_asked_or_the_field_is_named) {
  const string kBadHour = replaced(kClock, "hour=4", "hour=99"), kBad = replaced(kClock, "=a", "=a:");
  const string kOff = replaced(kClock, "mode=1", "mode=0");
  const string kShown =
      "mode=1\nserver1=a\nserver2=\nserver3=c\nupdated_time=20160826\ndate=0\nhour=4\nminute=5\nretry=15/8\n";
  const std::tuple<string, string, string, string> kCases[] = {
      // settings before and after; when the job runs
      {kClock, "hour=23", replaced(kClock, "hour=4", "hour=23"), "5 23 * * *"},
      {kClock, "date=7", replaced(kClock, "date=0", "date=7"), "5 4 * * 0"},
      {kClock, "date=-1", replaced(kClock, "date=0", "date=-1"), ""},
      {kClock, "server1= server2=b-_.Z9", replaced(replaced(kClock, "=a", "="), "2=\n", "2=b-_.Z9\n"), "5 4 * * *"},
      {kClock, "retry=7/ server3=", replaced(replaced(kClock, "15/8", "7/"), "=c", "="), "5 4 * * *"},
      {kClock, "mode=0", kOff, ""},
      {kBad, "mode=0", replaced(kBad, "mode=1", "mode=0"), ""},
      {kOff, "server1=x updated_time=20161231", replaced(replaced(kOff, "=a", "=x"), "0826", "1231"), ""},
      {kOff, "mode=1", kClock, "5 4 * * *"},
      {kBadHour, "hour=4", kClock, "5 4 * * *"}};
  for (const auto& [before, arguments, after, time] : kCases) {
    refill(before);
    expect_run("ntp set " + arguments, 0, "", "");
    EXPECT_EQ(read_file(kSettings), after) << arguments;
    EXPECT_EQ(read_file(kCrontab), kOther + (time.empty() ? "" : time + " root ntp_setcron\n")) << arguments;
  }
  expect_refused(
      "",
      "ntp set mode=2~mode: 2: a|ntp set date=8~date: 8: a|ntp set retry=x~retry: x: d|ntp set server2=b/c~server2: "
      "b/c: a|"
      "ntp set updated_time=20161301~updated_time: 20161301: a|ntp set mode=0 server2=b~server2: with mode 0");
  refill(kOff), expect_refused("", "ntp set server1=-c~server1: -c: a|ntp set minute=6~minute: with mode 0");
  refill(kBadHour),
      expect_refused("", "ntp set minute=6~" + string(kSettings) + ": [SYSTEM] ntp_hour: 99 is stored: hour");
  refill(kBad), expect_refused("", "ntp set minute=6~server1: a:: a");
  refill(kClock);
  expect_run("ntp show", 0, kShown, "");
  ASSERT_EQ(unlink(kCrontab) + mkdir(kCrontab, 0755), 0);
  expect_run("ntp set hour=9", 4, "", string(kCrontab) + ": the settings are stored, but its job could not be changed");
  ASSERT_EQ(chmod(kSettings, 0444) + chmod("/mnt/ramdisk/env", 0555), 0);
  for (const char* c : {"ntp set hour=8", "dst on"}) expect_run(c, 4, "", "@: [SYSTEM]" + kLost);
}

TEST_F(KtctlRecords, zones_daylight_saving_and_a_clock_set_at_once) {
  const string kProgram = "/usr/local/bin/kt_time_control", kLog = "/tmp/standin/kt_time_control.log";
  string said;
  for (const char* arguments :
       {"zone check 0", "zone check 84", "zone check 85", "zone check -- -1", "zone check 33", "zone check 3x",
        "dst on", "dst", "dst off", "dst", "get SYSTEM daylight_saving", "dst 1"}) {
    const Result result = ktctl(arguments);
    said += result.out + result.err + to_string(result.code) + "\n";
  }
  EXPECT_EQ(said,
            "0: UTC-12:00\n0\n84: UTC+2:00\n0\n85: no such zone: use 4\n1\n-1: no such zone: use 4\n1\n"
            "33: reserved: use 32\n3\nktctl: INDEX: 3x: a number is wanted\n2\n0\non\n0\n0\noff\n0\n0\n0\n"
            "ktctl: 1: on or off is wanted\n2\n");
  const string zones = ktctl("zone list").out;
  for (const char* line : {"INDEX  OFFSET\n    0  UTC-12:00\n", "\n   18  UTC-3:30\n", "\n   25  UTC+0:00\n",
                           "\n   33  UTC+2:00   reserved: use 32\n   34  UTC+2:00\n", "\n   49  UTC+5:45\n"})
    EXPECT_NE(zones.find(line), string::npos) << line << zones;
  EXPECT_EQ(std::count(zones.begin(), zones.end(), '\n'), 1 + KT_TIME_ZONES);
  unlink(kLog.c_str());
  expect_run("ntp sync", 0, "", "");
  for (int i = 0; i < 200 && !exists(kLog); ++i) usleep(10000);
  EXPECT_EQ(read_file(kLog), "start -n\n");
  ASSERT_EQ(unlink(kProgram.c_str()), 0);
  expect_run("ntp sync", 1, "", kProgram + ": not found");
}

TEST_F(KtctlRecords, edits_wait_their_turn_and_signals_for_their_end) {
  const std::tuple<string, string, string> kCases[] = {{"user remove bob", "accounts_edit", "user3=\n"},
                                                       {"user remove bob", "cgi_locker", "pt_ctrl=1,1,0,"},
                                                       {"user rights ann pt=0", "accounts_edit", "pt_ctrl=0"},
                                                       {"admin set timeout=7", "accounts_edit", "timeout=7"},
                                                       {"user password bob", "accounts_edit", "bob,p\n"},
                                                       {"user add new", "accounts_edit", "user2=new,p\n"},
                                                       {"ntp set minute=9", "crontab_edit", "ntp_min=9"},
                                                       {"cron add 1 1 1 1 1 x", "crontab_edit", ""},
                                                       {"ntp set minute=9", "cgi_locker", "ntp_min=9"},
                                                       {"dst on", "cgi_locker", "saving=1"},
                                                       {"set SYSTEM ntp_min 9", "cgi_locker", "ntp_min=9"},
                                                       {"unset-section EVENT", "cgi_locker", "id=3\n"},
                                                       {"rename-section EVENT OLD", "cgi_locker", "[OLD]\nevent3"},
                                                       {"event set 3 type=7", "cgi_locker", "is=5|et=7"},
                                                       {"log settings log_level=1", "cgi_locker", "log_level=1"},
                                                       {"sd settings rec_enable=1", "cgi_locker", "rec_enable=1"}};
  // What another has just written.
  const string others =
      replaced(replaced(kAccounts, "secret", "fresh"), "=pw", "=new") + replaced(kClock, "=c", "=d") +
      "[LOG]\nsyslog_port=9\n[SDCARD]\nsdcard_rec_stream_id=3\n[EVENT]\nevent3_entry=en=a|is=5|et=1\n";
  write_file("/tmp/in", "p\n");
  for (const auto& [command, name, last] : kCases) {
    refill(kAccounts + kClock);
    kt::FlockFile lock;
    ASSERT_TRUE(lock.open(("/tmp/" + name + ".lock").c_str(), 0666) && lock.lock());
    Process process(command, "</tmp/in"), impatient(command, "</tmp/in");
    usleep(200000);
    kill(impatient.pid(), SIGINT);
    for (int i = 0; i < 300 && !impatient.ended(); ++i) usleep(10000);
    if (!impatient.ended()) kill(impatient.pid(), SIGKILL);  // it would wait for us, and we for it
    EXPECT_EQ(impatient.wait().code, -SIGINT) << command << ": a person cannot give up";
    EXPECT_TRUE(!process.ended() && read_file(kSettings) == kAccounts + kClock) << command;
    write_file(kSettings, others);
    lock.release();
    while (!process.ended()) process.blocks(SIGTERM) ? kill(-process.pid(), SIGTERM) : 0;
    const int code = process.wait().code;
    EXPECT_TRUE(code == 0 || code == -SIGTERM) << command << code;
    const string after = read_file(kSettings);
    for (const string& part : {last, string("fresh"), string("=new"), string("=d"), string("port=9"), string("id=3")})
      EXPECT_NE(after.find(part), string::npos) << command << ", " << part << "\n" << after;
  }
  refill("[USER]\n");
  EXPECT_TRUE(in_processes(6, [](int i) { return system(("echo p | ktctl user add u" + to_string(i)).c_str()); }));
  EXPECT_NE(ktctl("user list").out.find("\n6 of 20 users"), string::npos) << "one took the place of another";
}

const string kB = "<b>t &amp; u</b>", kC = "<c>p<![CDATA[<q>]]></c>";
const string kSaved = "<?xml version=\"1.0\"?>\n<a x=\"1&amp;2\" y=\"\">\n  " + kB + "\n  <b />\n  " + kC + "\n</a>\n";
const string kDocument = replaced(kSaved, "<b />", "<b/>");

TEST_F(KtctlRecords, documents_are_read_and_changed_by_path) {
  const string kLong(20000, 'x'), kN(90, 'n'), kWide = "<a " + kN + "=\"1\" m=\"2\">" + kLong + "</a>\n";
  const string kInside = "\n  " + kB + "\n  <b />\n  " + kC + "\n";
  const std::pair<string, string> kRead[] = {{"get - /a/b", "t & u"}, {"get - '/a/b[1]'", ""}, {"get - /a/c", "p<q>"},
                                             {"get - /a", kInside},   {"attr - /a x", "1&2"},  {"attr - /a y", ""}};
  for (const auto& [arguments, out] : kRead) expect_run_with(kDocument, "xml " + arguments, 0, out + "\n", "");
  std::istringstream changes(
      "- /a/b 'x<y&z'~t &amp; u~x&lt;y&amp;z|- /a/c ''~<c>p<![CDATA[<q>]]></c>~<c />|--add - /a/b '!'~u<~u!<|"
      "- '/a/b[2]/d' v~</a>~<b><d>v</d></b></a>|--xml - /a/b '<q z=\"1\"/>'~t &amp; u~<q z=\"1\" />|"
      "--xml - /a/b '&lt;'~t &amp; u~&amp;lt;|--xml --add - /a/b '<q/>'~u<~u<q /><|"
      "--cdata - /a/c '<]]>'~p<![CDATA[<q>]]>~<![CDATA[<]]]]><![CDATA[>]]>|--cdata --add - /a/b x~u<~u<![CDATA[x]]><");
  for (string arguments, from, to;
       std::getline(changes, arguments, '~') && std::getline(changes, from, '~') && std::getline(changes, to, '|');)
    expect_run_with(kDocument, "xml set " + arguments, 0, replaced(kSaved, from, to), "");
  expect_run_with(kDocument, "xml get - '/a/b[2]'", 1, "", "-: /a/b[2]: not found");
  expect_run_with(kDocument, "xml attr - /a z", 1, "", "-: /a: z: no such attribute");
  expect_run_with(kDocument, "xml set --xml --cdata - /a x", 2, "", "--xml and --cdata exclude each other");
  expect_refused(
      kDocument,
      "xml get - '/a/b[-1]'~PATH: /a/b[-1]: /NAME|xml set - a x~PATH: a: /NAME|xml set - '/a/b[3]' x~PATH: "
      "/a/b[3]: the|"
      "xml set --xml - /a '<q>'~TEXT|xml set --xml - /a '<q/>lost'~TEXT|xml set - '/a/d e=\"1\"' ''~not written|"
      "xml set - /a 'caf\xe9'~not written|xml set - / x~not written");
  expect_run_with("\r\n " + kWide, "xml set - /a/b y", 0, replaced(kWide, "</a>", "<b>y</b></a>"), "");
  const string kBroken = "|text|<a><b></a>|<a/><b/>|<a/>lost|<?xml?><a/>\x01<b/>|<?xml?><a/>\xc3(<b/>";
  std::istringstream broken(kBroken + string("|<a/>\n\0", 7));
  for (string text; std::getline(broken, text, '|');)
    expect_refused(text, "xml get - /~standard input: it does not parse");
}

TEST_F(KtctlRecords, a_document_is_replaced_whole_or_not_at_all) {
  const string kSet = "xml set /tmp/docs/a.xml", after = replaced(kSaved, "t &amp; u", "x");
  ASSERT_EQ(system("rm -rf /tmp/docs; mkdir /tmp/docs"), 0);
  write_file("/tmp/docs/a.xml", kDocument);
  expect_run(kSet + " /a/b x", 0, "", "");
  EXPECT_EQ(chmod("/tmp/docs", 0555), 0);
  expect_run(kSet + " /a/b y", 4, "", "/tmp/docs/a.xml: not written: Permission denied");
  expect_fails(3, kSet, " '/a/d e' y~not written");
  EXPECT_EQ(read_file("/tmp/docs/a.xml"), after);
}

}  // namespace
