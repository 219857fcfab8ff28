// ktctl as people and scripts meet it: a command line in, text and exit code out.
#include <fcntl.h>
#include <ktcomm/flash.h>
#include <ktcomm/log.h>
#include <signal.h>
#include <string.h>

#include <functional>
#include <sstream>

#include "base/file_lock.h"
#include "tests/ktctl_support.h"
#include "tests/nand_double.h"
#include "tests/settings_image.h"
#include "tools/command_table.h"
#include "tools/flash_copies.h"
#include "tools/ktctl.h"

using namespace kt::test;

namespace {

constexpr const char* kPartitions[] = {kNormalDevice, kBackupDevice};
const std::string kErased(kDeviceSize, '\xff');
const std::string kNet = "[NET]\nport=80\nname= front door \nempty=\n";
const std::string kUsers = "[USER]\nadmin=root\n[USER]\nadmin=second\n";
const std::string kContent = kNet + kUsers;
const std::string kFactory = "[SYSTEM]\ncfg_ver=1\n[NET]\nport=8080\nonly_default=yes\n";

const std::string kA = "[SYSTEM]\ncfg_ver=1\n[S]\nk=a\n";
const std::string kB = "[SYSTEM]\ncfg_ver=1\n[S]\nk=b\n";
const std::string kNotWritten =
    ": not written: the file, /tmp/cgi_locker.lock or a copy of it in /tmp could not be written";

std::string partition(int copy) { return read_partition(kPartitions[copy]); }

// What a partition with these settings looks like.
std::string image_of(const std::string& settings) { return copy_of(archive_of(settings)); }

std::string flipped(std::string image, size_t offset) { return image.replace(offset, 1, 1, char(~image[offset])); }

// The settings that a copy in flash unpacks to.
std::string stored_in(int copy) {
  const auto state = kt::tools::inspect_copy(copy);
  if (!state.intact) return "(broken)";
  write_file("/tmp/stored.tgz", partition(copy).substr(24, state.header.length));
  if (system("tar zxOf /tmp/stored.tgz env/system.conf >/tmp/stored.conf") != 0) return "(no tar)";
  return read_file("/tmp/stored.conf");
}

bool stored_in_both(const std::string& settings) { return stored_in(0) == settings && stored_in(1) == settings; }

// Takes the settings lock as another writer would.
void hold(kt::FlockFile& lock) { ASSERT_TRUE(lock.open("/tmp/cgi_locker.lock", 0666) && lock.lock()); }

class Ktctl : public testing::Test {
 protected:
  void SetUp() override { refill(); }
  void TearDown() override { EXPECT_TRUE(files_in("/tmp", "ktctl").empty()) << "scratch files left"; }
  static void refill() {
    ASSERT_EQ(system("rm -rf /mnt/ramdisk/env && mkdir -p /mnt/ramdisk/env"), 0);
    write_file(kDefaults, kFactory);
    write_file(kSettings, kContent);
    for (const char* path : kPartitions) write_partition(path, kErased);
  }
};

TEST_F(Ktctl, prints_and_changes_exactly_what_it_says) {
  const struct {
    std::string arguments, out, file_after = kContent;
  } kCases[] = {{"get NET port", "80\n"},
                {"get '[NET]' name", " front door \n"},
                {"get NET empty", "\n"},
                {"get NET only_default", "yes\n"},
                {"--file /tmp/flat get '' top", "1\n"},
                {"get --file /tmp/flat S k", "-v\n"},
                {"set NET port '-5 x'", "", "[NET]\nport=-5 x\n" + kContent.substr(14)},
                {"set '[NET]' mtu ''", "", kNet + "mtu=\n" + kUsers},
                {"set NEW k '=[v]='", "", kContent + "[NEW]\nk==[v]=\n"},
                {"set NET port 80", ""},
                {"unset-section USER", "", kNet},
                {"rename-section NET '[LAN]'", "", "[LAN]\n" + kContent.substr(6)},
                {"show", kContent},
                {"show NET", kNet.substr(6)},
                {"show --file /tmp/flat S", "k=-v"}};
  write_file("/tmp/flat", "top=1\n[S]\nk=-v");
  for (const auto& c : kCases) {
    write_file(kSettings, kContent);
    expect_run(c.arguments, 0, c.out, "");
    EXPECT_EQ(read_file(kSettings), c.file_after) << c.arguments;
  }
  const std::string k61(61, 'a');
  expect_fails(1, "get ",
               "NET none~@: [NET] none: not found|" + k61 + "a k~@: [" + k61 +
                   "] k: not found|'N\x1b' '\n'~@: [N?] ?: not|" + "--file /tmp/none S k~/tmp/none: not found");
  expect_fails(1, "",
               "unset-section X~@: [X]: not found|rename-section X Y~@: [X]: not found|show X~@: [X]: not found");
  expect_fails(
      2, "",
      "~no command; see ktctl --help|sow~sow: there is no such command; see ktctl --help|"
      "get --fast a b~--fast: there is no such option|show --file~--file: what follows is missing|"
      "show -xy~-x: there is no such option|show --json=x~--json=x: this option takes nothing|get NET~get takes "
      "SECTION KEY; see ktctl get --help|save x~save takes no arguments; see ktctl save --help|reset --file x~reset "
      "does not take --file; see ktctl reset --help|zone --crc16 check 0~zone check does not take --crc16; see");
  expect_fails(4, "set ", "--file /tmp/no/file S k v~/tmp/no/file: ");
  EXPECT_FALSE(exists("/tmp/none"));
}

TEST_F(Ktctl, set_refuses_what_a_save_could_not_store) {
  const std::string kLong(511 - 3, 'v');  // "k=", the value, a line feed: 511
  const std::string kName(61, 's');
  const std::pair<std::string, const char*> kCases[] = {
      {"set S k 'a\n[T]'", "[S] k: the value holds byte 0x0a at place 2"},
      {"set S k 'caf\xe9'", "[S] k: the value holds byte 0xe9 at place 4"},
      {"set S k '\x7f'", "[S] k: the value holds byte 0x7f at place 1"},
      {"set S 'k\x1f' v", "the key holds byte 0x1f at place 2"},
      {"set 'S\n' k v", "the section holds byte 0x0a at place 2"},
      {"set S '' v", "a key has at least one character"},
      {"set S 'a b' v", "a key holds no = and no blank"},
      {"set S a=b v", "a key holds no = and no blank"},
      {"set S [a v", "a key that begins with [ is a section"},
      {"set '' k v", "a section needs a name"},
      {"set [S k v", "a section's name holds no brackets"},
      {"rename-section NET a]", "a section's name holds no brackets"},
      {"set " + kName + "s k v", "a section's name has at most 61 characters"},
      {"set S k " + kLong + "v", "the line has 512 characters with its line feed, 511 fit"},
      {"set --file '/tmp/a b' S k v", "the path of a file to be written is made of"},
      {"unset-section --file '/tmp/$(id)' S", "the path of a file to be written is made of"},
      {"save --file -f", "the path of a file to be written is made of"},
      {"set --file /dev/zero S k v", "/dev/zero: no regular file"},
      {"get --file /tmp S k", "/tmp: no regular file"},
      {"rename-section NET USER", "[USER]: there is such a section already"}};
  for (const auto& [arguments, reason] : kCases) {
    const Result result = ktctl(arguments);
    EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
    EXPECT_EQ(result, (Result{3, "", result.err})) << arguments;
  }
  EXPECT_EQ(read_file(kSettings), kContent);
  EXPECT_EQ(ktctl("set " + kName + " k " + kLong).code, 0) << "the longest that fits";
  EXPECT_EQ(ktctl("get " + kName + " k").out, kLong + "\n");
}

// The copy command of a write tells nobody when it fails.
TEST_F(Ktctl, a_write_that_did_not_arrive_is_told) {
  ASSERT_EQ(system("mkdir -p /tmp/fixed && cd /tmp/fixed && cp /mnt/ramdisk/env/system.conf file"), 0);
  ASSERT_EQ(system("cd /tmp/fixed && chmod 444 file && chmod 555 ."), 0);
  for (const std::string command : {"set NET port 81", "rename-section NET X", "unset-section NET"}) {
    expect_run("--file /tmp/fixed/file " + command, 4, "", "/tmp/fixed/file: [NET]" + kNotWritten);
  }
  EXPECT_EQ(read_file("/tmp/fixed/file"), kContent);
}

TEST_F(Ktctl, readers_do_not_wait_for_the_lock_for_long_but_a_repair_does) {
  kt::FlockFile lock;
  hold(lock);
  for (const auto& [command, out] : {std::pair{"get NET port", std::string("80\n")}, {"show", kContent}}) {
    expect_run(command, 0, out, "");
  }
  const auto repair = [] { return ualarm(200000, 0), static_cast<int>(kt::tools::repair_copies().result); };
  EXPECT_EQ(in_child(repair), -SIGALRM) << "a repair beside a save";
}

TEST_F(Ktctl, every_command_has_help) {
  const std::string all = ktctl("--help").out;
  for (const kt::tools::Command& command : kt::tools::all_commands()) {
    const std::string name = command.name, help = ktctl(name + " --help").out;
    EXPECT_TRUE(help.find("usage: ktctl " + name) == 0 && help.find("Exit codes: 0 done, 1 not") != help.npos) << help;
    EXPECT_NE(all.find("\n  " + name + " "), all.npos) << name;
  }
}

TEST_F(Ktctl, save_and_reset_store_in_both_copies) {
  expect_run("save", 0, "", "");
  EXPECT_TRUE(stored_in_both(kContent));

  ASSERT_EQ(system("rm -rf /mnt/ramdisk/env"), 0);
  write_file("/tmp/other.conf", kA);
  expect_run("save --file /tmp/other.conf", 0, "", "");
  EXPECT_TRUE(read_file(kSettings) == kA && stored_in_both(kA));

  expect_run("reset", 0, "", "");
  EXPECT_TRUE(read_file(kSettings) == kFactory && stored_in_both(kFactory));
}

TEST_F(Ktctl, save_refuses_what_cannot_be_stored_and_leaves_it_alone) {
  const std::string unfit = ": such settings are not stored";
  const std::tuple<const char*, const char*, int, std::string> kCases[] = {
      {"printf '[S]\\nk=a\\tb\\n' >system.conf", "save", 3, "@:2: byte 0x09 at place 4" + unfit},
      {"printf '[S]\\r\\n\\r\\nk=\\377' >system.conf", "save", 3, "@:3: byte 0xff at place 3" + unfit},
      {"rm system.conf", "save", 1, "@: not found"},
      {"mkdir system.conf", "save", 3, "@: no regular file"},
      {"printf '\\t' >/etc/def_sys.conf", "reset", 3, "/etc/def_sys.conf:1: byte 0x09 at place 1" + unfit}};
  ASSERT_EQ(chdir("/mnt/ramdisk/env"), 0);
  for (const auto& [prepare, command, code, err] : kCases) {
    ASSERT_EQ(system(prepare), 0);
    const std::string before = read_file(kSettings);
    expect_run(command, code, "", err);
    EXPECT_EQ(read_file(kSettings), before);
  }
  ASSERT_EQ(chdir("/run"), 0);
  EXPECT_TRUE(partition(0) == kErased && partition(1) == kErased);
}

TEST_F(Ktctl, save_tells_which_copy_could_not_be_written) {
  const char* const kReasons[] = {
      "@: not saved: the normal copy could not be written, or the settings do not fit; the backup copy may hold them",
      "/dev/mtd4: saved in the normal copy, but the backup copy could not be written: "
      "a power cut in the next save may lose the settings"};
  for (int copy = 0; copy < 2; ++copy) {
    refill();
    const int fd = flash_open(kPartitions[copy], O_RDWR);  // somebody else is writing
    expect_run("save", 4, "", kReasons[copy]);
    EXPECT_EQ(stored_in(1 - copy), kContent);
    EXPECT_EQ(flash_close(fd), 0);
  }
}

// The signals reach the commands that it runs as well, as from a terminal.
TEST_F(Ktctl, signals_wait_until_all_is_written) {
  // The search for leaks traces the process, which stop signals upset.
  setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
  const std::pair<std::string, std::function<bool()>> kCases[] = {
      {"save", [] { return stored_in_both(kContent); }},
      {"reset", [] { return stored_in_both(kFactory); }},
      {"set NET empty x", [] { return read_file(kSettings) == kNet.substr(0, 38) + "x\n" + kUsers; }},
      {"unset-section NET", [] { return read_file(kSettings) == kUsers; }},
      {"restore", [] { return stored_in_both(kA); }},
      {"flash repair --dry-run", [] { return files_in("/tmp", "ktctl").empty(); }}};
  const std::string image = image_of(kA);
  for (const auto& [command, done] : kCases) {
    int sent = 0;
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGTSTP}) {
      refill();
      write_partition(kPartitions[0], image);
      Process process(command);
      while (!process.ended()) {
        if (process.blocks(SIGTERM)) sent += kill(-process.pid(), number) == 0 ? 1 : 0;
        if (number == SIGTSTP) kill(-process.pid(), SIGCONT);  // it may stop once it is done
      }
      const int code = process.wait().code;
      EXPECT_TRUE((code == 0 || code == -number) && done()) << command << " under " << number << ": " << code;
    }
    EXPECT_GT(sent, 0) << command;
  }
  unsetenv("ASAN_OPTIONS");
}

