/* flash.h - flash partitions: the MTD devices themselves, handles with a write
 * lock, the store's writers, the area table, and the settings kept in flash.
 *
 * Shared rules:
 * - Sizes and offsets are in bytes from the start of the partition; all integers
 *   in flash are little-endian.
 * - Failures are traced at level 4, progress at level 8, module 8, sub-log 0.
 * - Descriptor 0 is never handed out, and refused where "a descriptor below 1"
 *   is named.
 * - Outputs are left untouched on failure unless said otherwise. */
#ifndef KTCOMM_FLASH_H
#define KTCOMM_FLASH_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

struct mtd_info_user; /* <mtd/mtd-user.h> */

/* ---- MTD devices ------------------------------------------------------ */

/* These take a descriptor that the caller opened and never open, seek or close
 * it. They know nothing of what flash_write holds back. */

/* Fills `info` with the geometry of the device and tells whether it is a NAND
 * device of a supported kind: page and spare area of 256 and 8, 512 and 16, 2048
 * and 64 or 4096 and 128 bytes. `info` is filled also when the kind is refused.
 * Returns 0; -1 for a descriptor below 1, a null `info`, a device that does not
 * answer, or a refused kind. */
KT_EXPORT int kt_flash_get_mtdinfo(int fd, struct mtd_info_user *info);

/* One number of the geometry: `which` 0 = spare bytes of a page, 1 = bytes of a
 * page, 2 = bytes of an erase block; 0 for any other `which`.
 * Returns -1 when the device does not answer. */
KT_EXPORT int kt_flash_mtdinfo(int fd, int which);

/* The size of the partition in bytes. Returns -2 as an unsigned number
 * (4294967294) when the device does not answer, which is not traced. */
KT_EXPORT unsigned kt_flash_get_logical_size(int fd);

/* Whether the erase block at `offset` is marked bad: 1 = bad, 0 = good, -1 =
 * the device could not tell. */
KT_EXPORT int is_a_bad_block(int fd, long long offset);

/* Moves exactly `len` bytes at the current position. A transfer refused with
 * EAGAIN is tried once more at once; any other error and the end of the file
 * end the call. What was moved by then stays moved, and the position with it.
 * Returns `len`; 0 for a `len` of 0; -1 for a descriptor below 1, a null `buf`,
 * and when fewer bytes were moved. */
KT_EXPORT int read_data_fully(int fd, unsigned char *buf, unsigned len);
KT_EXPORT int write_data_fully(int fd, const unsigned char *buf, unsigned len);

/* Does nothing and returns 0; kept so that older callers still link. */
KT_EXPORT int kt_flash_dump_page(void);

/* ---- Handles ---------------------------------------------------------- */

/* Opens a partition; `flags` are those of open(2), and close-on-exec is always
 * added. With flags other than 0 (O_RDONLY) the whole device is locked for
 * writing: a second writer in another process fails at once. It is a record lock:
 * it belongs to the process, is no obstacle within it, and ends when the process
 * closes any descriptor of the same device.
 * Returns a descriptor of 1 or above, which flash_close closes; the negative
 * result of open; -2 for a null `path` or when another process holds the lock. */
KT_EXPORT int flash_open(const char *path, int flags);

/* Moves the position as lseek does. Only the low 32 bits of `offset` count:
 * positions beyond 4 GiB cannot be reached.
 * Returns the new position, or -1. */
KT_EXPORT long long flash_lseek(int fd, long long offset, int whence);

/* Reads `count` bytes at the current position, including what flash_write has
 * accepted and not yet put into the chip.
 * Returns `count`; 0 for a `count` of 0, which touches nothing; 2 for everything
 * else, a short read as well as an error: compare the result with `count`. */
KT_EXPORT int flash_read(int fd, void *buf, unsigned count);

