#include <ktcomm/util_hash.h>

namespace kt {
namespace {

// What one byte makes of the checksum, its low and its high half: the two
// published tables of Modbus.
struct Tables {
  unsigned char low[256];
  unsigned char high[256];
};

constexpr Tables make_tables() {
  constexpr unsigned kPolynomial = 0xA001;
  Tables tables{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    unsigned crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ kPolynomial : crc >> 1;
    tables.low[byte] = static_cast<unsigned char>(crc & 0xFF);
    tables.high[byte] = static_cast<unsigned char>(crc >> 8);
  }
  return tables;
}

constexpr Tables kTables = make_tables();

}  // namespace
}  // namespace kt

unsigned short crc16(const unsigned char* data, unsigned short len) {
  unsigned low = 0xFF;
  unsigned high = 0xFF;
  if (data == nullptr) len = 0;
  for (unsigned i = 0; i < len; ++i) {
    const unsigned index = low ^ data[i];
    low = high ^ kt::kTables.low[index];
    high = kt::kTables.high[index];
  }
  // The low byte goes first on the wire.
  return static_cast<unsigned short>(low << 8 | high);
}
