// Accounts: users, administrator, permissions, all of them at once.
#include "tests/records_support.h"

using namespace kt::test;

namespace {

using Accounts = Records;
constexpr char kAuth[] = "/usr/local/bin/auth >/dev/null 2>/dev/null\n";
const string n32(32, 'x'), p64(64, 'x');

void store(const string& keys) { write_file(kSettings, "[USER]\n" + keys); }

TEST_F(Accounts, texts_are_checked_and_taken_apart) {
  const std::tuple<int, int, string> kLists[] = {
      // result, that of ReadUsers
      {0, 0, "bob,pw1|bob|bob,|| ~!,~ !|" + n32 + "," + p64},
      {1, -6, ",x|" + n32 + "n|" + n32 + "n,x|" + n32 + "," + p64 + "p|bob," + p64 + "p"},
      {1, 0, "bo;b,x|\x1F,;|b\x7F,x|b\t|b\xE4,x"},
      {2, 0, "bob,x;y|bob,x,y|bob,\t|bob,\xFF"}};
  const int next_descriptor = dup(0);
  close(next_descriptor);
  for (const auto& [result, read_result, entries] : kLists) {
    for_each_of(entries, [&, good = read_result == 0](const string& entry) {
      const size_t comma = std::min(entry.find(','), entry.size());
      string name(entry, 0, good ? comma : 0), password(entry, good ? std::min(comma + 1, entry.size()) : entry.size());
      string out1(34, '#'), out2(66, '#');
      name.resize(33), password.resize(65);
      EXPECT_EQ(check_user_data(entry.c_str(), out1.data(), out2.data()), result) << entry;
      EXPECT_EQ(out1 + out2, name + "#" + password + "#") << entry;
      store("user1=u\nuser2=" + entry + "\nuser3=v\n");
      UserConf conf = {0, 0, 7, {{}, {"x", "x"}, {"x", "x"}}};
      EXPECT_EQ(ReadUsers(0, 3, conf.users) * 10 + ReadUserConf(&conf), read_result / 3 * 31) << entry;
      EXPECT_EQ(string(conf.users[1].name, 98) + conf.users[2].name[0], name + password + "xv"[good]) << entry;
      EXPECT_EQ(conf.reserved, 7);
      if (!good) descriptors_ += 2;  // a stream is left each time
    });
  }
  EXPECT_EQ(fcntl(next_descriptor, F_GETFD), FD_CLOEXEC);
  char out[98];
  EXPECT_EQ(check_user_data(nullptr, out, out) + check_user_data("", nullptr, out) + check_user_data("", out, nullptr),
            3);
}

TEST_F(Accounts, a_later_first_slot_reads_fewer_users) {
  string users = "user1=" + n32 + "," + p64 + "yy\n";  // 99 characters count as 97
  for (int slot = 2; slot <= 20; ++slot) users += "user" + to_string(slot) + "=" + "_abcdefghijklmnopqrst"[slot] + "\n";
  store(users);
  for_each_of(
      "0 20 xbcdefghijklmnopqrst|0 2147483647 xbcdefghijklmnopqrst|0 2 xb|5 10 fghij|9 20 jk|5 5 |10 20 |19 20 |"
      "2147483647 1 |0 0 |-1 1 |0 -1 ",
      [](const string& text) {
        UserEntry out[21] = {};
        char* end;
        const long first = strtol(text.c_str(), &end, 10), count = strtol(end, &end, 10);
        const int result = ReadUsers(static_cast<int>(first), static_cast<int>(count), out);
        EXPECT_EQ(result, first < 0 || count < 0 ? -1 : 0) << text;
        for (const UserEntry& user : out) EXPECT_EQ(user.name[0], *end == '\0' ? '\0' : *++end) << text;
      });
  EXPECT_EQ(ReadUsers(0, 1, nullptr), -1);
}

TEST_F(Accounts, administrator) {
  AdminConf conf, full;
  for (const char* const more : {"0", "", "y", "yy"}) {  // characters beyond the field's
    store(*more == '0' ? "admin_timeout=-1\n" : "admin_name=" + n32 + more + "\nadmin_password=" + p64 + more + "\n");
    EXPECT_EQ(ReadAdminConf(&conf), 0);
    const string expected = *more == '0' ? "administrator,-1" : n32 + "," + p64 + "5";
    EXPECT_EQ(conf.name + string(",") + conf.password + to_string(conf.timeout), expected);
  }
  expect_each_to_be_written({" ~", "p", -1}, {0, 33, 100}, -5, SaveAdminConf);
  for (const char c : {',', ';', '\x1F', '\x7F', '\x80'}) {
    for (const AdminConf& bad : {AdminConf{{'a', c}, "", 0}, {"", {'p', c}, 0}}) EXPECT_EQ(SaveAdminConf(&bad), -1);
  }
  EXPECT_EQ(SaveAdminConf(static_cast<AdminConf*>(memset(&full, 'x', sizeof full))), 0) << "no NULs";
  EXPECT_EQ(outcome(), "[USER]\nadmin_name=" + n32 + "\nadmin_password=" + p64 + "\nadmin_timeout=2021161080\n" +
                           "/usr/local/bin/auth -adm >/dev/null 2>/dev/null\n");
  EXPECT_EQ(ReadAdminConf_in(&conf, kDefaults) + ReadAdminConf_in(&conf, "/tmp/none"), -3);
  EXPECT_EQ(SaveAdminConf(nullptr) + ReadAdminConf_in(&conf, nullptr) + ReadAdminConf(nullptr), -3);
}

TEST_F(Accounts, permission_texts) {
  const string zeros = "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,", ends = "1" + zeros.substr(1) + "1";
  for_each_of("80001 " + ends + "|0 |0 x,1|0 0000|0 " + zeros +
                  "0,1|fffff 1|fffff 1,|fffff 1;0|fffff 1 ,0|fffff 1,,0|" +
                  "fffff 1,-,0|ffffe 0,1,x,0|1 1,0|1  +1,0|5 1, \t0,1,0 ,1|1 1,0, 1|ffffd 1,0,1\v,0|2 2,0|ffffffff "
                  "-1,0|100000 " +
                  zeros + "2|7fffffff 99999999999999999999,0|7fffffff 4294967297,0|80000000 -99999999999999999999,0|" +
                  "80000 " + zeros + "000000000001|0 " + zeros + "0000000000011",  // 50 characters, 51 count as 49
              [](const string& text) {
                store("adm_ctrl=" + text.substr(text.find(' ') + 1) + "\n");
                unsigned mask = 0xEE;
                EXPECT_EQ(ReadAllUserAdminPerm(&mask), 0);
                EXPECT_EQ(mask, strtoul(text.c_str(), nullptr, 16)) << text;
              });
  const std::tuple<int (*)(unsigned*), int (*)(const unsigned*), string> kPermissions[] = {
      {ReadAllUserPTPerm, SetAllUserPTPerm, "pt"},
      {ReadAllUserAdminPerm, SetAllUserAdminPerm, "adm"},
      {ReadAllUserIOPerm, SetAllUserIOPerm, "io"},
      {ReadAllUserAudioInPerm, SetAllUserAudioInPerm, "audio_in"},
      {ReadAllUserAudioOutPerm, SetAllUserAudioOutPerm, "audio_out"}};
  unsigned mask;
  for (const auto& [read, write, key] : kPermissions) {
    SetUp();
    EXPECT_EQ(write(&(mask = 0xFFF80001)), 0) << "what is beyond the users is not written";
    EXPECT_EQ(outcome(), "[USER]\n" + key + "_ctrl=" + ends + "\n" + kAuth);
    EXPECT_EQ(read(&mask) + static_cast<int>(mask), 0x80001);
    chmod(kSettings, 0400);
    EXPECT_EQ(read(&mask) + static_cast<int>(mask), 0) << "must be open to writing";
    EXPECT_EQ(read(nullptr) * 10 + write(nullptr), -12);
  }
  EXPECT_EQ(system("rm -r /mnt/ramdisk/env") + perm_match(KT_PERM_WRITE, "io_ctrl", &mask), 0) << "not reported";
  EXPECT_EQ(g_commands, kAuth + string(kAuth));
  EXPECT_EQ(perm_match(-1, "io_ctrl", nullptr) + perm_match(0, nullptr, &mask), -2);
}

TEST_F(Accounts, all_at_once) {
  UserAllConf conf = {}, again;
  conf.users = {1, 9, 7, {{"bob", "pw1"}, {"", "ignored"}}};
  memset(&conf.users.users[2], 'x', 98);  // no NULs
  conf.audio_in = 2, conf.audio_out = 1, conf.io = 3, conf.admin_rights = 1;
  string expected = "[USER]\nlogin_check=1\nuser1=bob,pw1\nuser2=\nuser3=" + n32 + "," + p64;
  for (int slot = 4; slot <= 20; ++slot) expected += "\nuser" + to_string(slot) + "=";
  const string z = ",0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0\n";
  expected += "\naudio_in_ctrl=0,1" + z + "audio_out_ctrl=1,0" + z + "io_ctrl=1,1" + z;
  EXPECT_EQ(USER_WrAllCfg(&conf), 0);
  EXPECT_EQ(outcome(), expected + "/usr/local/bin/auth -user >/dev/null 2>/dev/null\n" + kAuth + kAuth + kAuth);
  write_file(kSettings, expected + "admin_timeout=9\nadm_ctrl=1,0\npt_ctrl=1\n[Manufacture]\nmax_user=2\n");
  EXPECT_EQ(USER_RdAllCfg(&again) + again.users.login_check + again.users.max_user + again.admin.timeout, 12);
  EXPECT_TRUE(again.audio_in == 2 && again.audio_out == 1 && again.io == 3 && again.admin_rights == 1);
  expect_each_to_be_written(conf, {104, 116, 214, 104 + 12 + 19 * 98}, -4, USER_WrAllCfg);
  store("");
  EXPECT_EQ(ReadUserConf(&again.users) * 100 + again.users.login_check * 10 + again.users.max_user, 20);
  store("user1=,x\n");
  EXPECT_EQ(USER_RdAllCfg(&conf), -2);
  ++descriptors_;  // as ReadUsers leaves it
  unlink(kSettings);
  EXPECT_EQ(USER_RdAllCfg(&conf) * 100 + ReadUserConf(&conf.users) * 10 + ReadUsers(0, 1, conf.users.users), -326);
  EXPECT_EQ(USER_RdAllCfg(nullptr) + USER_WrAllCfg(nullptr) + ReadUserConf(nullptr) + SaveUserConf(nullptr), -4);
}

TEST_F(Accounts, duplicate_names) {
  // Administrator, three users ('-' is none), result.
  for_each_of("root - - - 0|root bob Bob bobb 0|Root root - - 0|root - bob bob 1|root - - root 1|root bob bob - 1",
              [](const string& text) {
                UserAllConf conf = {};
                char* const names[] = {conf.admin.name, conf.users.users[0].name, conf.users.users[1].name,
                                       conf.users.users[19].name};
                sscanf(text.c_str(), "%32s %32s %32s %32s", names[0], names[1], names[2], names[3]);
                for (char* const name : names) *name = *name == '-' ? '\0' : *name;
                EXPECT_EQ(user_dup_check(&conf), text.back() - '0') << text;
              });
  UserAllConf full;
  memset(&full, 'x', sizeof full);   // no NULs
  for (const int last : {32, 31}) {  // the 33rd characters do not count
    for (int i = 0; i < 20; ++i) full.users.users[i].name[last] = static_cast<char>('a' + i);
    EXPECT_EQ(user_dup_check(&full) * 10 + user_dup_check(nullptr), last == 32 ? 9 : -1);
  }
}

}  // namespace
