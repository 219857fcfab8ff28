// nand_double.h - flash chips for the tests, played over plain files, and the
// power cut.
//
// The double defines `ioctl`, `write` and `pwrite` in the test program, in place
// of the C library's, for the shared library too. Descriptors of an inserted file
// then behave as an MTD device does:
// - a write starts on a page, covers whole pages (else EINVAL) and finds them
//   erased (else EIO and a breach); bits are only ever cleared
// - MEMERASE takes whole, aligned blocks; MEMGETINFO and MEMGETBADBLOCK answer
// - a block whose erasing was cut off must be erased before it is programmed
// The cells are the bytes of the file: they outlive a killed process, and
// plain reads see them. Everything else lies in memory shared with forked
// children: a child may do the writing, and the parent ask afterwards.
#ifndef KTCOMM_TESTS_NAND_DOUBLE_H
#define KTCOMM_TESTS_NAND_DOUBLE_H

#include <string>

namespace kt::test::nand {

enum class Kind {
  nand,
  plain,  // stays a plain file: its writes are only counted and cut off
};

struct Shape {
  unsigned blocks = 16;  // 128 at most
  unsigned block_size = 131072;
  unsigned page_size = 2048;
  unsigned spare_size = 64;
  [[nodiscard]] unsigned size() const { return blocks * block_size; }
};

// Makes the file at `path` a device of erased bytes (0xFF), creating it where
// missing; four at most. A path may be inserted again. Counts start at 0.
void insert(const char* path, Kind kind = Kind::nand, const Shape& shape = {});

// Takes all devices out, cut and faults too; the files stay.
void take_out();

// The bytes of the device, to be looked at or spoilt.
unsigned char* cells(const char* path);

// What a block, or the whole device, has gone through; a write to a plain file counts
// as a program of its first block.
struct Counts {
  unsigned erases = 0;
  unsigned programs = 0;
  bool operator==(const Counts&) const = default;
};
Counts counts(const char* path, unsigned block);
Counts counts(const char* path);
void reset_counts();

// The last one stores a wrong byte and reports success.
enum class Fault { none, marked_bad, erase_fails, program_fails, programs_wrong };
void set_fault(const char* path, unsigned block, Fault fault);

// The first rule that was broken on any device, in words; empty when none was.
std::string breach();

// Operations (a block erased, a page programmed, a write to a plain device)
// since the last cut_at or reset_counts.
unsigned operations();

// Lets the power go at operation number `n`, counted from 1, from now: the process
// that does it ends with kCutExit before it, or with the operation half done. 0
// for never. To prove something safe, cut a forked child at 1, 2, 3 and so on
// until it comes through.
enum class Cut { before, middle };
inline constexpr int kCutExit = 86;
void cut_at(unsigned n, Cut how = Cut::before);

}  // namespace kt::test::nand

#endif