TEST_F(Ktctl, a_lost_terminal_does_no_harm) {
  kt::FlockFile lock;
  hold(lock);
  Process process("save", "<&- >&- 2>&-");
  const std::string fds = "cd /proc/" + std::to_string(process.pid()) +
                          "/fd && [ \"$(ls -l 0 1 2 | grep -c ' /dev/null$')\" = 3 ] 2>/dev/null";
  int tries = 100;
  while (system(fds.c_str()) != 0 && --tries > 0) usleep(50000);
  EXPECT_GT(tries, 0) << "a file of its own has taken a place of theirs";
  lock.release();
  EXPECT_TRUE(process.wait().code == 0 && stored_in_both(kContent));

  EXPECT_EQ(ktctl("restore", ">&-").code, 0);
  EXPECT_EQ(ktctl("restore --dry-run", ">&-").code, 4);
  EXPECT_EQ(ktctl("get NET port", ">&-"), (Result{4, "", message("standard output: Bad file descriptor")}));
  EXPECT_EQ(ktctl("diff defaults", ">/dev/full"), (Result{4, "", message("standard output: No space left on device")}));
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  const int reader = open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  hold(lock);
  Process unheard("restore", ">/tmp/fifo");
  usleep(50000);
  close(reader);
  lock.release();
  EXPECT_EQ(unheard.wait().code, 0);
}

