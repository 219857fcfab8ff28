// Commands, quoting, programs found by name or file, and what they exchange.
#include <ktcomm/util_process.h>
#include <string.h>
#include <sys/msg.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/un.h>

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
string g_pidof;       // what is run instead of /bin/pidof
string g_command;     // the last one
int g_slept_s;
int g_requests;  // to end

}  // namespace

extern "C" pid_t fork() noexcept { return g_fork_fails ? errno = EAGAIN, -1 : libc("fork", &fork)(); }
extern "C" int connect(int fd, const sockaddr* address, socklen_t size) {
  const int result = libc("connect", &connect)(fd, address, size);
  return close(g_hang_up), result;
}
extern "C" int kill(pid_t pid, int signo) noexcept {
  return g_requests += signo == SIGTERM, libc("kill", &kill)(pid, signo);
}
extern "C" unsigned sleep(unsigned seconds) { return g_slept_s += int(seconds), 0; }
extern "C" int system(const char* command) {
  g_command = command;
  if (g_commands_lost > 0) return --g_commands_lost, 0;
  return libc("system", &system)(g_pidof.empty() ? command : (g_pidof + g_command.substr(10)).c_str());
}

namespace {

// What `call` returns for each content of a file.
void expect_by_content(const char* path, const auto& cases, auto call) {
  for (const auto& [content, result] : cases) {
    write_file(path, content);
    EXPECT_EQ(call(), result) << content;
  }
}

mode_t mode_of(const char* path) {
  struct stat status = {};
  return stat(path, &status), status.st_mode & 07777;
}

int lowest_free_descriptor() {
  const int fd = dup(STDERR_FILENO);
  return close(fd), fd;
}

// Expects `body` to leave just one descriptor open, close-on-exec, or none.
void expect_left_open(bool one, auto body) {
  const size_t before = open_descriptors();
  const int fd = lowest_free_descriptor();
  body();
  EXPECT_EQ(open_descriptors(), before + one);
  EXPECT_EQ(fcntl(fd, F_GETFD), one ? FD_CLOEXEC : -1);
  close(fd);
}

string printed(auto body) {
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

// The number that the trace tells behind `text`, a regular expression.
long traced(const string& text) {
  std::smatch match;
  const string trace = read_file("/tmp/debug/cgi/0-0.log");
  return regex_search(trace, match, std::regex("\\]" + text + "(\\d+)\n")) ? std::stol(match[1]) : -1;
}

TEST(CfSystem, captures_both_streams_and_the_status_whatever_signals_come) {
  const string x(149, 'x'), with_nul = "a\\0" + x;
  const char slow[] = "sleep 0.1; echo o; exec >&-; sleep 0.1; echo e >&2; exec 2>&-; sleep 0.1; exit 255";
  const pair<std::vector<const char*>, string> cases[] = {
      // More than a pipe holds, and all of it before the other stream.
      {{"sh", "-c", "printf '%0100000d' 0; echo e >&2; exit 7"}, "7|" + string(100000, '0') + "|e\n"},
      {{"sh", "-c", slow}, "255|o\n|e\n"},
      {{"printf", "%s,%s", "a b;", "$HOME'"}, "0|a b;,$HOME'|"},
      // A NUL hides the rest of its chunk of 99 bytes, which count all the same.
      {{"printf", with_nul.c_str()}, "0|a" + string(98, '\0') + x.substr(97) + "|"},
      {{"sh", "-c", "echo o; kill -9 $$"}, "-1|o\n|"},
      {{"/no/such"}, "2||"},
      {{"/etc"}, "13||"},
      {{}, "-1|old|old"}};
  interrupt_every_10_ms();
  for (const auto& [argv, expected] : cases) EXPECT_EQ(run(argv), expected);
  ualarm(0, 0);
  EXPECT_EQ(in_child([] { return signal(SIGCHLD, SIG_IGN), run({"false"}) != "0||"; }), 0);
  EXPECT_EQ(CFSystem2(nullptr, nullptr, "false", nullptr), 1);
  EXPECT_EQ(CFSystem2(nullptr, nullptr, "test", "a b", "=", "a b", nullptr), 0);
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
    for (const unsigned more : {0, 1, 2, 3}) {
      const rlimit low = {unsigned(lowest_free_descriptor()) + more, 1024}, high = {1024, 1024};
      setrlimit(RLIMIT_NOFILE, &low);
      EXPECT_EQ(run({"true"}), more < 2 ? "-1||old" : "-1||") << more;
      setrlimit(RLIMIT_NOFILE, &high);
    }
    g_fork_fails = true;
    EXPECT_EQ(printed([] { EXPECT_EQ(run({"true"}), "-1||"); }).find("fork failed\n: "), 0U);
    g_fork_fails = false;
  });
}

