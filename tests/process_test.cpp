// Commands, quoting, programs found by name or file, and what they exchange.
#include <dlfcn.h>
#include <fcntl.h>
#include <ktcomm/util_process.h>
#include <signal.h>
#include <string.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <random>
#include <regex>

#include "tests/support.h"

using namespace kt::test;
using std::pair;
using std::string;
using std::to_string;

namespace {

// What the doubles below are told and have seen.
bool g_fork_fails;
int g_hang_up = -1;   // a listening socket, closed as soon as somebody is connected
int g_commands_lost;  // so many commands do nothing
string g_pidof_list;  // instead of what pidof prints
string g_command;     // the last one
std::vector<unsigned> g_sleeps_s;
std::vector<pair<int, int>> g_signals;

template <typename F>
F* next(const char* name, F*) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" pid_t fork() noexcept { return g_fork_fails ? errno = EAGAIN, -1 : next("fork", &fork)(); }
extern "C" int connect(int fd, const sockaddr* address, socklen_t size) {
  const int result = next("connect", &connect)(fd, address, size);
  return close(g_hang_up), result;
}
extern "C" int kill(pid_t pid, int signo) noexcept {
  if (g_signals.size() < 9) g_signals.push_back({pid, signo});
  return next("kill", &kill)(pid, signo);
}
extern "C" unsigned sleep(unsigned seconds) { return g_sleeps_s.push_back(seconds), 0; }
extern "C" int system(const char* command) {
  g_command = command;
  const size_t file = g_command.find("/tmp/");
  if (g_commands_lost > 0) return --g_commands_lost, 0;
  if (g_pidof_list.empty()) return next("system", &system)(command);
  return write_file(g_command.substr(file, g_command.find(' ', file) - file), g_pidof_list), 0;
}

namespace {

void expect_each(int expected, std::initializer_list<int> results) {
  for (const int& result : results) EXPECT_EQ(result, expected) << &result - results.begin();
}

int lowest_free_descriptor() {
  const int fd = dup(STDERR_FILENO);
  return close(fd), fd;
}

// Expects `body` to leave just one descriptor open, close-on-exec, or none.
template <typename F>
void expect_left_open(bool one, F body) {
  const size_t before = open_descriptors();
  const int fd = lowest_free_descriptor();
  body();
  EXPECT_EQ(open_descriptors(), before + one);
  EXPECT_EQ(fcntl(fd, F_GETFD), one ? FD_CLOEXEC : -1);
  close(fd);
}

template <typename F>
string printed(F body) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
}

// "status|standard output|standard error" of a command
string run(std::vector<const char*> argv, bool out = true, bool err = true) {
  argv.push_back(nullptr);
  cf_string *const o = cf_string_new("old"), *const e = cf_string_new("old");
  const int status = cf_system(const_cast<char**>(&argv[0]), out ? o : nullptr, err ? e : nullptr);
  const string result = to_string(status) + "|" + string(o->str, o->len) + "|" + string(e->str, e->len);
  return cf_string_free(o), cf_string_free(e), result;
}

// Signals that interrupt whatever waits.
void interrupt_every_ms(long ms) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const itimerval every = {{0, ms * 1000}, {0, ms * 1000}};
  setitimer(ITIMER_REAL, &every, nullptr);
}

// A process that pidof finds under `name`.
struct Program {
  pid_t pid;
  explicit Program(const char* name) {
    char own[16];
    prctl(PR_GET_NAME, own);
    prctl(PR_SET_NAME, name);
    pid = fork();
    while (pid == 0) pause();
    prctl(PR_SET_NAME, own);
  }
  ~Program() { ended_by(); }
  int ended_by() {  // the signal that had come before this call
    int status = 0;
    if (pid > 0) kill(pid, SIGKILL), waitpid(pid, &status, 0);
    return pid = 0, WTERMSIG(status);
  }
};

