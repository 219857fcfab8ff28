// Accounts and permissions in the settings.
//
// Input: the texts of the permissions, then of the accounts from user1 on, one a line.
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "ktcomm/settings.h"

using namespace kt::fuzz;

namespace {

constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf";

struct Account {
  bool fits = true;
  std::string name, password;
};

Account account_of(const std::string& entry) {
  const size_t comma = std::min(entry.find(','), entry.size());
  const Account account = {true, entry.substr(0, comma), entry.substr(std::min(comma + 1, entry.size()))};
  const bool fits =
      account.name.size() <= 32 && account.password.size() <= 64 && (entry.empty() || !account.name.empty());
  return fits ? account : Account{false, "", ""};
}

bool is_good(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != ',' && c != ';'; });
}

std::string padded(std::string text, size_t size) { return text.resize(size), text; }

void judge_entry(const std::string& entry) {
  Text text(entry);
  std::vector<char> name(KT_USER_NAME_SIZE, '#'), password(KT_USER_PASSWORD_SIZE, '#');
  const Account account = account_of(text.str());
  const int wanted = !account.fits || !is_good(account.name) ? 1 : is_good(account.password) ? 0 : 2;
  if (text.is_null()) return;
  expect_same("an account is valid", check_user_data(text.get(), name.data(), password.data()), wanted);
  expect_same("name", std::string(name.begin(), name.end()), padded(account.name, name.size()));
  expect_same("password", std::string(password.begin(), password.end()), padded(account.password, password.size()));
}

std::string without_end(std::string line) { return line.resize(line.find_last_not_of("\r\n") + 1), line; }

// The value that is stored for an account: a text of more than 98 characters counts as 97.
std::string stored(const std::string& line) {
  const std::string entry = without_end(up_to_nul(line.substr(0, line.find('\n'))));
  return entry.size() > 98 ? without_end(entry.substr(0, 97)) : entry;
}

void judge_accounts(const std::vector<Account>& accounts) {
  UserConf conf = {};
  expect_same("accounts are read", ReadUserConf(&conf), 0);
  for (size_t i = 0; i < KT_USERS; ++i) {
    const Account account = i < accounts.size() ? accounts[i] : Account();
    expect_same("name", std::string(conf.users[i].name, KT_USER_NAME_SIZE), padded(account.name, KT_USER_NAME_SIZE));
    expect_same("password", std::string(conf.users[i].password, KT_USER_PASSWORD_SIZE),
                padded(account.password, KT_USER_PASSWORD_SIZE));
  }
  UserConf again = {};
  expect_same("accounts are saved", SaveUserConf(&conf), 0);
  expect_same("accounts are read again", ReadUserConf(&again), 0);
  const bool same = memcmp(&conf, &again, sizeof conf) == 0;
  // One that lost its end on the way into the record cannot come back otherwise.
  expect(same, "accounts come back");
}

// As the format "%d,%s" takes numbers off the front, nineteen times, and "%d" the last.
unsigned mask_of(const std::string& text) {
  unsigned mask = 0;
  int number = 0;
  std::string rest = text;
  for (unsigned slot = 0; slot < KT_USERS; ++slot) {
    char tail[200] = "";
    const std::string from = rest;
    if (sscanf(from.c_str(), "%d,%199s", &number, tail) == 2) rest = tail;
    mask |= static_cast<unsigned>(number) << slot;
  }
  return mask;
}

bool has_huge_number(const std::string& text) {
  size_t digits = 0, longest = 0;
  for (const char c : text) longest = std::max(longest, digits = c >= '0' && c <= '9' ? digits + 1 : 0);
  return longest > 9;
}

void judge_permissions(const std::string& text) {
  const std::string cut = text.size() > 50 ? text.substr(0, 49) : text;
  unsigned mask = 4711, again = 4711;
  expect_same("permissions are read", ReadAllUserPTPerm(&mask), 0);
  if (!has_huge_number(cut)) expect_same("permissions", mask, mask_of(cut));
  expect_same("permissions are written", SetAllUserPTPerm(&mask) + ReadAllUserPTPerm(&again), 0);
  expect_same("permissions come back", again, mask & 0xFFFFF);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const std::string permissions = stored(input.line());
  std::string settings = "[USER]\nlogin_check=0\npt_ctrl=" + permissions + "\n";
  std::vector<Account> accounts;
  bool all_fit = true;
  for (const std::string& line : pieces_of(input.rest().substr(0, 4000))) {
    judge_entry(line);
    if (accounts.size() == KT_USERS) break;
    settings += "user" + std::to_string(accounts.size() + 1) + "=" + stored(line) + "\n";
    accounts.push_back(account_of(stored(line)));
    all_fit = all_fit && accounts.back().fits;
  }
  for (size_t i = accounts.size(); i < KT_USERS; ++i) settings += "user" + std::to_string(i + 1) + "=\n";
  write_file("/etc/def_sys.conf", "");
  write_file(kSettings, settings);
  judge_permissions(permissions);
  if (all_fit) judge_accounts(accounts);  // others leave a stream open each time
  return 0;
}