constexpr char kAdd[] = "n=$(cat /tmp/number); sleep 0.01; echo $((n + 1)) >/tmp/number";

TEST(SystemWithLock, runs_one_command_at_a_time_whatever_signals_come) {
  write_file("/tmp/number", "0");
  EXPECT_TRUE(in_processes(8, [](int) { return interrupt_every_10_ms(), system_with_lock(kAdd); }));
  EXPECT_EQ(read_file("/tmp/number"), "8\n");
  for (const int left_over : {0, ECHILD})
    EXPECT_EQ((errno = left_over, system_with_lock("exit 3")), left_over == 0 ? 3 << 8 : 0);
  unlink("/tmp/cgi_locker.lock");
  mkdir("/tmp/cgi_locker.lock", 0700);
  expect_all(-1, {system_with_lock("touch /tmp/2"), exists("/tmp/2") - 1, system_with_lock(nullptr)});
  rmdir("/tmp/cgi_locker.lock");
}

TEST(Quoting, escape_keeps_one_command_one_command) {
  const pair<string, string> cases[] = {{"a;b&", "a\\;b&"},     {"a&b", "a\\&b"}, {"&&", "\\&&"},
                                        {"a\\|b", "a\\\\\\|b"}, {"", ""},         {"$b 'c'", "$b 'c'"}};
  for (const auto& [text, expected] : cases) {
    char* escaped = nullptr;
    expect_all(0, {escape_sequence(text.c_str(), &escaped), system_signal(text.c_str())});
    EXPECT_EQ(escaped + ("|" + g_command), expected + "|" + expected);
    free(escaped);
  }
  expect_all(-1, {escape_sequence("a", nullptr), system_signal(nullptr)});
}

TEST(Quoting, shell_word_is_cut_to_its_bounds) {
  const string k520(520, 'x'), k519(519, 'x');
  const std::tuple<string, int, string> cases[] = {
      {"it's", 4, "'it'\\''s'"}, {"'", 1, "''\\'"}, {"a''b'", 5, "'a'\\'\\''b'\\'"}, {"'a", 2, "''\\''a'"},
      {"abc", 2, "'ab'"},        {"a", 9, "'a'"},   {k520, 519, "'" + k519 + "'"}};
  for (const auto& [text, length, expected] : cases) {
    for (size_t size = 1; size < 526; ++size) {
      string out(size + 4, '#');
      ASSERT_EQ(shell_cmd_paras_convert(text.c_str(), length, &out[0], int(size)), &out[0]);
      ASSERT_EQ(out.c_str() + out.substr(size), expected.substr(0, size - 1) + "####");
    }
  }
  char out[9];
  for (const auto& [length, size] : {pair{520, 2000}, {0, 9}, {-1, 9}, {1, 0}, {1, -1}})
    EXPECT_EQ(shell_cmd_paras_convert(k520.c_str(), length, out, size), nullptr);
}

TEST(Quoting, shell_gets_back_any_bytes_quoted_in_place) {
  std::mt19937 random(1);
  for (int length = 1; length < 520; length += 2) {
    string text(size_t(length), '\'');
    for (char& c : text) c = random() % 4 == 0 ? c : char(1 + random() % 255);
    string word = text + string(text.size() * 2 + 3, '#');
    shell_cmd_paras_convert(&word[0], length, &word[0], int(word.size()));
    ASSERT_EQ(run({"sh", "-c", ("printf %s " + word).c_str()}), "0|" + text + "|");
  }
}

TEST(Quoting, tx_quot_replaces_quotes_and_clears_the_rest) {
  const std::tuple<const char*, size_t, string> cases[] = {
      {"\"a\"", 20, "&quot;a&quot;"}, {"\"", 7, "&quot;"}, {"\"", 6, ""}, {"abc", 3, "ab"}, {"a", 0, ""}};
  for (const auto& [text, size, expected] : cases) {
    string out(size + 4, '#');
    EXPECT_EQ(tx_quot(&out[0], text, int(size)), 0);
    EXPECT_EQ(out, (expected + string(size, '\0')).substr(0, size) + "####") << text;
  }
}

