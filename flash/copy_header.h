// copy_header.h - what stands in front of the settings archive in flash.
//
// The layout of a copy is described in doc/settings-copy.md.
#ifndef KTCOMM_FLASH_COPY_HEADER_H
#define KTCOMM_FLASH_COPY_HEADER_H

#include <stddef.h>

#include <bit>

namespace kt {

// At offset 0 of a copy; the archive follows.
struct CopyHeader {
  unsigned short id;
  unsigned short reserved;
  unsigned length;
  unsigned char md5[16];
};
static_assert(offsetof(CopyHeader, id) == 0 && offsetof(CopyHeader, reserved) == 2 &&
              offsetof(CopyHeader, length) == 4 && offsetof(CopyHeader, md5) == 8 &&
              sizeof(CopyHeader) == 24);
static_assert(std::endian::native == std::endian::little, "the record is stored as it is");

inline constexpr unsigned short kCopyId = 0xCCAA;
inline constexpr unsigned kArchiveOffset = sizeof(CopyHeader);

}  // namespace kt

#endif
