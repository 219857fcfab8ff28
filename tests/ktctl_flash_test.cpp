// ktctl over the flash: what it shows, verifies, repairs and would do, and a save at a terminal.
#include <ktcomm/flash.h>
#include <stdlib.h>

#include <regex>

#include "base/file_lock.h"
#include "tests/ktctl_support.h"
#include "tests/settings_image.h"
#include "tools/flash_stages.h"

using namespace kt::test;

namespace {

constexpr const char* kPartitions[] = {kNormalDevice, kBackupDevice};
const std::string kErased(kDeviceSize, '\xff');
const std::string kFactory = settings_text("factory");

std::string image_of(const std::string& settings) { return copy_of(archive_of(settings)); }
std::string flipped(std::string image, size_t offset) { return image.replace(offset, 1, 1, char(~image[offset])); }
size_t used(const std::string& image) { return image.find_last_not_of('\xff') + 1; }

void fill(const std::string& normal, const std::string& backup) {
  write_partition(kNormalDevice, normal);
  write_partition(kBackupDevice, backup);
}

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

size_t partition_size() { return on_chip() ? 8 << 20 : kDeviceSize; }

// A partition with an area table, built by hand, in its last 64 KiB.
std::string with_table(const std::string& entries, size_t size) {
  const unsigned short head[] = {1, static_cast<unsigned short>(entries.size() / 8), 2};
  const std::string table = std::string(reinterpret_cast<const char*>(head), sizeof head) + entries;
  unsigned char md5[16];
  md5_buffer(reinterpret_cast<const unsigned char*>(table.data()), static_cast<unsigned>(table.size()), md5);
  std::string image(size, '\xff');
  return image.replace(size - 65536, 16, reinterpret_cast<char*>(md5), 16).replace(size - 65520, table.size(), table);
}

TEST_F(KtctlFlash, shows_the_area_table) {
  const size_t size = partition_size();
  const std::string entries("\1\2\0\0\x10\0\x08\0\x08\1\x22\0\4\0\0\0\xff\xff\xff\xff\xff\xff\xff\xff", 24);
  const std::string right = with_table(entries, size);
  const std::string kHead = "  areas       ID  ATTR  OFFSET  RESERVED   USED\n",
                    kRows =
                        "               1     2       0        16      8\n"
                        "               8     1      34         4      0\n"
                        "              255   255   65535     65535  65535\n";
  const std::pair<std::string, std::string> kCases[] = {
      {right, kHead + kRows},
      {flipped(right, size - 65536 + 45), "  areas       no table, or a damaged one: its MD5 is wrong\n"},
      {with_table("", size), "  areas       none\n"},
      {kErased, "  areas       none\n"}};
  for (const auto& [image, text] : kCases) {
    fill(kErased, image);
    const std::string out = ktctl("flash").out;
    EXPECT_NE(out.find(text, out.find("backup copy")), out.npos) << text << out;
  }
}

TEST_F(KtctlFlash, tells_programs_what_it_tells_people) {
  const std::string a = image_of(kFactory);
  fill(a, with_table(std::string("\3\1\x1c\0\1\0\1\0", 8), partition_size()));
  const std::string length = std::to_string(used(a) - 24);
  const std::string script =
      "eval \"$(ktctl flash --shell)\"; echo $normal_device $normal_id $normal_length $normal_intact "
      "$backup_area_table $backup_areas $backup_areas_1_id $backup_areas_1_attr $backup_areas_1_offset "
      "$backup_areas_1_reserve_size $backup_areas_1_used_size $backup_intact $boot $equal >/tmp/told";
  ASSERT_EQ(system(script.c_str()), 0);
  EXPECT_EQ(read_file("/tmp/told"), "/dev/mtd3 52394 " + length + " 1 right 1 3 1 28 1 1 0 normal 0\n");
  const Result json = ktctl("flash --json");
  EXPECT_EQ(json.code, 1);
  for (const std::string part :
       {"\"intact\": true\n  },\n  \"backup\": {\n", "\"boot\": \"normal\"", "\"equal\": false"}) {
    EXPECT_NE(json.out.find(part), json.out.npos) << part << json.out;
  }
  EXPECT_EQ(ktctl("flash --json --shell").code, 2);
}

TEST_F(KtctlFlash, verify_has_a_line_for_each_copy_and_an_exit_code) {
  const std::string a = image_of(kFactory), b = image_of(settings_text("b")), no_archive = copy_of("none");
  const struct {
    std::string normal, backup, verdicts[2];
    bool equal;
    int code;
  } kCases[] = {{a, a, {"intact", "intact"}, true, 0},
                {a, b, {"intact", "intact"}, false, 1},
                {flipped(a, 1), kErased, {"wrong id 0x33AA", "wrong id 0xFFFF"}, false, 1},
                {copy_of(""), flipped(a, 24), {"wrong length 0", "wrong MD5"}, false, 1},
                {flipped(a, used(a) - 1), a, {"wrong MD5", "intact"}, false, 1},
                {no_archive, no_archive, {"holds no valid settings", "holds no valid settings"}, true, 1},
                {image_of("[S]\nk=\t\n"), a, {"holds no valid settings", "intact"}, false, 1},
                {a, "short", {"intact", "cannot be read"}, false, 1}};
  for (const auto& c : kCases) {
    if (c.backup == "short" && on_chip_without("a partition that is too short")) continue;
    fill(c.normal, c.backup);
    expect_run("flash verify", c.code,
               "normal copy, /dev/mtd3: " + c.verdicts[0] + "\nbackup copy, /dev/mtd4: " + c.verdicts[1] +
                   "\nthe copies " + (c.equal ? "are equal\n" : "differ\n"),
               "");
    expect_run(
        "flash verify --shell", c.code,
        "normal='" + c.verdicts[0] + "'\nbackup='" + c.verdicts[1] + "'\nequal='" + (c.equal ? "1" : "0") + "'\n", "");
  }
}

TEST_F(KtctlFlash, repair_writes_what_a_dry_run_says) {
  const std::string a = image_of(kFactory), b = image_of(settings_text("b")), broken = flipped(a, 30);
  const auto would = [](const std::string& image, const char* from, const char* to) {
    return "would write " + std::to_string(used(image) - 24) + " bytes from the " + from + ", to the " + to + "\n";
  };
  const char *const kNormal = "normal copy, /dev/mtd3", *const kBackup = "backup copy, /dev/mtd4";
  const std::string kGood = "normal copy: intact\nbackup copy: intact\n",
                    kNone =
                        "normal copy: broken; nothing to repair it from\nbackup copy: broken; nothing to repair "
                        "it from\n";
  const struct {
    std::string normal, backup, would, done, after;  // "": both as they were
    int code;
  } kCases[] = {
      {a, a, kGood, kGood, "", 0},
      {a, broken, would(a, kNormal, kBackup),
       "normal copy: intact\nbackup copy: broken; repaired from the normal copy\n", a, 0},
      {a, b, would(a, kNormal, kBackup),
       "normal copy: intact\nbackup copy: intact, with other settings; repaired from the normal copy\n", a, 0},
      {kErased, b, would(b, kBackup, kNormal),
       "normal copy: broken; repaired from the backup copy\nbackup copy: intact\n", b, 0},
      {broken, kErased, kNone, kNone, "", 1}};
  for (const auto& c : kCases) {
    fill(c.normal, c.backup);
    const std::string before[] = {read_partition(kNormalDevice), read_partition(kBackupDevice)};
    expect_run("flash repair --dry-run", c.code, c.would, "");
    for (int copy : {0, 1}) EXPECT_TRUE(read_partition(kPartitions[copy]) == before[copy]) << "a dry run has written";
    expect_run("flash repair", c.code, c.done, "");
    for (int copy : {0, 1}) {
      const std::string after = read_partition(kPartitions[copy]);
      EXPECT_TRUE(c.after.empty() ? after == before[copy]
                                  : after.compare(0, used(c.after), c.after, 0, used(c.after)) == 0);
    }
  }
  EXPECT_EQ(read_file(kSettings), settings_text("live")) << "the settings on the RAM disk were touched";

  fill(a, kErased);
  const int fd = flash_open(kBackupDevice, O_RDWR);  // somebody else is writing
  expect_run("flash repair", 4,
             "normal copy: intact\nbackup copy: broken; could not be repaired from the normal copy\n",
             "/dev/mtd4: the backup copy could not be repaired");
  EXPECT_EQ(flash_close(fd), 0);
}

TEST_F(KtctlFlash, writers_give_up_on_a_lock_that_stays_held) {
  kt::FlockFile lock;
  ASSERT_TRUE(lock.open("/tmp/cgi_locker.lock", 0666) && lock.lock());
  for (const std::string command : {"save", "reset", "flash repair", "restore"}) {
    const Result result = ktctl(command + " --lock-timeout 0");
    EXPECT_EQ(result.err.find("ktctl: /tmp/cgi_locker.lock: held by process "), 0u) << result.err;
    EXPECT_EQ(result.code, 5) << command;
  }
  EXPECT_TRUE(read_partition(kNormalDevice) == kErased && read_partition(kBackupDevice) == kErased);
}

TEST_F(KtctlFlash, dry_runs_say_what_would_be_and_leave_all_as_it_is) {
  const std::string live = settings_text("live"), a = image_of(live), old = image_of(settings_text("old", "6"));
  const auto writes = [](const char* held) {
    return std::string("would write # bytes to the backup copy, /dev/mtd4, which holds ") + held +
           " settings\nwould write # bytes to the normal copy, /dev/mtd3, which holds no settings\n";
  };
  const std::string kSame = writes("the same"), kOther = writes("other"), kNo = writes("no"),
                    kDefaultsIn = "would copy /etc/def_sys.conf to /mnt/ramdisk/env/system.conf\n",
                    kRepair = "would write # bytes from the backup copy, /dev/mtd4, to the normal copy, /dev/mtd3\n",
                    kNoRoom = "/dev/mtd4: # bytes of packed settings do not fit in #",
                    kKeep = "would keep /mnt/ramdisk/env/system.conf\n",
                    kUnpack = "would unpack the backup copy, /dev/mtd4, to /mnt/ramdisk/env\n",
                    kNothing =
                        "normal copy: broken; nothing to repair it from\n"
                        "backup copy: broken; nothing to repair it from\n";
  const struct {
    const char *prepare, *command;
    const std::string& backup;
    int code;
    std::string out, err;
  } kCases[] = {
      {"", "save", a, 0, kSame, ""},
      {"", "save", kErased, 0, kNo, ""},
      {"cp /etc/def_sys.conf /tmp/other.conf", "save --file /tmp/other.conf", a, 0,
       "would copy /tmp/other.conf to /mnt/ramdisk/env/system.conf\n" + kOther, ""},
      {"", "reset", a, 0, kDefaultsIn + kOther, ""},
      {"", "restore", a, 0, kKeep + kRepair, ""},
      {"rm system.conf", "restore", a, 0, kUnpack + kRepair, ""},
      {"", "restore", old, 0, kDefaultsIn + kRepair, ""},
      {"", "restore", kErased, 0, kDefaultsIn + kNothing, ""},
      {"echo cfg_ver=6 >system.conf", "restore", kErased, 0, kKeep + kNothing, ""},
      {"printf '[SYSTEM]\\ncfg_ver=6\\n' >system.conf", "restore", a, 0, kDefaultsIn + kRepair, ""},
      {"printf '\\t' >system.conf", "save", a, 3, "", "@:1: byte 0x09 at place 1: such settings are not stored"},
      {"tr -dc a-z </dev/urandom | head -c 600000 >/tmp/other.conf", "save --file /tmp/other.conf", a, 4, "", kNoRoom},
      {"head -c 9000000 /dev/urandom >big; echo >system.conf", "save", a, 4, "", kNoRoom},
      {"rm system.conf", "save", a, 1, "", "@: not found"}};
  ASSERT_EQ(chdir("/mnt/ramdisk/env"), 0);
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.prepare) + "; " + c.command);
    if (c.prepare[0] == 't' && on_chip_without("settings too long for a partition of 256 KiB")) continue;
    fill(kErased, c.backup);
    ASSERT_EQ(system(c.prepare), 0);
    const auto state = [] {
      EXPECT_EQ(system("{ ls -lR /mnt/ramdisk; cat system.conf; } >/tmp/state 2>&1; true"), 0);
      return read_file("/tmp/state") + read_partition(kNormalDevice) + read_partition(kBackupDevice);
    };
    const std::string before = state();
    Result result = ktctl(std::string(c.command) + " --dry-run");
    // Archives of the same files differ in length by their times.
    for (std::string* text : {&result.out, &result.err}) {
      *text = std::regex_replace(*text, std::regex("[0-9]+ bytes"), "# bytes");
      *text = std::regex_replace(*text, std::regex("fit in [0-9]+"), "fit in #");
    }
    EXPECT_EQ(result, (Result{c.code, c.out, message(c.err)}));
    EXPECT_TRUE(state() == before) << "something was written";
  }
  ASSERT_EQ(chdir("/run"), 0);
}