TEST(GetApps, ask_pidof_by_way_of_a_file_that_goes_away) {
  const Program one("camproc"), two("camproc"), other("otherproc");
  const auto is_alive = [](int pid) { return CheckAppsPidAlive("camproc", pid); };
  const auto of_file = [] { return GetAppsPidBySpecFile("otherproc", "/tmp/pids"); };
  expect_all(1, {is_alive(one.pid()), is_alive(two.pid()), GetAppsNum("camproc") - 1});
  expect_all(0, {is_alive(other.pid()), is_alive(0), GetAppsPid("nobody"), GetAppsPid(nullptr)});
  EXPECT_EQ(GetAppsNum(string(500, 'x').c_str()), 0);
  for (g_commands_lost = 1; g_commands_lost != 0;) EXPECT_EQ(of_file(), other.pid());      // asks once more
  for (g_commands_lost = 2; g_commands_lost != 0;) EXPECT_EQ(GetAppsPid("otherproc"), 0);  // but not twice
  const std::regex format("/bin/pidof otherproc > /tmp/otherproc_(\\d+)_\\d{1,6} 2>/dev/null");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(g_command, match, format)) << g_command;
  EXPECT_LT(time(nullptr) - std::stol(match[1]), 60);
  g_pidof = "echo x 123 -5";
  expect_all(1, {!is_alive(-5), GetAppsNum("camproc")});
  for (int i = 0; i < 99; ++i) g_pidof += " 12345";
  EXPECT_EQ(GetAppsNum("camproc"), 101);  // the end of a 511-character line cuts a pid in two
  g_pidof.clear();
  const pair<string, int> lists[] = {
      {"12\n", 12},           {"\r\n  77 5\n", 77},       {"12x", 12}, {"", other.pid()}, {"abc 34", other.pid()},
      {"-5 12", other.pid()}, {"4294967297", other.pid()}};
  expect_by_content("/tmp/pids", lists, of_file);
  EXPECT_TRUE(files_in("/tmp", "camproc").empty() && files_in("/tmp", "otherproc").empty());
}

TEST(SendSignal, reaches_the_process_that_a_pid_file_names) {
  Program program("camproc");
  const string pid = program.text(), blanks(128, ' '), fits = blanks.substr(pid.size()) + pid + "9";
  const pair<string, int> cases[] = {{fits, 0}, {"0", -1}, {"-" + pid, -1}, {"", -1}, {blanks + pid, -1}};
  expect_by_content("/tmp/pid", cases, [] { return SendSignal2PidFromFile("/tmp/pid", SIGUSR1); });
  const string line = "SendSignal2PidFromFile\\(\\d+\\):pid = ";
  EXPECT_EQ(Results({traced(line), traced(line + "(?=0)")}), Results({program.pid(), 0}));
  EXPECT_EQ(program.ended_by(), SIGUSR1);
  expect_all(-1, {SendSignal2PidFromFile("/tmp/pid", SIGUSR1), SendSignal2PidFromFile("/no/such", SIGUSR1)});
}

TEST(SendSignal, reaches_a_program_and_gives_hydra_time) {
  Program one("camproc"), two("camproc2"), hydra("x");
  const auto send = [](const char* name, const char* file) { return SendSignal2AppsBySpecFile(name, SIGUSR2, file); };
  const int slept_s = g_slept_s;
  write_file("/tmp/hydra.lock", hydra.text());
  SendSignal2Apps("nobody", SIGUSR1);
  SendSignal2Apps("camproc", SIGUSR1);
  expect_all(0, {send("hydra", nullptr), send("camproc2", nullptr), g_slept_s - slept_s});  // hydra does not run
  expect_all(0, {send("HyDra", "/tmp/hydra.lock"), one.ended_by() - SIGUSR1, two.ended_by() - SIGUSR2,
                 hydra.ended_by() - SIGUSR2});
  EXPECT_EQ(Results({send("hydra", "/tmp/hydra.lock"), g_slept_s - slept_s}), Results({-1, 4}));  // it is gone
  for (const char* line : {"SendSignal2Apps\\(\\d+\\):app_name=camproc, time=",
                           "SendSignal2AppsBySpecFile\\(\\d+\\):app_name=HyDra, time="})
    EXPECT_LE(kt_linear_time(nullptr) - traced(line), 60);
}

