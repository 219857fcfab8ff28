// Every exported function gives back the memory and the descriptors that it takes, but
// for what its contract leaves to the caller, who frees it here.
#include <arpa/inet.h>
#include <ktcomm.h>
#include <malloc.h>
#include <mtd/mtd-user.h>
#include <mxml.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <set>

#include "tests/support.h"

// Bytes in use. What a sanitizer does not count is counted here.
#ifdef __SANITIZE_ADDRESS__
extern "C" size_t __sanitizer_get_current_allocated_bytes();
static size_t heap_in_use() { return __sanitizer_get_current_allocated_bytes(); }
#else
static size_t g_in_use;
static size_t heap_in_use() { return g_in_use; }
static void* counted(void* memory) { return g_in_use += malloc_usable_size(memory), memory; }
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
void* malloc(size_t size) { return counted(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) { return counted(__libc_calloc(count, size)); }
void* realloc(void* memory, size_t size) {
  g_in_use -= malloc_usable_size(memory);
  return counted(__libc_realloc(memory, size));
}
void* aligned_alloc(size_t alignment, size_t size) { return counted(__libc_memalign(alignment, size)); }
void free(void* memory) {
  g_in_use -= malloc_usable_size(memory);
  __libc_free(memory);
}
}
#endif

using namespace kt::test;

