// ktctl's commands for the settings: many changes at once, what differs, what cannot be
// saved, and the lock.
#include <ktcomm/config.h>
#include <ktcomm/flash.h>
#include <sys/resource.h>

#include <random>

#include "base/file_lock.h"
#include "tests/json_check.h"
#include "tests/ktctl_support.h"
#include "tests/settings_image.h"
#include "tools/lock_timeout.h"
#include "tools/settings_changes.h"

using namespace kt::test;
using namespace kt::tools;
using std::string;
using namespace std::string_literals;

namespace {

int g_syncs;

const string kContent = "[NET]\nport=80\nname= it's \nempty=\n[USER]\nadmin=root\n[USER]\nadmin=second\n";
const string kNone = ": not found";

// The command lines of a table, each on settings of their own, with `input` in a file.
struct Case {
  string arguments, input;
  int code;
  string out, err;
};

class KtctlSettings : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(system("rm -rf /mnt/ramdisk/env /tmp/in && mkdir -p /mnt/ramdisk/env && rm -f /tmp/cgi_locker.lock"), 0);
    write_file(kDefaults, "[SYSTEM]\ncfg_ver=1\n[NET]\nport=8080\nonly_default=yes\n");
    write_file(kSettings, kContent);
  }
  static void hold(kt::FlockFile& lock) { ASSERT_TRUE(lock.open("/tmp/cgi_locker.lock", 0666) && lock.lock()); }
  static void expect(const Case& c) {
    write_file("/tmp/in", c.input);
    const Result result = ktctl(c.arguments, "</tmp/in");
    EXPECT_EQ(result, (Result{c.code, c.out, message(c.err)})) << c.arguments;
  }
};

// ---- Texts ----------------------------------------------------------------

std::mt19937 g_random(20261121);

template <typename T>
const T& any_of(const std::vector<T>& all) {
  return all[g_random() % all.size()];
}

const std::vector<string> kSections = {"A", "B", "AB", "A b", "net"}, kKeys = {"k", "kk", "K", "key"},
                          kValues = {"", "1", "2", " x ", "=", "[A]", "default", string(480, 'v')};

// Lines such as people and programs leave behind: names twice, lines of several pieces, bytes of all kinds.
const string kLines =
    "[A]\n|[A] x\n|[B]\r\n|[AB]\n|[A b]\n|[A\n|[]\n|k=1\n| k = 2\n|kk=1\r\n|k\n|\n|=1\n|key =\n|K=a=b\n"
    "|k\t=3\n|kk=\xff\n|k=1\0002\n|[B\0]\n|"s +
    string(511, 'x') + "k=9\n|" + string(511, 'y') + "[B]\n|k=" + string(509, 'z') + "kk=5\n|" + string(510, 'x') +
    "\n|[A]" + string(600, 'h') + "\n";

std::vector<string> split(const string& lines) {
  std::vector<string> parts(1);
  for (const char byte : lines) byte == '|' ? parts.emplace_back() : parts.back() += byte;
  return parts;
}

string any_text() {
  static const std::vector<string> lines = split(kLines);
  string text;
  for (size_t i = g_random() % 12; i > 0; --i) text += any_of(lines);
  if (g_random() % 4 == 0 && !text.empty()) text.pop_back();
  return text;
}

TEST_F(KtctlSettings, a_batch_makes_of_a_file_what_one_set_after_the_other_does) {
  write_file(kDefaults, "[A]\nk=default\n[net]\nkey=1\n");
  int changed = 0;
  for (int round = 0; round < 400; ++round) {
    const string before = any_text();
    write_file("/tmp/one", before);
    write_file(kSettings, before);
    std::vector<Change> changes;
    for (size_t i = 1 + g_random() % 5; i > 0; --i) {
      const string& section = any_of(kSections);
      changes.push_back({Section(section), any_of(kKeys).c_str(), any_of(kValues).c_str()});
      ASSERT_EQ(PRO_SetStr(section.c_str(), changes.back().key, changes.back().value, "/tmp/one"), 0);
    }
    g_syncs = 0;
    ASSERT_EQ(write_changes(kSettings, changes), 0);
    EXPECT_EQ(g_syncs, 1);
    ASSERT_EQ(read_file(kSettings), read_file("/tmp/one")) << "round " << round << " of\n" << before;
    changed += read_file(kSettings) != before;
  }
  EXPECT_GT(changed, 300);
}