// What the trace says of `function` behind its line number.
string traced(const string& function) {
  string found, log = read_file("/tmp/debug/cgi/0-0.log");
  for (size_t at = 0; (at = log.find("]" + function + "(", at)) != string::npos; ++at)
    found += log.substr(log.find(')', at), log.find('\n', at) - log.find(')', at));
  return found;
}

TEST(CfSystem, captures_both_streams_and_the_status) {
  const string x(149, 'x'), with_nul = "a\\0" + x;
  const pair<std::vector<const char*>, string> cases[] = {
      // More than a pipe holds, and all of it before the other stream.
      {{"sh", "-c", "printf '%0100000d' 0; echo e >&2; exit 7"}, "7|" + string(100000, '0') + "|e\n"},
      {{"sh", "-c", "echo e >&2; exec >&-; sleep 0.1; echo f >&2; exit 255"}, "255||e\nf\n"},
      {{"printf", "%s,%s", "a b;", "$HOME'"}, "0|a b;,$HOME'|"},
      // A NUL hides the rest of its chunk of 99 bytes, which count all the same.
      {{"printf", with_nul.c_str()}, "0|a" + string(98, '\0') + x.substr(97) + "|"},
      {{"sh", "-c", "echo o; kill -9 $$"}, "-1|o\n|"},
      {{"/no/such"}, "2||"},
      {{"/etc"}, "13||"},
      {{}, "-1|old|old"}};
  for (const auto& [argv, expected] : cases) EXPECT_EQ(run(argv), expected);
  interrupt_every_ms(5);
  const char script[] = "sleep 0.1; echo o; echo e >&2; exec >&- 2>&-; sleep 0.1; exit 4";
  EXPECT_EQ(run({"sh", "-c", script}), "4|o\n|e\n");
  interrupt_every_ms(0);
  EXPECT_EQ(in_child([] { return signal(SIGCHLD, SIG_IGN), run({"false"}) != "0||"; }), 0);
  expect_each(1, {CFSystem2(nullptr, nullptr, "false", nullptr),
                  CFSystem2(nullptr, nullptr, "test", "a b", "=", "a b", nullptr) + 1});
}

TEST(CfSystem, needs_no_standard_descriptors_and_hands_none_of_its_own_down) {
  for (int i = 0; i < 32; ++i) {  // three descriptors open or not, two texts wanted or not
    const string out = i & 8 ? "o\n" : "old", err = i & 16 ? "e\n" : "old";
    const auto body = [&] {
      for (int fd = 0; fd < 1024; ++fd) (void)(fd > 2 || i & 1 << fd ? close(fd) : 0);
      const char script[] = "(echo o) 2>&-; echo e >&2; cd /proc/$$/fd; [ -e 3 -o -e 4 -o -e 5 ]";
      return run({"sh", "-c", script}, i & 8, i & 16) != ("1|" + out).append("|" + err);
    };
    EXPECT_EQ(in_child(body), 0) << i;
  }
}

TEST(CfSystem, failures_leave_no_descriptor) {
  expect_left_open(false, [] {
    for (int more = 0; more < 4; ++more) {
      rlimit limit;
      getrlimit(RLIMIT_NOFILE, &limit);
      const rlimit low = {rlim_t(lowest_free_descriptor() + more), limit.rlim_max};
      setrlimit(RLIMIT_NOFILE, &low);
      const string result = run({"true"});
      setrlimit(RLIMIT_NOFILE, &limit);
      EXPECT_EQ(result, more < 2 ? "-1||old" : "-1||") << more;
    }
    g_fork_fails = true;
    EXPECT_EQ(printed([] { EXPECT_EQ(run({"true"}), "-1||"); }).find("fork failed\n: "), 0U);
    g_fork_fails = false;
  });
}

