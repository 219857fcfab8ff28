// block_writer.h - bytes on their way into an MTD device, one erase block at a
// time.
//
// A chip takes bytes only as whole pages into erased blocks. A BlockWriter holds
// the erase block that its descriptor writes to in memory, until the descriptor
// writes to another one or is closed, so that a block written in many pieces is
// erased once. Process-wide state: the list of writers in block_writer.cpp.
#ifndef KTCOMM_FLASH_BLOCK_WRITER_H
#define KTCOMM_FLASH_BLOCK_WRITER_H

#include <sys/types.h>

#include <optional>

namespace kt {

// What a chip is made of, in bytes.
struct ChipGeometry {
  unsigned size;
  unsigned block_size;
  unsigned page_size;
};

// Asks the device, without a trace; nothing for a file that is not an MTD device
// or is one without erase blocks.
[[nodiscard]] std::optional<ChipGeometry> chip_geometry(int fd);

class BlockWriter {
 public:
  BlockWriter(const BlockWriter&) = delete;
  BlockWriter& operator=(const BlockWriter&) = delete;

  // The writer of a descriptor; null when it has none. One left behind by a
  // descriptor that was closed by other means, or by the parent process, is no
  // writer of this descriptor and disappears.
  [[nodiscard]] static BlockWriter* find(int fd);

  // A new writer for a descriptor that has none; null with errno when it is not
  // open to both reading and writing, or when there is no memory.
  [[nodiscard]] static BlockWriter* create(int fd, const ChipGeometry& geometry);

  // Forgets the writer of a descriptor, if any, with what it holds.
  static void forget(int fd);

  // Puts what the descriptor's writer holds, if any, into the chip; false
  // when bytes were lost, now or earlier.
  [[nodiscard]] static bool flush_of(int fd);

  // Replaces `length` bytes from `position` on by `data`, or by erased bytes
  // when `data` is null. The range lies within the chip. Returns how many bytes,
  // counted from the front, are in the chip or held; with errno when not all are.
  [[nodiscard]] unsigned put(unsigned position, const unsigned char* data, unsigned length);

  // Puts the block held into the chip. When that fails its bytes are lost, and
  // nothing can be put any more. False, with errno, when bytes were lost, now or
  // earlier.
  [[nodiscard]] bool flush();

  // Replaces those of `count` bytes read at `position` that are held here.
  void overlay(off_t position, unsigned char* bytes, size_t count) const;

  [[nodiscard]] const ChipGeometry& geometry() const { return geometry_; }

 private:
  // Tells whether a descriptor still is what it was.
  struct Identity {
    pid_t process;
    dev_t device;
    ino_t inode;
    dev_t special;
    bool operator==(const Identity&) const = default;
  };

  BlockWriter(int fd, const Identity& identity, const ChipGeometry& geometry)
      : fd_(fd), identity_(identity), geometry_(geometry) {}

  static Identity identify(int fd);
  static BlockWriter** link_to(int fd);
  static void drop(BlockWriter** link);

  // The block held; its memory lies behind the object.
  [[nodiscard]] unsigned char* content() { return reinterpret_cast<unsigned char*>(this + 1); }
  [[nodiscard]] const unsigned char* content() const {
    return reinterpret_cast<const unsigned char*>(this + 1);
  }

  [[nodiscard]] bool load(unsigned start);
  [[nodiscard]] bool differs_from_chip() const;
  [[nodiscard]] bool erase() const;
  [[nodiscard]] bool program() const;

  BlockWriter* next_ = nullptr;
  int fd_;
  Identity identity_;
  ChipGeometry geometry_;
  bool holding_ = false;  // the block at start_
  bool failed_ = false;   // bytes were lost
  unsigned start_ = 0;
};

}  // namespace kt

#endif