TEST(LockFile, is_taken_over_from_the_dead_only) {
  Program dead("camproc"), alive("camproc");
  const string self = to_string(getpid()), blanks(63, ' '), gone = dead.text();
  const string live = alive.text() + "\n", fits = blanks.substr(self.size()) + self;
  dead.ended_by();
  const pair<string, pair<int, string>> cases[] = {{live, {2, live}},          {fits, {2, fits}},
                                                   {blanks + self, {0, self}}, {gone, {0, self}},
                                                   {"-1", {0, self}},          {"longer than a pid", {0, self}}};
  const auto take = [] { return pair<int, string>{create_apps_lock_file("/tmp/lock"), read_file("/tmp/lock")}; };
  expect_by_content("/tmp/lock", cases, take);
  EXPECT_EQ(WritePidToFile("/tmp/lock"), getpid());
  EXPECT_EQ(read_file("/tmp/lock"), self + "\n");
  chmod("/tmp/lock", 0222);
  expect_all(-1, {WritePidToFile("/tmp/lock"), WritePidToFile("/dev/full"), create_apps_lock_file(nullptr)});
  expect_all(1, {create_apps_lock_file("/no/such"), create_apps_lock_file("/dev/full")});
}

TEST(LockFile, new_instance_ends_the_old_one_and_tries_again) {
  umask(0);
  const auto start = [] { return check_app_filelock("camproc", "/tmp/instance"); };
  expect_left_open(true, [=] { EXPECT_EQ(fcntl(start(), F_GETFL) & O_ACCMODE, O_WRONLY); });
  EXPECT_EQ(mode_of("/tmp/instance"), 0644U);
  Program old("camproc");
  g_slept_s = g_requests = 0;
  const pair<string, Results> cases[] = {{"", {-2, 0}}, {"-1", {-2, 0}}, {old.text(), {-2, 0}}};
  expect_by_content("/tmp/instance", cases, [=] { return Results{start(), exists("/tmp/instance")}; });
  // The dead one is listed until it is waited for.
  EXPECT_EQ(Results({g_slept_s, g_requests, old.ended_by()}), Results({1, 2, SIGTERM}));
  expect_all(-1, {check_app_filelock("x", "/no/such"), check_app_filelock(nullptr, "/tmp/2"),
                  check_app_filelock("x", nullptr)});
}

TEST(Alive, port_is_held_for_the_life_of_the_process) {
  expect_left_open(true, [] {
    expect_all(0, {CFToggleProcessAlive(4711), in_child([] { return CFIsProcessAlive(4711) - 1; }),
                   CFToggleProcessAlive(4711) + 1});
    const string listening_locally = "0100007F:1267 00000000:0000 0A";
    EXPECT_NE(read_file("/proc/net/tcp").find(listening_locally), string::npos);
  });
  expect_all(0, {in_child([] { return CFToggleProcessAlive(4711); }), CFIsProcessAlive(4711)});  // that one has ended
  expect_all(-1, {CFIsProcessAlive(-1), CFToggleProcessAlive(65536 + 4711)});
}

TEST(Facts, viewers_memory_time_and_flushed_files) {
  int viewers = -9;
  expect_all(0, {kt_get_viewer_num(&viewers), viewers});
  const pair<string, Results> cases[] = {
      {"12\n", {12, 12, 12}}, {"7", {7, 7, 7}}, {"123", {12, 12, 12}}, {"", {0, 0, 0}}};
  expect_by_content("/tmp/viewer", cases, [&] {
    return Results{kt_get_viewer_num(&viewers), viewers, kt_get_viewer_num(nullptr)};
  });
  const double free_pages = double(kt_get_sys_free_mem()) / double(sysconf(_SC_PAGESIZE));
  EXPECT_NEAR(free_pages, double(sysconf(_SC_AVPHYS_PAGES)), double(sysconf(_SC_PHYS_PAGES)) / 10);
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  unsigned seconds = 0;
  EXPECT_LE(kt_linear_time(&seconds) - now.tv_sec, 1U);
  EXPECT_LE(seconds - now.tv_sec, 1U);
  expect_left_open(true, [] { EXPECT_EQ(kt_fsync_byname("/tmp/viewer"), 0); });
  expect_left_open(false, [] { expect_all(-1, {kt_fsync_byname("/no/such"), kt_fsync_byname("/dev/null")}); });
}