TEST(SystemWithLock, runs_one_command_at_a_time_whatever_signals_come) {
  write_file("/tmp/number", "0");
  const char add[] = "n=$(cat /tmp/number); sleep 0.02; echo $((n + 1)) >/tmp/number";
  EXPECT_TRUE(in_processes(8, [&](int) { return interrupt_every_ms(3), system_with_lock(add); }));
  EXPECT_EQ(read_file("/tmp/number"), "8\n");
  for (const auto& [left_over, status] : {pair{0, 3 << 8}, {ECHILD, 0}}) {
    errno = left_over;
    EXPECT_EQ(system_with_lock("exit 3"), status);
  }
  unlink("/tmp/cgi_locker.lock");
  mkdir("/tmp/cgi_locker.lock", 0700);
  expect_each(-1, {system_with_lock("touch /tmp/number2"), system_with_lock(nullptr)});
  EXPECT_FALSE(exists("/tmp/number2"));
  rmdir("/tmp/cgi_locker.lock");
}

TEST(Quoting, escape_keeps_one_command_one_command) {
  const char* const cases[][2] = {{"a;b&", "a\\;b&"},     {"a&b", "a\\&b"}, {"&&", "\\&&"},
                                  {"a\\|b", "a\\\\\\|b"}, {"", ""},         {"$b 'c'", "$b 'c'"}};
  for (const auto& [text, expected] : cases) {
    char* escaped = nullptr;
    expect_each(0, {escape_sequence(text, &escaped), system_signal(text)});
    EXPECT_STREQ(escaped, expected);
    EXPECT_EQ(g_command, expected);
    free(escaped);
  }
  expect_each(-1, {escape_sequence("a", nullptr), system_signal(nullptr)});
}

TEST(Quoting, shell_word_is_cut_to_its_bounds) {
  const string k519(519, 'x');
  const std::tuple<string, int, string> cases[] = {
      {"it's", 4, "'it'\\''s'"}, {"'", 1, "''\\'"}, {"a''b'", 5, "'a'\\'\\''b'\\'"}, {"'a", 2, "''\\''a'"},
      {"abc", 2, "'ab'"},        {"a", 9, "'a'"},   {k519, 519, "'" + k519 + "'"}};
  for (const auto& [text, length, expected] : cases) {
    for (size_t size = 1; size < 526; ++size) {
      string out(size + 4, '#');
      ASSERT_EQ(shell_cmd_paras_convert(text.c_str(), length, &out[0], int(size)), &out[0]);
      ASSERT_STREQ(out.c_str(), expected.substr(0, size - 1).c_str());
      ASSERT_EQ(out.substr(size), "####");
    }
  }
  char out[] = "it's\0.....";
  EXPECT_STREQ(shell_cmd_paras_convert(out, 4, out, sizeof out), "'it'\\''s'");
  for (const auto& [length, size] : {pair{520, 2000}, {0, 9}, {-1, 9}, {1, 0}, {1, -1}})
    EXPECT_EQ(shell_cmd_paras_convert((k519 + "x").c_str(), length, out, size), nullptr);
}

TEST(Quoting, shell_gets_back_any_bytes) {
  std::mt19937 random(1);
  for (int length = 1; length < 520; length += 2) {
    string text(size_t(length), '\''), word(text.size() * 3 + 3, '#');
    for (char& c : text) c = random() % 4 == 0 ? c : char(1 + random() % 255);
    shell_cmd_paras_convert(text.c_str(), length, &word[0], int(word.size()));
    ASSERT_EQ(run({"sh", "-c", ("printf %s " + word).c_str()}), "0|" + text + "|");
  }
}

TEST(Quoting, tx_quot_replaces_quotes_and_clears_the_rest) {
  const std::tuple<const char*, size_t, string> cases[] = {
      {"\"a\"", 20, "&quot;a&quot;"}, {"\"", 7, "&quot;"}, {"\"", 6, ""}, {"abc", 3, "ab"}, {"a", 0, ""}};
  for (auto [text, size, expected] : cases) {
    string out(size + 4, '#');
    EXPECT_EQ(tx_quot(&out[0], text, int(size)), 0);
    expected.resize(size);
    EXPECT_EQ(out, expected + "####") << text;
  }
}

