/* sdcard.h - the SD card: mount, format and report it, and control what is
 * recorded to it.
 *
 * The card is /dev/mmcblk0, or its first partition /dev/mmcblk0p1 where there is
 * one, and is mounted on /mnt/mmc. The recorder is the program "hydra", which
 * /tmp/hydra.lock names; "mmcsd_put" copies triggered clips to the card.
 *
 * Lock files by which the programs know of one another:
 *   /tmp/mmcsd_rec.lock    is there while the recorder records; the recorder's own
 *   /tmp/mmcsd_todo.lock   flock of mmcsd_todo: one card operation at a time
 *   /tmp/mmcsd_sdop.lock   is there while mmcsd_todo unmounts or formats
 *   /tmp/mmcsd_sdfmt.lock  is there while mmcsd_todo formats
 *   /tmp/sd_write.lock     record lock of fdatasync_sdcard
 *
 * Shared rules:
 * - Unless said otherwise functions return 0, or -1 on failure; null arguments
 *   are failures. Sizes are in bytes.
 * - No descriptor is left open, and none reaches a child's program.
 * - Waits last their whole time, whatever signals come.
 * - Failures are traced at level 4, module 8, where the contract says so.
 * - mmcsd_printf, the card's diagnostic log, is in log.h. */
#ifndef KTCOMM_SDCARD_H
#define KTCOMM_SDCARD_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

/* ---- The card --------------------------------------------------------- */

/* SdCardStatus.state, in the order in which they are found out. */
#define KT_SD_NO_CARD 0     /* no /dev/mmcblk0, or /mnt/mmc cannot be read */
#define KT_SD_FORMATTING 4  /* /tmp/mmcsd_sdfmt.lock is there */
#define KT_SD_NOT_MOUNTED 1 /* what is on /mnt/mmc is no FAT file system */
#define KT_SD_READ_ONLY 2   /* mounted, the caller cannot write */
#define KT_SD_READY 3       /* mounted, the caller can write */

/* The sizes are 0 but for the states KT_SD_READ_ONLY and KT_SD_READY. */
typedef struct SdCardStatus {
  int state;
  unsigned fs_type; /* what statfs(2) says of /mnt/mmc, 0x4D44 for FAT; 0 when not asked */
  unsigned long long total_bytes;
  unsigned long long used_bytes; /* total_bytes - free_bytes */
  unsigned long long free_bytes;
  int used_percent; /* of the blocks, rounded down */
  int reserved;     /* 0 */
} SdCardStatus;

/* Fills `status`. Returns 0; -1 for a null `status`. */
KT_EXPORT int mmcsd_get_sd_info(SdCardStatus *status);

/* The raw size of the card in bytes, a 64-bit number, mounted or not: 1024 times
 * the blocks that /proc/partitions has for "mmcblk0". 0 when there is no card. */
KT_EXPORT unsigned long long mmcsd_get_real_total_size(void);

/* 1 when a line of /proc/mounts, a longer one in pieces of 255 characters,
 * contains "/mnt/mmc"; else 0, also when that file cannot be read. */
KT_EXPORT int sd_is_mounted(void);

/* Mounts the card on /mnt/mmc as "vfat" (KT_SD_MOUNT), or unmounts it by force,
 * which still fails while a file on it is open (KT_SD_UNMOUNT).
 * Returns -1 also for any other `operation`. */
#define KT_SD_MOUNT 0
#define KT_SD_UNMOUNT 1
KT_EXPORT int mmcsd_sd_u_mount(int operation);

/* ---- The camera's directory on the card ------------------------------- */

/* Room for its name and a NUL. */
#define KT_SD_REC_DIR_SIZE 65

/* Writes the name of the recording directory to `out`, KT_SD_REC_DIR_SIZE bytes:
 * "/mnt/mmc/ktmmc/" and the camera's MAC address in twelve lowercase hexadecimal
 * digits, which is that of the Ethernet interface with the lowest index.
 * Returns `out`; null, with `out` untouched, when it is null or the address
 * cannot be read. */
KT_EXPORT char *mmcsd_get_rec_dir(char *out);

/* Makes sure that the recording directory is there. What is missing of it is
 * made with mode 0666; vfat gives directories a mode of its own.
 * Returns 0; -1 when its name cannot be formed or a directory not be made. */
KT_EXPORT int mmcsd_check_ready(void);

/* ---- The recorder ----------------------------------------------------- */

/* Tells the recorder to record (signal 22), which takes 2 seconds if there is
 * one. Returns 0 always. */
KT_EXPORT int sd_rec_start(void);

/* Tells the recorder to stop (signal 18) and waits for it, see sd_wait_rec_exit.
 * Then waits 1 second more and, with a `log_code` other than 0, adds that message
 * of section "SD_RECORD" to the event log, at level 2.
 * Returns 0; -1, nothing logged, when it has not stopped. */
KT_EXPORT int sd_rec_stop(int log_code);

