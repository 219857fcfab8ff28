// paths.h - every fixed path of the library.
#ifndef KTCOMM_BASE_PATHS_H
#define KTCOMM_BASE_PATHS_H

namespace kt::paths {

// Settings
inline constexpr char kRamDisk[] = "/mnt/ramdisk/";
inline constexpr char kSettingsDirectory[] = "/mnt/ramdisk/env";
inline constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf";
inline constexpr char kSettingsLineCount[] = "/mnt/ramdisk/env/sys_conf_line.txt";
inline constexpr char kSettingsChanged[] = "/mnt/ramdisk/env/system.chg";
inline constexpr char kDefaultSettings[] = "/etc/def_sys.conf";
inline constexpr char kSettingsLock[] = "/tmp/cgi_locker.lock";
inline constexpr unsigned kSettingsLockMode = 0666;  // for every account, as far as umask allows

// Message catalogues
inline constexpr char kMessages[] = "/share/message.txt";
inline constexpr char kWebMessages[] = "/usr/local/www/adm/cgi_msg";

// Flash
inline constexpr char kNormalCopy[] = "/dev/mtd3";
inline constexpr char kBackupCopy[] = "/dev/mtd4";
inline constexpr char kNormalArchive[] = "/tmp/env_tmp0.tgz";
inline constexpr char kBackupArchive[] = "/tmp/env_tmp1.tgz";

// Trace and event log
inline constexpr char kTraceDirectory[] = "/tmp/debug";
inline constexpr char kTraceRelay[] = "/tmp/debug/syslog.daemon";
inline constexpr char kConsole[] = "/dev/console";
inline constexpr char kEventLog[] = "/tmp/debug/user/nc.log";
inline constexpr char kEventCatalogue[] = "/etc/logfile";
inline constexpr char kEventLogWrapped[] = "/tmp/SYS_LOG_start_wrap";
inline constexpr char kEventRelay[] = "/tmp/syslog.log";

// Schedules
inline constexpr char kCrontab[] = "/mnt/ramdisk/crontab";
inline constexpr char kCrontabCopy[] = "/tmp/crontab.";  // and a suffix
inline constexpr char kCrontabEditLock[] = "/tmp/crontab_edit.lock";

// Processes
inline constexpr char kViewers[] = "/tmp/viewer";
inline constexpr char kDescriptorServer[] = "./zSOCKET-SERVER";
inline constexpr char kHydraLock[] = "/tmp/hydra.lock";

// SD card
inline constexpr char kCard[] = "/dev/mmcblk0";
inline constexpr char kCardPartition[] = "/dev/mmcblk0p1";
inline constexpr char kCardMount[] = "/mnt/mmc";
inline constexpr char kRecordings[] = "/mnt/mmc/ktmmc";
inline constexpr char kCardRecordingLock[] = "/tmp/mmcsd_rec.lock";
inline constexpr char kCardQueue[] = "/tmp/mmcsd_todo.lock";
inline constexpr char kCardOperationLock[] = "/tmp/mmcsd_sdop.lock";
inline constexpr char kCardFormatLock[] = "/tmp/mmcsd_sdfmt.lock";
inline constexpr char kCardWriteLock[] = "/tmp/sd_write.lock";

// Accounts and clock
inline constexpr char kAccountsEditLock[] = "/tmp/accounts_edit.lock";
inline constexpr char kAuth[] = "/usr/local/bin/auth";
inline constexpr char kTimeControl[] = "/usr/local/bin/kt_time_control";
inline constexpr char kTimeRetry[] = "/tmp/ntp_retry";

// System
inline constexpr char kPartitions[] = "/proc/partitions";
inline constexpr char kMounts[] = "/proc/mounts";
inline constexpr char kNetworkInterfaces[] = "/sys/class/net";

}  // namespace kt::paths

#endif