TEST(GetApps, ask_pidof_by_way_of_a_file_that_goes_away) {
  const Program one("camproc"), two("camproc"), other("otherproc");
  EXPECT_EQ(GetAppsNum("camproc"), 2);
  expect_each(1, {CheckAppsPidAlive("camproc", one.pid), CheckAppsPidAlive("camproc", two.pid)});
  expect_each(0, {CheckAppsPidAlive("camproc", other.pid), CheckAppsPidAlive("camproc", 0), GetAppsPid("nobody"),
                  GetAppsPid(nullptr), GetAppsNum(string(500, 'x').c_str())});
  for (g_commands_lost = 1; g_commands_lost != 0;) EXPECT_EQ(GetAppsPid("otherproc"), other.pid);  // asks once more
  for (g_commands_lost = 2; g_commands_lost != 0;) EXPECT_EQ(GetAppsPid("otherproc"), 0);          // but not twice
  const std::regex format("/bin/pidof otherproc > /tmp/otherproc_(\\d+)_\\d{1,6} 2>/dev/null");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(g_command, match, format)) << g_command;
  EXPECT_LT(time(nullptr) - std::stol(match[1]), 60);
  for (int i = 0; i < 100; ++i) g_pidof_list += "12345 ";
  EXPECT_EQ(GetAppsNum("camproc"), 101);  // the end of a 511-character line cuts a pid in two
  g_pidof_list = "x 12 -5";
  expect_each(0, {CheckAppsPidAlive("camproc", -5), GetAppsNum("camproc") - 1});
  g_pidof_list.clear();
  const pair<const char*, int> lists[] = {{"12\n", 12},  {"\r\n  77 5\n", 77}, {"12x", 12},      {"", 0},
                                          {"abc 34", 0}, {"-5 12", 0},         {"4294967297", 0}};
  for (const auto& [list, pid] : lists) {
    write_file("/tmp/pids", list);
    EXPECT_EQ(GetAppsPidBySpecFile("otherproc", "/tmp/pids"), pid > 0 ? pid : other.pid) << list;
  }
  EXPECT_EQ(GetAppsPidBySpecFile("otherproc", "/tmp/no-such"), other.pid);
  EXPECT_TRUE(files_in("/tmp", "camproc").empty() && files_in("/tmp", "otherproc").empty());
}

TEST(SendSignal, reaches_the_process_that_a_pid_file_names) {
  Program program("camproc");
  const string pid = to_string(program.pid), blanks(128, ' ');
  for (const string& text : {string("0"), "-" + pid, string(), blanks + pid}) {
    write_file("/tmp/pid", text);
    EXPECT_EQ(SendSignal2PidFromFile("/tmp/pid", SIGUSR1), -1) << text;
  }
  write_file("/tmp/pid", blanks.substr(pid.size()) + pid + "9");
  EXPECT_EQ(SendSignal2PidFromFile("/tmp/pid", SIGUSR1), 0);
  EXPECT_EQ(traced("SendSignal2PidFromFile"), "):pid = " + pid);
  EXPECT_EQ(program.ended_by(), SIGUSR1);
  expect_each(-1, {SendSignal2PidFromFile("/tmp/pid", SIGUSR1), SendSignal2PidFromFile("/no/such", SIGUSR1)});
}

TEST(SendSignal, reaches_a_program_and_gives_hydra_time) {
  Program one("camproc"), two("camproc2"), hydra("x");
  g_sleeps_s.clear();
  SendSignal2Apps("nobody", SIGUSR1);
  SendSignal2Apps("camproc", SIGUSR1);
  EXPECT_EQ(one.ended_by(), SIGUSR1);
  const string line = traced("SendSignal2Apps"), head = "):app_name=camproc, time=";
  EXPECT_EQ(line.substr(0, head.size()), head);
  EXPECT_LE(kt_linear_time(nullptr) - std::stoul(line.substr(head.size())), 60U);
  EXPECT_EQ(SendSignal2AppsBySpecFile("hydra", SIGUSR1, nullptr), 0);  // it does not run
  EXPECT_EQ(SendSignal2AppsBySpecFile("camproc2", SIGUSR2, nullptr), 0);
  EXPECT_EQ(two.ended_by(), SIGUSR2);
  EXPECT_TRUE(g_sleeps_s.empty());
  write_file("/tmp/hydra.lock", to_string(hydra.pid));
  EXPECT_EQ(SendSignal2AppsBySpecFile("HyDra", SIGUSR1, "/tmp/hydra.lock"), 0);
  EXPECT_EQ(hydra.ended_by(), SIGUSR1);
  EXPECT_EQ(SendSignal2AppsBySpecFile("hydra", SIGUSR1, "/tmp/hydra.lock"), -1);  // it is gone
  EXPECT_EQ(g_sleeps_s, (std::vector<unsigned>{2, 2}));
  EXPECT_NE(traced("SendSignal2AppsBySpecFile").find("):app_name=HyDra, time="), string::npos);
}

