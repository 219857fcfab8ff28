/* card_help.c - plays the kernel's part in mounting an SD card, which no private
 * camera can do. Loaded into the program that is to see the card:
 *
 *     LD_PRELOAD=/lib/libcard_help.so ktctl sd mount
 *
 * The card is the plain file /dev/mmcblk0. It mounts when it has been formatted;
 * its size is what its boot sector says, and files go to the folder /mnt/mmc as
 * it is. /tmp/standin/mounts and partitions take the place of those in /proc. */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#define MOUNTS "/tmp/standin/mounts"
#define PARTITIONS "/tmp/standin/partitions"

static const char card[] = "/dev/mmcblk0";
static const char directory[] = "/mnt/mmc";

static int fail(int error) {
  errno = error;
  return -1;
}

static FILE* next_fopen(const char* path, const char* mode) {
  FILE* (*next)(const char*, const char*);
  void* const symbol = dlsym(RTLD_NEXT, "fopen");
  memcpy(&next, &symbol, sizeof next);
  return next(path, mode);
}

static int read_boot_sector(unsigned char sector[512]) {
  FILE* const file = next_fopen(card, "re");
  const size_t size = file != NULL ? fread(sector, 1, 512, file) : 0;
  if (file != NULL) fclose(file);
  return size == 512 && sector[510] == 0x55 && sector[511] == 0xAA;
}

static unsigned number_at(const unsigned char* bytes, int size) {
  unsigned number = 0;
  while (--size >= 0) number = number << 8 | bytes[size];
  return number;
}

int mount(const char* device, const char* target, const char* type, unsigned long flags,
          const void* data) {
  (void)flags;
  (void)data;
  unsigned char sector[512];
  if (strcmp(target, directory) != 0 || strcmp(type, "vfat") != 0) return fail(EPERM);
  if (access(MOUNTS, F_OK) == 0) return fail(EBUSY);
  if (strcmp(device, card) != 0 || !read_boot_sector(sector)) return fail(EINVAL);
  (void)mkdir("/tmp/standin", 0777);
  FILE* const mounts = next_fopen(MOUNTS, "we");
  if (mounts == NULL) return -1;
  fprintf(mounts, "%s %s vfat rw 0 0\n", card, directory);
  return fclose(mounts);
}

int umount2(const char* target, int flags) {
  (void)flags;
  return strcmp(target, directory) == 0 && unlink(MOUNTS) == 0 ? 0 : fail(EINVAL);
}

int statfs(const char* path, struct statfs* fs) {
  unsigned char sector[512];
  if (strcmp(path, directory) != 0) return fail(ENOSYS);
  memset(fs, 0, sizeof *fs);
  if (access(MOUNTS, F_OK) != 0 || !read_boot_sector(sector)) return 0;
  const unsigned sector_size = number_at(sector + 11, 2);
  const unsigned cluster = sector[13];
  const unsigned few = number_at(sector + 19, 2);
  const unsigned sectors = few != 0 ? few : number_at(sector + 32, 4);
  fs->f_type = 0x4D44;
  fs->f_bsize = (int)(sector_size * cluster);
  fs->f_blocks = cluster != 0 ? sectors / cluster : 0;
  fs->f_bfree = fs->f_blocks;
  return 0;
}

/* The kernel lists a card as soon as it is there. */
static void list_card(void) {
  struct stat status;
  FILE* const list = stat(card, &status) == 0 ? next_fopen(PARTITIONS, "we") : NULL;
  if (list == NULL) return;
  fprintf(list, "major minor  #blocks  name\n\n 179        0 %10lld mmcblk0\n",
          (long long)status.st_size / 1024);
  fclose(list);
}

FILE* fopen(const char* path, const char* mode) {
  if (strcmp(path, "/proc/partitions") == 0) {
    (void)mkdir("/tmp/standin", 0777);
    list_card();
    return next_fopen(PARTITIONS, mode);
  }
  if (strcmp(path, "/proc/mounts") == 0 && access(MOUNTS, F_OK) == 0) path = MOUNTS;
  return next_fopen(path, mode);
}
