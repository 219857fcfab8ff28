// ktctl over the flash: what it shows, verifies, repairs and would do, and a save at a terminal.
#include <ktcomm/flash.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <regex>

#include "base/file_lock.h"
#include "tests/ktctl_support.h"
#include "tests/settings_image.h"
#include "tools/flash_stages.h"

using namespace kt::test;
using std::string;

namespace {

const string kErased(kDeviceSize, '\xff'), kFactory = settings_text("factory");

string image_of(const string& settings) { return copy_of(archive_of(settings)); }
string flipped(string image, size_t offset) { return image.replace(offset, 1, 1, char(~image[offset])); }
size_t used(const string& image) { return image.find_last_not_of('\xff') + 1; }
string length_in(const string& image) { return std::to_string(used(image) - 24); }

void fill(const string& normal, const string& backup) {
  write_partition(kNormalDevice, normal);
  write_partition(kBackupDevice, backup);
}
string flash() { return read_partition(kNormalDevice) + read_partition(kBackupDevice); }

class KtctlFlash : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(system("rm -rf /mnt/ramdisk/* && mkdir /mnt/ramdisk/env"), 0);
    write_file(kDefaults, kFactory);
    write_file(kSettings, settings_text("live"));
    fill(kErased, kErased);
  }
  void TearDown() override { EXPECT_TRUE(files_in("/tmp", "ktctl").empty()) << "scratch files left"; }
};

// A partition with an area table, built by hand, in its last 64 KiB.
string with_table(const string& entries) {
  const size_t size = on_chip() ? 8 << 20 : kDeviceSize;
  const string table = string("\1\0", 2) + char(entries.size() / 8) + string("\0\2\0", 3) + entries;
  unsigned char md5[16];
  md5_buffer(reinterpret_cast<const unsigned char*>(table.data()), static_cast<unsigned>(table.size()), md5);
  string image(size, '\xff');
  return image.replace(size - 65536, 16, reinterpret_cast<char*>(md5), 16).replace(size - 65520, table.size(), table);
}

TEST_F(KtctlFlash, shows_the_area_table_to_people_and_programs) {
  const string a = image_of(kFactory), entries("\1\2\0\0\x10\0\x08\0\xff\x22\xff\xff\4\0\xff\xff", 16);
  const string right = with_table(entries), wrong = flipped(right, right.size() - 65536 + 37);
  for (const auto& [image, text] : {std::pair{wrong, "no table, or a damaged one: its MD5 is wrong\n"},
                                    {with_table(""), "none\n"},
                                    {right,
                                     "ID  ATTR  OFFSET  RESERVED   USED\n"
                                     "               1     2       0        16      8\n"
                                     "              255    34   65535         4  65535\n"}}) {
    fill(a, image);
    const string out = ktctl("flash").out;
    EXPECT_NE(out.find(string("  areas       ") + text, out.find("backup copy")), out.npos) << text << out;
  }
  ASSERT_EQ(system("eval \"$(ktctl flash --shell)\"; echo $normal_device $normal_id $normal_length $normal_intact "
                   "$backup_area_table $backup_areas $backup_areas_2_id $backup_areas_2_attr $backup_areas_2_offset "
                   "$backup_areas_2_reserve_size $backup_areas_2_used_size $backup_intact $boot $equal >/tmp/told"),
            0);
  EXPECT_EQ(read_file("/tmp/told"), "/dev/mtd3 52394 " + length_in(a) + " 1 right 2 255 34 65535 4 65535 0 normal 0\n");
  const Result json = ktctl("flash --json");
  EXPECT_TRUE(json.code == 1 && json.out.find("\"intact\": true\n  },\n  \"backup\": {\n") != json.out.npos) << json;
}

