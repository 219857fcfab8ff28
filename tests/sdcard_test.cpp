// The SD card: its state, mounting, formatting, the recorder, settings.
//
// Where there is a card and a vfat driver, as in the emulated camera, both are
// used. Elsewhere /dev/mmcblk0 is a plain file, formatted by the real mkfs.vfat,
// and mount, umount2 and statfs are played. Files below /tmp/play stand for those
// of the same path in /proc and /sys. Sleeps take a hundredth of their time.
#include <fnmatch.h>
#include <ktcomm/log.h>
#include <ktcomm/sdcard.h>
#include <stdarg.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <time.h>

#include <algorithm>
#include <functional>

#include "base/unique_fd.h"
#include "tests/support.h"

using namespace kt::test;
using std::string, std::to_string;

namespace {

constexpr char kCard[] = "/dev/mmcblk0", kPartition[] = "/dev/mmcblk0p1", kMount[] = "/mnt/mmc",
               kRecording[] = "/tmp/mmcsd_rec.lock", kQueue[] = "/tmp/mmcsd_todo.lock",
               kWriteLock[] = "/tmp/sd_write.lock", kMounts[] = "/tmp/play/proc/mounts";
const string kMkfs = "/sbin/mkfs.vfat /dev/mmcblk0 >/dev/null 2>/dev/null",
             kMountCard = "mount /dev/mmcblk0 /mnt/mmc vfat 0", kUnmount = "umount2 /mnt/mmc 1";

bool is_a(mode_t kind, const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && (status.st_mode & S_IFMT) == kind;
}
const bool g_real = is_a(S_IFBLK, kCard) && read_file("/proc/filesystems").find("vfat") != string::npos;

// What the doubles are told and have seen.
bool g_mounted, g_busy, g_deaf;
unsigned long long g_block, g_blocks, g_free;
int g_refused_lock, g_copies_left, g_interruptions;
std::function<void()> g_on_sleep;
string g_calls, g_signals;  // the calls with the marks of an operation there were
std::vector<long> g_sleeps_ms;

string marks() {
  return string(is_a(S_IFREG, "/tmp/mmcsd_sdop.lock") ? " op" : "") +
         (is_a(S_IFREG, "/tmp/mmcsd_sdfmt.lock") ? " fmt" : "");
}
void note(const string& call) { g_calls += call + marks() + "; "; }
int fail(int error) { return errno = error, -1; }
string played(const char* path) {
  const string play = string("/tmp/play") + path;
  struct stat status;
  return lstat(play.c_str(), &status) == 0 ? play : path;
}

}  // namespace