enum Source : int { kNothing = -1, kNormal = 0, kBackup = 1 };

struct CopyCase {
  const char* what;
  std::string normal, backup;
  std::string settings;  // what a boot has then
  Source source;         // what both hold afterwards; with kNothing they stay as they are
  std::string verdict[2];
};

std::vector<CopyCase> copy_cases() {
  const std::string a = image_of(kA), b = image_of(kB), old = image_of("[SYSTEM]\ncfg_ver=0\n");
  const std::string invalid = image_of("[S]\nk=\t\n"), no_archive = copy_of("no archive"), e = kErased;
  const std::string over_long = std::string(a).replace(4, 4, "\xff\xff\xff\xff");
  const std::string beyond = std::string(a).replace(4, 4, std::string("\xe9\xff\x03\0", 4));
  const std::string kGood = "intact", kBad = "broken; nothing to repair it from",
                    kOther = "intact, with other settings";
  const std::string from0 = "; repaired from the normal copy", from1 = "; repaired from the backup copy";
  return {{"equal", a, a, kA, kNormal, {kGood, kGood}},
          {"a byte of the backup", a, flipped(a, 40), kA, kNormal, {kGood, "broken" + from0}},
          {"length 0xffffffff", over_long, b, kB, kBackup, {"broken" + from1, kGood}},
          {"length one too much", a, beyond, kA, kNormal, {kGood, "broken" + from0}},
          {"erased", b, e, kB, kNormal, {kGood, "broken" + from0}},
          {"both intact", a, b, kA, kNormal, {kGood, kOther + from0}},
          {"intact, no archive", no_archive, b, kB, kBackup, {kOther + from1, kGood}},
          {"intact, not valid", invalid, b, kB, kBackup, {kOther + from1, kGood}},
          {"other version", old, flipped(old, 30), kFactory, kNormal, {kGood, "broken" + from0}},
          {"both erased", e, e, kFactory, kNothing, {kBad, kBad}},
          {"both broken", flipped(a, 30), flipped(a, 31), kFactory, kNothing, {kBad, kBad}},
          {"none that serves", e, no_archive, kFactory, kNothing, {kBad, "intact, but holds no settings"}}};
}