// What a full /tmp does to long settings, without one: no program started from then on writes longer files.
void limit_files(rlim_t length) {
  const rlimit limit = {length, RLIM_INFINITY};
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST_F(KtctlFlash, verify_names_the_damage_and_repair_does_what_a_dry_run_says) {
  const string a = image_of(kFactory), b = image_of(settings_text("b")), no_archive = copy_of("none"),
               big = image_of(string(1000000, ' '));
  const string kWould[] = {" bytes from the normal copy, /dev/mtd3, to the backup copy, /dev/mtd4\n",
                           " bytes from the backup copy, /dev/mtd4, to the normal copy, /dev/mtd3\n"},
               kGood = "intact", kUnfit = "holds no valid settings", kNone = "broken; nothing to repair it from",
               kOther = "intact, with other settings; ", kFrom0 = "repaired from the normal copy",
               kFrom1 = "repaired from the backup copy", kUnread = "cannot be read",
               kFailed = "/dev/mtd4: the backup copy could not be repaired",
               kNoRoom = "/tmp: a copy could not be unpacked there; is it full?";
  const struct {
    string normal, backup, verdicts[2];
    int verify, source, repair;
    string lines[2], err;
  } kCases[] = {{a, a, {kGood, kGood}, 0, -1, 0, {kGood, kGood}, ""},
                {a, b, {kGood, kGood}, 1, 0, 0, {kGood, kOther + kFrom0}, ""},
                {flipped(a, 1), kErased, {"wrong id 0x33AA", "wrong id 0xFFFF"}, 1, -1, 1, {kNone, kNone}, ""},
                {copy_of(""), flipped(a, 24), {"wrong length 0", "wrong MD5"}, 1, -1, 1, {kNone, kNone}, ""},
                {flipped(a, used(a) - 1), b, {"wrong MD5", kGood}, 1, 1, 0, {"broken; " + kFrom1, kGood}, ""},
                {no_archive, no_archive, {kUnfit, kUnfit}, 1, -1, 0, {kGood, kGood}, ""},
                {image_of("[S]\nk=\t\n"), a, {kUnfit, kGood}, 1, 1, 0, {kOther + kFrom1, kGood}, ""},
                {a, "short", {kGood, kUnread}, 1, 0, 4, {kGood, kUnread + "; could not be " + kFrom0}, kFailed},
                {big, b, {"intact, but not unpacked", kGood}, 4, -1, 4, {kGood, kGood}, kNoRoom}};
  limit_files(300000);
  for (const auto& c : kCases) {
    if (c.backup == "short" && on_chip_without("a partition that is too short")) continue;
    SCOPED_TRACE(c.verdicts[0] + ", " + c.verdicts[1]);
    fill(c.normal, c.backup);
    const string before = flash(), good = c.source == 1 ? c.backup : c.normal,
                 lines = "normal copy: " + c.lines[0] + "\nbackup copy: " + c.lines[1] + "\n",
                 verdicts = "normal copy, /dev/mtd3: " + c.verdicts[0] + "\nbackup copy, /dev/mtd4: " + c.verdicts[1] +
                            "\nthe copies " + (c.normal == c.backup ? "are equal\n" : "differ\n");
    expect_run("flash verify", c.verify, verdicts, c.verify == 4 ? c.err : "");
    EXPECT_EQ(ktctl("flash repair --dry-run"),
              c.source >= 0 ? (Result{0, "would write " + length_in(good) + kWould[c.source], ""})
                            : (Result{c.repair, c.repair == 4 ? "" : lines, message(c.err)}));
    EXPECT_TRUE(flash() == before) << "a dry run has written";
    expect_run("flash repair", c.repair, lines, c.err);
    for (const char* device : {kNormalDevice, kBackupDevice})
      EXPECT_TRUE(c.source < 0 || c.repair != 0 ? flash() == before
                                                : read_partition(device).find(good.substr(0, used(good))) == 0);
  }
  expect_run("flash verify --shell", 4, "normal='intact, but not unpacked'\nbackup='intact'\nequal='0'\n", kNoRoom);
  EXPECT_EQ(read_file(kSettings), settings_text("live")) << "the settings on the RAM disk were touched";
  expect_run("restore --dry-run", 4, "", kNoRoom);
  EXPECT_EQ(ktctl("diff --file /etc/def_sys.conf normal").code, 4);
  const Result shown = ktctl("flash");
  EXPECT_TRUE(shown.code == 4 && shown.out.find("what a boot takes is not known\n") != shown.out.npos) << shown;
  limit_files(RLIM_INFINITY);
}

TEST_F(KtctlFlash, gives_up_on_a_lock_that_stays_held) {
  kt::FlockFile lock;
  ASSERT_TRUE(lock.open("/tmp/cgi_locker.lock", 0666) && lock.lock());
  for (const char* command : {"save", "reset", "flash repair", "flash verify", "restore"}) {
    const Result result = ktctl(string(command) + " --lock-timeout 0");
    EXPECT_TRUE(result.code == 5 && result.err.find("cgi_locker.lock: held by process ") != string::npos) << result;
  }
  EXPECT_TRUE(flash() == kErased + kErased);
}

TEST_F(KtctlFlash, dry_runs_say_what_would_be_and_leave_all_as_it_is) {
  const string a = image_of(settings_text("live")), old = image_of(settings_text("old", "6"));
  const auto writes = [](const string& held) {
    return "would write # bytes to the backup copy, /dev/mtd4, which holds " + held +
           " settings\nwould write # bytes to the normal copy, /dev/mtd3, which holds no settings\n";
  };
  const string kDefaultsIn = "would copy /etc/def_sys.conf to /mnt/ramdisk/env/system.conf\n",
               kRepair = "would write # bytes from the backup copy, /dev/mtd4, to the normal copy, /dev/mtd3\n",
               kNoRoom = "/dev/mtd4: # bytes of packed settings do not fit in #",
               kKeep = "would keep /mnt/ramdisk/env/system.conf\n",
               kUnpack = "would unpack the backup copy, /dev/mtd4, to /mnt/ramdisk/env\n",
               kNone = " copy: broken; nothing to repair it from\n", kNothing = "normal" + kNone + "backup" + kNone;
  const struct {
    const char *prepare, *command;
    const string& backup;
    int code;
    string out, err;
  } kCases[] = {
      {"", "save", a, 0, writes("the same"), ""},
      {"cp /etc/def_sys.conf /tmp/other.conf", "save --file /tmp/other.conf", kErased, 0,
       "would copy /tmp/other.conf to /mnt/ramdisk/env/system.conf\n" + writes("no"), ""},
      {"", "reset", a, 0, kDefaultsIn + writes("other"), ""},
      {"", "restore", a, 0, kKeep + kRepair, ""},
      {"rm system.conf", "restore", a, 0, kUnpack + kRepair, ""},
      {"", "restore", old, 0, kDefaultsIn + kRepair, ""},
      {"", "restore", kErased, 0, kDefaultsIn + kNothing, ""},
      {"printf '[SYSTEM]\\ncfg_ver=6\\n' >system.conf", "restore", a, 0, kDefaultsIn + kRepair, ""},
      {"tr -dc a-z </dev/urandom | head -c 600000 >/tmp/other.conf", "save --file /tmp/other.conf", a, 4, "", kNoRoom},
      {"head -c 9000000 /dev/urandom >big", "save", a, 4, "", kNoRoom},
      {"rm big; mv /dev/mtd4 /dev/aside", "save", a, 4, "", "/dev/mtd4: No such file or directory"}};
  ASSERT_EQ(chdir("/mnt/ramdisk/env"), 0);
  for (const auto& c : kCases) {
    SCOPED_TRACE(string(c.prepare) + "; " + c.command);
    if (c.prepare[0] == 't' && on_chip_without("settings too long for a partition of 256 KiB")) continue;
    fill(kErased, c.backup);
    ASSERT_EQ(system(c.prepare), 0);
    const auto state = [] {
      EXPECT_EQ(system("{ ls -lR /mnt/ramdisk; cat system.conf; } >/tmp/state 2>&1; true"), 0);
      return read_file("/tmp/state") + flash();
    };
    const string before = state();
    Result result = ktctl(string(c.command) + " --dry-run");
    // Archives of the same files differ in length by their times.
    for (string* text : {&result.out, &result.err})
      *text = std::regex_replace(*text, std::regex("(fit in |write |: )[0-9]+"), "$1#");
    EXPECT_EQ(result, (Result{c.code, c.out, message(c.err)}));
    EXPECT_TRUE(state() == before) << "something was written";
  }
  ASSERT_TRUE(chdir("/run") == 0 && rename("/dev/aside", kBackupDevice) == 0);
}

// A process at a terminal of its own, whose leader it is.
class Terminal {
 public:
  explicit Terminal(auto body) : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0) ADD_FAILURE() << "is there no /dev/pts?";
    const string name = ptsname(master_.get());
    pid_ = start_child([&] {
      setsid();
      const kt::unique_fd slave(open(name.c_str(), O_RDWR | O_CLOEXEC));
      for (int fd : {0, 1, 2}) dup2(slave.get(), fd);
      return body();
    });
  }
  explicit Terminal(const char* command) : Terminal([=] { return execlp("ktctl", "ktctl", command, nullptr); }) {}
  // What is printed up to and with the line feed that ends `line`; all for a null.
  string read_to(const char* line) {
    string text;
    char c;
    while ((line == nullptr || text.find(line) == text.npos || text.back() != '\n') && read(master_.get(), &c, 1) == 1)
      if (c != '\r') text += c;
    return text;
  }
  void hang_up() { master_.reset(); }
  void press(char key) { EXPECT_EQ(write(master_.get(), &key, 1), 1); }
  // All that is printed and then the exit code.
  string end() {
    const string text = read_to(nullptr);
    return text + std::to_string(wait_for_child(pid_));
  }

 private:
  kt::unique_fd master_;
  pid_t pid_;
};

