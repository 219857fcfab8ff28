#include "sdcard/mac_address.h"

#include <stdlib.h>

#include "base/line_reader.h"
#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/text.h"
#include "base/unique_dir.h"
#include "base/unique_file.h"

namespace kt {
namespace {

constexpr long kEthernet = 1;  // ARPHRD_ETHER

using Value = char[32];

// Reads one line that the system tells about an interface; empty when it does not.
void read_attribute(const char* interface, const char* attribute, Value& value) {
  StringBuffer<511> path;
  path.append_format("%s/%s/%s", paths::kNetworkInterfaces, interface, attribute);
  const unique_file file = open_file(path.c_str(), "re");
  value[0] = '\0';
  if (file.ok()) (void)read_line(file.get(), value, sizeof value);  // then it is empty
}

long read_number(const char* interface, const char* attribute) {
  Value value;
  read_attribute(interface, attribute, value);
  return strtol(value, nullptr, 10);
}

// "02:fc:00:00:00:01"
[[nodiscard]] bool parse(const char* text, unsigned char (&mac)[kMacBytes]) {
  for (size_t i = 0; i < kMacBytes; ++i) {
    char* end = nullptr;
    const unsigned long byte = strtoul(text, &end, 16);
    const char follows = i + 1 < kMacBytes ? ':' : '\n';
    if (end != text + 2 || byte > 0xFF || *end != follows) return false;
    mac[i] = static_cast<unsigned char>(byte);
    text = end + 1;
  }
  return true;
}

}  // namespace

bool get_mac_address(unsigned char (&mac)[kMacBytes]) {
  unique_dir interfaces(paths::kNetworkInterfaces);
  long lowest = 0;
  bool found = false;
  while (const char* const name = interfaces.next()) {
    if (read_number(name, "type") != kEthernet) continue;  // the loopback is of another type
    const long index = read_number(name, "ifindex");
    if (index < 1 || (lowest != 0 && index > lowest)) continue;
    Value address;
    read_attribute(name, "address", address);
    found = parse(address, mac);
    lowest = index;
  }
  return found;
}

bool transcode_mac_to_string_by_separator(const unsigned char (&mac)[kMacBytes], char separator,
                                          char* out, size_t size) {
  StringBuffer<3 * kMacBytes> text;
  for (size_t i = 0; i < kMacBytes; ++i) {
    if (i != 0 && separator != '\0') text.append({&separator, 1});
    text.append_format("%02x", mac[i]);
  }
  if (text.size() >= size) return false;
  copy_cut(out, size, text.view());
  return true;
}

}  // namespace kt