// What the command flash says at its end.
std::string choice_of(const CopyCase& c) {
  const bool other_version = c.settings == kFactory && c.source != kNothing;
  const std::string copy = c.source == kBackup ? "backup copy" : "normal copy";
  const std::string taken = c.settings == kFactory ? "factory defaults" : copy;
  const std::string end =
      c.normal == c.backup && c.source != kNothing ? "\nthe copies are equal\n" : "\nthe copies differ\n";
  return "a boot takes the " + taken + (other_version ? ": the " + copy + " is of another version" : "") + end;
}

TEST_F(Ktctl, restore_boots_and_makes_both_copies_hold_what_booted) {
  for (const CopyCase& c : copy_cases()) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(system("rm -rf /mnt/ramdisk/env"), 0);
    write_partition(kPartitions[0], c.normal);
    write_partition(kPartitions[1], c.backup);
    const std::string before[] = {partition(0), partition(1)};
    std::string image = c.source == kBackup ? c.backup : c.normal;
    image.resize(image.find_last_not_of('\xff') + 1);

    const Result flash = ktctl("flash");
    EXPECT_EQ(flash.out.substr(flash.out.find("a boot takes")), choice_of(c));
    EXPECT_EQ(flash.code, c.normal == c.backup && c.source != kNothing ? 0 : 1);
    EXPECT_TRUE(partition(0) == before[0] && partition(1) == before[1]) << "flash has written";

    expect_run("restore", 0, "normal copy: " + c.verdict[0] + "\nbackup copy: " + c.verdict[1] + "\n", "");
    EXPECT_EQ(read_file(kSettings), c.settings);
    for (int copy = 0; copy < 2; ++copy) {
      const bool stays = c.source == kNothing || c.source == copy;
      const std::string after = partition(copy);
      EXPECT_TRUE(stays ? after == before[copy] : after.compare(0, image.size(), image) == 0) << "copy " << copy;
    }
  }
}