TEST(LockFile, is_taken_over_from_the_dead_only) {
  Program dead("camproc"), alive("camproc");
  const string self = to_string(getpid()), blanks(63, ' '), gone = to_string(dead.pid);
  dead.ended_by();
  const string live = to_string(alive.pid) + "\n", fits = blanks.substr(self.size()) + self;
  const pair<string, int> cases[] = {{live, 2},          {gone, 0}, {"-1", 0}, {"longer than a pid", 0},
                                     {blanks + self, 0}, {fits, 2}};
  for (const auto& [text, result] : cases) {
    write_file("/tmp/lock", text);
    EXPECT_EQ(create_apps_lock_file("/tmp/lock"), result) << text;
    EXPECT_EQ(read_file("/tmp/lock"), result == 2 ? text : self);
  }
  EXPECT_EQ(WritePidToFile("/tmp/lock"), getpid());
  EXPECT_EQ(read_file("/tmp/lock"), self + "\n");
  chmod("/tmp/lock", 0222);
  expect_each(-1, {WritePidToFile("/tmp/lock"), WritePidToFile("/no/such"), WritePidToFile("/dev/full"),
                   create_apps_lock_file(nullptr)});
  expect_each(1, {create_apps_lock_file("/no/such"), create_apps_lock_file("/dev/full")});
}

TEST(LockFile, new_instance_ends_the_old_one_and_tries_again) {
  umask(0);
  expect_left_open(true, [] {
    const int fd = check_app_filelock("camproc", "/tmp/instance");
    struct stat status;
    EXPECT_TRUE(fstat(fd, &status) == 0 && (status.st_mode & 07777) == 0644);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_WRONLY);
  });
  Program old("camproc");
  g_sleeps_s.clear();
  g_signals.clear();
  for (const string& text : {string(), string("-1"), to_string(old.pid)}) {
    write_file("/tmp/instance", text);
    EXPECT_EQ(check_app_filelock("camproc", "/tmp/instance"), -2);
    EXPECT_FALSE(exists("/tmp/instance"));
  }
  EXPECT_EQ(g_sleeps_s, std::vector<unsigned>{1});
  const pair<int, int> request = {old.pid, SIGTERM};  // the dead one is listed until it is waited for
  EXPECT_EQ(g_signals, (std::vector{request, request}));
  expect_each(-1, {check_app_filelock("x", "/no/such"), check_app_filelock(nullptr, "/tmp/2"),
                   check_app_filelock("x", nullptr)});
}

TEST(Alive, port_is_held_for_the_life_of_the_process) {
  expect_left_open(true, [] {
    EXPECT_EQ(CFToggleProcessAlive(4711), 0);
    EXPECT_EQ(in_child([] { return CFIsProcessAlive(4711); }), 1);
    const string listening_locally = "0100007F:1267 00000000:0000 0A";
    EXPECT_NE(read_file("/proc/net/tcp").find(listening_locally), string::npos);
    EXPECT_EQ(CFToggleProcessAlive(4711), -1);
  });
  EXPECT_EQ(in_child([] { return CFToggleProcessAlive(4711); }), 0);
  EXPECT_EQ(CFIsProcessAlive(4711), 0);  // that one has ended
  expect_each(-1, {CFIsProcessAlive(-1), CFToggleProcessAlive(65536 + 4711)});
}