/* Writes `count` bytes at the current position and moves it by what it accepted.
 *
 * On an MTD device, which must be open to reading too (flags 2), any offset and
 * length will do: the bytes around are preserved, erase blocks are erased and
 * whole pages programmed as needed. An erase block whose content does not change
 * is left alone, and one that is written in several calls is erased once: the
 * block being written is kept in memory until the descriptor writes to another
 * block or is closed. Until flash_close has returned, a power cut may take the
 * bytes of that block; once it has returned 0, everything is in the chip. One
 * descriptor at a time writes to a device: others, and child processes that
 * inherit this one, see only what is in the chip.
 * A bad block, or one that fails, is not replaced: the write fails there. After
 * a failure to put accepted bytes into the chip every further write to the
 * descriptor fails and flash_close returns -1.
 * Anything but an MTD device is written plainly, at once.
 *
 * Returns the number of bytes accepted, which is below `count` where the
 * partition ends or a block fails, and at most 2147483647; -1 when nothing was accepted for one of
 * these reasons; 0 for a `count` of 0; -2 for a negative descriptor or a null `buf`. */
KT_EXPORT int flash_write(int fd, const unsigned char *buf, unsigned count);

/* Fills `length` bytes from `offset` on with 0xFF. Both are multiples of 65536;
 * `length` is above 0. Bytes of the same erase block outside the range are
 * preserved; a block that is all 0xFF already is not erased again. On return the
 * range is in the chip, with all that flash_write has accepted, and the position
 * is where it was.
 * Returns 0; -2, with nothing changed, for a negative descriptor or a range that
 * is not made of such multiples or not within the partition; -1 when the device
 * fails or a block is bad: the blocks before that one are erased. */
KT_EXPORT int flash_erase(int fd, long long offset, long long length);

/* Puts everything written into the chip, calls sync(), releases the lock and
 * closes the descriptor, also when one of these fails.
 * Returns 0; -1 when bytes accepted by flash_write were lost or close failed; -2
 * for a negative descriptor. */
KT_EXPORT int flash_close(int fd);

/* ---- The area table --------------------------------------------------- */

/* The last 64 KiB of a partition begin with its table of areas; T is their
 * offset. In flash:
 *
 *   T + 0   16 bytes        MD5 of the bytes from T + 16 to the end of the entries
 *   T + 16   2 bytes        head0
 *   T + 18   2 bytes        count
 *   T + 20   2 bytes        head2
 *   T + 22   8 bytes each   the entries: id, attr, offset, reserve_size, used_size
 *
 * The readers take no lock: a table that is just being rewritten fails its
 * digest. They move the position of the descriptor. */

/* One area. Offset and sizes are in area units. An id of 0 ends a built-in table. */
typedef struct flash_area_entry {
  unsigned char id;
  unsigned char attr;
  unsigned short offset;       /* from the start of the partition */
  unsigned short reserve_size; /* room reserved for the area */
  unsigned short used_size;    /* room in use */
} flash_area_entry;

typedef struct flash_area_table {
  unsigned char md5[16];
  unsigned short head0; /* the two heads are the writers' own */
  unsigned short count;
  unsigned short head2;
  struct flash_area_entry *entries; /* `count` of them, from malloc: free() them */
} flash_area_table;

/* The default layout, that of a backup partition, and a list that is zero until
 * a program fills it. */
KT_EXPORT extern struct flash_area_entry def_area_entry[9];
KT_EXPORT extern struct flash_area_entry backup_def_area_entry[6];
KT_EXPORT extern unsigned char def_area_entry_list[8];

/* Moves to the table and returns its offset, T; -1 for a negative descriptor, a
 * device of less than 64 KiB, or a table beyond 2 GiB. */
KT_EXPORT int get_area_table_offset(int fd);

/* Reads and checks the table; on success the caller frees `table->entries`.
 * Returns 0; -1 for a negative descriptor, a null `table`, a table without
 * entries or whose head cannot be read, or without memory; -3 when the digest is
 * wrong, which is also what entries that cannot be read come to. */
