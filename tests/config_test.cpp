// Settings files: reading, writing one key, editing sections, catalogues.
#include <ktcomm/config.h>
#include <limits.h>
#include <sys/resource.h>

#include <tuple>

#include "tests/support.h"

using namespace kt::test;
using namespace std::string_literals;
using std::string, std::to_string, std::tuple;

namespace {

constexpr char kFile[] = "/mnt/ramdisk/env/test.conf", kLock[] = "/tmp/cgi_locker.lock";
constexpr char kMessages[] = "/share/message.txt", kWebMessages[] = "/usr/local/www/adm/cgi_msg";
const string kNone = "(none)", s61(61, 's'), s62(62, 's'), x511(511, 'x'), x600(600, 'x'), z(10000, 'z');

class SettingsFile : public CameraTest {
 protected:
  void SetUp() override {
    write_file(kDefaults, "[net]\nk=default\nport=80\n");
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env; rm -f /mnt/ramdisk/env/*"), 0);
  }
  void TearDown() override {
    CameraTest::TearDown();
    EXPECT_EQ(files_in("/tmp", "t").size() + files_in("/tmp", "u").size(), 0u) << "copies left";
  }
};

void expect_file(const string& content, unsigned mode) {
  struct stat status;
  ASSERT_EQ(stat(kFile, &status), 0);
  EXPECT_EQ(tuple(read_file(kFile), status.st_mode & 07777), tuple(content, mode));
}

// The settings file with this content, open as readers open it.
kt::unique_file opened(const string& content) {
  write_file(kFile, content);
  return kt::open_file(kFile, "rte");
}

// The value of `k` by a buffer checked for bytes written past `size`; kNone without one.
string look_up(const char* section, int size, const string& content) {
  string out(static_cast<size_t>(size) + 9, '#');
  const int result = PRO_GetStr(section, "k", out.data(), size, opened(content).get());
  EXPECT_EQ(out.find_first_not_of('#', result == 0 ? static_cast<size_t>(size) + 1 : 0), out.npos);
  return result == 0 ? out.c_str() : result == -1 ? kNone : "(bad result)";
}

TEST_F(SettingsFile, key_is_looked_up_in_its_section_then_in_the_defaults) {
  const tuple<const char*, const char*, int, string, string> kCases[] = {
      {"other keys are passed over", "s", 64, "[s]\n\tk=a\nk\t=b\nkX=c\nK=d\nj=\n  k = v=\n", " v="},
      {"other headers are passed over", "s", 64, "k=a\n[S]\nk=b\n[sx]\nk=c\n [s]\nk=d\n[s] old\nk=v\n", "v"},
      {"CR and LF go at the end only; bracketed section", "[s]", 64, "[s]\nk=a\rb  \r\r\n", "a\rb  "},
      {"first duplicate wins, even an empty one", "s", 64, "[s]\nk=\nk=2\n", ""},
      {"second section of that name is not searched", "s", 64, "[s]\n[s]\nk=1\n", kNone},
      {"no section, no line feed", nullptr, 64, "k=v", "v"},
      {"no section: up to any [", nullptr, 64, "[\nk=v\n", kNone},
      {"one longer than size", "s", 4, "[s]\nk=abcde\n", "abc"},
      {"exactly size, up to a NUL, which hides nothing", "s", 4, "[s]\n\0\0\nk=abcd\0e\r\n"s, "abcd"},
      {"small buffer: a piece of the line", "s", 512, "[s]\nk=" + x600 + "\n", x600.substr(0, 509)},
      {"large buffer, name of 61 characters", s61.c_str(), 600, "[" + s61 + "]\nk=" + x600 + "\n", x600},
      {"piece of a long line is a line", "s", 64, "[s]\n" + x511 + x511 + "k=v\n", "v"},
      {"piece of a long line is a header", "s", 64, "x[s]\nk=a\n" + x511 + "[s]\nk=v\n", "v"},
      {"defaults serve a missing key", "net", 64, "[net]\nj=1\n", "default"},
      {"defaults serve a missing section, cut alike", "net", 4, "", "def"},
      {"name of 62 characters", s62.c_str(), 64, "[" + s62 + "]\nk=v\n", kNone},
  };
  for (const auto& [what, section, size, content, value] : kCases)
    EXPECT_EQ(look_up(section, size, content), value) << what;
}

TEST_F(SettingsFile, readers_refuse_bad_arguments_and_need_writable_defaults) {
  char out[65] = "#";
  expect_all(-1, {PRO_GetStr("net", nullptr, out, 64, nullptr), PRO_GetStr("net", "k", nullptr, 64, nullptr),
                  PRO_GetStr("net", "k", out, 0, nullptr), PRO_GetInt("net", "k", nullptr, nullptr)});
  chmod(kDefaults, 0444);
  EXPECT_EQ(PRO_GetStr("net", "k", out, 64, nullptr), -1);
  EXPECT_STREQ(out, "#");
  chmod(kDefaults, 0644);
  EXPECT_EQ(PRO_GetStr("net", "k", out, 64, nullptr), 0) << "the defaults alone";
}

TEST_F(SettingsFile, numbers_are_read_from_63_characters_at_most) {
  const string least = to_string(LONG_MIN), zeros(62, '0'), longest = zeros + "5", longer = "0" + longest;
  const tuple<const char*, string, int, long, char> kCases[] = {
      {"k", "12abc", 0, 12, '1'}, {"k", least, 0, LONG_MIN, '-'}, {"k", "", 0, 0, '\0'},
      {"k", longest, 0, 5, '0'},  {"k", longer, 0, 0, '0'},       {"none", "1", -3, 99, '#'}};
  for (const auto& [key, text, result, value, first] : kCases) {
    const kt::unique_file file = opened("[n]\nk=" + text + "\n");
    auto found = tuple(99, 99L, '#');
    auto& [number, wide, letter] = found;
    EXPECT_EQ(result, PRO_GetInt("n", key, &number, file.get()) + PRO_GetLong("n", key, &wide, file.get()) +
                          PRO_GetChar("n", key, &letter, file.get()));
    EXPECT_EQ(found, tuple(static_cast<int>(value), value, first)) << text;
  }
}

TEST_F(SettingsFile, finders_leave_the_stream_behind_the_header_and_cut_the_argument) {
  const kt::unique_file file = opened("x=1\n[Net] old\na=1\n[net]\nb=2\n");
  char section[] = "net\nrest", line[64];
  expect_all(1, {PRO_2sect(nullptr, file.get()), PRO_2sect("net", nullptr), PRO_2sect("NET", file.get())});
  EXPECT_EQ(PRO_2sect(section, file.get()), 0);
  EXPECT_EQ(section + string(fgets(line, sizeof line, file.get())), "netb=2\n");
  EXPECT_EQ(PRO_i2sect("NET", file.get()), 0);
  EXPECT_STREQ(fgets(line, sizeof line, file.get()), "a=1\n");
  EXPECT_EQ(PRO_GetStr(nullptr, "x", line, 9, file.get()), 0) << "rewinds without a section, too";
}

TEST_F(SettingsFile, any_stream_is_looked_through_and_left_behind_the_line_found) {
  string text = "[s]\nk=v\nnext\n";
  const kt::unique_file memory(fmemopen(text.data(), text.size(), "r")), unwritten = kt::open_file(kFile, "w+e");
  EXPECT_TRUE(fputs(text.c_str(), unwritten.get()) >= 0 && ungetc('[', memory.get()) == '[' &&
              fputc('x', memory.get()) == EOF);
  for (FILE* const stream : {memory.get(), unwritten.get()}) {
    char value[9], line[64];
    EXPECT_EQ(PRO_GetStr("s", "k", value, 8, stream), 0);
    EXPECT_EQ(ferror(stream), 0) << "what failed before";
    EXPECT_EQ(value + string(fgets(line, sizeof line, stream)), "vnext\n");
  }
}

TEST_F(SettingsFile, one_key_is_written_to_its_section_or_a_flat_file) {
  enum { kKey, kBare, kOver, kAnyCase };
  const tuple<const char*, const char*, int, string, string> kCases[] = {
      {"first duplicate replaced", "a", kKey, "x=0\n[a]\nj=2\n  k  = 1\nk=2\n[b]\n", "x=0\n[a]\nj=2\nk=9\nk=2\n[b]\n"},
      {"inserted before a header", "a", kKey, "[A]\nk=1\n[a]\nkk=1\nK=1\n[b]\n",
       "[A]\nk=1\n[a]\nkk=1\nK=1\nk=9\n[b]\n"},
      {"bracketed section appended", "[c] d", kKey, "[c]\nk=1", "[c]\nk=1\n[c] d\nk=9\n"},
      {"CR LF and NUL elsewhere kept", "a", kKey, "[a]\r\ny\0z\nk=1\r\nl=2\r\n"s, "[a]\r\ny\0z\nk=9\nl=2\r\n"s},
      {"unfinished header gets its line feed", "a", kKey, "[a]", "[a]\nk=9\n"},
      {"long line replaced whole", "a", kKey, "[a]\nk=" + z, "[a]\nk=9\n"},
      {"long line kept", "a", kKey, "[a]\n" + z + "\nm=1", "[a]\n" + z + "\nm=1\nk=9\n"},
      {"nothing glued to a piece of a long line", "a", kKey, "[a]\n" + x511 + "[b]\n", "[a]\n" + x511 + "\nk=9\n[b]\n"},
      {"flat: every line", nullptr, kKey, "k=" + z + "\nk\nm=2\n[a]\nk 3\n", "k=9\nk\nm=2\n[a]\nk=9\n"},
      {"flat: no leading blanks; appended", nullptr, kKey, " k=1", " k=1\nk=9\n"},
      {"bare line kept once", "a", kBare, "[a]\n k \r\nz\n", "[a]\nk\nz\n"},
      {"bare line found", "a", kBare, "[a]\nk\n", "[a]\nk\n"},
      {"bare line is no assignment, no longer one", "a", kBare, "[a]\nk=1\nkk\n[b]\n", "[a]\nk=1\nkk\nk\n[b]\n"},
      {"bare line, flat", nullptr, kBare, "k\nkk\nk x\n", "k\nkk\nk\n"},
      {"prefix", "a", kOver, "[a]\nkey: 1\nk=2\n", "[a]\nk=9\nk=2\n"},
      {"prefix, flat: always appended", nullptr, kOver, "k=1\nk 1\n", "k=1\nk 1\nk=9\n"},
      {"any case: the found spelling stays", "a", kAnyCase, "[A]\nK = 1\nk=2\n", "[A]\nK=9\nk=2\n"},
      {"any case: the caller's spelling is inserted", "a", kAnyCase, "[A]\n[x]\n", "[A]\nk=9\n[x]\n"},
      {"any case, flat", nullptr, kAnyCase, "K=1\nk 2\n", "K=9\nk=9\n"},
  };
  for (const auto& [what, section, mode, before, after] : kCases) {
    write_file(kFile, before);
    unlink(kLock);
    const int result = mode == kAnyCase ? PRO_iSetStr(section, "k", "9", kFile)
                                        : PRO_SetStr_In(section, "k", mode == kBare ? nullptr : "9", kFile, mode);
    EXPECT_EQ(tuple(result, read_file(kFile), exists(kLock)), tuple(0, after, mode != kAnyCase)) << what;
  }
}

TEST_F(SettingsFile, current_values_are_not_written) {
  const string v509(509, 'v'), v510(510, 'v');  // 509 fill the buffer of the comparison
  const auto written = [](const char* key, const string& value) {
    unlink(kLock);
    return PRO_SetStr("net", key, value.c_str(), kFile) == 0 && exists(kLock);
  };
  write_file(kFile, "[net]\nj=v\n");
  expect_all(0, {written("j", "v"), written("port", "80")});
  expect_all(1, {written("j", ""), written("j", v509), !written("j", v509), written("j", v510)});
  expect_all(0, {PRO_SetInt("net", "port", -81, kFile), PRO_SetChar("net", "c", 'x', kFile)});
  EXPECT_EQ(read_file(kFile), "[net]\nj=" + v510 + "\nport=-81\nc=x\n");
}

TEST_F(SettingsFile, writers_create_missing_files_and_refuse_bad_arguments) {
  const string folder = "/mnt/ramdisk/env", longest = folder + string(1894, '/') + "test.conf", longer = "/" + longest;
  expect_all(0, {PRO_SetStr("s", "k", "v", longest.c_str()), PRO_SetStr(s61.c_str(), "k", "v", kFile)});
  mkfifo("/tmp/pipe", 0600);
  for (const auto path : {"/none/x", "/tmp/pipe", folder.c_str(), longer.c_str(), static_cast<const char*>(nullptr)}) {
    expect_all(-1, {PRO_SetStr("s", "k", "w", path), PRO_SetStr_In("s", "k", "w", path, 0),
                    PRO_iSetStr("s", "k", "w", path), PRO_DelSect("s", path), PRO_RenSect("s", "t", path)});
  }
  expect_all(-1, {PRO_SetStr("s", nullptr, "w", kFile), PRO_SetStr("s", "k", nullptr, kFile),
                  PRO_SetStr_In("s", "k", nullptr, kFile, 0), PRO_SetStr(s62.c_str(), "k", "w", kFile),
                  PRO_SetStr_In("s", "k", "w", "/proc/self/mem", 0)});  // opens, but cannot be read
  EXPECT_EQ(files_in(folder.c_str()), std::vector<string>{"test.conf"});
  expect_file("[s]\nk=v\n[" + s61 + "]\nk=v\n", 0644);
}

// The limit on file sizes stands in for a full /tmp: the copy cannot be written.
TEST_F(SettingsFile, full_disk_keeps_the_old_file) {
  const struct rlimit full = {3, RLIM_INFINITY}, empty = {RLIM_INFINITY, RLIM_INFINITY};
  signal(SIGXFSZ, SIG_IGN);
  for (const string& content : {"[s]\nk=1\n[t]\n"s, "[s]\nk=1\n[t]\n" + z}) {
    write_file(kFile, content);
    setrlimit(RLIMIT_FSIZE, &full);
    expect_all(-1, {PRO_SetStr("s", "k", "2", kFile), PRO_iSetStr("s", "k", "2", kFile), PRO_RenSect("s", "u", kFile)});
    EXPECT_EQ(PRO_DelSect("s", kFile), 0);
    setrlimit(RLIMIT_FSIZE, &empty);
    EXPECT_EQ(read_file(kFile), content);
  }
}

TEST_F(SettingsFile, writer_waits_for_the_lock_over_signals_until_its_holder_is_dead) {
  expect_waits_for_lock(kLock, [] { return PRO_SetStr("s", "k", "v", kFile); });
}

TEST_F(SettingsFile, eight_processes_lose_nothing) {
  EXPECT_TRUE(in_processes(8, [](int process) {
    int failed = 0;
    for (int n = process * 12; n < process * 12 + 12; ++n) failed |= PRO_SetInt("s", to_string(n).c_str(), n, kFile);
    return failed;
  }));
  for (int n = 0; n < 8 * 12; ++n)
    EXPECT_NE(read_file(kFile).find("\n" + to_string(n) + "=" + to_string(n) + "\n"), string::npos);
}

TEST_F(SettingsFile, pass_ends_as_its_closing_mode_says) {
  const tuple<const char*, int, int, string> kCases[] = {
      {"commits what was written", 1, 0, "a=1\n[s]\nnew\n"},
      {"copies the rest", 1, 1, "a=1\n[s]\nnew\nk=1\n[t]\nl=2\n"},
      {"drops the header", 0, 1, "a=1\nnew\nk=1\n[t]\nl=2\n"},
      {"drops the header by any other value", 2, 1, "a=1\nnew\nk=1\n[t]\nl=2\n"},
      {"gives up", 1, 2, "a=1\n[s]\nk=1\n[t]\nl=2\n"},
      {"skips the section", 1, 3, "a=1\n[s]\nnew\n[t]\nl=2\n"},
      {"commits by any other value", 1, 7, "a=1\n[s]\nnew\n"},
  };
  for (const auto& [what, append, how, after] : kCases) {
    write_file(kFile, "a=1\n[s]\nk=1\n[t]\nl=2\n");
    FILE* const out = PRO_uopen(kFile);
    EXPECT_TRUE(ifp != nullptr && PRO_u2sect("s", append) == 0 && fputs("new\n", out) >= 0);
    EXPECT_TRUE(PRO_uclose(kFile, -1, how) == 0 && ifp == nullptr);
    EXPECT_EQ(read_file(kFile), after) << what;
  }
}

TEST_F(SettingsFile, pass_adds_a_missing_section_and_survives_misuse) {
  expect_all(-1, {PRO_u2sect("s", 1), PRO_uclose(kFile, 600, 1) - 1});
  write_file(kFile, "a=1\n[x]");
  EXPECT_TRUE(PRO_uopen("/proc/self/mem") != nullptr && PRO_u2sect("s", 1) == -1 && PRO_uopen(kFile) != nullptr);
  expect_all(-1, {PRO_u2sect(nullptr, 1), PRO_u2sect(s62.c_str(), 1)});
  char section[] = "s\ncut";
  expect_all(0, {PRO_u2sect("x", 1), PRO_u2sect(section, 1) - 1, strcmp(section, "s"), PRO_uclose(kFile, 640, 1)});
  expect_file("a=1\n[x]\n[s]\n", 0640);
  write_file(kFile, "[x]" + x511);
  EXPECT_TRUE(PRO_uopen(kFile) != nullptr && PRO_u2sect("x", 1) == 0 && PRO_u2sect("y", 1) == 1);
  EXPECT_TRUE(PRO_uclose(kFile, -1, 1) == 0 && read_file(kFile) == "[x]" + x511 + "\n[y]\n");
}

TEST_F(SettingsFile, sections_are_deleted_and_renamed) {
  char new_name[] = "new\nrest";
  write_file(kFile, "[a]\nk=1\n\nl=2\n[b]\nm=3\n[d]");
  chmod(kFile, 0600);
  expect_all(-1, {PRO_RenSect("none", "x", kFile), PRO_RenSect("a", s62.c_str(), kFile),
                  PRO_RenSect("a", nullptr, kFile), PRO_DelSect("none", kFile) - 1});
  expect_file("[a]\nk=1\n\nl=2\n[b]\nm=3\n[d]", 0600);
  expect_all(0, {PRO_RenSect("a", new_name, kFile), strcmp(new_name, "new"), PRO_RenSect("[b]", "[c]", kFile)});
  expect_file("[new]\nk=1\n\nl=2\n[c]\nm=3\n[d]", 0600);
  expect_all(0, {PRO_DelSect("new", kFile), PRO_DelSect("d", kFile)});
  expect_file("[c]\nm=3\n", 0666);
}

TEST_F(SettingsFile, messages_are_taken_by_index) {
  const string a128(128, 'a'), b127(127, 'b'), all = "3|c|" + a128 + "|" + b127;
  write_file(kMessages, "[m]\n3=c\n4=" + a128 + "\nno equals\nx5=" + b127 +
                            "bb\r\n[n]\ntotal=17\n6=f\n7=g\n\n8=h\n[o]\n1=a\r\n\r\n2=b\n");
  const tuple<const char*, int, int, string> kCases[] = {
      {"m", 3, 5, all}, {"m", 3, 1, "1|c"}, {"m", 3, 0, "1|c"}, {"n", 6, 6, "2|f|g"}, {"o", 1, 2, "1|a"}};
  char out[6][256];
  for (const auto& [section, first, count, texts] : kCases) {
    memset(out, '#', sizeof out);
    string found = to_string(PRO_GetMsgByIndex(section, first, count, out, nullptr));
    for (const char* slot : out) found += *slot == '#' ? "" : "|"s + slot;
    EXPECT_EQ(found, texts);
  }
  expect_all(-1, {PRO_GetMsgByIndex("m", 3, 1, out, "/tmp/none"), PRO_GetMsgByIndex("m", 3, 1, nullptr, nullptr)});
  const auto leaves_a_catalogue_open = [&out, before = open_descriptors()] {
    return PRO_GetMsgByIndex("m", 9, 5, out, nullptr) == -1 && open_descriptors() == before + 1;
  };
  EXPECT_EQ(in_child(leaves_a_catalogue_open), 1) << "without the first message";
  expect_all(0, {PRO_GetMsgSize("n") - 17, PRO_GetMsgSize("m"), unlink(kMessages), PRO_GetMsgSize("n")});
}

TEST_F(SettingsFile, error_texts_of_the_web_pages) {
  const string e256(256, 'e'), missing = "Can't find file /usr/local/www/adm/cgi_msg, Unknown Error";
  write_file(kWebMessages, "[e]\n-3=bad name\n4=\n5=" + e256 + "\n6=e" + e256 + "\n7=50%s\n");
  const tuple<int, int, string> kCases[] = {{-3, 100, "bad name"},    {-3, 5, "bad "},  {5, 300, e256},
                                            {6, 300, e256.substr(1)}, {7, 300, "50%s"}, {4, 3, "Unknown Error"},
                                            {8, 3, "Unknown Error"},  {0, 3, missing}};
  for (const auto& [code, size, text] : kCases) {
    char out[300];
    if (code == 0) unlink(kWebMessages);
    GetErrMsg2("e", code, out, size);
    EXPECT_EQ(out, text);
  }
  GetErrMsg2("e", 8, nullptr, 3);
}

}  // namespace
