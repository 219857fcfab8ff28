// Settings files: reading, writing one key, editing sections, catalogues.
#include <fcntl.h>
#include <ktcomm/config.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <sys/resource.h>

#include "tests/support.h"

using namespace kt::test;

namespace {

constexpr char kFile[] = "/mnt/ramdisk/env/test.conf";
constexpr char kLock[] = "/tmp/cgi_locker.lock";

class ConfigTest : public testing::Test {
 protected:
  void SetUp() override {
    saved_defaults_ = read_file(kDefaults);
    write_file(kDefaults, "[net]\nonly_default=from defaults\nport=80\n");
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env"), 0);
    unlink(kFile);
    descriptors_ = open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(open_descriptors(), descriptors_);
    EXPECT_TRUE(files_in("/tmp", "t").empty());
    EXPECT_TRUE(files_in("/tmp", "u").empty());
    write_file(kDefaults, saved_defaults_);
  }

 private:
  std::string saved_defaults_;
  size_t descriptors_ = 0;
};

using Read = ConfigTest;
using Write = ConfigTest;
using Pass = ConfigTest;
using Catalogue = ConfigTest;

struct Lookup {
  int result;
  std::string value;
  bool operator==(const Lookup&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Lookup& lookup) {
  return out << lookup.result << " '" << lookup.value << "'";
}

// Looks a key up into a buffer that is checked for bytes written past `size`.
Lookup look_up(const char* section, const char* key, int size, const std::string& content) {
  write_file(kFile, content);
  std::vector<char> out(static_cast<size_t>(size) + 9, '#');
  FILE* const file = fopen(kFile, "rte");
  const int result = PRO_GetStr(section, key, out.data(), size, file);
  fclose(file);
  for (size_t i = static_cast<size_t>(size) + 1; i < out.size(); ++i) EXPECT_EQ(out[i], '#') << key;
  if (result != 0) {
    EXPECT_EQ(out[0], '#') << "output touched on failure";
    return {result, ""};
  }
  return {result, out.data()};
}

const std::string kLong(600, 'x');

TEST_F(Read, lookup_rules) {
  const struct {
    const char* what;
    std::string content;
    const char* section;
    const char* key;
    int size;
    Lookup expected;
  } kCases[] = {
      {"blank after = is kept", "[s]\nkey = value\n", "s", "key", 64, {0, " value"}},
      {"leading blanks", "[s]\n  key=v\n", "s", "key", 64, {0, "v"}},
      {"leading tab", "[s]\n\tkey=v\n", "s", "key", 64, {-1, ""}},
      {"tab before =", "[s]\nkey\t=v\n", "s", "key", 64, {-1, ""}},
      {"longer key", "[s]\nkeyX=a\nkey=b\n", "s", "key", 64, {0, "b"}},
      {"case counts", "[s]\nKEY=a\n[S]\nkey=a\n", "s", "key", 64, {-1, ""}},
      {"CR LF dropped, blanks kept", "[s]\nkey=v  \r\r\n", "s", "key", 64, {0, "v  "}},
      {"inner CR kept", "[s]\nkey=a\rb\r\n", "s", "key", 64, {0, "a\rb"}},
      {"empty value is found", "[s]\nkey=\n", "s", "key", 64, {0, ""}},
      {"no final line feed", "[s]\nkey=v", "s", "key", 64, {0, "v"}},
      {"first duplicate wins", "[s]\nkey=1\nkey=2\n", "s", "key", 64, {0, "1"}},
      {"second section of that name is not searched", "[s]\n[s]\nkey=1\n", "s", "key", 64, {-1, ""}},
      {"not past the section", "[s]\na=1\n[t]\nkey=2\n", "s", "key", 64, {-1, ""}},
      {"any [ ends a section", "[s]\n[\nkey=2\n", "s", "key", 64, {-1, ""}},
      {"= in value", "[s]\nkey==v=\n", "s", "key", 64, {0, "=v="}},
      {"bracketed section", "[s]\nkey=v\n", "[s]", "key", 64, {0, "v"}},
      {"text behind the header", "[s] old\nkey=v\n", "s", "key", 64, {0, "v"}},
      {"header is no prefix of a longer name", "[sx]\nkey=v\n", "s", "key", 64, {-1, ""}},
      {"indented header", " [s]\nkey=v\n", "s", "key", 64, {-1, ""}},
      {"no section: before the first header", "key=v\n[s]\n", nullptr, "key", 64, {0, "v"}},
      {"no section: not after it", "[s]\nkey=v\n", nullptr, "key", 64, {-1, ""}},
      {"longer than size", "[s]\nk=abcdef\n", "s", "k", 4, {0, "abc"}},
      {"one longer than size", "[s]\nk=abcde\n", "s", "k", 4, {0, "abc"}},
      {"exactly size", "[s]\nk=abcd\n", "s", "k", 4, {0, "abcd"}},
      {"size 1", "[s]\nk=ab\n", "s", "k", 1, {0, ""}},
      {"line piece by the small buffer", "[s]\nk=" + kLong + "\n", "s", "k", 512, {0, kLong.substr(0, 509)}},
      {"whole line by the large buffer", "[s]\nk=" + kLong + "\n", "s", "k", 600, {0, kLong}},
      {"cut by the large buffer", "[s]\nk=" + kLong + "\n", "s", "k", 599, {0, kLong.substr(0, 598)}},
      {"piece of a long line is a line", "[s]\n" + std::string(511, 'x') + "k=v\n", "s", "k", 64, {0, "v"}},
      {"NUL ends a value", std::string("[s]\nk=a\0b\r\nl=2\n", 15), "s", "k", 64, {0, "a"}},
      {"NUL hides nothing after it", std::string("[s]\n\0\0\nl=2\n", 11), "s", "l", 64, {0, "2"}},
      {"10,000 characters", "[s]\n" + std::string(10000, '=') + "\nk=v\n", "s", "k", 64, {0, "v"}},
      {"defaults serve a missing key", "[net]\na=1\n", "net", "only_default", 64, {0, "from defaults"}},
      {"defaults serve a missing section", "", "net", "port", 64, {0, "80"}},
      {"defaults are cut alike", "", "net", "only_default", 4, {0, "fro"}},
      {"name of 61 characters",
       "[" + std::string(61, 'n') + "]\nk=v\n",
       "nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn",
       "k",
       64,
       {0, "v"}},
      {"name of 62 characters",
       "[" + std::string(62, 'n') + "]\nk=v\n",
       "nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn",
       "k",
       64,
       {-1, ""}},
  };
  for (const auto& c : kCases) { EXPECT_EQ(look_up(c.section, c.key, c.size, c.content), c.expected) << c.what; }
}

TEST_F(Read, bad_arguments_and_missing_files_fail) {
  char out[65] = "#";
  write_file(kFile, "[net]\nk=v\n");
  FILE* const file = fopen(kFile, "rte");
  EXPECT_EQ(PRO_GetStr("net", nullptr, out, 64, file), -1);
  EXPECT_EQ(PRO_GetStr("net", "k", nullptr, 64, file), -1);
  EXPECT_EQ(PRO_GetStr("net", "k", out, 0, file), -1);
  EXPECT_EQ(PRO_GetStr("net", "k", out, -5, file), -1);
  EXPECT_EQ(PRO_GetInt("net", "k", nullptr, file), -1);
  EXPECT_STREQ(out, "#");
  EXPECT_EQ(PRO_GetStr("net", "port", out, 64, nullptr), 0) << "the defaults alone";
  EXPECT_STREQ(out, "80");
  EXPECT_EQ(PRO_2sect(nullptr, file), 1);
  EXPECT_EQ(PRO_2sect("net", nullptr), 1);

  ASSERT_EQ(rename(kDefaults, "/etc/away"), 0);
  EXPECT_EQ(PRO_GetStr("net", "port", out, 64, file), -1) << "no defaults file";
  ASSERT_EQ(rename("/etc/away", kDefaults), 0);
  fclose(file);
}

TEST_F(Read, numbers_and_characters) {
  const std::string digits(64, '1');
  write_file(kFile, "[n]\na=12abc\nb=-7\nc=x\nd=\ne=" + digits + "\nf= 5\ng=" + std::string(61, '0') +
                        "42\nh=" + std::string(61, '0') + "425\n");
  FILE* const file = fopen(kFile, "rte");
  int number = 99;
  long wide = 99;
  char letter = '#';
  EXPECT_EQ(PRO_GetInt("n", "a", &number, file), 0);
  EXPECT_EQ(number, 12);
  EXPECT_EQ(PRO_GetInt("n", "c", &number, file), 0);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(PRO_GetInt("n", "f", &number, file), 0);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(PRO_GetInt("n", "zz", &number, file), -1);
  EXPECT_EQ(number, 5) << "untouched on failure";
  EXPECT_EQ(PRO_GetLong("n", "b", &wide, file), 0);
  EXPECT_EQ(wide, -7);
  EXPECT_EQ(PRO_GetLong("n", "e", &wide, file), 0) << "a number of the whole buffer";
  EXPECT_EQ(PRO_GetLong("n", "g", &wide, file), 0);
  EXPECT_EQ(wide, 42) << "of 63 characters";
  EXPECT_EQ(PRO_GetLong("n", "h", &wide, file), 0);
  EXPECT_EQ(wide, 4) << "of 64: 62 count";
  EXPECT_EQ(PRO_GetLong("n", "zz", &wide, file), -1);
  EXPECT_EQ(PRO_GetChar("n", "c", &letter, file), 0);
  EXPECT_EQ(letter, 'x');
  EXPECT_EQ(PRO_GetChar("n", "d", &letter, file), 0);
  EXPECT_EQ(letter, '\0');
  fclose(file);
}

TEST_F(Read, finders_leave_the_stream_behind_the_header_and_cut_the_argument) {
  write_file(kFile, "x=1\n[Net] old\na=1\n[net]\nb=2\n");
  FILE* const file = fopen(kFile, "rte");
  char line[64];
  char section[] = "net\nrest";
  EXPECT_EQ(PRO_2sect(section, file), 0);
  EXPECT_STREQ(section, "net");
  ASSERT_NE(fgets(line, sizeof line, file), nullptr);
  EXPECT_STREQ(line, "b=2\n");
  EXPECT_EQ(PRO_i2sect("NET", file), 0);
  ASSERT_NE(fgets(line, sizeof line, file), nullptr);
  EXPECT_STREQ(line, "a=1\n");
  EXPECT_EQ(PRO_2sect("NET", file), 1);
  int number = 0;
  EXPECT_EQ(PRO_GetInt(nullptr, "x", &number, file), 0) << "rewinds without a section, too";
  fclose(file);
}

TEST_F(Write, one_key) {
  const std::string base = "x=0\n[a]\nk=1\nm=2\n[b]\nn=3\n";
  const std::string long_line = "k=" + std::string(10000, 'v') + "\n";
  const struct {
    const char* what;
    int mode;
    std::string before;
    const char* section;
    const char* key;
    const char* value;
    std::string after;
  } kCases[] = {
      {"replaced", 0, base, "a", "k", "9", "x=0\n[a]\nk=9\nm=2\n[b]\nn=3\n"},
      {"inserted before the next section", 0, base, "a", "z", "9", "x=0\n[a]\nk=1\nm=2\nz=9\n[b]\nn=3\n"},
      {"appended to the last section", 0, base, "b", "z", "9", base + "z=9\n"},
      {"section appended", 0, base, "c", "z", "9", base + "[c]\nz=9\n"},
      {"bracketed section appended", 0, base, "[c] d", "z", "9", base + "[c] d\nz=9\n"},
      {"empty file", 0, "", "c", "z", "9", "[c]\nz=9\n"},
      {"only the first duplicate", 0, "[a]\nk=1\nk=2\n", "a", "k", "3", "[a]\nk=3\nk=2\n"},
      {"blanks around the key", 0, "[a]\n  k  = 1\n", "a", "k", "3", "[a]\nk=3\n"},
      {"longer key left alone", 0, "[a]\nkk=1\n", "a", "k", "3", "[a]\nkk=1\nk=3\n"},
      {"empty value", 0, "[a]\nk=1\n", "a", "k", "", "[a]\nk=\n"},
      {"CR LF elsewhere kept", 0, "[a]\r\nk=1\r\nl=2\r\n", "a", "k", "3", "[a]\r\nk=3\nl=2\r\n"},
      {"last line gets its line feed: key", 0, "[a]\nm=2", "a", "k", "3", "[a]\nm=2\nk=3\n"},
      {"last line gets its line feed: header", 0, "[a]", "a", "k", "3", "[a]\nk=3\n"},
      {"last line gets its line feed: section", 0, "x=1", "a", "k", "3", "x=1\n[a]\nk=3\n"},
      {"last line replaced", 0, "[a]\nk=1", "a", "k", "3", "[a]\nk=3\n"},
      {"long line replaced whole", 0, "[a]\n" + long_line + "m=1\n", "a", "k", "3", "[a]\nk=3\nm=1\n"},
      {"long line kept", 0, "[a]\n" + long_line + "m=1\n", "a", "z", "3", "[a]\n" + long_line + "m=1\nz=3\n"},
      {"nothing glued to a piece of a long line", 0, "[a]\n" + std::string(511, 'x') + "[b]\n", "a", "k", "3",
       "[a]\n" + std::string(511, 'x') + "\nk=3\n[b]\n"},
      {"NUL bytes kept", 0, std::string("[a]\ny\0z\n[b]\n", 12), "a", "k", "3",
       std::string("[a]\ny\0z\nk=3\n[b]\n", 16)},
      {"flat: every line", 0, "k=1\nm=2\n[a]\nk=3\n", nullptr, "k", "9", "k=9\nm=2\n[a]\nk=9\n"},
      {"flat: blank behind the key", 0, "k 1\nk\n", nullptr, "k", "9", "k=9\nk\n"},
      {"flat: no leading blanks", 0, " k=1\n", nullptr, "k", "9", " k=1\nk=9\n"},
      {"flat: appended", 0, "m=1", nullptr, "k", "9", "m=1\nk=9\n"},
      {"flat: long line", 0, long_line + "m=1\n", nullptr, "k", "9", "k=9\nm=1\n"},
      {"bare line kept once", 1, "[a]\n k \r\nz\n", "a", "k", nullptr, "[a]\nk\nz\n"},
      {"bare line is no assignment", 1, "[a]\nk=1\n", "a", "k", nullptr, "[a]\nk=1\nk\n"},
      {"bare line, longer", 1, "[a]\nkk\n[b]\n", "a", "k", nullptr, "[a]\nkk\nk\n[b]\n"},
      {"bare line in a new section", 1, "", "a", "k", nullptr, "[a]\nk\n"},
      {"bare line, flat", 1, "k\nkk\nk x\n", nullptr, "k", nullptr, "k\nkk\nk\n"},
      {"prefix", 2, "[a]\nkey: 1\nk=2\n", "a", "k", "9", "[a]\nk=9\nk=2\n"},
      {"prefix, flat: always appended", 2, "k=1\nk 1\n", nullptr, "k", "9", "k=1\nk 1\nk=9\n"},
  };
  for (const auto& c : kCases) {
    write_file(kFile, c.before);
    EXPECT_EQ(PRO_SetStr_In(c.section, c.key, c.value, kFile, c.mode), 0) << c.what;
    EXPECT_EQ(read_file(kFile), c.after) << c.what;
  }
}

TEST_F(Write, without_regard_to_case_the_found_spelling_is_kept) {
  const struct {
    const char* before;
    const char* section;
    const char* after;
  } kCases[] = {
      {"[Net]\nPort = 1\nport=2\n", "nET", "[Net]\nPort=9\nport=2\n"},
      {"[Net]\n[x]\n", "net", "[Net]\npORT=9\n[x]\n"},
      {"[x]\n", "net", "[x]\n[net]\npORT=9\n"},
      {"PORT=1\nport 2\n", nullptr, "PORT=9\nport=9\n"},
  };
  for (const auto& c : kCases) {
    write_file(kFile, c.before);
    EXPECT_EQ(PRO_iSetStr(c.section, "pORT", "9", kFile), 0);
    EXPECT_EQ(read_file(kFile), c.after);
  }
  unlink(kLock);
  EXPECT_EQ(PRO_iSetStr("net", "port", "9", kFile), 0);
  EXPECT_FALSE(exists(kLock)) << "takes no lock";
}

TEST_F(Write, current_values_are_not_written) {
  write_file(kFile, "[net]\nk=v\n");
  struct stat before, after;
  ASSERT_EQ(stat(kFile, &before), 0);
  unlink(kLock);
  EXPECT_EQ(PRO_SetStr("net", "k", "v", kFile), 0);
  EXPECT_EQ(PRO_SetInt("net", "port", 80, kFile), 0) << "equal to the default of a missing key";
  ASSERT_EQ(stat(kFile, &after), 0);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  EXPECT_FALSE(exists(kLock)) << "nothing was written";
  EXPECT_EQ(PRO_SetInt("net", "port", -81, kFile), 0);
  EXPECT_EQ(PRO_SetChar("net", "c", 'x', kFile), 0);
  EXPECT_EQ(read_file(kFile), "[net]\nk=v\nport=-81\nc=x\n");
  const std::string value(509, 'v');  // fills the buffer of the comparison
  EXPECT_EQ(PRO_SetStr("net", "k", value.c_str(), kFile), 0);
  ASSERT_EQ(stat(kFile, &before), 0);
  EXPECT_EQ(PRO_SetStr("net", "k", value.c_str(), kFile), 0);
  ASSERT_EQ(stat(kFile, &after), 0);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  EXPECT_EQ(PRO_SetStr("net", "k", (value + "w").c_str(), kFile), 0);
  EXPECT_EQ(read_file(kFile), "[net]\nk=" + value + "w\nport=-81\nc=x\n");
}

TEST_F(Write, missing_files_are_created_and_bad_targets_refused) {
  EXPECT_EQ(PRO_SetStr("s", "k", "v", kFile), 0);
  EXPECT_EQ(read_file(kFile), "[s]\nk=v\n");
  for (const auto set :
       {+[] { return PRO_SetStr_In("s", "k", "v", kFile, 0); }, +[] { return PRO_iSetStr("s", "k", "v", kFile); }}) {
    unlink(kFile);
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(read_file(kFile), "[s]\nk=v\n");
  }
  const std::string long_path = "/tmp/" + std::string(3000, 'p');
  for (const char* path :
       {"/mnt/none/x.conf", "/mnt/ramdisk/env", long_path.c_str(), static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(PRO_SetStr("s", "k", "v", path), -1);
    EXPECT_EQ(PRO_SetStr_In("s", "k", "v", path, 0), -1);
    EXPECT_EQ(PRO_iSetStr("s", "k", "v", path), -1);
    EXPECT_EQ(PRO_DelSect("s", path), -1);
    EXPECT_EQ(PRO_RenSect("s", "t", path), -1);
  }
  EXPECT_EQ(files_in("/mnt/ramdisk/env", "t").size(), 1u) << "nothing dropped into the directory";
  EXPECT_EQ(PRO_SetStr_In("s", "k", "v", "/proc/self/mem", 0), -1) << "opens, but cannot be read";
  EXPECT_EQ(PRO_SetStr("s", nullptr, "v", kFile), -1);
  EXPECT_EQ(PRO_SetStr("s", "k", nullptr, kFile), -1);
  EXPECT_EQ(PRO_SetStr_In("s", "k", nullptr, kFile, 0), -1);
  EXPECT_EQ(PRO_SetStr(std::string(62, 's').c_str(), "k", "v", kFile), -1);
  EXPECT_EQ(PRO_SetStr(std::string(61, 's').c_str(), "k", "v", kFile), 0);
}

// The limit on file sizes stands in for a full /tmp: the copy cannot be written.
TEST_F(Write, full_disk_keeps_the_old_file) {
  const std::string content = "[s]\nk=1\n[t]\n" + std::string(100000, 'x') + "\n";
  write_file(kFile, content);
  EXPECT_EQ(in_child([] {
              signal(SIGXFSZ, SIG_IGN);
              const struct rlimit limit = {50000, 50000};
              setrlimit(RLIMIT_FSIZE, &limit);
              if (PRO_SetStr("s", "k", "2", kFile) != -1) return 1;
              if (PRO_iSetStr("s", "k", "2", kFile) != -1) return 2;
              if (PRO_RenSect("s", "u", kFile) != -1) return 3;
              return PRO_DelSect("s", kFile) == 0 ? 0 : 4;
            }),
            0);
  EXPECT_EQ(read_file(kFile), content);
  EXPECT_EQ(files_in("/tmp", "t").size() + files_in("/tmp", "u").size(), 0u);
}

TEST_F(Write, waits_for_the_lock_over_signals) {
  write_file(kFile, "[s]\n");
  const int lock = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  struct sigaction action = {};
  action.sa_handler = [](int) {};  // no SA_RESTART: flock comes back with EINTR
  sigaction(SIGUSR1, &action, nullptr);
  const pid_t writer = fork();
  if (writer == 0) _exit(PRO_SetStr("s", "k", "v", kFile) == 0 ? 0 : 1);
  for (int i = 0; i < 5; ++i) {
    usleep(20000);
    kill(writer, i == 0 ? 0 : SIGUSR1);
    EXPECT_EQ(read_file(kFile), "[s]\n");
  }
  EXPECT_EQ(flock(lock, LOCK_UN), 0);
  int status = -1;
  EXPECT_EQ(waitpid(writer, &status, 0), writer);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(read_file(kFile), "[s]\nk=v\n");
  close(lock);
}

TEST_F(Write, goes_on_when_the_lock_holder_dies) {
  const pid_t holder = fork();
  if (holder == 0) {
    const int lock = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (flock(lock, LOCK_EX) == 0) write_file("/tmp/held", "");
    for (;;) pause();
  }
  while (!exists("/tmp/held")) usleep(1000);
  const pid_t writer = fork();
  if (writer == 0) _exit(PRO_SetStr("s", "k", "v", kFile) == 0 ? 0 : 1);
  usleep(50000);
  EXPECT_EQ(read_file(kFile), "") << "created, and waiting";
  kill(holder, SIGKILL);
  int status = -1;
  EXPECT_EQ(waitpid(writer, &status, 0), writer);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(read_file(kFile), "[s]\nk=v\n");
  waitpid(holder, nullptr, 0);
}

TEST_F(Write, eight_processes_lose_nothing) {
  write_file(kFile, "[s]\n");
  constexpr int kKeys = 12;
  EXPECT_TRUE(in_processes(8, [](int process) {
    for (int i = 0; i < kKeys; ++i) {
      char key[32];
      snprintf(key, sizeof key, "k%d_%d", process, i);
      if (PRO_SetInt("s", key, i, kFile) != 0) return 1;
    }
    return 0;
  }));
  FILE* const file = fopen(kFile, "re");
  for (int process = 0; process < 8; ++process) {
    for (int i = 0; i < kKeys; ++i) {
      int value = -1;
      const std::string key = "k" + std::to_string(process) + "_" + std::to_string(i);
      EXPECT_EQ(PRO_GetInt("s", key.c_str(), &value, file), 0) << key;
      EXPECT_EQ(value, i);
    }
  }
  fclose(file);
}

TEST_F(Pass, closing_modes) {
  const struct {
    const char* what;
    int append;
    int how;
    std::string after;
  } kCases[] = {
      {"commit what was written", 1, 0, "a=1\n[s]\nnew\n"},
      {"copy the rest", 1, 1, "a=1\n[s]\nnew\nk=1\n[t]\nl=2\n"},
      {"any other append drops the header", 2, 1, "a=1\nnew\nk=1\n[t]\nl=2\n"},
      {"header dropped", 0, 1, "a=1\nnew\nk=1\n[t]\nl=2\n"},
      {"give up", 1, 2, "a=1\n[s]\nk=1\n[t]\nl=2\n"},
      {"skip the section", 1, 3, "a=1\n[s]\nnew\n[t]\nl=2\n"},
      {"any other mode commits", 1, 7, "a=1\n[s]\nnew\n"},
  };
  for (const auto& c : kCases) {
    write_file(kFile, "a=1\n[s]\nk=1\n[t]\nl=2\n");
    FILE* const out = PRO_uopen(kFile);
    ASSERT_NE(out, nullptr);
    EXPECT_NE(ifp, nullptr);
    EXPECT_EQ(PRO_u2sect("s", c.append), 0) << c.what;
    fputs("new\n", out);
    EXPECT_EQ(PRO_uclose(kFile, -1, c.how), 0);
    EXPECT_EQ(ifp, nullptr);
    EXPECT_EQ(read_file(kFile), c.after) << c.what;
  }
}

TEST_F(Pass, missing_section_and_unfinished_last_line) {
  write_file(kFile, "a=1\n[x]");
  ASSERT_NE(PRO_uopen(kFile), nullptr);
  char section[] = "s\ncut";
  EXPECT_EQ(PRO_u2sect(section, 1), 1);
  EXPECT_STREQ(section, "s");
  EXPECT_EQ(PRO_uclose(kFile, 640, 1), 0);
  EXPECT_EQ(read_file(kFile), "a=1\n[x]\n[s]\n");
  struct stat status;
  ASSERT_EQ(stat(kFile, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(Pass, header_that_ends_the_file_without_a_line_feed_gets_one) {
  write_file(kFile, "a=1\n[x]");
  FILE* const out = PRO_uopen(kFile);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(PRO_u2sect("x", 1), 0);
  fputs("k=v\n", out);
  EXPECT_EQ(PRO_u2sect("y", 1), 1);
  EXPECT_EQ(PRO_uclose(kFile, -1, 1), 0);
  EXPECT_EQ(read_file(kFile), "a=1\n[x]\nk=v\n[y]\n");
}

TEST_F(Pass, misuse_is_harmless) {
  EXPECT_EQ(PRO_u2sect("s", 1), -1);
  EXPECT_EQ(PRO_uclose(kFile, 600, 1), 0);
  EXPECT_FALSE(exists(kFile));
  write_file(kFile, "[s]\n");
  ASSERT_NE(PRO_uopen(kFile), nullptr);
  ASSERT_NE(PRO_uopen(kFile), nullptr) << "the first pass is given up";
  EXPECT_EQ(PRO_u2sect(nullptr, 1), -1);
  EXPECT_EQ(PRO_u2sect(std::string(62, 's').c_str(), 1), -1);
  EXPECT_EQ(PRO_uclose(nullptr, -1, 1), 0);
  EXPECT_EQ(read_file(kFile), "[s]\n");
}

TEST_F(Pass, sections_are_deleted_and_renamed) {
  const std::string content = "[a]\nk=1\n\nl=2\n[b]\nm=3\n";
  write_file(kFile, content);
  chmod(kFile, 0600);
  EXPECT_EQ(PRO_DelSect("none", kFile), 0);
  EXPECT_EQ(PRO_RenSect("none", "x", kFile), -1);
  EXPECT_EQ(PRO_RenSect("a", std::string(62, 'x').c_str(), kFile), -1);
  EXPECT_EQ(PRO_RenSect("a", nullptr, kFile), -1);
  EXPECT_EQ(read_file(kFile), content);
  struct stat status;
  ASSERT_EQ(stat(kFile, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);

  char renamed[] = "new\nrest";
  EXPECT_EQ(PRO_RenSect("a", renamed, kFile), 0);
  EXPECT_STREQ(renamed, "new");
  EXPECT_EQ(read_file(kFile), "[new]\nk=1\n\nl=2\n[b]\nm=3\n");
  EXPECT_EQ(PRO_RenSect("[b]", "[c]", kFile), 0);
  ASSERT_EQ(stat(kFile, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u) << "renaming changes no permissions";
  EXPECT_EQ(PRO_DelSect("new", kFile), 0);
  EXPECT_EQ(read_file(kFile), "[c]\nm=3\n");
  ASSERT_EQ(stat(kFile, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0666u);
  EXPECT_EQ(PRO_DelSect("c", kFile), 0);
  EXPECT_EQ(read_file(kFile), "") << "the last section";
}

TEST_F(Catalogue, messages_by_index) {
  constexpr char kMessages[] = "/tmp/messages";
  const std::string text128(128, 'a'), text129(129, 'b');
  write_file(kMessages, "[m]\n3=three\n4=" + text128 + "\nno equals\nx5=" + text129 + "\r\n[n]\n6=six\n" +
                            "7=seven\n\n8=eight\n[o]\n9=" + text129 + "\n10=ten\n\r\n11=eleven\n");
  char out[6][256];
  memset(out, '#', sizeof out);
  EXPECT_EQ(PRO_GetMsgByIndex("m", 3, 5, out, kMessages), 3);
  EXPECT_STREQ(out[0], "three");
  EXPECT_EQ(out[1], text128);
  EXPECT_EQ(out[2], text129.substr(0, 127)) << "keys of the lines that follow do not matter";
  EXPECT_EQ(out[3][0], '#');
  EXPECT_EQ(out[1][129], '#');
  EXPECT_EQ(PRO_GetMsgByIndex("m", 3, 1, out, kMessages), 1);
  EXPECT_EQ(PRO_GetMsgByIndex("m", 3, 0, out, kMessages), 1) << "at least one";
  EXPECT_EQ(PRO_GetMsgByIndex("n", 6, 6, out, kMessages), 2) << "an empty line ends them";
  EXPECT_EQ(PRO_GetMsgByIndex("o", 9, 6, out, kMessages), 2) << "so does one of CR LF";
  EXPECT_EQ(out[0], text129.substr(0, 127)) << "the first is cut, too";
  EXPECT_EQ(PRO_GetMsgByIndex("n", 6, 6, out, "/tmp/none"), -1);
  EXPECT_EQ(PRO_GetMsgByIndex("n", 6, 6, nullptr, kMessages), -1);
  EXPECT_EQ(in_child([&] {  // in a process of its own, which the open catalogue ends with
              const size_t before = open_descriptors();
              if (PRO_GetMsgByIndex("m", 9, 5, out, kMessages) != -1) return 1;
              return open_descriptors() == before + 1 ? 0 : 2;
            }),
            0);
}

TEST_F(Catalogue, totals_and_error_texts) {
  const std::string saved = read_file("/usr/local/www/adm/cgi_msg");
  const std::string saved_messages = read_file("/share/message.txt");
  write_file("/share/message.txt", "[m]\ntotal=17\n0=x\n");
  EXPECT_EQ(PRO_GetMsgSize("m"), 17);
  EXPECT_EQ(PRO_GetMsgSize("none"), 0);
  char first[1][256];
  EXPECT_EQ(PRO_GetMsgByIndex("m", 0, 1, first, nullptr), 1) << "the default catalogue";
  unlink("/share/message.txt");
  EXPECT_EQ(PRO_GetMsgSize("m"), 0);
  write_file("/share/message.txt", saved_messages);

  const std::string text256(256, 'e');
  write_file("/usr/local/www/adm/cgi_msg", "[e]\n-3=bad name\n4=\n5=" + text256 + "\n6=50%s\n");
  char out[300];
  const auto message = [&](int code, int size) {
    memset(out, '#', sizeof out);
    GetErrMsg2("e", code, out, size);
    return std::string(out, strnlen(out, sizeof out));
  };
  EXPECT_EQ(message(-3, 100), "bad name");
  EXPECT_EQ(message(-3, 5), "bad ");
  EXPECT_EQ(message(5, 300), text256) << "a text of exactly the limit";
  EXPECT_EQ(message(6, 300), "50%s");
  EXPECT_EQ(message(4, 3), "Unknown Error") << "whatever the size";
  EXPECT_EQ(message(7, 3), "Unknown Error");
  GetErrMsg2("e", 7, nullptr, 3);
  unlink("/usr/local/www/adm/cgi_msg");
  EXPECT_EQ(message(-3, 3), "Can't find file /usr/local/www/adm/cgi_msg, Unknown Error");
  write_file("/usr/local/www/adm/cgi_msg", saved);
}

TEST_F(Write, thousand_rounds_keep_nothing) {
  write_file(kFile, "[s]\nk=1\n[t]\n");
  char out[601];
  int number = 0;
  expect_nothing_kept("readers", [&] {
    FILE* const file = fopen(kFile, "re");
    PRO_GetStr("s", "k", out, 600, file);
    PRO_GetInt("none", "none", &number, file);
    PRO_i2sect("S", file);
    fclose(file);
    PRO_GetMsgSize("none");
    GetErrMsg2("none", 1, out, 100);
  });
  expect_nothing_kept("failing writers", [&] {
    PRO_SetStr("s", "k", "1", kFile);
    PRO_SetStr("s", "k", "2", "/mnt/none/file");
    PRO_uopen(kFile);
    PRO_u2sect("t", 1);
    PRO_uclose(kFile, -1, 2);
    PRO_DelSect("none", kFile);
  });
  expect_nothing_kept(
      "writers", [&] { PRO_SetInt("s", "k", ++number, kFile); }, 50);
}

}  // namespace