TEST(Timestamp, counts_only_with_its_twin) {
  const string name(248, 't');
  unsigned value = 0;
  for (const string& path : {"/tmp/" + name, "/tmp/t" + name}) {  // the longer one has no twin
    expect_all(0, {write_timestamp_into_file(path.c_str()), read_timestamp_from_file(path.c_str(), &value)});
    EXPECT_LE(kt_linear_time(nullptr) - value, 1U);
  }
  EXPECT_EQ(files_in("/tmp", name).size(), 3U);
  const string five("\5\0\0\0", 4), six("\6\0\0\0", 4), none(4, '\0'), erased(4, '\xff');
  const std::tuple<string, string, Results> cases[] = {{five, five, {0, 5}},      {five, six, {1, 99}},
                                                       {five, "", {1, 99}},       {none, none, {1, 99}},
                                                       {erased, erased, {1, 99}}, {"abc", "abc", {1, 99}}};
  for (const auto& [file, twin, result] : cases) {
    write_file("/tmp/stamp", file);
    write_file("/tmp/stamp.2", twin);
    value = 99;
    EXPECT_EQ(Results({read_timestamp_from_file("/tmp/stamp", &value), value}), result);
  }
  write_file("/tmp/alone", five);
  mkdir("/tmp/stamp.2dir.2", 0700);
  expect_all(1, {read_timestamp_from_file("/tmp/alone", &value), read_timestamp_from_file("/no/such", &value),
                 write_timestamp_into_file("/tmp/stamp.2dir"), write_timestamp_into_file("/dev/full")});
  expect_all(~2U, {compare_timestamp(3, 5), compare_timestamp(~2U, 0)});
  expect_all(0, {compare_timestamp(4, 4), compare_timestamp(0, ~0U), compare_timestamp(5, 3) - 2});
}

TEST(Message, sizes_are_those_of_the_whole_record) {
  umask(0);
  const int id = msg_init(0x1234), word = sizeof(long), size = 2 * word;
  const long sent[] = {7, -2};
  std::vector<long> got(3, -1);
  long* const to = &got[0];
  msqid_ds queue;
  expect_all(0, {msg_init(0x1234) - id, msg_send(id, sent, size), kt_msg_send(id, sent, word + 2, IPC_NOWAIT),
                 msgctl(id, IPC_STAT, &queue)});
  EXPECT_EQ(queue.msg_perm.mode & 0777, 0666);
  EXPECT_EQ(msg_recv(id, 7, to, size), word);
  EXPECT_EQ(got, std::vector<long>({7, -2, -1}));
  EXPECT_EQ(kt_msg_recv(id, 0, to, size, IPC_NOWAIT), 2);
  EXPECT_EQ(got, std::vector<long>({7, 0xFFFE, -1}));
  const auto take_turns = [=](int i) {
    return i == 0 ? msg_recv(id, 7, to, size) - word : (usleep(50000), msg_send(id, sent, size));
  };
  EXPECT_TRUE(in_processes(2, take_turns));  // one waits for the other
  const string text = printed([=] {
    EXPECT_EQ(kt_msg_recv(id, 0, to, size, IPC_NOWAIT), -2);
    EXPECT_EQ(msg_send(id, sent, size), 0);
    for (const int flags : {0, IPC_NOWAIT | MSG_EXCEPT, IPC_NOWAIT})
      EXPECT_EQ(kt_msg_recv(id, 0, to, word + 1, flags), -1);
    for (const auto& [record, bytes] : {pair<long*, int>{nullptr, size}, {to, 0}, {to, 4}})
      expect_all(-1, {msg_send(id, record, bytes), msg_recv(id, 0, record, bytes)});
    expect_all(-1, {msg_send(-1, sent, size), msg_recv(-1, 0, to, size)});
    expect_all(-1, {msg_exit(id) - 1, msg_exit(id), msg_exit(-1)});
  });
  const std::regex complaints(
      "receive message error!\n: .*\n(input parameters error!\n: .*\n){6}"
      "delete message queue failed!\n: .*\nqueue id error!\n: .*\n");
  EXPECT_TRUE(std::regex_match(text, complaints)) << text;
}

