#include "tools/flash_partition.h"

#include <string.h>

#include "base/io.h"

namespace kt::tools {

FlashPartition::FlashPartition(const char* path) : fd_(open_fd(path, O_RDONLY)) {
  if (!fd_.ok()) return;
  constexpr unsigned kNoAnswer = static_cast<unsigned>(-2);
  kind_ = kt_flash_get_logical_size(fd_.get()) == kNoAnswer ? Kind::kFile : Kind::kMtd;
  if (kind_ == Kind::kMtd) {
    known_ = kt_flash_get_mtdinfo(fd_.get(), &geometry_) == 0;
    size_ = geometry_.size;
  } else {
    size_ = ::lseek(fd_.get(), 0, SEEK_END);
  }
  read_areas();
}

bool FlashPartition::find_bad_block(unsigned& offset) const {
  while (geometry_.erasesize != 0 && offset < geometry_.size) {
    if (is_a_bad_block(fd_.get(), offset) == 1) return true;
    if (geometry_.size - offset <= geometry_.erasesize) return false;
    offset += geometry_.erasesize;
  }
  return false;
}

std::span<const flash_area_entry> FlashPartition::areas() const {
  return {entries_.get(), area_count_};
}

bool FlashPartition::has_erased_table() const {
  unsigned char head[22];  // digest and the words in front of the entries
  const int offset = get_area_table_offset(fd_.get());
  if (offset < 0 || !pread_fully(fd_.get(), head, sizeof head, offset)) return true;
  for (const unsigned char byte : head) {
    if (byte != 0xFF) return false;
  }
  return true;
}

void FlashPartition::read_areas() {
  constexpr int kWrongDigest = -3;
  if (has_erased_table()) return;
  flash_area_table table = {};
  const int result = get_area_table(fd_.get(), &table);
  if (result == kWrongDigest) area_state_ = Areas::kWrong;
  if (result != 0) return;
  area_state_ = Areas::kRight;
  entries_.reset(table.entries);
  area_count_ = table.count;
}

}  // namespace kt::tools