TEST(Facts, viewers_memory_time_and_flushed_files) {
  int viewers = -9;
  expect_each(0, {kt_get_viewer_num(&viewers), viewers});
  for (const auto& [text, number] : {pair{"12\n", 12}, {"7", 7}, {"123", 12}, {"", 0}}) {
    write_file("/tmp/viewer", text);
    expect_each(number, {kt_get_viewer_num(&viewers), viewers, kt_get_viewer_num(nullptr)});
  }
  struct sysinfo info;
  sysinfo(&info);
  EXPECT_NEAR(double(kt_get_sys_free_mem()), double(info.freeram), double(info.totalram) / 10);
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  unsigned seconds = 0;
  EXPECT_LE(kt_linear_time(&seconds) - now.tv_sec, 1U);
  EXPECT_LE(seconds - now.tv_sec, 1U);
  expect_left_open(true, [] { EXPECT_EQ(kt_fsync_byname("/tmp/viewer"), 0); });
  expect_left_open(false, [] { expect_each(-1, {kt_fsync_byname("/no/such"), kt_fsync_byname("/dev/null")}); });
}

TEST(Timestamp, counts_only_with_its_twin) {
  const string path = "/tmp/" + string(248, 't'), no_twin = path + "t";
  unsigned value = 0;
  for (const char* file : {path.c_str(), no_twin.c_str()}) {
    expect_each(0, {write_timestamp_into_file(file), read_timestamp_from_file(file, &value)});
    EXPECT_LE(kt_linear_time(nullptr) - value, 1U);
  }
  EXPECT_EQ(files_in("/tmp", string(248, 't')).size(), 3U);
  const auto bytes = [](int number) { return string(reinterpret_cast<const char*>(&number), 4); };
  const std::tuple<string, string, int> cases[] = {{bytes(5), bytes(6), 1},   {bytes(0), bytes(0), 1},
                                                   {bytes(-1), bytes(-1), 1}, {"abc", "abc", 1},
                                                   {bytes(5), "", 1},         {bytes(5), bytes(5), 0}};
  for (const auto& [file, twin, result] : cases) {
    write_file("/tmp/stamp", file);
    write_file("/tmp/stamp.2", twin);
    value = 99;
    EXPECT_EQ(read_timestamp_from_file("/tmp/stamp", &value), result);
    EXPECT_EQ(value, result == 0 ? 5U : 99U);
  }
  unlink("/tmp/stamp.2");
  expect_each(1, {read_timestamp_from_file("/tmp/stamp", &value), read_timestamp_from_file("/no/such", &value)});
  mkdir("/tmp/stamp.2", 0700);
  expect_each(1, {write_timestamp_into_file("/tmp/stamp"), write_timestamp_into_file("/dev/full")});
  expect_each(-3, {int(compare_timestamp(3, 5)), int(compare_timestamp(~2U, 0))});
  expect_each(0, {int(compare_timestamp(4, 4)), int(compare_timestamp(0, ~0U)), int(compare_timestamp(5, 3)) - 2});
}