TEST(SharedMemory, keeps_its_content_for_those_who_would_create_it) {
  void *const untouched = &g_hang_up, *at = untouched;
  const size_t page = size_t(sysconf(_SC_PAGESIZE));
  const auto attach = [&](size_t size, int flags) { return static_cast<char*>(pub_attach_shm(&at, size, 99, flags)); };
  EXPECT_TRUE(attach(5, 0666) == nullptr && at == untouched);
  char* const made = attach(page + 1, IPC_CREAT | 0600);
  ASSERT_EQ(at, made);
  made[0] = made[2 * page - 1] = 'k';
  for (const auto& [flags, kept] : {std::pair{IPC_CREAT | 0600, 'k'}, {0600, '\0'}}) {
    char* const again = static_cast<char*>(pub_attach_shm(nullptr, page + 1, 99, flags));
    expect_all(0, {again[0] - kept, again[2 * page - 1] - kept, pub_detach_shm(again)});
  }
  EXPECT_TRUE(attach(5, IPC_CREAT | IPC_EXCL | 0600) == nullptr && attach(~0UL, 0600) == nullptr);
  shmid_ds segment;
  shmctl(shmget(99, 0, 0), IPC_STAT, &segment);
  EXPECT_TRUE(segment.shm_nattch == 1 && segment.shm_segsz == 2 * page);
  expect_all(0, {pub_detach_shm(made), pub_detach_shm(nullptr), pub_detach_shm(made)});
}

TEST(TaskQueue, lets_one_in_at_a_time) {
  umask(0);
  write_file("/tmp/number", "0");
  const auto add = [](int fd) { return system(kAdd) + kt_task_queue_out(fd); };
  EXPECT_TRUE(in_processes(8, [=](int) { return add(kt_task_queue_in("/tmp/queue")); }));
  EXPECT_EQ(read_file("/tmp/number"), "8\n");
  EXPECT_EQ(mode_of("/tmp/queue"), 0700U);
  expect_all(-1, {kt_task_queue_in("/no/such"), kt_task_queue_in(nullptr), kt_task_queue_out(999)});
  expect_left_open(true, [] { kt_task_queue_in("/tmp/queue"); });
  const int mine = kt_task_queue_in("/tmp/queue");
  for (const bool zero : {false, true}) {  // interrupted: only descriptor 0 stays open
    const auto body = [=] {
      if (zero) close(0);
      interrupt_every_10_ms();
      expect_left_open(zero, [] { EXPECT_EQ(kt_task_queue_in("/tmp/queue"), -1); });
      return testing::Test::HasFailure() + kt_task_queue_out(0);
    };
    EXPECT_EQ(in_child(body), 0);
  }
  expect_left_open(false, [=] { EXPECT_EQ(kt_task_queue_out(dup(mine)), 0); });
  EXPECT_EQ(in_child([] { return kt_task_queue_in("/tmp/queue") < 0; }), 0);  // unlocked for all
}

TEST(PassFd, sends_the_record_with_one_or_two_descriptors) {
  string record(KT_FD_MESSAGE_SIZE + 1, 'r'), got = record;
  const auto pass = [&](int fd) { return pass_fd_and_message(fd, record.data()); };
  EXPECT_EQ(printed([&] { expect_left_open(true, [&] { pass(0); }); }), "connect failed\n");
  const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), folder = open("/tmp", O_RDONLY | O_CLOEXEC);
  const sockaddr_un address = {AF_UNIX, "zSOCKET-SERVER"};
  ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) + listen(server, 9), 0);
  struct stat sent, received;
  fstat(folder, &sent);
  for (const int second : {0, -1, 2}) {
    memcpy(&record[KT_FD_MESSAGE_SECOND_FD], &second, sizeof second);
    expect_left_open(false, [&] { EXPECT_EQ(pass(folder), 0); });
    alignas(cmsghdr) char control[99] = {};
    iovec data = {&got[0], got.size()};
    msghdr header = {nullptr, 0, &data, 1, control, sizeof control, 0};
    EXPECT_EQ(recvmsg(accept(server, nullptr, nullptr), &header, 0), KT_FD_MESSAGE_SIZE);
    EXPECT_EQ(got, record);
    const cmsghdr* const rights = CMSG_FIRSTHDR(&header);
    ASSERT_EQ(rights->cmsg_len, CMSG_LEN((second > 0 ? 2 : 1) * sizeof(int)));
    fstat(*reinterpret_cast<const int*>(CMSG_DATA(rights)), &received);
    EXPECT_EQ(received.st_ino, sent.st_ino);
  }
  memcpy(&record[KT_FD_MESSAGE_SECOND_FD], "\0\0\x80", 4);  // above 0 and not open
  expect_left_open(false, [&] { expect_all(-1, {pass(0), pass_fd_and_message(0, nullptr)}); });
  record.assign(record.size(), '\0');
  g_hang_up = server;
  EXPECT_EQ(pass(0), -1);  // and no SIGPIPE
}

}  // namespace
