#include <limits.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/paths.h"
#include "base/shell.h"
#include "base/unique_file.h"
#include "settings/account.h"

namespace kt {
namespace {

enum : int { kBadArgument = -1, kNotWritten = -2 };

constexpr char kPanTilt[] = "pt_ctrl";
constexpr char kAdmin[] = "adm_ctrl";
constexpr char kIo[] = "io_ctrl";
constexpr char kAudioIn[] = "audio_in_ctrl";
constexpr char kAudioOut[] = "audio_out_ctrl";

constexpr size_t kTextLimit = 50;
constexpr char kWhiteSpace[] = " \t\n\v\f\r";

// Takes a number off the front of `text`, which then begins behind the number's
// comma and ends before the next white space. Where there is no number, or no comma
// behind it, `text` stays: the number repeats from there on.
void take_number(char*& text, unsigned& number) {
  char* end;
  const long value = strtol(text, &end, 10);
  if (end == text) return;
  number = static_cast<unsigned>(std::clamp<long>(value, INT_MIN, INT_MAX));
  if (*end != ',') return;
  text = end + 1 + strspn(end + 1, kWhiteSpace);
  text[strcspn(text, kWhiteSpace)] = '\0';
}

unsigned parse_flags(char* text) {
  unsigned mask = 0;
  unsigned number = 0;
  for (unsigned slot = 0; slot < KT_USERS; ++slot) {
    take_number(text, number);
    mask |= number << slot;
  }
  return mask;
}

unsigned read_flags(const char* key) {
  const unique_file settings = open_file(paths::kSettings, "r+e");
  if (!settings.ok()) return 0;
  char text[kTextLimit + 1];
  (void)kUserSection.read_value(key, text, settings.get());  // missing: no flags
  return parse_flags(text);
}

// A flag that could not be written is not reported: the program that uses it is
// told in any case.
void write_flags(const char* key, unsigned mask) {
  char text[2 * KT_USERS];
  for (size_t slot = 0; slot < KT_USERS; ++slot) {
    text[2 * slot] = (mask >> slot & 1) != 0 ? '1' : '0';
    text[2 * slot + 1] = ',';
  }
  text[sizeof text - 1] = '\0';
  (void)kUserSection.write_text(key, text);
  (void)run_shell("%s >/dev/null 2>/dev/null", paths::kAuth);
}

int read_permission(const char* key, unsigned* mask) {
  if (mask == nullptr) return kBadArgument;
  if (perm_match(KT_PERM_READ, key, mask) != 0) *mask = 0;
  return 0;
}

int write_permission(const char* key, const unsigned* mask) {
  if (mask == nullptr) return kNotWritten;
  unsigned flags = *mask;
  return perm_match(KT_PERM_WRITE, key, &flags) == 0 ? 0 : kNotWritten;
}

}  // namespace
}  // namespace kt

using namespace kt;

int perm_match(int direction, const char* key, unsigned* mask) {
  if (key == nullptr || mask == nullptr) return kBadArgument;
  if (direction == KT_PERM_WRITE) {
    write_flags(key, *mask);
  } else {
    *mask = read_flags(key);
  }
  return 0;
}

int ReadAllUserPTPerm(unsigned* mask) {
  return read_permission(kPanTilt, mask);
}

int ReadAllUserAdminPerm(unsigned* mask) {
  return read_permission(kAdmin, mask);
}

int ReadAllUserIOPerm(unsigned* mask) {
  return read_permission(kIo, mask);
}

int ReadAllUserAudioInPerm(unsigned* mask) {
  return read_permission(kAudioIn, mask);
}

int ReadAllUserAudioOutPerm(unsigned* mask) {
  return read_permission(kAudioOut, mask);
}

int SetAllUserPTPerm(const unsigned* mask) {
  return write_permission(kPanTilt, mask);
}

int SetAllUserAdminPerm(const unsigned* mask) {
  return write_permission(kAdmin, mask);
}

int SetAllUserIOPerm(const unsigned* mask) {
  return write_permission(kIo, mask);
}

int SetAllUserAudioInPerm(const unsigned* mask) {
  return write_permission(kAudioIn, mask);
}

int SetAllUserAudioOutPerm(const unsigned* mask) {
  return write_permission(kAudioOut, mask);
}