TEST(Message, sizes_are_those_of_the_whole_record) {
  struct Message {
    long type;
    char text[8];
  } sent = {7, "message"}, got[2];
  umask(0);
  const int id = msg_init(0x1234), size = sizeof sent;
  EXPECT_EQ(msg_init(0x1234), id);
  expect_each(0, {msg_send(id, &sent, size), kt_msg_send(id, &sent, size - 6, IPC_NOWAIT)});
  msqid_ds queue;
  EXPECT_TRUE(msgctl(id, IPC_STAT, &queue) == 0 && (queue.msg_perm.mode & 0777) == 0666);
  memset(got, '#', sizeof got);
  EXPECT_EQ(msg_recv(id, 7, got, size), 8);
  EXPECT_EQ(memcmp(got, &sent, sizeof sent), 0);
  EXPECT_EQ(kt_msg_recv(id, 0, got, size, IPC_NOWAIT), 2);
  EXPECT_EQ(memcmp(got[0].text, "me\0\0\0\0\0\0########", 16), 0);
  EXPECT_TRUE(in_processes(2, [&](int i) {  // one waits for the other
    return i == 0 ? msg_recv(id, 7, got, size) - 8 : (usleep(50000), msg_send(id, &sent, size));
  }));
  EXPECT_EQ(printed([&] { EXPECT_EQ(kt_msg_recv(id, 0, got, size, IPC_NOWAIT), -2); }), "");
  msg_send(id, &sent, size);
  const auto too_big = [&](int flags) { return [=, &got] { EXPECT_EQ(kt_msg_recv(id, 0, got, 9, flags), -1); }; };
  EXPECT_EQ(printed(too_big(IPC_NOWAIT)).find("receive message error!\n: "), 0U);
  EXPECT_EQ(printed(too_big(IPC_NOWAIT | MSG_EXCEPT)), "");
  const string text = printed([&] {
    for (const int bad : {0, 1, 2}) {
      void* const record = bad == 0 ? nullptr : got;
      const int to = bad == 1 ? -1 : id, bytes = bad == 2 ? 0 : size;
      expect_each(-1, {msg_send(to, record, bytes), msg_recv(to, 0, record, bytes)});
    }
  });
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 12) << text;
  EXPECT_EQ(text.find("input parameters error!\n: "), 0U);
  expect_each(-1, {msg_send(id, &sent, 4), msg_recv(id, 0, got, 4)});
  EXPECT_EQ(msg_exit(id), 0);
  EXPECT_EQ(printed([=] { expect_each(-1, {msg_exit(id)}); }).find("delete message queue failed!\n: "), 0U);
  EXPECT_EQ(printed([] { expect_each(-1, {msg_exit(-1)}); }).find("queue id error!\n: "), 0U);
}

TEST(SharedMemory, clears_only_what_it_creates) {
  void *const untouched = &g_hang_up, *at = untouched;
  EXPECT_EQ(pub_attach_shm(&at, 5, 99, 0666), nullptr);
  EXPECT_EQ(at, untouched);
  const size_t page = size_t(sysconf(_SC_PAGESIZE));
  char* const made = static_cast<char*>(pub_attach_shm(&at, page + 1, 99, IPC_CREAT | 0600));
  ASSERT_EQ(at, made);
  made[0] = made[2 * page - 1] = 'k';
  for (const int flags : {IPC_CREAT | 0600, 0600}) {
    char* const again = static_cast<char*>(pub_attach_shm(nullptr, page, 99, flags));
    EXPECT_TRUE(again[0] == 'k' && again[2 * page - 1] == 'k');
    EXPECT_EQ(pub_detach_shm(again), 0);
  }
  EXPECT_EQ(pub_attach_shm(nullptr, 5, 99, IPC_CREAT | IPC_EXCL | 0600), nullptr);
  EXPECT_EQ(pub_attach_shm(nullptr, ~0UL, 99, 0600), nullptr);
  shmid_ds segment;
  shmctl(shmget(99, 0, 0), IPC_STAT, &segment);
  EXPECT_TRUE(segment.shm_nattch == 1 && segment.shm_segsz == 2 * page);
  expect_each(0, {pub_detach_shm(made), pub_detach_shm(nullptr), pub_detach_shm(made)});
}