TEST_F(Ktctl, restore_tells_what_it_could_not_do) {
  const std::string a = image_of(kA);
  const std::string too_small(a.find_last_not_of('\xff'), '#');
  write_partition(kPartitions[0], a);
  for (const auto& [flags, backup] : {std::pair{O_RDONLY, too_small}, {O_RDWR, kErased}}) {
    if (flags == O_RDONLY && on_chip_without("a partition that is too small")) continue;
    write_partition(kPartitions[1], backup);
    const std::string before = partition(1);
    const int fd = flash_open(kPartitions[1], flags);  // for writing: locked
    expect_run("restore", 4, "normal copy: intact\nbackup copy: broken; could not be repaired from the normal copy\n",
               "/dev/mtd4: the settings are restored, but the backup copy could not be repaired");
    EXPECT_EQ(flash_close(fd), 0);
    EXPECT_EQ(read_file(kSettings), kContent) << "settings that were there are kept";
    EXPECT_TRUE(partition(1) == before) << "touched all the same";
  }

  refill();
  unlink(kSettings);
  unlink(kDefaults);
  EXPECT_EQ(ktctl("restore").code, 4);
}

TEST_F(Ktctl, flash_prints_every_field) {
  const std::string kNames[] = {"normal copy, /dev/mtd3\n", "backup copy, /dev/mtd4\n"};
  const bool chip = on_chip_without("a partition that is too short for a header");
  const std::string kMtd = "MTD, 8388608 bytes, erase block 131072, page 2048, spare 64\n  bad blocks  none\n",
                    kAreas = "  areas       none\n";
  const std::string kDevice = "  device      " + (chip ? kMtd : "plain file, 262144 bytes\n") + kAreas,
                    kState = "  state       ";
  const std::string kHead = kDevice + "  id          0xCCAA, right\n  length      3 bytes\n";
  const std::string kMd5 = kHead + "  MD5         900150983cd24fb0d6963f7d28e17f72, ";
  const std::string kWrong = "  id          0xFFFF, wrong\n  length      4294967295 bytes, wrong\n  MD5         ";
  const std::string kEnd = "a boot takes the factory defaults\nthe copies differ\n";
  using Copy = std::pair<std::string, std::string>;
  const Copy kBlank = {kErased, kDevice + kWrong + std::string(32, 'f') + ", not checked\n" + kState + "broken\n"};
  const Copy kShort = {"short", "  device      plain file, 5 bytes\n" + kAreas + kState + "cannot be read\n"};
  const Copy kCopies[] = {{copy_of("abc"), kMd5 + "right\n" + kState + "intact\n"},
                          {flipped(copy_of("abc"), 26), kMd5 + "wrong\n" + kState + "broken\n"},
                          chip ? kBlank : kShort,
                          kBlank};
  for (const int first : {0, 2}) {
    for (const int copy : {0, 1}) write_partition(kPartitions[copy], kCopies[first + copy].first);
    expect_run("flash", 1, kNames[0] + kCopies[first].second + kNames[1] + kCopies[first + 1].second + kEnd, "");
  }
}

