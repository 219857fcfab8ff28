// ktctl over the trace, digests, ciphers and programs.
#include <fcntl.h>
#include <ktcomm/log.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include "tests/ktctl_support.h"
#include "tools/trace_tables.h"

using namespace kt::test;
using std::string, std::to_string;

namespace {

constexpr int kSystem = 0, kEvent = 4, kCgi = 8;

void forget_traces() { ASSERT_EQ(system("rm -f /tmp/debug/*/[0-9]* /tmp/debug/*/~*"), 0); }
string trace_file(const string& name) { return read_file("/tmp/debug/" + name); }

// An entry as it stands in a file.
string entry(const char* module, const char* time, int sequence, const string& message) {
  return string("[8][") + module + "][2026-11-21 " + time + "][" + to_string(sequence) + "]" + message;
}

void write_info(const string& name, int number) {
  const int words[] = {9, number};
  write_file("/tmp/debug/" + name + ".info", string(reinterpret_cast<const char*>(words), sizeof words));
}

TEST(KtctlTrace, prints_all_files_that_are_left_oldest_first) {
  forget_traces();
  for (int i = 0; i < 5; ++i) KT_DEBUGn_in(8, kEvent, 0, "%09000d\n", i);  // a file each, of which 3 older are left
  const string files[] = {trace_file("event/0-1.log"), trace_file("event/0-3.log"), trace_file("event/0-4.log")},
               second = trace_file("event/0-2.log");
  ASSERT_EQ(trace_file("event/0-0.log"), "(none)");
  EXPECT_TRUE(ktctl("trace event").out == files[2]);
  EXPECT_TRUE(ktctl("trace --all event").out == files[0] + second + files[1] + files[2]);
  unlink("/tmp/debug/event/0-2.log");
  EXPECT_TRUE(ktctl("trace --all 4 0") == (Result{0, files[0] + files[1] + files[2], ""}));

  const struct {
    const char* prepare;
    int number, code;
    const char* reason;
  } kCases[] = {{"rm event/0-4.log", 4, 1, "/tmp/debug/event/0-4.log: not found"},
                {"chmod 0 event/0-3.log", 3, 4, "/tmp/debug/event/0-3.log: Permission denied"},
                {"", -1, 1, "/tmp/debug/event/0-0.log: nothing was traced"},
                {"", INT_MAX, 1, "/tmp/debug/event/0-0.log: nothing was traced"},
                {"chmod 0 event/~0.info", 4, 4, "/tmp/debug/event/~0.info: Permission denied"}};
  for (const auto& c : kCases) {
    write_info("event/~0", c.number);
    ASSERT_EQ(system((string("cd /tmp/debug; ") + c.prepare).c_str()), 0);
    for (const char* command : {"trace event", "trace --json --all event"}) {
      const Result result = ktctl(command);
      EXPECT_TRUE(result.code == c.code && result.out.empty() && result.err.find(c.reason) != string::npos) << result;
    }
  }
  forget_traces();
}

TEST(KtctlTrace, tells_programs_what_it_tells_people) {
  forget_traces();
  write_info("web/~0", 0);
  write_file("/tmp/debug/web/0-0.log", "lost\n" + entry("web", "03:05:00 001234", 1, "f(1) \"a\"\nsecond line\n") +
                                           entry("web", "03:05:00 001235", 2, "it's unfinished"));
  ASSERT_EQ(
      system("eval \"$(ktctl trace --shell web)\"; echo \"$entries:$entries_1_message:$entries_2_level:"
             "$entries_2_time:$entries_2_sequence:$entries_2_message:$entries_3_message:$entries_3_module\" >/tmp/told;"
             "eval \"$(ktctl trace --shell)\"; echo \"$logs_12_module:$logs_12_sub:$logs_12_file:$logs_12_size:"
             "$logs_13_file\" >>/tmp/told"),
      0);
  EXPECT_EQ(read_file("/tmp/told"),
            "3:lost:8:2026-11-21 03:05:00 001234:1:f(1) \"a\"\nsecond line:it's unfinished:web\nweb:0:0:" +
                to_string(trace_file("web/0-0.log").size()) + ":-1\n");
  const string json = ktctl("trace --json --all web").out;
  EXPECT_NE(json.find("\"message\": \"f(1) \\\"a\\\"\\u000asecond line\"\n    },"), json.npos) << json;
}

TEST(KtctlTrace, merges_by_time_and_keeps_the_order_within_a_file) {
  forget_traces();
  const string a = entry("cgi", "03:05:00 000001", 0, "a\nmore of a\n"), b = entry("cgi", "03:05:02 000000", 1, "b\n"),
               back = entry("cgi", "03:04:00 000000", 2, "the clock was set back\n"),
               old = entry("event", "03:04:59 999999", 7, "old\n"),
               same = entry("event", "03:05:02 000000", 8, "same\n"),
               other = entry("event", "03:05:00 000001", 0, "of sub-log 1, no line feed"),
               forged = "[8][web][2026-11-21 03:06:00 000000][9]of no such module\n[8][event][yesterday][1]x\n";
  write_info("cgi/~0", 2), write_info("event/~0", 5), write_info("event/~1", 0);
  for (const auto& [name, text] : {std::pair{"cgi/0-1", a},
                                   {"cgi/0-2", b + back},
                                   {"event/0-3", old + forged},
                                   {"event/0-5", same},
                                   {"event/1-0", other}})
    write_file(string("/tmp/debug/") + name + ".log", text);
  const string all = old + forged + other + "\n" + a + same + b + back;
  expect_runs("trace merge", {{"", 0, all, ""},
                              {"8 4 event", 0, all, ""},
                              {"cgi", 0, a + b + back, ""},
                              {"web event", 0, old + forged + other + "\n" + same, ""}});
  const string json = ktctl("trace merge --json event").out;
  EXPECT_LT(json.find("\"sequence\": 7"), json.find("\"sub\": 1")) << json;
}

TEST(KtctlTrace, refuses_what_there_is_not) {
  forget_traces();
  expect_fails(1, "trace ",
               "merge web ddns~/tmp/debug: nothing was traced|merge cgi none~none: there is no such trace module|"
               "follow none~none: there is no such|level none~none: there is no such|none~none: there is no such");
  expect_fails(2, "trace ",
               "follow cgi 2~2: SUB is 0 or 1|level cgi -1~-1: LEVEL is 0 to 99|level cgi 100~100: LEVEL is 0 to 99|"
               "level cgi x~x: LEVEL is 0 to 99");
}

TEST(KtctlTrace, follows_a_trace_over_its_files) {
  forget_traces();
  const auto is_printed = [](const string& wanted) {
    for (int tries = 0; tries < 100 && read_file("/tmp/run.out") != wanted; ++tries) usleep(50000);
    return read_file("/tmp/run.out") == wanted;
  };
  Process follower("trace follow system");
  usleep(200000);  // it waits for a trace to begin
  for (const char* text : {"first\n", "added\n"}) {
    KT_DEBUGn_in(8, kSystem, 0, "%s", text);
    EXPECT_TRUE(is_printed(trace_file("system/0-0.log"))) << text;
  }
  for (int i = 0; i < 2; ++i) KT_DEBUGn_in(8, kSystem, 0, "%09000d\n", i);
  string wanted = trace_file("system/0-0.log") + trace_file("system/0-1.log");
  EXPECT_TRUE(is_printed(wanted));
  // Faster than it can follow, while it is stopped: what is deleted by then is left out.
  kill(follower.pid(), SIGSTOP);
  for (int i = 2; i < 7; ++i) KT_DEBUGn_in(8, kSystem, 0, "%09000d\n", i);
  ASSERT_EQ(trace_file("system/0-3.log"), "(none)");
  wanted += trace_file("system/0-4.log") + trace_file("system/0-5.log") + trace_file("system/0-6.log");
  kill(follower.pid(), SIGCONT);
  EXPECT_TRUE(is_printed(wanted));
  for (const char* text : {"emptied\n", "anew\n", "again, in a file of the same number\n"}) {
    if (*text != 'e' || truncate("/tmp/debug/system/0-6.log", 0) != 0) forget_traces();
    usleep(300000);
    KT_DEBUGn_in(8, kSystem, 0, "%s", text);
    wanted += trace_file(*text == 'e' ? "system/0-6.log" : "system/0-0.log");
    EXPECT_TRUE(is_printed(wanted)) << text;
  }
  kill(follower.pid(), SIGINT);
  EXPECT_EQ(follower.wait().code, -SIGINT);

  // A reader that goes is noticed without another line.
  ASSERT_EQ(mkfifo("/tmp/followed", 0600), 0);
  const int reader = open("/tmp/followed", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  Process unread("trace follow system", ">/tmp/followed");
  char c;
  for (int tries = 0; tries < 100 && read(reader, &c, 1) != 1; ++tries) usleep(50000);
  EXPECT_FALSE(unread.ended());
  close(reader);
  EXPECT_EQ(unread.wait().code, 0);
}

TEST(KtctlTrace, levels_are_those_of_the_programs_that_run) {
  (void)prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);  // where only parents may look into a process
  const string self = to_string(getpid());
  // Another table, across the end of a file's mapping, as that of a program may lie.
  constexpr int kPage = 4096, kPrivate = MAP_PRIVATE | MAP_FIXED;
  char* const pages = static_cast<char*>(mmap(nullptr, 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  write_file("/tmp/page", string(kPage, ' '));
  mmap(pages, kPage, PROT_READ | PROT_WRITE, kPrivate, kt::open_fd("/tmp/page", O_RDONLY).get(), 0);
  mmap(pages + kPage, kPage, PROT_READ | PROT_WRITE, kPrivate | MAP_ANONYMOUS, -1, 0);
  const auto across = reinterpret_cast<volatile mod_define_entry*>(pages + kPage - 3 * sizeof(mod_define_entry));
  memcpy(const_cast<mod_define_entry*>(across), mod_define, sizeof mod_define);
  const auto tells = [](const char* command, const string& what) {
    return ktctl(command).out.find(what) != string::npos;
  };
  EXPECT_TRUE(tells("trace level cgi", self + "   8  "));
  EXPECT_TRUE(tells("trace level --dry-run cgi 4", "would set the level of cgi from 8 to 4 in process " + self + " ("));
  expect_run("trace level --dry-run cgi 8", 0, "", "");
  EXPECT_EQ(mod_define[kCgi].level, 8) << "a dry run has changed it";

  expect_run("trace level cgi 4", 0, "", "");
  EXPECT_EQ(KT_DEBUGn_in(8, kCgi, 0, "dropped\n"), -1) << "the table that the library reads";
  EXPECT_TRUE(mod_define[kCgi].level == 4 && mod_define[kEvent].level == 8 && across[kCgi].level == 4);
  EXPECT_TRUE(tells("trace level --json 8", "\"pid\": " + self + ",\n      \"level\": 4,\n"));
  expect_run("trace level 8 8", 0, "", "");
  EXPECT_EQ(mod_define[kCgi].level, 8);

  prctl(PR_SET_DUMPABLE, 0);  // this process forbids it now
  EXPECT_EQ(ktctl("trace level cgi 4").code, 4);
  prctl(PR_SET_DUMPABLE, 1);
  EXPECT_EQ(mod_define[kCgi].level, 8);

  const pid_t child = start_child([] { return pause(); });
  kt::tools::TraceTables tables;
  ASSERT_EQ(tables.find(child, true), kt::tools::TraceTables::Found::kFound);
  kill(child, SIGKILL);
  EXPECT_EQ(wait_for_child(child), -SIGKILL);
  EXPECT_TRUE(!tables.write_level(kCgi, 4) && errno == ESRCH) << "it has ended between: " << errno;
}

TEST(KtctlHash, tells_programs_the_digests) {
  write_file("/tmp/digits", "123456789");
  ASSERT_EQ(system("eval \"$(ktctl hash --crc16 --shell /tmp/digits - </tmp/digits)\"; echo $digests $digests_1_file "
                   "$digests_1_algorithm $digests_1_digest $digests_2_file >/tmp/told"),
            0);
  EXPECT_EQ(read_file("/tmp/told"), "2 /tmp/digits crc16 374b -\n");
  expect_run("hash --crc16 /tmp/none /tmp/digits", 1, "374b  /tmp/digits\n", "/tmp/none: not found");
  const string json = ktctl("hash --json /tmp/digits").out, sha = ktctl("hash --json --sha256 /tmp/digits").out;
  EXPECT_NE(json.find("\"md5\",\n      \"digest\": \"25f9e794323b453885f5181f1b624d0b\"\n    }\n  ]\n}\n"), json.npos);
  EXPECT_NE(sha.find("\"sha256\",\n      \"digest\": \"15e2b0d3c33891ebb0f1ef609ec419420c20e320"), sha.npos) << sha;
  expect_run("hash --sha256 --crc16 /tmp/digits", 2, "", "--sha256 and --crc16: one of them is wanted");
}

// One run with a text as its standard input.
Result ktctl_reading(const string& arguments, const string& input) {
  write_file("/tmp/input", input);
  return ktctl(arguments, "</tmp/input");
}

TEST(KtctlCrypt, texts_survive_both_ways) {
  for (const string& text :
       {string(), string("hello"), string(16, 'x'), string(65536, 'a'), string("\0\xff'\n\n", 5)}) {
    const string cipher = ktctl_reading("encrypt", text + "\n").out;
    EXPECT_TRUE(ktctl_reading("decrypt", cipher) == (Result{0, text + "\n", ""})) << text.size() << cipher;
  }
  const string hello = ktctl_reading("encrypt", "hello").out;
  EXPECT_EQ(hello, ktctl_reading("encrypt", "hello\n").out) << "a line feed at the end is not part of the text";
  EXPECT_EQ(ktctl_reading("encrypt --json", "hello").out, "{\n  \"cipher\": \"" + hello.substr(0, 32) + "\"\n}\n");
  EXPECT_EQ(ktctl_reading("decrypt --shell", ktctl_reading("encrypt", "it's").out).out, "text='it'\\''s'\n");
}

TEST(KtctlCrypt, refuses_what_is_too_long_or_no_cipher) {
  const string kDigits = ": hex digits in whole blocks of 32 are wanted", kZeros(32, '0');
  for (const auto& [command, input, reason] : std::vector<std::tuple<const char*, string, string>>{
           {"encrypt", string(65537, 'a'), ": more than 65536 characters"},
           {"encrypt", string(65536, 'a') + "\n\n", ": more than 65536 characters"},
           {"decrypt", string(2 * 65552 + 1, '0'), ": more than 131104 characters"},
           {"decrypt", "", kDigits},
           {"decrypt", kZeros.substr(1), kDigits},
           {"decrypt", kZeros.substr(16), kDigits},
           {"decrypt", kZeros.substr(1) + "g", kDigits},
           {"decrypt", kZeros, ": no cipher of `ktctl encrypt`: it has another key"}})
    EXPECT_EQ(ktctl_reading(command, input), (Result{3, "", message("standard input" + reason)})) << command;
  EXPECT_EQ(ktctl("decrypt", "</tmp"), (Result{4, "", message("standard input: Is a directory")}));
}

TEST(KtctlProc, finds_and_signals_programs) {
  Program one("napper-1"), two("napper-1");
  const Result both = ktctl("proc find napper-1");
  const bool newest_first = both.out == two.text() + "\n" + one.text() + "\n";
  EXPECT_TRUE(newest_first || both.out == one.text() + "\n" + two.text() + "\n") << both;
  Program &hit = newest_first ? two : one, &spared = newest_first ? one : two;
  const string first = hit.text(), second = spared.text(), no_such = "none: no such program is running";
  expect_runs("proc",
              {{"find none napper-1", 1, both.out, no_such},
               {"find --json napper-1 none", 1,
                "{\n  \"napper-1\": [\n    " + first + ",\n    " + second + "\n  ],\n  \"none\": []\n}\n", no_such},
               {"signal napper-1 0", 0, "", ""},
               {"signal --dry-run napper-1 term", 0, "would send signal 15 to process " + first + "\n", ""},
               {"signal --dry-run " + second + " 9", 0, "would send signal 9 to process " + second + "\n", ""},
               {"signal napper-1 SIGUSR1", 0, "", ""},
               {"signal " + second + " term", 0, "", ""}});
  expect_fails(1, "proc ",
               "find napper~napper: no such|signal none HUP~none: no such|signal 4000000 HUP~process 4000000: not");
  expect_fails(2, "proc signal napper-1 ", "NONE~NONE: there is no such signal|65~65: there is no such signal");
  expect_fails(3, "proc ",
               "find ''~: a program's name is|find 'a;b'~a;b: a program's name is made of letters, digits and . _ + -|"
               "signal 'a b' HUP~a b: a program's name is|signal -- -5 HUP~-5: a process has a number above 0");
  EXPECT_TRUE(hit.ended_by() == SIGUSR1 && spared.ended_by() == SIGTERM) << "only the first is signalled";
}

}  // namespace