extern "C" {
int mount(const char* device, const char* directory, const char* type, unsigned long flags, const void* data) noexcept {
  note(string("mount ") + device + " " + directory + " " + type + " " + to_string(flags));
  if (g_real || data != nullptr) return libc("mount", &mount)(device, directory, type, flags, data);
  const string card = read_file(device) + string(512, ' ');
  if (!exists(directory) || card.substr(510, 2) != "\x55\xAA") return fail(EINVAL);
  write_file(kMounts, string("tmpfs /tmp\n") + device + " /mnt/mmc vfat rw\n");
  return g_mounted = true, 0;
}
int umount2(const char* directory, int flags) noexcept {
  note(string("umount2 ") + directory + " " + to_string(flags));
  if (g_real) return libc("umount2", &umount2)(directory, flags);
  if (!g_mounted || g_busy) return fail(g_busy ? EBUSY : EINVAL);
  return g_mounted = false, unlink(kMounts);
}
int statfs(const char* path, struct statfs* fs) noexcept {
  if (g_real || !g_mounted) return libc("statfs", static_cast<int (*)(const char*, struct statfs*)>(&statfs))(path, fs);
  *fs = {};
  fs->f_type = 0x4D44;
  fs->f_bsize = static_cast<decltype(fs->f_bsize)>(g_block);
  fs->f_blocks = g_blocks;
  fs->f_bfree = g_free;
  return 0;
}
int mkdir(const char* path, mode_t mode) noexcept {
  note(string("mkdir ") + path + (mode == 0666 ? " 666" : ""));
  return libc("mkdir", &mkdir)(path, g_real ? mode : mode | 0111);  // vfat gives directories these bits
}
void sync() noexcept {
  note("sync");
  if (g_real) libc("sync", &sync)();
}
int system(const char* command) {
  note(strncmp(command, "/bin/pidof mmcsd_put ", 21) == 0 ? "look" : command);
  return libc("system", &system)(command);
}
FILE* fopen(const char* path, const char* mode) { return libc("fopen", &fopen)(played(path).c_str(), mode); }
DIR* opendir(const char* path) { return libc("opendir", &opendir)(played(path).c_str()); }
int mkostemp(char* path, int flags) {
  return g_copies_left-- != 0 ? libc("mkostemp", &mkostemp)(path, flags) : fail(ENOSPC);
}
int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  struct flock* const lock = va_arg(arguments, struct flock*);
  va_end(arguments);
  const bool is_refused = (command == F_SETLK || command == F_SETLKW) && lock->l_type == g_refused_lock;
  return is_refused ? g_refused_lock = -1, fail(ENOLCK) : libc("fcntl", &fcntl)(fd, command, lock);
}
int fdatasync(int fd) {
  note("fdatasync");
  return libc("fdatasync", &fdatasync)(fd);
}
int nanosleep(const struct timespec* wanted, struct timespec* left) {
  g_sleeps_ms.push_back(static_cast<long>(wanted->tv_sec) * 1000 + wanted->tv_nsec / 1'000'000);
  if (g_on_sleep) g_on_sleep();
  *left = {0, wanted->tv_nsec - 100'000'000};
  return g_interruptions-- > 0 ? fail(EINTR) : usleep(static_cast<unsigned>(g_sleeps_ms.back()) * 10);
}
unsigned sleep(unsigned) { return 0; }
}