KT_EXPORT int get_area_table(int fd, struct flash_area_table *table);

/* The index, from 0, of the first entry with this id; -1 when there is none. */
KT_EXPORT int get_specified_area_idx(int area_id, const struct flash_area_table *table);

/* Reserved minus used units of the entry at `index`, which is not compared with
 * the count: it comes from get_specified_area_idx. The descriptor is only
 * checked. Returns -1 for a negative descriptor or index, or a null `table`. */
KT_EXPORT int get_area_spare_size(int fd, int index, const struct flash_area_table *table);

/* Copies the first entry with this id from the table in flash to `out`.
 * Returns 0; -1 for a negative descriptor, a null `out`, a table that cannot be
 * read, or an unknown id. */
KT_EXPORT int read_specified_area_info(int fd, int area_id, struct flash_area_entry *out);

/* ---- Settings in flash ------------------------------------------------ */

/* The directory /mnt/ramdisk/env is kept as a gzip-compressed tar archive in two
 * partitions, the normal copy (0) in /dev/mtd3 and the backup copy (1) in
 * /dev/mtd4: a header of 24 bytes, then the archive at offset 24.
 *
 * A settings file is valid when it holds nothing but printable ASCII, CR and LF;
 * a NUL byte ends it. `path` names a settings file, normally
 * /mnt/ramdisk/env/system.conf; it reaches the shell, so no blanks and no shell
 * characters. */

/* Restores the directory from the first copy that proves intact, unless a valid
 * /mnt/ramdisk/env/system.conf is already there. The factory defaults of
 * /etc/def_sys.conf are put at `path` when neither copy is intact, when `path` cannot be
 * opened, or when the key "cfg_ver" of section "SYSTEM" differs between `path`
 * and the factory defaults. Takes no lock on the settings except while defaults
 * are copied: it is for start-up.
 * Returns 0 when settings were restored or defaults put in place. When defaults
 * could not be put in place: -1 null `path`, -2 the directory cannot be made, -3
 * the copy failed. */
KT_EXPORT int fl_read_conf(const char *path);

/* Stores the directory in both copies, the backup copy first; a `path` other
 * than /mnt/ramdisk/env/system.conf is copied there before. When system.conf is
 * then missing or not valid, nothing is stored and the directory is restored as
 * by fl_read_conf. A save cut off anywhere leaves the old or the new settings to
 * the next boot; doc/settings-copy.md goes through its steps.
 * Holds an exclusive flock on /tmp/cgi_locker.lock, waiting for it.
 * Returns 0 when the normal copy was stored, whatever became of the backup copy;
 * -1 when the lock fails or system.conf is not valid, and with nothing changed
 * for a null or over-long `path` (1023 characters) or one that is no regular file
 * or cannot be copied; -2 when the normal copy could not be written, or with
 * neither copy touched when the archive does not fit one of them; -3 when the
 * archive could not be made; -4 when its digest could not be computed. */
KT_EXPORT int fl_write_conf(const char *path);

/* The same as fl_write_conf. */
KT_EXPORT int fl_reset_write_conf(const char *path);

/* Stores the directory in one copy, 0 = normal, 1 = backup; for maintenance,
 * without a lock. Writes the line-control file
 * /mnt/ramdisk/env/sys_conf_line.txt first. The header, which makes the copy
 * count, is written only when the other copy already holds the same archive.
 * Returns 0, also when the header was not written for that reason; -1 when
 * there is no directory, system.conf is not valid, the archive cannot be made or
 * does not fit the partition, or the header cannot be written. */
KT_EXPORT int kt_flash_set_env(int copy);

/* The number of line feeds of a file up to its end or its first NUL byte; a last
 * line without one is not counted.
 * Returns -1 for a null `path`, -2 when the file cannot be opened (both said on
 * standard output), -3 when a byte is not valid. */
KT_EXPORT int calc_conf_line_num_and_check_ascii(const char *path);

KT_END_DECLS

#endif