TEST_F(KtctlSettings, a_text_in_memory_reads_as_the_file_does) {
  unlink(kDefaults);
  for (int round = 0; round < 400; ++round) {
    const string content = any_text();
    write_file("/tmp/one", content);
    const kt::unique_file file = kt::open_file("/tmp/one", "re");
    Settings settings;
    ASSERT_TRUE(settings.read(content));
    size_t found = 0;
    for (const string& section : {string(), string("A"), string("B"), string("AB"), string("A b")}) {
      for (const string& key : {string("k"), string("kk"), string("K"), string("key"), string(), string("k\t")}) {
        char value[512] = "(none)";
        (void)PRO_GetStr(section.empty() ? nullptr : section.c_str(), key.c_str(), value, 511, file.get());
        const Setting* const setting = settings.find(section, key);
        EXPECT_EQ(setting != nullptr ? string(setting->value) : "(none)", value) << section << " " << key;
        EXPECT_EQ(string(find_in_text(content, section, key).value_or("(none)")), value) << section << " " << key;
        found += setting != nullptr;
      }
    }
    EXPECT_EQ(found, settings.all().size()) << content;
  }
}

// ---- Commands -------------------------------------------------------------

TEST_F(KtctlSettings, a_batch_is_all_or_nothing) {
  const string kThree = "# NET port 1\n\n  NET port 81\nNET name a  b \n\"my section\" key \"x\"\r\nNET empty\nNEW k v";
  const string kAfter =
      "[NET]\nport=81\nname=a  b \nempty=\n" + kContent.substr(33) + "[my section]\nkey=\"x\"\n[NEW]\nk=v\n";
  const string kBad = "NET port 81\nNET a=b v\n\nNET\nNET k caf\xe9\n\"x y\"k v\nNET k " + string(509, 'v') +
                      "\nNET k 1\t\n\"NET port 81\n NET port 82\n";
  const string kReasons =
      "2: [NET] a=b: a key holds no = and no blank|4: SECTION KEY VALUE is wanted|"
      "5: [NET] k: the value holds byte 0xe9 at place 4, which no save would store|6: SECTION KEY VALUE is wanted|"
      "7: [NET] k: the line has 512 characters with its line feed, 511 fit|"
      "8: [NET] k: the value holds byte 0x09 at place 2, which no save would store|9: SECTION KEY VALUE is wanted";
  const string kWould =
      "would set [NET] port from \"80\" to \"81\"\nwould set [NET] only_default from \"yes\" to \"no\"\n"
      "would set [X] k to \"1\"\nwould set [X] k from \"1\" to \"2\"\n";
  struct {
    Case run;
    string after;
  } const kCases[] = {
      {{"batch", kThree, 0, "", ""}, kAfter},
      {{"batch -", "NET port 80\nNET only_default yes\n", 0, "", ""}, kContent},
      {{"batch --file /tmp/new.conf", "# X k v\n", 0, "", ""}, kContent},
      {{"batch /tmp/none", "", 1, "", "/tmp/none" + kNone}, kContent},
      {{"batch /tmp", "", 4, "", "/tmp: Is a directory"}, kContent},
      {{"batch", "NET k a\0b\n"s, 3, "", "standard input:1: byte 0x00 at place 8"}, kContent},
      {{"batch --file /tmp", "A k v", 3, "", "/tmp: no regular file"}, kContent},
      {{"batch --file /tmp/no/x", "A k v", 4, "", "/tmp/no/x: not written: No such file or directory"}, kContent},
      {{"batch --dry-run", "NET port 81\nNET only_default no\nNET name  it's \nX k 1\nX k 2", 0, kWould, ""}, kContent},
      {{"batch --dry-run --file /tmp/new.conf", "NET port 8080", 0, "would change nothing\n", ""}, kContent},
      {{"set --dry-run NET port 81", "", 0, kWould.substr(0, 39), ""}, kContent},
      {{"set --dry-run NET port 80", "", 0, "would change nothing\n", ""}, kContent},
      {{"set --dry-run NET a=b v", "", 3, "", "@: [NET] a=b: a key holds no = and no blank"}, kContent},
      {{"unset-section --dry-run NET", "", 0, "would remove [NET] from " + string(kSettings) + "\n", ""}, kContent},
      {{"rename-section --dry-run NET X", "", 0, "would rename [NET] to [X] in " + string(kSettings) + "\n", ""},
       kContent},
      {{"rename-section --dry-run NET USER", "", 3, "", "@: [USER]: there is such a section already"}, kContent}};
  for (const auto& [run, after] : kCases) {
    write_file(kSettings, kContent);
    expect(run);
    EXPECT_EQ(read_file(kSettings), after) << run.arguments;
  }
  write_file(kSettings, kContent);
  write_file("/tmp/in", kBad);
  string reasons;
  for (const string& reason : split(kReasons)) reasons += message("/tmp/in:" + reason);
  EXPECT_EQ(ktctl("batch /tmp/in"), (Result{3, "", reasons}));
  EXPECT_EQ(read_file(kSettings), kContent);
  EXPECT_FALSE(exists("/tmp/new.conf"));
}

