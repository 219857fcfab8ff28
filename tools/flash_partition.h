// flash_partition.h - what a flash partition is made of: geometry, bad blocks, area
// table. Nothing here prints.
#ifndef KTCOMM_TOOLS_FLASH_PARTITION_H
#define KTCOMM_TOOLS_FLASH_PARTITION_H

#include <ktcomm/flash.h>
#include <mtd/mtd-user.h>

#include <span>

#include "base/unique_fd.h"
#include "base/unique_malloc.h"

namespace kt::tools {

// A partition, open for reading; it locks nothing and writes nothing.
class FlashPartition {
 public:
  enum class Kind { kMissing, kFile, kMtd };
  enum class Areas {
    kNone,   // erased, or a table without entries
    kRight,  // areas() has them
    kWrong,  // a table that is damaged, or something else that stands there
  };

  explicit FlashPartition(const char* path);

  [[nodiscard]] Kind kind() const { return kind_; }
  [[nodiscard]] long long size() const { return size_; }  // in bytes

  // Of an MTD device: its geometry, and whether the library knows such a kind.
  [[nodiscard]] const mtd_info_user& geometry() const { return geometry_; }
  [[nodiscard]] bool known() const { return known_; }

  // Moves `offset` to the first bad block from there on; false when there is none.
  [[nodiscard]] bool find_bad_block(unsigned& offset) const;

  [[nodiscard]] Areas area_state() const { return area_state_; }
  [[nodiscard]] std::span<const flash_area_entry> areas() const;

 private:
  void read_areas();
  [[nodiscard]] bool has_erased_table() const;

  unique_fd fd_;
  Kind kind_ = Kind::kMissing;
  long long size_ = 0;
  mtd_info_user geometry_ = {};
  bool known_ = false;
  Areas area_state_ = Areas::kNone;
  unique_malloc<flash_area_entry[]> entries_;
  size_t area_count_ = 0;
};

}  // namespace kt::tools

#endif