// A process at a terminal of its own, whose leader it is.
class Terminal {
 public:
  explicit Terminal(auto body) : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0) ADD_FAILURE() << "is there no /dev/pts?";
    const std::string name = ptsname(master_.get());
    pid_ = start_child([&] {
      setsid();
      const kt::unique_fd slave(open(name.c_str(), O_RDWR | O_CLOEXEC));
      for (int fd : {0, 1, 2}) dup2(slave.get(), fd);
      return body();
    });
  }
  explicit Terminal(const char* command) : Terminal([=] { return execlp("ktctl", "ktctl", command, nullptr); }) {}
  // What is printed up to and with the line feed that ends `line`; all for a null.
  std::string read_to(const char* line = nullptr) {
    std::string text;
    char c;
    while ((line == nullptr || text.find(line) == text.npos || text.back() != '\n') &&
           read(master_.get(), &c, 1) == 1) {
      if (c != '\r') text += c;
    }
    return text;
  }
  void press(char key) { EXPECT_EQ(write(master_.get(), &key, 1), 1); }
  void hang_up() { master_.reset(); }
  int wait() { return wait_for_child(pid_); }

 private:
  kt::unique_fd master_;
  pid_t pid_;
};

TEST_F(KtctlFlash, a_save_shows_its_stages_at_a_terminal) {
  for (const char* command : {"save", "reset"}) {
    Terminal terminal(command);
    EXPECT_EQ(terminal.read_to(), "checking\npacking\nwriting the backup copy\nwriting the normal copy\nverifying\n");
    EXPECT_EQ(terminal.wait(), 0);
  }
  unlink(kSettings);
  Terminal refused("save");
  EXPECT_EQ(refused.read_to(), "checking\nktctl: " + std::string(kSettings) + ": not found\n");
  EXPECT_EQ(refused.wait(), 1);

  // Somebody else is writing to the normal copy, which is no stage of this save.
  write_file(kSettings, kFactory);
  const int fd = flash_open(kNormalDevice, O_RDWR);
  Terminal failed("save");
  const std::string shown = failed.read_to();
  EXPECT_EQ(shown.find("checking\npacking\n"), 0u) << shown;
  for (const char* stage : {"writing the normal copy", "verifying"}) EXPECT_EQ(shown.find(stage), shown.npos) << shown;
  EXPECT_EQ(failed.wait(), 4);
  EXPECT_EQ(flash_close(fd), 0);
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
  EXPECT_EQ(terminal.read_to(), "writing the backup copy\nseen\nwriting the normal copy\nseen\n");
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(KtctlFlash, a_terminal_lost_or_interrupting_during_a_save_leaves_the_flash_whole) {
  for (const char* stage : {"packing", "writing the backup copy", "writing the normal copy"}) {
    for (const char key : {'\0', '\3', '\x1c', '\x1a'}) {  // hang-up, ^C, ^\, ^Z
      fill(kErased, kErased);
      Terminal terminal("save");
      terminal.read_to(stage);
      key != '\0' ? terminal.press(key) : terminal.hang_up();
      (void)terminal.read_to();
      const int code = terminal.wait();
      EXPECT_TRUE(code == 0 || code == -SIGHUP || code == -SIGINT || code == -SIGQUIT) << code;
      EXPECT_EQ(ktctl("flash verify").code, 0) << stage << int{key};
    }
  }
}

}  // namespace