TEST(TaskQueue, lets_one_in_at_a_time) {
  umask(0);
  write_file("/tmp/number", "0");
  EXPECT_TRUE(in_processes(8, [](int) {
    const int fd = kt_task_queue_in("/tmp/queue"), number = std::stoi(read_file("/tmp/number"));
    usleep(10000);
    write_file("/tmp/number", to_string(number + 1));
    return kt_task_queue_out(fd);
  }));
  EXPECT_EQ(read_file("/tmp/number"), "8");
  struct stat status;
  EXPECT_TRUE(stat("/tmp/queue", &status) == 0 && (status.st_mode & 07777) == 0700);
  expect_each(-1, {kt_task_queue_in("/no/such"), kt_task_queue_in(nullptr), kt_task_queue_out(999)});
  expect_left_open(true, [] { kt_task_queue_in("/tmp/queue"); });
  const int mine = kt_task_queue_in("/tmp/queue");
  for (const bool zero : {false, true}) {  // interrupted: only descriptor 0 stays open
    const auto body = [=] {
      if (zero) close(0);
      interrupt_every_ms(20);
      expect_left_open(zero, [] { EXPECT_EQ(kt_task_queue_in("/tmp/queue"), -1); });
      return testing::Test::HasFailure() + kt_task_queue_out(0);
    };
    EXPECT_EQ(in_child(body), 0);
  }
  expect_left_open(false, [=] { EXPECT_EQ(kt_task_queue_out(dup(mine)), 0); });
  EXPECT_EQ(in_child([] { return kt_task_queue_in("/tmp/queue") < 0; }), 0);  // unlocked for all
}

TEST(PassFd, sends_the_record_with_one_or_two_descriptors) {
  char record[KT_FD_MESSAGE_SIZE + 1], got[sizeof record];
  memset(record, 'r', sizeof record);
  EXPECT_EQ(printed([&] { expect_left_open(true, [&] { pass_fd_and_message(0, record); }); }), "connect failed\n");
  const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = {AF_UNIX, "zSOCKET-SERVER"};
  ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  listen(server, 9);
  const int folder = open("/tmp", O_RDONLY | O_CLOEXEC);
  struct stat sent, received;
  fstat(folder, &sent);
  for (const int second : {0, -1, 2}) {
    memcpy(record + KT_FD_MESSAGE_SECOND_FD, &second, sizeof second);
    expect_left_open(false, [&] { EXPECT_EQ(pass_fd_and_message(folder, record), 0); });
    alignas(cmsghdr) char control[99] = {};
    iovec data = {got, sizeof got};
    msghdr header = {nullptr, 0, &data, 1, control, sizeof control, 0};
    const int client = accept(server, nullptr, nullptr);
    EXPECT_EQ(recvmsg(client, &header, 0), KT_FD_MESSAGE_SIZE);
    EXPECT_EQ(memcmp(got, record, KT_FD_MESSAGE_SIZE), 0);
    const cmsghdr* const rights = CMSG_FIRSTHDR(&header);
    ASSERT_EQ(rights->cmsg_len, CMSG_LEN((second > 0 ? 2 : 1) * sizeof(int)));
    fstat(*reinterpret_cast<const int*>(CMSG_DATA(rights)), &received);
    EXPECT_EQ(received.st_ino, sent.st_ino);
  }
  memcpy(record + KT_FD_MESSAGE_SECOND_FD, "\0\0\x80", 4);  // above 0 and not open
  expect_left_open(false, [&] { expect_each(-1, {pass_fd_and_message(0, record), pass_fd_and_message(0, nullptr)}); });
  memset(record, 0, sizeof record);
  g_hang_up = server;
  EXPECT_EQ(pass_fd_and_message(0, record), -1);  // and no SIGPIPE
}

TEST(Process, thousand_calls_keep_nothing) {
  write_file("/tmp/pid", "1");
  expect_nothing_kept("cf_system", [] { run({"true"}); });
  expect_nothing_kept("system", [] { system_with_lock(":"), system_signal(":"); });
  expect_nothing_kept("GetAppsNum", [] { GetAppsNum("camproc"); });
  expect_nothing_kept("filelock", [] { close(check_app_filelock("camproc", "/tmp/instance")); });
  expect_nothing_kept("files", [] {
    SendSignal2PidFromFile("/tmp/pid", 0), create_apps_lock_file("/tmp/pid"), CFIsProcessAlive(4);
    write_timestamp_into_file("/tmp/s"), read_timestamp_from_file("/tmp/s", nullptr);
    kt_get_viewer_num(nullptr), kt_task_queue_out(kt_task_queue_in("/tmp/queue"));
  });
}

}  // namespace