TEST_F(KtctlFlash, a_save_shows_its_stages_at_a_terminal) {
  const string written = "writing the backup copy\nwriting the normal copy\nverifying\n";
  for (const char* command : {"save", "reset"})
    EXPECT_EQ(Terminal(command).end(), "checking\npacking\n" + written + "0") << command;

  const int fd = flash_open(kNormalDevice, O_RDWR);  // somebody else is writing, which is no stage of this save
  const string failed = Terminal("save").end();
  EXPECT_EQ(flash_close(fd), 0);
  EXPECT_TRUE(failed.find("checking\npacking\n") == 0 && failed.back() == '4') << failed;
  for (const char* stage : {"writing the normal copy", "verifying"}) EXPECT_EQ(failed.find(stage), failed.npos);

  unlink(kSettings);
  EXPECT_EQ(Terminal("save").end(), "checking\n" + message("@: not found") + "1");
}

TEST_F(KtctlFlash, stages_are_told_while_they_last) {
  Terminal terminal([] {
    kt::tools::SaveStages stages;
    stages.watch();
    for (const char* device : {kBackupDevice, kNormalDevice}) {
      const int fd = flash_open(device, O_RDWR);
      usleep(300000);
      stages.show("seen");
      flash_close(fd);
    }
    return 0;
  });
  EXPECT_EQ(terminal.end(), "writing the backup copy\nseen\nwriting the normal copy\nseen\n0");
}

TEST_F(KtctlFlash, a_terminal_lost_or_interrupting_during_a_save_leaves_the_flash_whole) {
  for (const char* stage : {"packing", "writing the backup copy", "writing the normal copy"}) {
    for (const char key : {'\0', '\3', '\x1c', '\x1a'}) {  // a hang-up, ^C, ^\, ^Z
      fill(kErased, kErased);
      Terminal terminal("save");
      terminal.read_to(stage);
      key != '\0' ? terminal.press(key) : terminal.hang_up();
      const string end = terminal.end();  // with ^C and the like, and the signal
      EXPECT_TRUE(end.back() == '0' || end[end.size() - 2] == '-') << end;
      EXPECT_EQ(ktctl("flash verify").code, 0) << stage << int{key};
    }
  }
}

}  // namespace