/* Waits until /tmp/mmcsd_rec.lock is gone, looking every 0.5 seconds, 30 seconds
 * at most. Returns 0; -1 when it is still there. */
KT_EXPORT int sd_wait_rec_exit(void);

/* Removes the /tmp/mmcsd_rec.lock that a dead recorder has left. Returns 0
 * always. */
KT_EXPORT int sd_clear_rec_lock_file(void);

/* Waits until there is no process "mmcsd_put", looking every second. After 11
 * seconds it is killed by "/usr/bin/killall", which is not waited for. Returns 0
 * always. */
KT_EXPORT int mmcsd_wait_trigger_stop(void);

/* ---- Card operations -------------------------------------------------- */

/* Formats or unmounts the card with the recording paused. Waits for its turn
 * among all callers, then
 *   - stops the recorder if it is recording. If it does not stop, the operation
 *     goes on all the same and "%s(%d): Failed to stop sd recording ...\n" is
 *     traced; if it does, "SD_RECORD" 8 is logged;
 *   - waits for mmcsd_put, calls sync(), and unmounts the card;
 *   - unmount: logs "SDCARD" 3, after "SDCARD" 4 if that failed;
 *   - format: goes on when the card could not be unmounted. Runs "/sbin/mkfs.vfat"
 *     on the whole card, removes the node of the partition that is no more, and
 *     mounts the card. Logs "SDCARD" 5, or 6 when mkfs.vfat or the mount failed;
 *     the card is mounted again after a failed mkfs.vfat too;
 *   - starts the recorder, after an unmount too: it finds that there is no card.
 * Any other `operation` stops and starts the recorder only, and fails. All
 * entries are of level 2.
 *
 * The lock files of the operation are made before mmcsd_put is waited for and are
 * gone when the recorder is started. A caller that is killed leaves them behind;
 * the next operation of the kind takes them over.
 * Returns -1 when a lock file cannot be made, the card not unmounted, formatted or
 * mounted again; -1, with nothing done, when its turn does not come (a signal
 * interrupts the wait). */
#define KT_SD_TODO_FORMAT 2
#define KT_SD_TODO_UNMOUNT 3
KT_EXPORT int mmcsd_todo(int operation);

/* Puts the data of an open file onto the card, fdatasync(2), while no other
 * process does so: a lock on the whole of /tmp/sd_write.lock (created with mode
 * 0700) is waited for and held. A failed flush is not reported.
 * Returns 0; -1, each traced, for a negative `fd` ("%s(%d): invalid fd!\n", no lock
 * file is made), when the lock file cannot be opened or opens as descriptor 0
 * ("%s(%d):open sdcard writing lock file error!\n"), cannot be locked ("%s(%d):Failed
 * to lock sdcard writing file\n") or unlocked ("%s(%d):Failed to unlock sdcard
 * writing file\n"; the data was flushed). */
KT_EXPORT int fdatasync_sdcard(int fd);

/* ---- Settings --------------------------------------------------------- */

/* The recording schedule: ten items "D,HH:MM,HH:MM" (day code, begin, end), each
 * of 13 characters and a NUL; an empty one begins with a NUL. */
#define KT_SD_SCHEDULE_ITEMS 10
#define KT_SD_SCHEDULE_ITEM_SIZE 14

/* Section SDCARD of /mnt/ramdisk/env/system.conf. What the recorder makes of the
 * controls is its own business. */
typedef struct SdRecordConfig {
  SdCardStatus card; /* no setting: the card as it is when read */
  int rec_enable;    /* sdcard_rec_enable, 0 when missing */
  int reserved1[2];
  int disk_ctrl; /* sdcard_rec_disk_ctrl, 0 when missing */
  int stream_id; /* sdcard_rec_stream_id, 1 when missing */
  int file_ctrl; /* sdcard_rec_file_ctrl, 60 when missing */
  int duration;  /* seconds; sdcard_rec_duration in minutes, 60 minutes when missing */
  int reserved2;
  unsigned long long file_size; /* bytes; sdcard_rec_file_size in MiB, 10 MiB when missing */
  char schedule[KT_SD_SCHEDULE_ITEMS][KT_SD_SCHEDULE_ITEM_SIZE]; /* sdcard_rec_schedule */
} SdRecordConfig;

/* Fills `config` but for its reserved fields. Item i of the schedule is the 13
 * characters from 14 * i of the setting on, whatever separates the items; it is
 * empty where the setting ends before, or is not of that form from there on.
 * Returns 0; -1, `config` untouched, when the settings file cannot be opened. */
KT_EXPORT int MMCSDReadConfigData(SdRecordConfig *config);

/* Writes enable, stream, disk control, file control, duration, file size and
 * schedule in this order, each as PRO_SetStr does; parts of a minute or MiB are
 * dropped. The schedule ends before its first item of fewer than 13 characters:
 * pack the items to the front. A longer one is cut to 13.
 * Returns 0; -1 at the first that cannot be written. */
KT_EXPORT int MMCSDWriteConfigData(const SdRecordConfig *config);

KT_END_DECLS

#endif