namespace {

using Bytes = unsigned char;

// Used by the calls below; each makes of them what it needs.
int g_number;  // another one at every call
char g_text[8192];
Bytes g_bytes[512];
unsigned g_mask;
FILE* g_settings;
md5_ctx g_md5;
SHA256Context g_sha;
UserAllConf g_accounts;
EventConfig g_events;
EvtSchRecord g_schedule;
SchdEntry g_job;
NTPConf g_ntp;
SdRecordConfig g_recording;
SchSlotSet g_slots;
cf_string* g_string;
cf_list g_list, g_link;
mxml_node_t *g_tree, *g_node;

int nothing(void*, void*, void*, void*) { return 0; }
int leave(cf_fdevents* set, cf_fdevent* event, int, void*) { return cf_fdevents_del(set, event); }
cf_fdevent* new_event() { return cf_fdevent_new(-1, leave, nullptr, nullptr, nullptr); }
cf_event_action* new_action() { return cf_event_action_new(nothing, nullptr, nullptr, nullptr, nullptr); }

// A set of one event; `with_set` deletes or frees it.
void with_event(auto with_set) {
  cf_fdevents* const set = cf_fdevents_new();
  cf_fdevent* const event = new_event();
  cf_fdevents_add(set, event);
  with_set(set, event);
}

void with_action(auto with_list) {
  cf_event_action* const list = new_action();
  cf_event_actions_add(list, new_action());
  with_list(list);
  cf_event_actions_free(list);
  cf_event_action_free(list);
}

// A partition that is open for writing.
void with_flash(auto with_fd) {
  const int fd = flash_open("/dev/mtd4", O_RDWR);
  with_fd(fd);
  flash_close(fd);
}

// The area table of that partition.
void with_table(auto with) {
  with_flash([&](int fd) {
    Bytes table[22 + 8] = {};
    table[18] = 1;
    memcpy(table + 22, def_area_entry, 8);
    md5_buffer(table + 16, sizeof table - 16, table);
    flash_lseek(fd, get_area_table_offset(fd), SEEK_SET);
    flash_write(fd, table, sizeof table);
  });
  with_flash([&](int fd) {
    flash_area_table table;
    if (get_area_table(fd, &table) == 0) with(fd, table), free(table.entries);
  });
}

// Counted without taking memory.
int descriptors_in_use() {
  int count = 0;
  for (int fd = 0; fd < 256; ++fd) count += fcntl(fd, F_GETFD) != -1;
  return count;
}

// Of a call that leaves the first descriptor open that it takes.
void with_descriptor(auto call) {
  const int next = dup(0);
  close(next);
  call();
  close(next);
}

void with_message(auto with_queue) {
  struct {
    long type;
    char text[8];
  } message = {1, "text"};
  const int queue = msg_init(77);
  kt_msg_send(queue, &message, sizeof message, IPC_NOWAIT);
  with_queue(queue, &message, static_cast<int>(sizeof message));
  msg_exit(queue);
}

void in_pass(auto with_pass) {
  PRO_uopen(kSettings);
  with_pass();
  PRO_uclose(kSettings, 666, 1);
}

void own(void* memory) { free(memory); }
void own(cf_string* string) { cf_string_free(string); }
void own(mxml_node_t* tree) { del_tree(tree); }

struct Call {
  const char* name;
  void (*call)();
};
// Several calls a line, as there are so many.
// clang-format off
#define CALL(name, ...) {#name, [] { (void)name(__VA_ARGS__); }}
#define OWN(name, ...) {#name, [] { own(name(__VA_ARGS__)); }}
#define WITH(name, ...) {#name, [] { __VA_ARGS__; }}

const Call kCalls[] = {
  // config.h
  WITH(PRO_DelSect, PRO_SetStr("gone", "key", "1", kSettings); PRO_DelSect("gone", kSettings)),
  CALL(PRO_GetChar, "A", "key", g_text, g_settings), CALL(PRO_GetInt, "A", "key", &g_number, g_settings),
  WITH(PRO_GetLong, long value; PRO_GetLong("A", "key", &value, g_settings)),
  CALL(PRO_GetMsgByIndex, "LANGUAGE", 0, 3, reinterpret_cast<char (*)[256]>(g_text), nullptr),
  CALL(PRO_GetMsgSize, "LANGUAGE"), CALL(PRO_GetStr, "A", "none", g_text, 4096, g_settings),
  WITH(PRO_RenSect, PRO_RenSect("B", "C", kSettings); PRO_RenSect("C", "B", kSettings)),
  CALL(PRO_SetChar, "A", "char", static_cast<char>('a' + ++g_number % 26), kSettings),
  CALL(PRO_SetInt, "A", "int", ++g_number, kSettings),
  CALL(PRO_SetStr, "A", "str", std::to_string(++g_number).c_str(), kSettings),
  CALL(PRO_SetStr_In, nullptr, "bare line", nullptr, kSettings, 1), CALL(PRO_2sect, "B", g_settings),
  CALL(PRO_i2sect, "b", g_settings), CALL(PRO_iSetStr, "a", "KEY", "2", kSettings),
  WITH(PRO_u2sect, in_pass([] {PRO_u2sect("B", 1); })), WITH(PRO_uclose, in_pass([] {})),
  WITH(PRO_uopen, in_pass([] {PRO_uopen(kSettings); })), CALL(GetErrMsg2, "COMMON", 0, g_text, 256),
  // flash.h
  CALL(kt_flash_dump_page), WITH(kt_flash_get_logical_size, with_flash(kt_flash_get_logical_size)),
  WITH(kt_flash_get_mtdinfo, with_flash([](int fd) { mtd_info_user info; kt_flash_get_mtdinfo(fd, &info); })),
  WITH(kt_flash_mtdinfo, with_flash([](int fd) { kt_flash_mtdinfo(fd, 0); })),
  WITH(is_a_bad_block, with_flash([](int fd) { is_a_bad_block(fd, 0); })),
  WITH(read_data_fully, with_flash([](int fd) { read_data_fully(fd, g_bytes, sizeof g_bytes); })),
  WITH(write_data_fully, with_flash([](int fd) { write_data_fully(fd, g_bytes, sizeof g_bytes); })),
  WITH(flash_open, with_flash([](int) {})), WITH(flash_lseek, with_flash([](int fd) { flash_lseek(fd, 9, 0); })),
  WITH(flash_read, with_flash([](int fd) { flash_read(fd, g_bytes, sizeof g_bytes); })),
  WITH(flash_write, with_flash([](int fd) { flash_write(fd, g_bytes, static_cast<unsigned>(++g_number % 512)); })),
  WITH(flash_erase, with_flash([](int fd) { flash_erase(fd, 0, 65536); })),
  CALL(flash_close, flash_open("/dev/mtd4", 0)), WITH(fl_read_conf, fl_write_conf(kSettings); unlink(kSettings); fl_read_conf(kSettings)),
  CALL(fl_reset_write_conf, kSettings), CALL(fl_write_conf, kSettings), CALL(kt_flash_set_env, 1),
  CALL(calc_conf_line_num_and_check_ascii, kSettings), WITH(get_area_table_offset, with_flash(get_area_table_offset)),
  WITH(get_area_table, with_table([](int, auto&) {})),
  WITH(get_specified_area_idx, with_table([](int, auto& table) { get_specified_area_idx(1, &table); })),
  WITH(get_area_spare_size, with_table([](int fd, auto& table) { get_area_spare_size(fd, 0, &table); })),
  WITH(read_specified_area_info, with_table([](int fd, auto& table) { read_specified_area_info(fd, 1, table.entries); })),
  // log.h
  CALL(KT_DEBUGn_in, 8, 8, 0, "%s\n", g_text),
  WITH(save_debug_to_flash, save_debug_to_flash(8, 0, 1, 0); msg_exit(msg_init(0x12345678))),
  CALL(console_printf, "%d\n", g_number), CALL(mmcsd_printf, "/tmp/mmcsd", "%d\n", g_number),
  WITH(DEBUGReadConfigData, DebugConfig config; DEBUGReadConfigData(&config)),
  WITH(DEBUGWriteConfigData, const DebugConfig config = {1, "host", ++g_number}; DEBUGWriteConfigData(&config)),
  CALL(AddLog, "LOG", 0, 4, "host", 514), CALL(AddLogDbg, "%d", g_number),
  WITH(SaveMessageToLogFile, for (int i = 0; i < 100; ++i) SaveMessageToLogFile(("1 " + std::string(240, 'x')).c_str(), 1)),
  WITH(GetLogFromFile, char* text = nullptr; GetLogFromFile(&text); free(text)),
  WITH(GetLogFromFile_in, char* text = nullptr; GetLogFromFile_in(&text, 1, 1); free(text)), CALL(ClearLog),
  WITH(SysLogReadData, SysLogData data; SysLogReadData(&data)),
  WITH(SysLogWriteData, const SysLogData data = {1, 3, 1, "host", ++g_number}; SysLogWriteData(&data)),
  // settings.h
  CALL(check_user_data, "name,password", g_text, g_text + 64), CALL(ReadUsers, 0, 20, g_accounts.users.users),
  CALL(ReadUserConf, &g_accounts.users),
  WITH(SaveUserConf, g_accounts.users.login_check = ++g_number; SaveUserConf(&g_accounts.users)),
  CALL(ReadAdminConf_in, &g_accounts.admin, kSettings), CALL(ReadAdminConf, &g_accounts.admin),
  WITH(SaveAdminConf, g_accounts.admin.timeout = ++g_number; SaveAdminConf(&g_accounts.admin)),
  CALL(perm_match, KT_PERM_READ, "io_ctrl", &g_mask), CALL(ReadAllUserPTPerm, &g_mask),
  CALL(ReadAllUserAdminPerm, &g_mask), CALL(ReadAllUserIOPerm, &g_mask), CALL(ReadAllUserAudioInPerm, &g_mask),
  CALL(ReadAllUserAudioOutPerm, &g_mask), CALL(SetAllUserPTPerm, &(g_mask += 2)),
  CALL(SetAllUserAdminPerm, &(g_mask += 2)), CALL(SetAllUserIOPerm, &(g_mask += 2)),
  CALL(SetAllUserAudioInPerm, &(g_mask += 2)), CALL(SetAllUserAudioOutPerm, &(g_mask += 2)),
  CALL(USER_RdAllCfg, &g_accounts), WITH(USER_WrAllCfg, ++g_accounts.io; USER_WrAllCfg(&g_accounts)),
  CALL(user_dup_check, &g_accounts), CALL(NTPReadData, &g_ntp),
  WITH(NTPWriteData, g_ntp.mode = 1; g_ntp.minute = ++g_number % 60; NTPWriteData(&g_ntp)), CALL(SetNTP),
  CALL(ReadDayLightSaving, &g_number), CALL(WriteDayLightSaving, ++g_number), CALL(get_time_zone_table),
  CALL(TIME_TimezoneCheck, 3), CALL(TIME_TimezoneCorrect, &g_number),
  // sched.h
  CALL(SCHDCheckRange, 1, 2, 3), CALL(SCHDCheckField, &g_job), CALL(SCHDConvtUserFormat, &g_job, g_text, 180, 1),
  CALL(SCHDCutFields, "a b c", 5, 1, g_text), CALL(SCHDAddSchedule, &g_job), CALL(SCHDAddLinearSchedule, &g_job),
  CALL(SCHDDelSchedule, &g_job), CALL(SCHDDelLinearSchedule, &g_job), CALL(SCHDDelScheduleByCmd, &g_job),
  CALL(SCHDGetRandom4, g_text), CALL(SCHDStartSchedule), CALL(SCHDStopSchedule),
  CALL(check_sche_item, "1,08:00,24:00", 0), CALL(schedule_chk, 0),
  WITH(set_sch_fmt, char items[] = "8,09:00,17:00"; set_sch_fmt(&g_slots, 1, items)), CALL(chk_sch_from_mm, &g_slots),
  CALL(ReadEventConf, &g_events),
  WITH(SaveEventConf, strcpy(g_events.events[0].name, "door"); g_events.trigger = ++g_number; SaveEventConf(&g_events)),
  CALL(RestartEvent), CALL(check_event_type_schedule, 1, &g_events),
  CALL(get_element_from_event_entry, "is=1|en=door", "en", g_text),
  WITH(add_element_to_event_entry, g_text[0] = 0; add_element_to_event_entry(g_text, "en", "door")),
  CALL(event_sch_day_num2bit, 8), CALL(event_sch_day_bit2num, 62), CALL(ReadEvtSch, &g_schedule),
  WITH(SaveEvtSch, strcpy(g_schedule.joined, "1,08:00,24:00;"); SaveEvtSch(&g_schedule)), CALL(ReadAceSch, &g_schedule),
  WITH(SaveAceSch, g_schedule.mode = ++g_number; SaveAceSch(&g_schedule)),
  // sdcard.h
  CALL(mmcsd_get_sd_info, &g_recording.card), CALL(mmcsd_get_real_total_size), CALL(sd_is_mounted),
  CALL(mmcsd_sd_u_mount, KT_SD_MOUNT), CALL(mmcsd_get_rec_dir, g_text), CALL(mmcsd_check_ready), CALL(sd_rec_start),
  CALL(sd_rec_stop, 1), CALL(sd_wait_rec_exit), CALL(sd_clear_rec_lock_file), CALL(mmcsd_wait_trigger_stop),
  CALL(mmcsd_todo, KT_SD_TODO_UNMOUNT), CALL(fdatasync_sdcard, fileno(g_settings)),
  CALL(MMCSDReadConfigData, &g_recording),
  WITH(MMCSDWriteConfigData, ++g_recording.stream_id; MMCSDWriteConfigData(&g_recording)),
  // util.h
  OWN(cf_string_new_len, "abc", 2), OWN(cf_string_new, "abc"), OWN(cf_string_new_start_end, g_text, g_text + 2),
  CALL(cf_string_free, cf_string_new("abc")), CALL(cf_string_safe_cp, g_string, std::string(4000, 'x').c_str()),
  CALL(cf_string_safe_cp_n, g_string, "abc", 4000), CALL(cf_string_safe_cat, g_string, "abc"),
  WITH(cf_string_safe_cat_n, cf_string_safe_cp(g_string, ""); cf_string_safe_cat_n(g_string, "abc", 3999)),
  CALL(cf_list_init, &g_list), CALL(cf_list_insert_next, &g_list, &g_link), CALL(cf_list_insert_pre, &g_list, &g_link),
  WITH(cf_list_del, cf_list_insert_pre(&g_list, &g_link); cf_list_del(&g_link)),
  WITH(cf_fdevent_init, cf_fdevent event; cf_fdevent_init(&event, 1, leave, nullptr, nullptr, nullptr)),
  OWN(cf_fdevent_new, -1, leave, nullptr, nullptr, nullptr), CALL(cf_fdevent_free, new_event()), CALL(cf_fdevent_exit),
  WITH(cf_fdevent_get_next, cf_fdevents set; cf_fdevents_init(&set); cf_fdevent_get_next(&set.head)),
  WITH(cf_fdevents_init, cf_fdevents set; cf_fdevents_init(&set)), OWN(cf_fdevents_new),
  CALL(cf_fdevents_free, cf_fdevents_new()), CALL(cf_fdevents_exit),
  WITH(cf_fdevents_add, with_event([](auto* set, auto*) { cf_fdevents_free_all_self(set); })),
  WITH(cf_fdevents_del, with_event([](auto* set, auto* event) { cf_fdevents_del(set, event); own(event); own(set); })),
  WITH(cf_fdevents_del_close, with_event([](auto* set, auto* event) { cf_fdevents_del_close(set, event); own(event); own(set); })),
  WITH(cf_fdevents_del_free, with_event([](auto* set, auto* event) { cf_fdevents_del_free(set, event); own(set); })),
  WITH(cf_fdevents_del_close_free, with_event([](auto* set, auto* event) { cf_fdevents_del_close_free(set, event); own(set); })),
  WITH(cf_fdevents_del_all, with_event([](auto* set, auto* event) { cf_fdevents_del_all(set); own(event); own(set); })),
  WITH(cf_fdevents_free_all, with_event([](auto* set, auto*) { cf_fdevents_free_all(set); own(set); })),
  WITH(cf_fdevents_free_all_self, with_event([](auto* set, auto*) { cf_fdevents_free_all_self(set); })),
  // More that are ready than the loop has room for without the heap.
  WITH(cf_fdevents_trigger, cf_fdevents set; cf_fdevents_init(&set); cf_fdevent events[64]; for (cf_fdevent& event : events) { cf_fdevent_init(&event, 1, nullptr, nullptr, leave, nullptr); cf_fdevents_add(&set, &event); } cf_fdevents_trigger(&set)),
  WITH(cf_event_action_init, cf_event_action action; cf_event_action_init(&action, nothing, nullptr, nullptr, nullptr, nullptr)),
  OWN(cf_event_action_new, nothing, nullptr, nullptr, nullptr, nullptr), CALL(cf_event_action_free, new_action()),
  WITH(cf_event_actions_add, with_action([](auto*) {})),
  WITH(cf_event_actions_safe_add, with_action([](auto* list) { cf_event_actions_safe_add(list, new_action()); })),
  WITH(cf_event_actions_del, with_action([](auto* list) { cf_event_action* const action = cf_event_action_get_next(list); cf_event_actions_del(list, action); own(action); })),
  WITH(cf_event_action_get_next, with_action([](auto* list) { cf_event_action_get_next(list); })),
  WITH(cf_event_actions_go, with_action(cf_event_actions_go)), WITH(cf_event_actions_free, with_action([](auto*) {})),
  CALL(cf_sigfd_open, SIGUSR1, 0), CALL(cf_sigfd_close),
  WITH(cf_sigfd_get_next_signal, const int fd = cf_sigfd_open(SIGUSR1, 0); raise(SIGUSR1); cf_sigfd_get_next_signal(fd)),
  WITH(cf_system, char* argv[] = {g_text, nullptr}; strcpy(g_text, "ls"); cf_system(argv, g_string, nullptr)),
  CALL(CFSystem2, g_string, g_string, "ls", "/", nullptr), CALL(system_with_lock, ":"), CALL(system_signal, ": &"),
  WITH(escape_sequence, char* text = nullptr; escape_sequence("a;b", &text); free(text)),
  CALL(shell_cmd_paras_convert, "it's", 4, g_text, 64), CALL(tx_quot, g_text, "\"", 64), CALL(GetAppsPid, "sh"),
  CALL(GetAppsNum, "sh"), CALL(CheckAppsPidAlive, "sh", 1), CALL(GetAppsPidBySpecFile, "sh", "/tmp/none"),
  CALL(SendSignal2PidFromFile, "/tmp/none", 10), CALL(SendSignal2Apps, "none", 10),
  CALL(SendSignal2AppsBySpecFile, "none", 10, "/tmp/none"), CALL(WritePidToFile, "/tmp/pid"),
  WITH(create_apps_lock_file, unlink("/tmp/lock"); create_apps_lock_file("/tmp/lock")),
  WITH(check_app_filelock, unlink("/tmp/once"); close(check_app_filelock("none", "/tmp/once"))),
  WITH(CFToggleProcessAlive, with_descriptor([] { CFToggleProcessAlive(5000 + ++g_number % 1000); })),
  CALL(CFIsProcessAlive, 6000),
  CALL(kt_get_viewer_num, &g_number), CALL(kt_get_sys_free_mem), CALL(kt_linear_time, &g_mask),
  WITH(kt_fsync_byname, with_descriptor([] { kt_fsync_byname(kSettings); })),
  CALL(write_timestamp_into_file, "/tmp/stamp"),
  CALL(read_timestamp_from_file, "/tmp/stamp", &g_mask), CALL(compare_timestamp, 1, 2),
  WITH(msg_init, msg_exit(msg_init(78))),
  WITH(kt_msg_send, with_message([](int queue, void* message, int size) { kt_msg_send(queue, message, size, 0); })),
  WITH(msg_send, with_message([](int queue, void* message, int size) { msg_send(queue, message, size); })),
  WITH(kt_msg_recv, with_message([](int queue, void* message, int size) { kt_msg_recv(queue, 0, message, size, IPC_NOWAIT); })),
  WITH(msg_recv, with_message([](int queue, void* message, int size) { msg_recv(queue, 0, message, size); })),
  WITH(msg_exit, with_message([](int, void*, int) {})),
  WITH(pub_attach_shm, pub_detach_shm(pub_attach_shm(nullptr, 9, 79, IPC_CREAT | 0600))), CALL(pub_detach_shm, nullptr),
  WITH(kt_task_queue_in, kt_task_queue_out(kt_task_queue_in("/tmp/queue"))), CALL(kt_task_queue_out, 0),
  CALL(pass_fd_and_message, 1, g_text), CALL(MD5Initial, &g_md5), CALL(MD5Process, &g_md5, g_bytes, 100),
  CALL(MD5Finsh, &g_md5), CALL(kt_md5_init, &g_md5), CALL(kt_md5_update, &g_md5, g_bytes, 100),
  CALL(kt_md5_final, &g_md5), CALL(md5_buffer, g_bytes, 100, g_bytes), CALL(md5_buffer_chk, g_bytes, 100, g_bytes, 1),
  CALL(md5_stream, g_bytes, fileno(g_settings), 0, 10),
  CALL(md5_stream_att_data, g_bytes, fileno(g_settings), 0, 10, g_bytes, 10),
  CALL(md5_value_to_str, g_text, 33, g_bytes), CALL(SHA224Reset, &g_sha), CALL(SHA224Input, &g_sha, g_bytes, 100),
  CALL(SHA224FinalBits, &g_sha, 1, 1), CALL(SHA224Result, &g_sha, g_bytes), CALL(SHA256Reset, &g_sha),
  CALL(SHA256Input, &g_sha, g_bytes, 100), CALL(SHA256FinalBits, &g_sha, 1, 1), CALL(SHA256Result, &g_sha, g_bytes),
  CALL(sha256_buffer_chk, g_bytes, g_bytes, 100, 1), CALL(crc16, g_bytes, 100),
  CALL(kt_aes_encrypt, g_bytes, g_bytes, 200, 0), CALL(kt_aes_decrypt, g_bytes, g_bytes, 208, 0),
  CALL(get_encrypt_key, g_bytes, 32, 1), CALL(get_time_iso8601_string, g_text, 129, 1),
  // net.h
  OWN(load_tree, "<a><b>c</b></a>"), WITH(load_tree_from_stdin, rewind(stdin); own(load_tree_from_stdin())),
  WITH(del_tree, del_tree(load_tree("<a>b</a>"))), CALL(read_from_xml, g_tree, "/a/b", &g_node, g_text),
  WITH(read_from_xmlstr, read_from_xmlstr("<a><b>c</b></a>", "/a/b", &g_node, g_text); own(g_node)),
  CALL(find_xml_node, g_tree, ("/" + std::string(999, 'x')).c_str()), CALL(xml_get_node_value, g_tree, "/a/b"),
  CALL(xml_get_attr_value, g_tree, "/a/b", "name"),
  WITH(write_to_xml, write_to_xml(g_tree, "/a/new/b", nullptr, "text", 3); own(find_xml_node(g_tree, "/a/new"))),
  WITH(write_to_xmlstr, strcpy(g_text, "<a/>"); write_to_xmlstr(g_text, "/a/b", "text", 3)),
  WITH(add_string_to_node, own((add_string_to_node(g_tree, "text"), mxmlGetLastChild(g_tree)))),
  CALL(replace_string_to_node, find_xml_node(g_tree, "/a/b"), "text"),
  WITH(add_cdata_to_node, mxml_node_t* tree = load_tree("<a/>"); add_cdata_to_node(tree, "x]]>y"); own(tree)),
  WITH(add_xmlstring_to_node, own((add_xmlstring_to_node(g_tree, "<d>e</d>"), mxmlGetLastChild(g_tree)))),
  CALL(replace_xmlstring_to_node, find_xml_node(g_tree, "/a/b"), "<d>e</d>"),
  CALL(add_error_attribute, g_tree, "1", "text"),
};
// clang-format on

constexpr const char* kData[] = {
    "ifp",          "def_area_entry",  "backup_def_area_entry", "def_area_entry_list", "mod_define",
    "kt_time_zone", "g_timezone_resv", "event_action_tab",      "file_format_tab",     "request_tree"};

// Made from exports.sym.
constexpr const char* kExports[] = {
#include "exports.inc"
};

// A thousand times, or as often as there is time for.
void call_often(const Call& call) {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + std::chrono::milliseconds(20);
  int count = 0;
  do call.call();
  while (++count < 1000 && steady_clock::now() < end);
}

TEST(Heap, every_exported_function_is_called) {
  std::set<std::string> called(std::begin(kData), std::end(kData));
  for (const Call& call : kCalls) EXPECT_TRUE(called.insert(call.name).second) << call.name << " stands here twice";
  EXPECT_EQ(called, std::set<std::string>(std::begin(kExports), std::end(kExports)));
}

// The first call may set up what the C library keeps, such as a stream's buffer.
TEST(Heap, is_after_each_call_what_it_was_before) {
  ASSERT_EQ(mkdir("/mnt/ramdisk/env", 0755), 0);
  write_file(kSettings, "[A]\nkey=1\n[B]\n[EVENT]\nevent_trigger=1\n");
  write_file("/tmp/body", "<a>b</a>");
  setenv("CONTENT_LENGTH", "8", 1);
  ASSERT_TRUE(freopen("/tmp/body", "r", stdin));
  ASSERT_TRUE(g_settings = fopen(kSettings, "r"));
  strcpy(g_job.command, "job");
  memset(&g_job.wday_step, 0xFF, sizeof g_job - offsetof(SchdEntry, wday_step));
  cf_list_init(&g_list);
  g_string = cf_string_new("");
  g_tree = load_tree("<a><b name=\"x\">c</b></a>");
  const int server = socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un address = {AF_UNIX, "./zSOCKET-SERVER"};
  ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) | listen(server, 4096), 0);

  size_t kept = 0;
  for (const Call& call : kCalls) {
    call.call();
    const int descriptors = descriptors_in_use();
    const size_t before = heap_in_use();
    call_often(call);
    const size_t after = heap_in_use();
    EXPECT_EQ(descriptors_in_use(), descriptors) << call.name;
    EXPECT_EQ(after, before) << call.name;
    kept += after > before ? after - before : 0;
  }
  printf("heap after each call: %zu bytes\n", kept);
}

}  // namespace
