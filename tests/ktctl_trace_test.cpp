// ktctl over the trace, digests, ciphers and programs.
#include <fcntl.h>
#include <ktcomm/log.h>
#include <string.h>
#include <sys/prctl.h>

#include "tests/ktctl_support.h"

using namespace kt::test;

namespace {

constexpr int kSystem = 0, kEvent = 4, kCgi = 8;

void forget_traces() { ASSERT_EQ(system("rm -f /tmp/debug/*/[0-9]* /tmp/debug/*/~*"), 0); }
std::string trace_file(const char* name) { return read_file(std::string("/tmp/debug/") + name); }

// An entry as it stands in a file.
std::string entry(const char* module, const char* time, int sequence, const std::string& message) {
  return std::string("[8][") + module + "][2026-11-21 " + time + "][" + std::to_string(sequence) + "]" + message;
}

void write_info(const std::string& path, int sequence, int number) {
  const int words[] = {sequence, number};
  write_file(path, std::string(reinterpret_cast<const char*>(words), sizeof words));
}

// A run with an output that is better not printed.
void expect_long(const char* arguments, const std::string& out) {
  EXPECT_TRUE(ktctl(arguments) == (Result{0, out, ""})) << arguments;
}

TEST(KtctlTrace, prints_all_files_that_are_left_oldest_first) {
  forget_traces();
  for (int i = 0; i < 5; ++i)
    KT_DEBUGn_in(8, kEvent, 0, "%09000d\n", i);  // each fills a file, of which 3 older are left
  const std::string files[] = {trace_file("event/0-1.log"), trace_file("event/0-2.log"), trace_file("event/0-3.log"),
                               trace_file("event/0-4.log")};
  ASSERT_EQ(trace_file("event/0-0.log"), "(none)");
  expect_long("trace event", files[3]);
  expect_long("trace --all event", files[0] + files[1] + files[2] + files[3]);
  unlink("/tmp/debug/event/0-2.log");
  expect_long("trace --all 4 0", files[0] + files[2] + files[3]);
  unlink("/tmp/debug/event/0-4.log");
  expect_run("trace event", 1, "", "/tmp/debug/event/0-4.log: not found");
}

TEST(KtctlTrace, tells_programs_what_it_tells_people) {
  forget_traces();
  write_info("/tmp/debug/web/~0.info", 3, 0);
  write_file("/tmp/debug/web/0-0.log", "lost\n" + entry("web", "03:05:00 001234", 1, "f(1) \"a\"\nsecond line\n") +
                                           entry("web", "03:05:00 001235", 2, "it's unfinished"));
  ASSERT_EQ(
      system("eval \"$(ktctl trace --shell web)\"; echo \"$entries:$entries_1_message:$entries_2_level:"
             "$entries_2_time:$entries_2_sequence:$entries_2_message:$entries_3_message:$entries_3_module\" >/tmp/told;"
             "eval \"$(ktctl trace --shell)\"; echo \"$logs_12_module:$logs_12_sub:$logs_12_file:$logs_12_size:"
             "$logs_13_file\" >>/tmp/told"),
      0);
  const std::string size = std::to_string(trace_file("web/0-0.log").size());
  EXPECT_EQ(
      read_file("/tmp/told"),
      "3:lost:8:2026-11-21 03:05:00 001234:1:f(1) \"a\"\nsecond line:it's unfinished:web\nweb:0:0:" + size + ":-1\n");
  const std::string json = ktctl("trace --json --all web").out;
  EXPECT_NE(json.find("\"message\": \"f(1) \\\"a\\\"\\u000asecond line\"\n    },"), json.npos) << json;
}

TEST(KtctlTrace, merges_by_time_and_keeps_the_order_within_a_file) {
  forget_traces();
  const std::string a = entry("cgi", "03:05:00 000001", 0, "a\nmore of a\n"),
                    b = entry("cgi", "03:05:02 000000", 1, "b\n"),
                    back = entry("cgi", "03:04:00 000000", 2, "the clock was set back\n"),
                    old = entry("event", "03:04:59 999999", 7, "old\n"),
                    same = entry("event", "03:05:02 000000", 8, "same\n"),
                    other = entry("event", "03:05:00 000001", 0, "of sub-log 1, no line feed"),
                    forged = "[8][web][2026-11-21 03:00:00 000000][9]of no such module\n[8][event][yesterday][1]x\n";
  write_info("/tmp/debug/cgi/~0.info", 3, 2);
  write_file("/tmp/debug/cgi/0-1.log", a);
  write_file("/tmp/debug/cgi/0-2.log", b + back);
  write_info("/tmp/debug/event/~0.info", 9, 5);
  write_file("/tmp/debug/event/0-3.log", old + forged);
  write_file("/tmp/debug/event/0-5.log", same);
  write_info("/tmp/debug/event/~1.info", 1, 0);
  write_file("/tmp/debug/event/1-0.log", other);
  const std::string all = old + forged + other + "\n" + a + same + b + back;
  const struct {
    const char* arguments;
    int code;
    std::string out, err;
  } kCases[] = {{"", 0, all, ""},
                {"cgi event", 0, all, ""},
                {"8 4 event", 0, all, ""},
                {"cgi", 0, a + b + back, ""},
                {"web event", 0, old + forged + other + "\n" + same, ""},
                {"web ddns", 1, "", "/tmp/debug: nothing was traced"},
                {"cgi none", 1, "", "none: there is no such trace module"}};
  for (const auto& c : kCases) expect_run(std::string("trace merge ") + c.arguments, c.code, c.out, c.err);
  const Result json = ktctl("trace merge --json event");
  EXPECT_LT(json.out.find("\"sequence\": 7"), json.out.find("\"sub\": 1")) << json;
  EXPECT_LT(json.out.find("\"sub\": 1"), json.out.find("\"sequence\": 8")) << json;
}

// What the running command has printed once that is `wanted`, or long afterwards.
std::string printed(const std::string& wanted) {
  std::string out;
  for (int tries = 0; tries < 100 && (out = read_file("/tmp/run.out")) != wanted; ++tries) usleep(50000);
  return out;
}

TEST(KtctlTrace, follows_a_trace_over_its_files) {
  forget_traces();
  Process follower("trace follow system");
  usleep(200000);  // it waits for a trace to begin
  KT_DEBUGn_in(8, kSystem, 0, "first\n");
  std::string wanted = trace_file("system/0-0.log");
  EXPECT_TRUE(printed(wanted) == wanted);
  KT_DEBUGn_in(8, kSystem, 0, "added\n");
  wanted = trace_file("system/0-0.log");
  EXPECT_TRUE(printed(wanted) == wanted);
  for (int i = 0; i < 2; ++i) KT_DEBUGn_in(8, kSystem, 0, "%09000d\n", i);
  const std::string two = trace_file("system/0-0.log") + trace_file("system/0-1.log");
  EXPECT_TRUE(printed(two) == two);
  // Faster than it can follow, while it is stopped: what is deleted by then is left out.
  kill(follower.pid(), SIGSTOP);
  for (int i = 2; i < 7; ++i) KT_DEBUGn_in(8, kSystem, 0, "%09000d\n", i);
  std::string later = two;
  for (int number = 2; number < 7; ++number) {
    const std::string text = trace_file(("system/0-" + std::to_string(number) + ".log").c_str());
    if (text != "(none)") later += text;
  }
  kill(follower.pid(), SIGCONT);
  EXPECT_TRUE(printed(later) == later);
  for (const char* text : {"anew\n", "again, in a file of the same number\n"}) {
    forget_traces();
    usleep(300000);
    KT_DEBUGn_in(8, kSystem, 0, "%s", text);
    later += trace_file("system/0-0.log");
    EXPECT_TRUE(printed(later) == later) << text;
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
  expect_run("trace follow none", 1, "", "none: there is no such trace module");
  expect_run("trace follow cgi 2", 2, "", "2: SUB is 0 or 1");
}

TEST(KtctlTrace, levels_are_those_of_the_programs_that_run) {
  forget_traces();
  (void)prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);  // where only parents may look into a process
  const std::string self = std::to_string(getpid());
  const auto line_of_us = [&](int level) { return self + "   " + std::to_string(level) + "  "; };
  const auto listed = [](const std::string& what) {
    return ktctl("trace level cgi").out.find(what) != std::string::npos;
  };
  EXPECT_TRUE(listed(line_of_us(8)));
  const Result dry = ktctl("trace level cgi 4 --dry-run");
  const std::string would = "would set the level of cgi from 8 to 4 in process " + self + " (";
  EXPECT_EQ(dry.code, 2) << "options stand in front";
  EXPECT_NE(ktctl("trace level --dry-run cgi 4").out.find(would), std::string::npos);
  EXPECT_EQ(KT_DEBUGn_in(8, kCgi, 0, "kept\n"), 0) << "a dry run has changed it";

  expect_run("trace level cgi 4", 0, "", "");
  EXPECT_EQ(KT_DEBUGn_in(8, kCgi, 0, "dropped\n"), -1);
  EXPECT_EQ(KT_DEBUGn_in(4, kCgi, 0, "kept\n"), 0);
  EXPECT_EQ(KT_DEBUGn_in(8, kEvent, 0, "kept\n"), 0) << "another module's";
  EXPECT_TRUE(listed(line_of_us(4)));
  EXPECT_NE(ktctl("trace level --json 8").out.find("\"pid\": " + self + ",\n      \"level\": 4,\n"), std::string::npos);
  expect_run("trace level 8 8", 0, "", "");
  EXPECT_EQ(mod_define[kCgi].level, 8);

  expect_run("trace level none", 1, "", "none: there is no such trace module");
  for (const char* level : {"-1", "100", "x"}) {
    expect_run(std::string("trace level cgi ") + level, 2, "", std::string(level) + ": LEVEL is 0 to 99");
  }
  prctl(PR_SET_DUMPABLE, 0);  // this process forbids it now
  const Result forbidden = ktctl("trace level cgi 4");
  prctl(PR_SET_DUMPABLE, 1);
  EXPECT_EQ(forbidden.code, 4) << forbidden;
  EXPECT_EQ(mod_define[kCgi].level, 8);
}

TEST(KtctlHash, tells_programs_the_digests) {
  write_file("/tmp/digits", "123456789");
  ASSERT_EQ(
      system("eval \"$(ktctl hash --crc16 --shell /tmp/digits /tmp/none - </tmp/digits 2>/tmp/err)\"; echo $digests "
             "$digests_1_file $digests_1_algorithm $digests_1_digest $digests_2_file >/tmp/told"),
      0);
  EXPECT_EQ(read_file("/tmp/told"), "2 /tmp/digits crc16 374b -\n");
  EXPECT_EQ(read_file("/tmp/err"), message("/tmp/none: not found"));
  const std::string kMd5 = "25f9e794323b453885f5181f1b624d0b";
  expect_run("hash --json /tmp/digits", 0,
             "{\n  \"digests\": [\n    {\n      \"file\": \"/tmp/digits\",\n      \"algorithm\": \"md5\",\n      "
             "\"digest\": \"" +
                 kMd5 + "\"\n    }\n  ]\n}\n",
             "");
  EXPECT_NE(ktctl("hash --sha256 --shell /tmp/digits").out.find("digests_1_algorithm='sha256'"), std::string::npos);
}

// One run with a text as its standard input.
Result ktctl_reading(const std::string& arguments, const std::string& input) {
  write_file("/tmp/input", input);
  return ktctl(arguments, "</tmp/input");
}

TEST(KtctlCrypt, texts_survive_both_ways) {
  const std::string kLongest(65536, 'a'), kBytes("\0\xff'\n\n", 5);
  for (const std::string& text : {std::string(), std::string("hello"), std::string(16, 'x'), kLongest, kBytes}) {
    const Result cipher = ktctl_reading("encrypt", text + "\n");
    EXPECT_EQ(cipher.out.size(), 2 * (text.size() / 16 + 1) * 16 + 1) << cipher;
    EXPECT_EQ(cipher.out.find_first_not_of("0123456789abcdef"), cipher.out.size() - 1) << cipher;
    EXPECT_TRUE(ktctl_reading("decrypt", cipher.out) == (Result{0, text + "\n", ""})) << text.size();
  }
  const std::string hello = ktctl_reading("encrypt", "hello").out;
  EXPECT_EQ(hello, ktctl_reading("encrypt", "hello\n").out) << "a line feed at the end is not part of the text";
  EXPECT_EQ(ktctl_reading("encrypt --json", "hello").out, "{\n  \"cipher\": \"" + hello.substr(0, 32) + "\"\n}\n");
  const std::string quote = ktctl_reading("encrypt", "it's").out;
  EXPECT_EQ(ktctl_reading("decrypt --shell", quote).out, "text='it'\\''s'\n");
}

TEST(KtctlCrypt, refuses_what_is_too_long_or_no_cipher) {
  const std::string kDigits = ": hex digits in whole blocks of 32 are wanted", kZeros(32, '0');
  const struct {
    const char* command;
    std::string input, reason;
  } kCases[] = {{"encrypt", std::string(65537, 'a'), ": more than 65536 characters"},
                {"encrypt", std::string(65536, 'a') + "\n\n", ": more than 65536 characters"},
                {"decrypt", std::string(2 * 65552 + 1, '0'), ": more than 131104 characters"},
                {"decrypt", "", kDigits},
                {"decrypt", kZeros.substr(1), kDigits},
                {"decrypt", kZeros.substr(2), kDigits},
                {"decrypt", kZeros.substr(1) + "g", kDigits},
                {"decrypt", kZeros, ": no cipher of `ktctl encrypt`: it has another key"}};
  for (const auto& c : kCases) {
    EXPECT_EQ(ktctl_reading(c.command, c.input), (Result{3, "", message("standard input" + c.reason)})) << c.command;
  }
  EXPECT_EQ(ktctl("encrypt", "</tmp").err, message("standard input: Is a directory"));
  EXPECT_EQ(ktctl("decrypt", "</tmp").code, 4);
}

// A process under a name of its own, by which it is found.
pid_t start_named(const char* name) {
  const std::string path = std::string("/tmp/") + name;
  EXPECT_EQ(system(("cp /bin/busybox " + path).c_str()), 0);
  const pid_t pid = start_child([&] { return execl(path.c_str(), "sleep", "60", nullptr); });
  for (int tries = 0; tries < 100 && ktctl(std::string("proc find ") + name).code != 0; ++tries) usleep(20000);
  return pid;
}

TEST(KtctlProc, finds_and_signals_programs) {
  const pid_t one = start_named("napper-1"),
              two = start_child([] { return execl("/tmp/napper-1", "sleep", "60", nullptr); });
  const std::string first = std::to_string(one), second = std::to_string(two);
  const std::string no_such = ": no such program is running",
                    bad_name = ": a program's name is made of letters, digits and . _ + -";
  Result both;
  for (int tries = 0; tries < 100 && (both = ktctl("proc find napper-1")).out.size() < first.size() + second.size() + 2;
       ++tries) {
    usleep(20000);
  }
  const bool newest_first = both.out == second + "\n" + first + "\n";
  EXPECT_TRUE(newest_first || both.out == first + "\n" + second + "\n") << both;
  const std::string top = newest_first ? second : first;
  const std::string json = newest_first ? second + ",\n    " + first : first + ",\n    " + second;
  const struct {
    std::string arguments;
    int code;
    std::string out, err;
  } kCases[] = {{"proc find none", 1, "", "none" + no_such},
                {"proc find none napper-1", 1, both.out, "none" + no_such},
                {"proc find --json napper-1 none", 1,
                 "{\n  \"napper-1\": [\n    " + json + "\n  ],\n  \"none\": []\n}\n", "none" + no_such},
                {"proc find --shell none", 1, "none='0'\n", "none" + no_such},
                {"proc find 'a;b'", 3, "", "a;b" + bad_name},
                {"proc find ''", 3, "", bad_name},
                {"proc find x/y", 3, "", "x/y" + bad_name},
                {"proc signal napper-1 NONE", 2, "", "NONE: there is no such signal"},
                {"proc signal napper-1 -1", 2, "", "-1: there is no such signal"},
                {"proc signal napper-1 65", 2, "", "65: there is no such signal"},
                {"proc signal napper-1 0", 0, "", ""},
                {"proc signal --dry-run napper-1 term", 0, "would send signal 15 to process " + top + "\n", ""},
                {"proc signal --dry-run " + second + " 9", 0, "would send signal 9 to process " + second + "\n", ""},
                {"proc signal none HUP", 1, "", "none" + no_such},
                {"proc signal 'a b' HUP", 3, "", "a b" + bad_name},
                {"proc signal 0 HUP", 3, "", "0: a process has a number above 0"},
                {"proc signal -- -5 HUP", 3, "", "-5: a process has a number above 0"},
                {"proc signal 4000000 HUP", 1, "", "process 4000000: not found"}};
  for (const auto& c : kCases) expect_run(c.arguments, c.code, c.out, c.err);
  expect_run("proc signal napper-1 SIGUSR1", 0, "", "");
  const pid_t hit = newest_first ? two : one, spared = newest_first ? one : two;
  EXPECT_EQ(wait_for_child(hit), -SIGUSR1);
  EXPECT_EQ(waitpid(spared, nullptr, WNOHANG), 0) << "only the first is signalled";
  expect_run("proc signal " + std::to_string(spared) + " kill", 0, "", "");
  EXPECT_EQ(wait_for_child(spared), -SIGKILL);
  expect_run("proc find napper-1", 1, "", "napper-1" + no_such);
}

}  // namespace