TEST_F(KtctlSettings, a_batch_keeps_the_file_s_link_mode_and_neighbours) {
  ASSERT_EQ(system("chmod 640 /mnt/ramdisk/env/system.conf && ln -sf /mnt/ramdisk/env/system.conf /tmp/link"), 0);
  expect({"batch --file /tmp/link", "NET port 81", 0, "", ""});
  expect({"batch --file /tmp/made", "NET port 81", 0, "", ""});
  struct stat link, file;
  ASSERT_TRUE(lstat("/tmp/link", &link) == 0 && stat("/tmp/link", &file) == 0);
  EXPECT_TRUE(S_ISLNK(link.st_mode) && file.st_mode == (S_IFREG | 0640));
  EXPECT_EQ(read_file(kSettings).substr(0, 14), "[NET]\nport=81\n");
  EXPECT_EQ(read_file("/tmp/made"), "[NET]\nport=81\n");
  EXPECT_EQ(files_in("/mnt/ramdisk/env").size(), 1u);
  ASSERT_EQ(system("rm -rf /tmp/fixed && mkdir /tmp/fixed && echo A >/tmp/fixed/old && chmod 555 /tmp/fixed"), 0);
  for (const string& path : {string("/tmp/fixed/new"), string("/tmp/fixed/old")}) {
    expect({"batch --file " + path, "A k v", 4, "", path + ": not written: Permission denied"});
  }
  expect({"set --dry-run --file /tmp/fixed/new A k v", "", 4, "", "/tmp/fixed/new: not written: Permission denied"});
  EXPECT_EQ(read_file("/tmp/fixed/old") + read_file("/tmp/fixed/new"), "A\n(none)");
}

TEST_F(KtctlSettings, batches_that_meet_or_fail_lose_nothing) {
  const auto add = [](int process) {
    for (int i = 0; i < 100; ++i) {
      const string key = "k" + std::to_string(100 * process + i);
      const Change change = {Section("X"), key.c_str(), "1"};
      if (write_changes(kSettings, {&change, 1}) != 0) return 1;
    }
    return 0;
  };
  EXPECT_TRUE(in_processes(4, add));
  const string all = read_file(kSettings);
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 8 + 1 + 400);

  write_file(kSettings, kContent);
  for (const char* path : {kSettings, "/mnt/ramdisk/env/new"}) {
    const auto write_to_full_disk = [=] {
      const string value(480, 'v');
      const Change changes[] = {{Section("A"), "k", value.c_str()}, {Section("A"), "l", value.c_str()}};
      const rlimit limit = {512, 512};
      signal(SIGXFSZ, SIG_IGN);
      return setrlimit(RLIMIT_FSIZE, &limit) + write_changes(path, changes);
    };
    EXPECT_EQ(in_child(write_to_full_disk), 4);
  }
  EXPECT_EQ(read_file(kSettings), kContent);
  EXPECT_EQ(files_in("/mnt/ramdisk/env").size(), 1u);
}

TEST_F(KtctlSettings, values_are_told_to_people_shells_and_programs) {
  write_file("/tmp/odd", "top=1\n[2 g.x]\na-b=\"\\\n[]\nx=1\n[E]\n[2 g.x]\nlost=1\n[nowhere\ny=1\n");
  const Case kCases[] = {
      {"get --shell NET name", "", 0, "' it'\\''s '\n", ""},
      {"show --shell", "", 0, "NET_port='80'\nNET_name=' it'\\''s '\nNET_empty=''\nUSER_admin='root'\n", ""},
      {"show --shell USER", "", 0, "USER_admin='root'\n", ""},
      {"show --shell --file /tmp/odd", "", 0, "_top='1'\n_2_g_x_a_b='\"\\'\n", ""},
      {"show --file /tmp/odd ''", "", 0, "top=1\n", ""},
      {"show --json X", "", 1, "", "@: [X]" + kNone},
      {"get --json --shell NET name", "", 2, "", "--shell and --json: one of them is wanted"}};
  for (const Case& c : kCases) expect(c);
  const std::pair<const char*, const char*> kDocuments[] = {
      {"get --json NET name", R"({"section":"NET","key":"name","value":" it's "})"},
      {"show --json", R"({"NET":{"port":"80","name":" it's ","empty":""},"USER":{"admin":"root"}})"},
      {"show --json --file /tmp/odd", R"({"":{"top":"1"},"2 g.x":{"a-b":"\"\\"},"E":{}})"},
      {"show --json --file /tmp/odd E", R"({"E":{}})"}};
  for (const auto& [arguments, document] : kDocuments) {
    EXPECT_EQ(compact_json(ktctl(arguments).out), document) << arguments;
  }
  EXPECT_EQ(system("eval \"$(ktctl show --shell)\" && [ \"$NET_name\" = \" it's \" ]"), 0);
}