namespace {

void run(string command) {
  if (command.rfind("umount;", 0) == 0) command.erase(0, mmcsd_sd_u_mount(1) == 0 ? 7 : 0);
  ASSERT_EQ(libc("system", &system)(command.c_str()), 0) << command;
}
void forget() {
  g_calls.clear(), g_signals.clear(), g_sleeps_ms.clear();
  run("rm -rf /tmp/debug/*/*");
}
void insert_card() {
  if (!g_real) run("rm -f /dev/mmcblk0; truncate -s 4M /dev/mmcblk0");
  run(kMkfs);
}
void add_interface(const string& name, const string& type, const string& index, const string& address) {
  run("d=/tmp/play/sys/class/net/" + name + "; mkdir -p $d; echo " + type + " >$d/type; echo " + index +
      " >$d/ifindex; echo " + address + " >$d/address");
}
// The texts of the event log, newest first.
string logged() {
  run("cut -d ' ' -f 2 /tmp/debug/user/nc.log 2>/dev/null | tr '\\n' ' ' >/tmp/logged");
  return read_file("/tmp/logged");
}
bool traced(const string& text) {
  const string trace = read_file("/tmp/debug/cgi/0-0.log");
  return fnmatch(("*\\[4]\\[cgi]\\[*]" + text + "\n*").c_str(), trace.c_str(), 0) == 0;
}

// The test is the recorder, too, which stops at one signal, unless deaf, and starts at the other.
void record(int signo) {
  g_signals += to_string(signo) + marks() + " ";
  if (signo == 18 && !g_deaf) unlink(kRecording);
  if (signo == 22) write_file(kRecording, "");
}

class SdCard : public CameraTest {
 protected:
  void SetUp() override {
    run("rm -rf /tmp/mmcsd* /tmp/sd_write* /tmp/play /tmp/debug; mkdir -p "
        "/mnt/ramdisk/env /tmp/debug/cgi /tmp/debug/user /tmp/play/proc /mnt/mmc");
    for (const char* path : {kSettings, kDefaults}) write_file(path, "");
    write_file("/etc/logfile", "[SD_RECORD]\n0=r0\n7=r7\n8=r8\n[SDCARD]\n3=c3\n4=c4\n5=c5\n6=c6\n");
    write_file("/tmp/hydra.lock", to_string(getpid()));
    for (const int signo : {18, 22}) signal(signo, record);
    add_interface("eth0", "1", "4", "02:fc:00:00:00:0A");
    insert_card();
    g_refused_lock = g_copies_left = -1;
    forget();
  }
  void TearDown() override {
    g_on_sleep = nullptr;
    (void)umount2(kMount, 0);
    unlink(kPartition);
    CameraTest::TearDown();
  }
};

TEST_F(SdCard, state_and_sizes) {
  constexpr unsigned long long k32 = 1ULL << 32, k48 = 1ULL << 48;
  constexpr unsigned kTmpfs = 0x01021994, kFat = 0x4D44;
  using Blocks = std::tuple<unsigned long long, unsigned long long, unsigned long long>;  // size, all, free
  const std::tuple<const char*, Blocks, SdCardStatus> kCases[] = {
      {":", {4096, 1000, 250}, {3, kFat, 4096000, 3072000, 1024000, 75, 0}},
      {":", {512, 3, 1}, {3, kFat, 1536, 1024, 512, 66, 0}},
      {":", {65536, k32, 0}, {3, kFat, k48, k48, 0, 100, 0}},
      {":", {512, 0, 0}, {3, kFat, 0, 0, 0, 0, 0}},
      {"touch /tmp/mmcsd_sdfmt.lock", {1, 1, 0}, {4, 0, 0, 0, 0, 0, 0}},
      {"mv /dev/mmcblk0 /dev/away", {1, 1, 0}, {0, 0, 0, 0, 0, 0, 0}},
      {"rm /tmp/mmcsd_sdfmt.lock; mv /dev/away /dev/mmcblk0", {1, 1, 0}, {3, kFat, 1, 1, 0, 100, 0}},
      {g_real ? "mount -o remount,ro /mnt/mmc" : "chmod 555 /mnt/mmc", {1, 4, 1}, {2, kFat, 4, 3, 1, 75, 0}},
      {"umount; chmod 755 /mnt/mmc", {1, 1, 0}, {1, kTmpfs, 0, 0, 0, 0, 0}},
      {"chmod 300 /mnt/mmc", {1, 1, 0}, {0, 0, 0, 0, 0, 0, 0}},
      {"chmod 755 /mnt/mmc; mv /mnt/mmc /mnt/away", {1, 1, 0}, {0, 0, 0, 0, 0, 0, 0}}};
  ASSERT_EQ(mmcsd_sd_u_mount(0), 0);
  for (const auto& [before, blocks, status] : kCases) {
    run(before);
    std::tie(g_block, g_blocks, g_free) = blocks;
    SdCardStatus out[3], expected[3];
    memset(out, '#', sizeof out);
    memset(expected, '#', sizeof expected);
    expected[1] = status;
    EXPECT_EQ(mmcsd_get_sd_info(&out[1]), 0);
    if (g_real) memcpy(&out[1].total_bytes, &status.total_bytes, 3 * 8 + 4);  // its sizes are what they are
    EXPECT_EQ(out[1].state, status.state) << before;
    EXPECT_EQ(memcmp(&out, &expected, sizeof out), 0) << before << out[1].used_percent;
  }
  run("mv /mnt/away /mnt/mmc");
  expect_all(-1, {mmcsd_get_sd_info(nullptr), MMCSDReadConfigData(nullptr), MMCSDWriteConfigData(nullptr)});
}

TEST_F(SdCard, mounts_the_partition_if_there_is_one) {
  const Results mounted = {sd_is_mounted(),     mmcsd_sd_u_mount(0), sd_is_mounted(),
                           mmcsd_sd_u_mount(1), mmcsd_sd_u_mount(1), sd_is_mounted()};
  EXPECT_EQ(mounted, (Results{0, 0, 1, 0, -1, 0}));
  run("cp -a /dev/mmcblk0 /dev/mmcblk0p1");
  EXPECT_EQ((Results{mmcsd_sd_u_mount(0), mmcsd_sd_u_mount(2), mmcsd_sd_u_mount(-1)}), (Results{0, -1, -1}));
  EXPECT_EQ(g_calls, kMountCard + "; " + kUnmount + "; " + kUnmount + "; mount /dev/mmcblk0p1 /mnt/mmc vfat 0; ");
}

TEST_F(SdCard, what_the_system_lists_is_read_in_its_lines) {
  const string head = "major minor  #blocks  name\n\n   8        0  250059096 sda\n";
  const std::tuple<string, string, unsigned long long, int> kCases[] = {
      {head + " 179 1 386764 mmcblk0p1\n 179 8 4096 mmcblk0boot0\n 179 0 3872256 mmcblk0\n",
       "none /mnt tmpfs\n/dev/x /mnt/mmc vfat\n", 3872256ULL * 1024, 1},
      {head + " 179        0    31250432 mmcblk0", "/dev/x /mnt/mmc2", 32000442368ULL, 1},
      {head, "none /mnt tmpfs\n/dev/x /mnt/mm vfat\n", 0, 0},
      {"mmcblk0\n 179 0 mmcblk0\n", "", 0, 0},
      {" 179 0 -5 mmcblk0\n", "", 0, 0},
      {" 179 0 x mmcblk0\n", "", 0, 0},
      {string(127, 'x') + "1 2 3 mmcblk0\n", string(247, 'x') + "/mnt/mmc\n", 3072, 1},
      {string(126, 'x') + " 2 3 4 mmcblk0\n", string(248, 'x') + "/mnt/mmc\n", 4096, 0},
      {"(none)", "(none)", 0, 0}};
  for (const auto& [partitions, mounts, size, mounted] : kCases) {
    write_file("/tmp/play/proc/partitions", partitions);
    write_file(kMounts, mounts);
    if (mounts == "(none)") run("cd /tmp/play/proc; ln -sf /none mounts; ln -sf /none partitions");
    EXPECT_EQ(mmcsd_get_real_total_size(), size) << partitions;
    EXPECT_EQ(sd_is_mounted(), mounted) << mounts;
  }
}

TEST_F(SdCard, recording_directory_bears_the_first_ethernet_address) {
  const string kCases[][5] = {{"lo", "772", "1", "00:00:00:00:00:00", "02fc0000000a"},
                              {"wlan0", "1", "12", "02:00:00:00:00:12", "02fc0000000a"},
                              {"aa", "1", "3", "fe:DC:ba:98:76:54", "fedcba987654"},
                              {"aa", "1", "3", "", ""},
                              {"aa", "1", "3", "fe:dc:ba:98:76", ""},
                              {"aa", "1", "3", "fe:dc:ba:98:76:54:32", ""},
                              {"aa", "1", "3", "fe:dc:ba:98:7:6", ""},
                              {"aa", "1", "3", "fedcba987654", ""},
                              {"[aew]*; rm -r $d; d=/tmp/x", "1", "1", "", ""}};
  for (const auto& [name, type, index, address, digits] : kCases) {
    string out(KT_SD_REC_DIR_SIZE + 1, '#'), expected = out;
    if (!digits.empty()) expected.replace(0, 28, "/mnt/mmc/ktmmc/" + digits + '\0');
    add_interface(name, type, index, address);
    EXPECT_EQ(mmcsd_get_rec_dir(&out[0]), digits.empty() ? nullptr : &out[0]);
    EXPECT_EQ(out, expected) << address;
  }
  EXPECT_EQ(mmcsd_check_ready(), -1);
  EXPECT_EQ(mmcsd_get_rec_dir(nullptr), nullptr);
}

TEST_F(SdCard, recording_directory_is_made_where_missing) {
  ASSERT_EQ(mmcsd_sd_u_mount(0), 0);
  const string root = "mkdir /mnt/mmc/ktmmc 666; ", own = "mkdir /mnt/mmc/ktmmc/02fc0000000a 666; ";
  const std::tuple<const char*, int, string> kCases[] = {
      {"true", 0, root + own},
      {"true", 0, ""},
      {"rmdir /mnt/mmc/ktmmc/*", 0, own},
      {"rm -r /mnt/mmc/ktmmc; touch /mnt/mmc/ktmmc", -1, own},
      {"rm /mnt/mmc/ktmmc; ln -s /none/none /mnt/mmc/ktmmc", -1, root}};
  for (const auto& [before, result, calls] : kCases) {
    if (g_real && strstr(before, "ln -s") != nullptr) break;  // vfat has no links
    run(before);
    g_calls.clear();
    EXPECT_EQ(mmcsd_check_ready(), result) << before;
    EXPECT_EQ(g_calls, calls) << before;
  }
  run("rm -rf /mnt/mmc/ktmmc");
}

TEST_F(SdCard, recorder_has_30_seconds_to_stop) {
  const std::tuple<size_t, int, const char*, int, string> kCases[] = {{0, 7, "3", 0, "r7 "}, {1, 0, "", 0, ""},
                                                                      {2, 7, "2", 0, "r7 "}, {3, 7, "1", 0, ""},
                                                                      {60, 0, "", 0, ""},    {999, 7, "3", -1, ""}};
  g_deaf = true;
  for (const auto& [polls, code, level, result, text] : kCases) {
    forget();
    write_file(kSettings, string("[LOG]\nlog_level=") + level);
    write_file(kRecording, "");
    EXPECT_EQ(polls == 0 ? sd_clear_rec_lock_file() : 0, 0);
    g_on_sleep = [n = polls] { g_sleeps_ms.size() == n ? unlink(kRecording) : 0; };
    EXPECT_EQ(sd_rec_stop(code), result) << polls;
    std::vector<long> sleeps(std::min<size_t>(polls, 60), 500);
    if (result == 0) sleeps.push_back(1000);
    EXPECT_EQ(g_sleeps_ms, sleeps);
    EXPECT_EQ(sd_rec_start(), 0);
    EXPECT_EQ(logged() + g_signals, text + "18 22 ");
  }
  EXPECT_EQ(sd_wait_rec_exit(), -1) << "still there";
  g_on_sleep = [] { g_sleeps_ms.size() == 3 ? unlink(kRecording) : 0; };
  g_interruptions = 2;
  g_sleeps_ms.clear();
  EXPECT_EQ(sd_wait_rec_exit(), 0);
  EXPECT_EQ(g_sleeps_ms, (std::vector<long>{500, 400, 300})) << "over signals";
  unlink("/tmp/hydra.lock");
  expect_all(0, {sd_clear_rec_lock_file(), sd_rec_start()});  // nothing to clear, nobody to tell
}

TEST_F(SdCard, trigger_program_has_11_seconds) {
  for (const size_t ends_after : {0u, 3u, 11u, 99u}) {
    forget();
    Program program("mmcsd_put");
    g_on_sleep = [&] {
      if (g_sleeps_ms.size() == ends_after) program.ended_by();
    };
    g_on_sleep();
    EXPECT_EQ(mmcsd_wait_trigger_stop(), 0);
    std::vector<long> sleeps(std::min<size_t>(ends_after, 11), 1000);
    string calls = "look; ";
    for (size_t i = 0; i < sleeps.size(); ++i) calls += "look; ";
    if (ends_after > 11) sleeps.push_back(10), calls += "/usr/bin/killall mmcsd_put >/dev/null 2>/dev/null; ";
    EXPECT_EQ(g_sleeps_ms, sleeps);
    EXPECT_EQ(g_calls, calls);
    EXPECT_EQ(program.ended_by(), ends_after > 11 ? SIGTERM : SIGKILL);
  }
}

TEST_F(SdCard, operations_pause_the_recorder_and_leave_no_lock) {
  const string op = " op; ", fmt = " op fmt; ", unmount = "look" + op + "sync" + op + kUnmount + op;
  const string format = "look" + fmt + "sync" + fmt + kUnmount + fmt + kMkfs + fmt + kMountCard + fmt;
  const std::tuple<int, string, const char*, int, string, const char*, const char*> kCases[] = {
      // Operation, commands before and after it, result, calls, event log, signals.
      {3, ":", ":", 0, unmount, "c3 ", "22 "},
      {3, "umount;:", ":", -1, unmount, "c3 c4 ", "22 "},
      {3, ": busy", ":", -1, unmount, "c3 c4 ", "22 "},
      {3, "touch /tmp/mmcsd_rec.lock", ":", 0, unmount, "c3 r8 ", "18 22 "},
      {3, "touch /tmp/mmcsd_rec.lock # deaf", ":", 0, unmount, "c3 ", "18 22 "},
      {3, "mkdir /tmp/mmcsd_sdop.lock", "rmdir /tmp/mmcsd_sdop.lock", -1, "", "", "22 "},
      {3, "rm -f /tmp/mmcsd_todo.lock; mkdir /tmp/mmcsd_todo.lock", "rmdir /tmp/mmcsd_todo.lock", -1, "", "", ""},
      {2, ":", ":", 0, format, "c5 ", "22 "},
      {2, "umount; cd /dev; cp -a mmcblk0 mmcblk0p1; dd if=zero of=mmcblk0 bs=512 count=1 conv=notrunc 2>null", ":", 0,
       format, "c5 ", "22 "},
      // The real mkfs.vfat refuses a card that is mounted still.
      {2, ": busy", ":", g_real ? -1 : 0, format, g_real ? "c6 " : "c5 ", "22 "},
      {2, "touch /tmp/mmcsd_rec.lock", ":", 0, format, "c5 r8 ", "18 22 "},
      {2, "touch /tmp/mmcsd_sdop.lock /tmp/mmcsd_sdfmt.lock", ":", 0, format, "c5 ", "22 "},
      {2, "mv /dev/mmcblk0 /dev/away", "mv /dev/away /dev/mmcblk0", -1, format, "c6 ", "22 "},
      {2, "umount; mv /mnt/mmc /mnt/away", "mv /mnt/away /mnt/mmc", -1, format, "c6 ", "22 "},
      {2, "chmod 444 /dev/mmcblk0", "chmod 644 /dev/mmcblk0", -1, format, "c6 ", "22 "},
      {2, "mkdir /tmp/mmcsd_sdop.lock", "rmdir /tmp/mmcsd_sdop.lock", -1, "", "", "22 "},
      {2, "mkdir /tmp/mmcsd_sdfmt.lock", "rmdir /tmp/mmcsd_sdfmt.lock", -1, "", "", "22 "},
      {1, "touch /tmp/mmcsd_rec.lock", ":", -1, "", "", "18 22 "},
      {0, "touch /tmp/mmcsd_rec.lock # deaf", ":", -1, "", "", "18 22 "}};
  for (const auto& [operation, before, after, result, calls, texts, signals] : kCases) {
    SCOPED_TRACE(to_string(operation) + " after " + before);
    insert_card();
    EXPECT_EQ(mmcsd_sd_u_mount(0), 0);
    run(before);
    g_deaf = before.find("deaf") != string::npos;
    g_busy = before.find("busy") != string::npos;
    kt::unique_fd in_use(g_busy ? open(kMount, O_RDONLY | O_CLOEXEC) : -1);
    forget();
    EXPECT_EQ(mmcsd_todo(operation), result);
    EXPECT_EQ(logged() + "/" + g_signals, string(texts) + "/" + signals);
    EXPECT_EQ(g_calls, calls);
    EXPECT_EQ(traced("mmcsd_todo(945): Failed to stop sd recording ..."), g_deaf);
    EXPECT_EQ(marks(), "");
    EXPECT_FALSE(exists(kPartition));
    g_busy = false, in_use.reset();
    run(after);
    unlink(kRecording);
    (void)umount2(kMount, 0);
  }
}

TEST_F(SdCard, operations_take_their_turn) {
  const kt::unique_fd queue(open(kQueue, O_RDWR | O_CREAT | O_CLOEXEC, 0700));
  ASSERT_EQ(flock(queue.get(), LOCK_EX), 0);
  const pid_t second = start_child([] {  // its queue gets descriptor 0 and is left all the same
    if (close(0) != 0 || mmcsd_todo(1) != -1 || open(kQueue, O_RDWR) != 0) return 1;
    return flock(0, LOCK_EX | LOCK_NB) == 0 ? 0 : 2;
  });
  usleep(50000);
  EXPECT_EQ(waitpid(second, nullptr, WNOHANG), 0);
  flock(queue.get(), LOCK_UN);
  EXPECT_EQ(wait_for_child(second), 0);
}

TEST_F(SdCard, data_is_synced_under_the_write_lock) {
  const kt::unique_fd null(open("/dev/null", O_RDWR | O_CLOEXEC));  // syncing it fails
  const string open_error = "open sdcard writing lock file error!";
  const std::tuple<const char*, int, int, int, string, string> kCases[] = {
      // Command before, descriptor, lock refused, result, trace, calls.
      {":", -1, -1, -1, " invalid fd!", ""},
      {"[ ! -e /tmp/sd_write.lock ]", null.get(), -1, 0, "", "fdatasync; "},
      {":", null.get(), F_WRLCK, -1, "Failed to lock sdcard writing file", ""},
      {":", null.get(), F_UNLCK, -1, "Failed to unlock sdcard writing file", "fdatasync; "},
      {"rm /tmp/sd_write.lock; mkdir /tmp/sd_write.lock", null.get(), -1, -1, open_error, ""},
      {"rmdir /tmp/sd_write.lock", null.get(), -1, 0, "", "fdatasync; "}};
  for (const auto& [before, fd, refused, result, trace, calls] : kCases) {
    run(before);
    forget();
    g_refused_lock = refused;
    EXPECT_EQ(fdatasync_sdcard(fd), result) << trace;
    EXPECT_EQ(traced("fdatasync_sdcard(*):" + trace), !trace.empty()) << trace;
    EXPECT_EQ(g_calls, calls);
  }
  struct stat status;
  ASSERT_EQ(stat(kWriteLock, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  EXPECT_EQ(in_child([&] { return close(0) + fdatasync_sdcard(null.get()) + 1; }), 0);
  EXPECT_TRUE(traced("fdatasync_sdcard(*):" + open_error)) << "descriptor 0";

  const pid_t holder = start_child([] {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    fcntl(open(kWriteLock, O_RDWR | O_CLOEXEC), F_SETLKW, &lock);
    write_file("/tmp/mmcsd_held", "");
    return usleep(200000) + unlink("/tmp/mmcsd_held") + raise(SIGKILL);
  });
  while (!exists("/tmp/mmcsd_held")) usleep(1000);
  EXPECT_EQ(fdatasync_sdcard(null.get()), 0);
  EXPECT_FALSE(exists("/tmp/mmcsd_held")) << "did not wait";
  EXPECT_EQ(wait_for_child(holder), -SIGKILL);
}

// The numbers in the order of the fields, and the items that are not empty.
string text_of(const SdRecordConfig& config) {
  string text = to_string(config.rec_enable);
  for (const int number : {config.disk_ctrl, config.stream_id, config.file_ctrl, config.duration})
    text += " " + to_string(number);
  text += " " + to_string(config.file_size);
  for (const char(&item)[14] : config.schedule)
    if (item[0] != '\0') text += " " + to_string(&item - config.schedule) + ":" + item;
  return text;
}

TEST_F(SdCard, settings_are_read_with_defaults_and_units) {
  const string item = "1,09:00,17:00", numbers = "0 0 1 60 3600 10485760";
  string ten = "schedule=", ten_items = numbers;
  for (const char c : string("0123456789")) {
    ten += string(1, c) + ",00:00,24:00;";
    ten_items += string(" ") + c + ":" + c + ",00:00,24:00";
  }
  const string kCases[][2] = {{"", numbers},
                              {"enable=1\nsdcard_rec_disk_ctrl=2\nsdcard_rec_stream_id=3\nsdcard_rec_file_ctrl=4\n"
                               "sdcard_rec_duration=5\nsdcard_rec_file_size=4096\n",
                               "1 2 3 4 300 4294967296"},
                              {"duration=-1", "0 0 1 60 -60 10485760"},
                              {"duration=71582789", "0 0 1 60 44 10485760"},
                              {"schedule=", numbers},
                              {"schedule=" + item, numbers + " 0:" + item},
                              {"schedule=1,09:00,17:0", numbers},
                              {"schedule=" + item + "x" + item + ";;", numbers + " 0:" + item + " 1:" + item},
                              {"schedule=1,09:00-17:00;" + item, numbers + " 1:" + item},
                              {"schedule=1,009:0,17:00;" + item, numbers + " 1:" + item},
                              {"schedule=" + item + ";;" + item, numbers + " 0:" + item},
                              {"schedule=1,9:0,7:00;" + item, numbers + " 0:1,9:0,7:00;1,"},
                              {ten, ten_items},
                              {ten + string(115, 'x'), ten_items},
                              {ten + string(300, 'x'), ten_items}};
  SdRecordConfig records[3];
  for (const auto& [settings, expected] : kCases) {
    memset(records, '#', sizeof records);
    write_file(kSettings, "[SDCARD]\nsdcard_rec_" + settings + "\n");
    EXPECT_EQ(MMCSDReadConfigData(&records[1]), 0);
    EXPECT_EQ(text_of(records[1]), expected) << settings;
    EXPECT_EQ(records[1].card.state, 1);
    EXPECT_EQ(memcmp(records[1].reserved1, records[0].reserved1, 8), 0);
    EXPECT_EQ(records[1].reserved2, records[0].reserved2);
    EXPECT_EQ(memcmp(&records[0], &records[2], sizeof records[0]), 0);
  }
  memset(records, '#', sizeof records);
  unlink(kSettings);
  EXPECT_EQ(MMCSDReadConfigData(&records[1]), -1);
  EXPECT_EQ(memcmp(&records[0], &records[1], sizeof records[0]), 0);
}

TEST_F(SdCard, settings_are_written_in_order_up_to_the_first_that_fails) {
  const string numbers =
      "[SDCARD]\nsdcard_rec_enable=1\nsdcard_rec_stream_id=3\nsdcard_rec_disk_ctrl=2\n"
      "sdcard_rec_file_ctrl=4\nsdcard_rec_duration=60\nsdcard_rec_file_size=11\n";
  string ten;
  for (int i = 0; i < 10; ++i) ten += to_string(i) + ",00:00,24:00;";
  const string kCases[][2] = {// fields of 14 characters, '|' for NUL; what is stored
                              {"1,09:00,17:00||||||||||||||||3,00:00,24:00|", "1,09:00,17:00;"},
                              {"1,09:00,17:00|2,09:00,17:0||3,00:00,24:00|", "1,09:00,17:00;"},
                              {"1,09:00,17:00xany_13_letter|", "1,09:00,17:00;any_13_letter;"},
                              {ten, ten},
                              {"", ""}};
  for (const auto& [items, schedule] : kCases) {
    SdRecordConfig config = {{}, 1, {}, 2, 3, 4, 3659, 0, (12ULL << 20) - 1, {}};
    std::replace_copy(items.begin(), items.end(), &config.schedule[0][0], '|', '\0');
    const string whole = numbers + "sdcard_rec_schedule=" + schedule + "\n";
    for (int copies = 0; copies <= 7; ++copies) {
      write_file(kSettings, "");
      g_copies_left = copies;
      EXPECT_EQ(MMCSDWriteConfigData(&config), copies == 7 ? 0 : -1) << copies;
      const string written = read_file(kSettings);
      EXPECT_EQ(written, whole.substr(0, written.size()));
      EXPECT_EQ(std::count(written.begin(), written.end(), '='), copies);
    }
  }
}

}  // namespace