// In this process: the chips are played here only.
TEST_F(Ktctl, flash_shows_geometry_and_bad_blocks_of_a_chip) {
  nand::insert(kPartitions[0], nand::Kind::nand, {8, 16384, 2048, 64});
  for (const unsigned block : {1u, 7u}) { nand::set_fault(kPartitions[0], block, nand::Fault::marked_bad); }
  testing::internal::CaptureStdout();
  EXPECT_EQ(kt::tools::show_flash({}), 1);
  const std::string out = testing::internal::GetCapturedStdout();
  const std::string kDevice = "\n  device      MTD, 131072 bytes, erase block 16384, page 2048, spare 64\n";
  EXPECT_EQ(out.find("normal copy, /dev/mtd3" + kDevice + "  bad blocks  0x00004000 0x0001c000\n"), 0u) << out;
  nand::take_out();
}

TEST_F(Ktctl, traces_are_listed_and_printed) {
  ASSERT_EQ(system("rm -rf /tmp/debug/event && mkdir -p /tmp/debug/event"), 0);
  expect_run("trace event", 1, "", "/tmp/debug/event/0-0.log: nothing was traced");
  expect_run("trace 17", 1, "", "17: there is no such trace module");
  expect_run("trace event 2", 2, "", "2: SUB is 0 or 1");
  for (int i = 0; i < 3; ++i) KT_DEBUGn_in(8, 4, 1, "%09000d\n", i);  // each fills a file
  const std::string content = read_file("/tmp/debug/event/1-2.log");
  EXPECT_EQ(content.substr(0, 10), "[8][event]");
  for (const char* command : {"trace event 1", "trace 4 1"}) expect_run(command, 0, content, "");
  const std::string list = ktctl("trace").out;
  EXPECT_EQ(list.find("ID  MODULE         SUB  LEVEL  FILE   SIZE\n 0  system           0"), 0u);
  const std::string kEvent = "\n 4  event            0      8     -      -\n 4  event            1      8     2   " +
                             std::to_string(content.size()) + "\n";
  EXPECT_NE(list.find(kEvent), std::string::npos) << list;
  EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 22);
}

TEST_F(Ktctl, digests_are_printed_as_md5sum_does) {
  write_file("/tmp/digits", "123456789");
  ASSERT_EQ(system("head -c 65535 /dev/zero >/tmp/longest && head -c 65536 /dev/zero >/tmp/long"), 0);
  const std::string kDigits = "374b  /tmp/digits\n";
  ASSERT_EQ(system("md5sum /tmp/digits - /tmp/long </tmp/digits >/tmp/md5"), 0);
  ASSERT_EQ(system("sha256sum /tmp/long /tmp/digits >/tmp/sha"), 0);
  EXPECT_EQ(ktctl("hash /tmp/digits - /tmp/long", "</tmp/digits").out, read_file("/tmp/md5"));
  EXPECT_EQ(ktctl("hash --sha256 /tmp/long /tmp/digits").out, read_file("/tmp/sha"));
  EXPECT_EQ(ktctl("hash --crc16 /tmp/longest").code, 0);
  expect_run("hash --crc16 /tmp/long /tmp/digits", 3, kDigits, "/tmp/long: too long for this digest");
  const std::string reasons = "/tmp/none: not found\nktctl: /tmp: Is a directory";
  expect_run("hash --crc16 /tmp/none /tmp /tmp/digits", 4, kDigits, reasons);
}

}  // namespace