TEST_F(KtctlSettings, diff_tells_what_is_not_as_it_was) {
  const string kOther =
      "[NET]\nport=81\nname= it's \ngone=1\nempty=\n[GONE]\na=1\n[USER]\nadmin=root\n[USER]\nadmin=second\n";
  const string kMoved = kContent.substr(33) + kContent.substr(0, 33);
  const string kFile = "\n+++ " + string(kSettings) + "\n[NET]\n", kHeld = ": holds no settings that a boot would take";
  const string kDefault =
      string("--- ") + kDefaults + kFile + "-port=8080\n+port=80\n+name= it's \n+empty=\n[USER]\n+admin=root\n";
  const string kFromOther = kFile + "-port=81\n+port=80\n-gone=1\n[GONE]\n-a=1\n",
               kSame = ": the same settings, but the texts differ";
  write_file("/tmp/equal", kContent);
  write_file("/tmp/moved", kMoved);
  write_file("/tmp/other", kOther);
  write_partition(kNormalDevice, copy_of(archive_of(kOther)));
  write_partition(kBackupDevice, copy_of(archive_of(kContent)));
  const Case kCases[] = {{"diff defaults", "", 1, kDefault, ""},
                         {"diff backup", "", 0, "", ""},
                         {"diff normal", "", 1, "--- /dev/mtd3" + kFromOther, ""},
                         {"diff saved", "", 1, "--- /dev/mtd3" + kFromOther, ""},
                         {"diff", "", 1, kDefault + "--- /dev/mtd3" + kFromOther, ""},
                         {"diff /tmp/equal", "", 0, "", ""},
                         {"diff /tmp/moved", "", 1, "", "/tmp/moved" + kSame},
                         {"diff --file /etc/def_sys.conf defaults", "", 0, "", ""},
                         {"diff /tmp/none", "", 1, "", "/tmp/none" + kNone},
                         {"diff --file /tmp/none", "", 1, "", "/tmp/none" + kNone},
                         {"diff /tmp", "", 3, "", "/tmp: no regular file"}};
  for (const Case& c : kCases) expect(c);
  EXPECT_EQ(compact_json(ktctl("diff --json /tmp/other").out),
            R"({"file":"/mnt/ramdisk/env/system.conf","comparisons":[{"against":"/tmp/other","differences":[)"
            R"({"section":"NET","key":"port","theirs":"81","ours":"80"},{"section":"NET","key":"gone","theirs":"1"},)"
            R"({"section":"GONE","key":"a","theirs":"1"}],"equal":false}]})");
  write_partition(kNormalDevice, copy_of("no archive"));
  expect({"diff saved", "", 1, "", "/dev/mtd3" + kHeld});
  EXPECT_EQ(ktctl("save").code + ktctl("diff saved").code, 0);
}

TEST_F(KtctlSettings, check_names_all_that_a_save_would_refuse) {
  const string kText = "[NET]\r\nport=8\t0\xff\n na me = x\x1f\n[a\x7f]\nbare\x01\nlong=" + string(506, 'v') +
                       "\nfits=" + string(505, 'v') + "\nz=" + string(600, 'v') + string("\0", 1);
  const string kReasons =
      "2:port: byte 0x09 at place 7, which no save would store|2:port: byte 0xff at place 9, which no save would store|"
      "3:na me: byte 0x1f at place 11, which no save would store|4: byte 0x7f at place 3, which no save would store|"
      "5: byte 0x01 at place 5, which no save would store|6:long: the line has 512 characters with its line feed, 511 "
      "fit|"
      "8:z: the line has 603 characters with its line feed, 511 fit|"
      "8:z: byte 0x00 at place 603, where a save takes the settings to end";
  string out;
  for (const string& reason : split(kReasons)) out += kSettings + (":" + reason) + "\n";
  expect({"check", "", 0, "", ""});
  write_file(kSettings, kText);
  expect({"check", "", 3, out, ""});
  write_file(kSettings, "[S]\nk=\"\t\n");
  EXPECT_EQ(compact_json(ktctl("check --json").out),
            R"({"file":"/mnt/ramdisk/env/system.conf","findings":[{"line":2,"section":"S","key":"k","reason":)"
            R"("byte 0x09 at place 4, which no save would store"}]})");
  expect({"check --file /tmp/none", "", 1, "", "/tmp/none" + kNone});
  for (const char byte : "\x01\t\n\v\r\x1f ~\x7f\x80\xff"s) {
    write_file(kSettings, "k="s + byte + "\n");
    EXPECT_EQ(ktctl("check").code, calc_conf_line_num_and_check_ascii(kSettings) >= 0 ? 0 : 3) << int{byte};
  }
}

