#include <string.h>

#include "settings/account.h"

namespace kt {
namespace {

enum : int { kValid = 0, kBadName = 1, kBadPassword = 2 };

bool is_account_character(char c) {
  return c >= ' ' && c <= '~' && c != kEntrySeparator && c != ';';
}

}  // namespace

bool parse_user_entry(std::string_view text, UserEntry& entry) {
  entry = {};
  if (text.empty()) return true;
  const size_t separator = text.find(kEntrySeparator);
  const std::string_view name(text.data(), separator < text.size() ? separator : text.size());
  std::string_view password = text;
  password.remove_prefix(separator < text.size() ? separator + 1 : text.size());
  if (name.empty() || name.size() >= sizeof entry.name) return false;
  if (password.size() >= sizeof entry.password) return false;
  copy_cut(entry.name, sizeof entry.name, name);
  copy_cut(entry.password, sizeof entry.password, password);
  return true;
}

bool is_account_text(std::string_view text) {
  for (const char c : text) {
    if (!is_account_character(c)) return false;
  }
  return true;
}

}  // namespace kt

using namespace kt;

int check_user_data(const char* entry, char* name, char* password) {
  if (entry == nullptr || name == nullptr || password == nullptr) return kBadName;
  UserEntry user;
  const bool parsed = parse_user_entry(entry, user);
  memcpy(name, user.name, sizeof user.name);
  memcpy(password, user.password, sizeof user.password);
  if (!parsed || !is_account_text(user.name)) return kBadName;
  return is_account_text(user.password) ? kValid : kBadPassword;
}