// ---- The lock -------------------------------------------------------------

TEST_F(KtctlSettings, nobody_waits_for_the_lock_for_longer_than_wanted) {
  const string self = std::to_string(getpid()), name = read_file("/proc/self/comm");
  const string held = "/tmp/cgi_locker.lock: held by process " + self + " (" + name.substr(0, name.size() - 1) + ")";
  kt::FlockFile lock;
  hold(lock);
  const char* const kWriters[] = {"set --lock-timeout 0 NET X v", "batch --lock-timeout 0",
                                  "unset-section --lock-timeout 0 NET", "rename-section --lock-timeout 0 NET X"};
  for (const char* writer : kWriters) expect({writer, "NET port 81", 5, "", held});
  for (const char* wrong : {"-1", "86401", "1s", ""}) {
    expect({"set --lock-timeout '" + string(wrong) + "' A k v", "", 2, "",
            "--lock-timeout: " + string(wrong) + ": whole seconds from 0 to 86400 are wanted"});
  }
  EXPECT_EQ(read_file(kSettings), kContent);
  // The library waits for the lock itself.
  const auto write = [](int seconds, useconds_t before_us = 0) {
    alarm(10);
    set_lock_timeout(seconds);
    usleep(before_us);
    return PRO_SetStr("NET", "port", "81", kSettings);
  };
  const pid_t late = start_child([&] { return write(1, 1'200'000); });
  const time_t begin = time(nullptr);
  EXPECT_EQ(in_child([&] { return write(1); }), 5);
  EXPECT_LE(time(nullptr) - begin, 3);
  EXPECT_EQ(read_file(kSettings), kContent);
  const pid_t writer = start_child([&] { return write(5); });
  Process command("set --lock-timeout 5 NET name x");
  usleep(500'000);
  lock.release();
  EXPECT_EQ(wait_for_child(writer) + wait_for_child(late), 0);
  EXPECT_EQ(command.wait().code, 0);
  EXPECT_EQ(read_file(kSettings).substr(0, 21), "[NET]\nport=81\nname=x\n");
}

TEST_F(KtctlSettings, lock_names_those_who_hold_it_and_wait) {
  const auto free_as = [](bool made) {
    expect({"lock", "", 1, "free\n", ""});
    EXPECT_EQ(exists("/tmp/cgi_locker.lock"), made);
  };
  kt::FlockFile other;
  ASSERT_TRUE(other.open("/tmp/other.lock", 0666) && other.lock());
  free_as(false);
  const pid_t holder = start_child([] {
    flock(open("/tmp/cgi_locker.lock", O_RDWR | O_CREAT, 0666), LOCK_EX);
    return execl("/bin/sh", "sh", "-c", "kill -STOP $$", "a\tb", nullptr);
  });
  const string held = "held by process " + std::to_string(holder) + ": sh -c kill -STOP $$ a?b\n";
  const auto expect_told = [](const string& text) {
    const auto told = [] { return ktctl("lock", ">/tmp/lock.out"), read_file("/tmp/lock.out"); };
    for (int tries = 100; told() != text && tries > 0; --tries) usleep(20000);
    EXPECT_EQ(told(), text);
  };
  expect_told(held);
  Process second("set NET port 81");
  expect_told(held + "waited for by process " + std::to_string(second.pid()) + ": ktctl set NET port 81\n");
  ASSERT_EQ(system("ktctl lock --shell >/tmp/lock.out"), 0);
  EXPECT_NE(read_file("/tmp/lock.out").find("held='1'\nholders_1_pid='" + std::to_string(holder)), string::npos);
  kill(holder, SIGKILL);
  EXPECT_EQ(wait_for_child(holder), -SIGKILL);
  EXPECT_EQ(second.wait().code, 0);
  free_as(true);
}

}  // namespace

extern "C" void sync() noexcept { ++g_syncs; }
