// The exported functions that take memory give it back, and their descriptors, but for
// what the contract leaves to the caller, who frees it here.
#include <ktcomm.h>
#include <malloc.h>
#include <mxml.h>
#include <string.h>

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

// Used by the calls below; each makes of them what it needs.
int g_number;  // another one at every call
char g_text[8192];
unsigned char g_bytes[512];
unsigned g_mask;
FILE* g_settings;
UserAllConf g_accounts;
EventConfig g_events;
EvtSchRecord g_schedule;
SchdEntry g_job;
NTPConf g_ntp;
SdRecordConfig g_recording;
DebugConfig g_debug;
SysLogData g_syslog;
char* g_found;
cf_string* g_string;
mxml_node_t *g_tree, *g_node;

void own(void* memory) { free(memory); }
void own(cf_string* string) { cf_string_free(string); }
void own(mxml_node_t* tree) { del_tree(tree); }

int leave(cf_fdevents* set, cf_fdevent* event, int, void*) { return cf_fdevents_del(set, event); }

// Sets of one event, in every way to be rid of them.
void use_events() {
  using Set = cf_fdevents*;
  using Event = cf_fdevent*;
  void (*const kEnds[])(Set, Event) = {
      [](Set set, Event event) { cf_fdevents_del(set, event), own(event), own(set); },
      [](Set set, Event event) { cf_fdevents_del_close(set, event), cf_fdevent_free(event), cf_fdevents_free(set); },
      [](Set set, Event event) { cf_fdevents_del_free(set, event), own(set); },
      [](Set set, Event event) { cf_fdevents_del_close_free(set, event), own(set); },
      [](Set set, Event event) { cf_fdevents_del_all(set), own(event), own(set); },
      [](Set set, Event) { cf_fdevents_free_all(set), own(set); },
      [](Set set, Event) { cf_fdevents_free_all_self(set); }};
  for (const auto end : kEnds) {
    const Set set = cf_fdevents_new();
    const Event event = cf_fdevent_new(-1, leave, nullptr, nullptr, nullptr);
    cf_fdevents_add(set, event);
    end(set, event);
  }
}

// More that are ready than the loop has room for without the heap.
void use_loop() {
  cf_fdevents set;
  cf_fdevents_init(&set);
  cf_fdevent events[64];
  for (cf_fdevent& event : events) {
    cf_fdevent_init(&event, 1, nullptr, nullptr, leave, nullptr);
    cf_fdevents_add(&set, &event);
  }
  cf_fdevents_trigger(&set);
}

void use_actions() {
  const auto make = [] {
    const auto nothing = [](void*, void*, void*, void*) { return 0; };
    return cf_event_action_new(nothing, nullptr, nullptr, nullptr, nullptr);
  };
  cf_event_action *const list = make(), *const gone = make();
  cf_event_actions_add(list, make()), cf_event_actions_safe_add(list, gone), cf_event_actions_go(list);
  cf_event_actions_del(list, gone), own(gone);
  cf_event_actions_free(list), cf_event_action_free(list);
}

// A partition that is open for writing.
void with_flash(auto with_fd) {
  const int fd = flash_open("/dev/mtd4", O_RDWR);
  with_fd(fd);
  flash_close(fd);
}

void use_area_table() {
  with_flash([](int fd) {
    unsigned char table[22 + 8] = {};
    table[18] = 1;
    memcpy(table + 22, def_area_entry, 8);
    md5_buffer(table + 16, sizeof table - 16, table);
    flash_lseek(fd, get_area_table_offset(fd), SEEK_SET);
    flash_write(fd, table, sizeof table);
  });
  with_flash([](int fd) {
    flash_area_table table;
    ASSERT_EQ(get_area_table(fd, &table), 0);
    get_area_spare_size(fd, 0, &table), read_specified_area_info(fd, 1, table.entries);
    free(table.entries);
  });
}

const struct {
  const char* name;
  void (*call)();
} kCalls[] = {
    {"PRO_GetStr", [] { PRO_GetStr("A", "none", g_text, 4096, g_settings); }},
    {"PRO_GetMsg", [] { PRO_GetMsgByIndex("LANGUAGE", 0, 3, reinterpret_cast<char(*)[256]>(g_text), nullptr); }},
    {"PRO_GetMsgSize", [] { PRO_GetMsgSize("LANGUAGE"), GetErrMsg2("COMMON", 0, g_text, 256); }},
    {"PRO_SetStr", [] { PRO_SetStr("A", "str", std::to_string(++g_number).c_str(), kSettings); }},
    {"PRO_SetStr_In", [] { PRO_SetStr_In(nullptr, "bare line", nullptr, kSettings, 1); }},
    {"PRO_iSetStr", [] { PRO_iSetStr("a", "KEY", "2", kSettings); }},
    {"PRO_SetInt", [] { PRO_SetInt("A", "int", ++g_number, kSettings); }},
    {"PRO_SetChar", [] { PRO_SetChar("A", "char", static_cast<char>('a' + ++g_number % 26), kSettings); }},
    {"PRO_DelSect", [] { PRO_SetStr("gone", "key", "1", kSettings), PRO_DelSect("gone", kSettings); }},
    {"PRO_RenSect", [] { PRO_RenSect("B", "C", kSettings), PRO_RenSect("C", "B", kSettings); }},
    {"PRO_uopen twice", [] { PRO_uopen(kSettings), PRO_uopen(kSettings), PRO_uclose(kSettings, 666, 1); }},
    {"PRO_u2sect", [] { PRO_uopen(kSettings), PRO_u2sect("B", 1), PRO_uclose(kSettings, 666, 1); }},
    {"flash_read", [] { with_flash([](int fd) { flash_read(fd, g_bytes, sizeof g_bytes); }); }},
    {"flash_write", [] { with_flash([](int fd) { flash_write(fd, g_bytes, unsigned(++g_number % 512)); }); }},
    {"flash_erase", [] { with_flash([](int fd) { flash_erase(fd, 0, 65536); }); }},
    {"area table", use_area_table},
    {"fl_read_conf", [] { fl_write_conf(kSettings), unlink(kSettings), fl_read_conf(kSettings); }},
    {"fl_reset_write_conf", [] { fl_reset_write_conf(kSettings), kt_flash_set_env(1); }},
    {"calc_conf_line_num", [] { calc_conf_line_num_and_check_ascii(kSettings); }},
    {"KT_DEBUGn_in", [] { KT_DEBUGn_in(8, 8, 0, "%s\n", g_text), mmcsd_printf("/tmp/mmcsd", "%d\n", 1); }},
    {"DEBUGReadConfigData",
     [] { DEBUGReadConfigData(&g_debug), ++g_debug.syslog_port, DEBUGWriteConfigData(&g_debug); }},
    {"SysLogReadData", [] { SysLogReadData(&g_syslog), ++g_syslog.syslog_port, SysLogWriteData(&g_syslog); }},
    {"AddLog", [] { AddLog("LOG", 0, 4, "host", 514), AddLogDbg("%d", g_number); }},
    {"SaveMessageToLogFile",
     [] {
       for (int i = 0; i < 100; ++i) SaveMessageToLogFile(("1 " + std::string(240, 'x')).c_str(), 1);
     }},
    {"GetLogFromFile", [] { GetLogFromFile(&g_found), own(g_found); }},
    {"GetLogFromFile_in", [] { GetLogFromFile_in(&g_found, 1, 1), own(g_found); }},
    {"ClearLog", [] { ClearLog(); }},
    {"ReadUsers", [] { ReadUsers(0, 20, g_accounts.users.users), ReadUserConf(&g_accounts.users); }},
    {"SaveUserConf", [] { ++g_accounts.users.login_check, SaveUserConf(&g_accounts.users); }},
    {"ReadAdminConf", [] { ReadAdminConf_in(&g_accounts.admin, kSettings), ReadAdminConf(&g_accounts.admin); }},
    {"SaveAdminConf", [] { ++g_accounts.admin.timeout, SaveAdminConf(&g_accounts.admin); }},
    {"permissions", [] { perm_match(KT_PERM_READ, "io_ctrl", &g_mask), SetAllUserPTPerm(&(g_mask += 2)); }},
    {"USER_RdAllCfg", [] { USER_RdAllCfg(&g_accounts), ++g_accounts.io, USER_WrAllCfg(&g_accounts); }},
    {"NTPReadData", [] { NTPReadData(&g_ntp), g_ntp.minute = ++g_number % 60, NTPWriteData(&g_ntp); }},
    {"WriteDayLightSaving", [] { WriteDayLightSaving(++g_number), ReadDayLightSaving(&g_number); }},
    {"SCHDAddSchedule", [] { SCHDAddSchedule(&g_job), SCHDAddLinearSchedule(&g_job); }},
    {"SCHDDelSchedule", [] { SCHDDelSchedule(&g_job), SCHDDelLinearSchedule(&g_job), SCHDDelScheduleByCmd(&g_job); }},
    {"schedule_chk", [] { schedule_chk(0); }},
    {"ReadEventConf", [] { ReadEventConf(&g_events); }},
    {"SaveEventConf", [] { strcpy(g_events.events[0].name, "door"), ++g_events.trigger, SaveEventConf(&g_events); }},
    {"SaveEvtSch", [] { strcpy(g_schedule.joined, "1,08:00,24:00;"), SaveEvtSch(&g_schedule); }},
    {"SaveAceSch", [] { ++g_schedule.mode, SaveAceSch(&g_schedule); }},
    {"ReadEvtSch", [] { ReadEvtSch(&g_schedule), ReadAceSch(&g_schedule), RestartEvent(); }},
    {"mmcsd_check_ready", [] { mmcsd_get_real_total_size(), sd_is_mounted(), mmcsd_check_ready(); }},
    {"mmcsd_todo", [] { sd_rec_stop(1), mmcsd_todo(KT_SD_TODO_UNMOUNT); }},
    {"MMCSDReadConfigData", [] { MMCSDReadConfigData(&g_recording), ++g_recording.stream_id; }},
    {"MMCSDWriteConfigData", [] { MMCSDWriteConfigData(&g_recording); }},
    {"cf_string_new", [] { own(cf_string_new("abc")), own(cf_string_new_len("abc", 2)); }},
    {"cf_string_new_start_end", [] { own(cf_string_new_start_end(g_text, g_text + 2)); }},
    {"cf_string_safe_cp",
     [] { cf_string_safe_cp(g_string, std::string(4000, 'x').c_str()), cf_string_safe_cat(g_string, "abc"); }},
    {"cf_string_safe_cat_n", [] { cf_string_safe_cp_n(g_string, "", 0), cf_string_safe_cat_n(g_string, "abc", 3999); }},
    {"cf_fdevents", use_events},
    {"cf_fdevents_trigger", use_loop},
    {"cf_event_actions", use_actions},
    {"cf_system", [] { CFSystem2(g_string, g_string, "ls", "/", nullptr), system_signal(": &"); }},
    {"escape_sequence", [] { escape_sequence("a;b", &g_found), own(g_found); }},
    {"GetApps", [] { GetAppsNum("sh"), CheckAppsPidAlive("sh", 1), GetAppsPidBySpecFile("sh", "/tmp/none"); }},
    {"SendSignal2Apps", [] { SendSignal2Apps("none", 10), SendSignal2AppsBySpecFile("none", 10, "/tmp/none"); }},
    {"files of programs",
     [] {
       WritePidToFile("/tmp/pid"), unlink("/tmp/lock"), create_apps_lock_file("/tmp/lock");
       unlink("/tmp/once"), close(check_app_filelock("none", "/tmp/once"));
       kt_get_viewer_num(&g_number), write_timestamp_into_file("/tmp/stamp"), CFIsProcessAlive(6000);
       read_timestamp_from_file("/tmp/stamp", &g_mask), kt_task_queue_out(kt_task_queue_in("/tmp/queue"));
     }},
    {"kt_aes_encrypt", [] { kt_aes_encrypt(g_bytes, g_bytes, 200, 0), kt_aes_decrypt(g_bytes, g_bytes, 208, 0); }},
    {"load_tree", [] { own(load_tree("<a><b>c</b></a>")); }},
    {"load_tree_from_stdin", [] { rewind(stdin), own(load_tree_from_stdin()); }},
    {"read_from_xml", [] { read_from_xml(g_tree, "/a/b", &g_node, g_text); }},
    {"read_from_xmlstr", [] { read_from_xmlstr("<a><b>c</b></a>", "/a/b", &g_node, g_text), own(g_node); }},
    {"find_xml_node", [] { find_xml_node(g_tree, ("/" + std::string(999, 'x')).c_str()); }},
    {"write_to_xml",
     [] { write_to_xml(g_tree, "/a/new/b", nullptr, "text", 3), own(find_xml_node(g_tree, "/a/new")); }},
    {"write_to_xmlstr", [] { strcpy(g_text, "<a/>"), write_to_xmlstr(g_text, "/a/b", "text", 3); }},
    {"add_string_to_node", [] { add_string_to_node(g_tree, "text"), own(mxmlGetLastChild(g_tree)); }},
    {"add_xmlstring_to_node", [] { add_xmlstring_to_node(g_tree, "<d>e</d>"), own(mxmlGetLastChild(g_tree)); }},
    {"add_cdata_to_node", [] { add_cdata_to_node(g_node = load_tree("<a/>"), "x]]>y"), own(g_node); }},
    {"replace_string_to_node", [] { replace_string_to_node(find_xml_node(g_tree, "/a/b"), "text"); }},
    {"replace_xmlstring_to_node", [] { replace_xmlstring_to_node(find_xml_node(g_tree, "/a/b"), "<d>e</d>"); }},
    {"add_error_attribute", [] { add_error_attribute(g_tree, "1", "text"); }},
};

// The first call may set up what the C library keeps, such as a stream's buffer.
TEST(Heap, is_after_each_call_what_it_was_before) {
  ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env /tmp/debug/user /tmp/debug/cgi"), 0);
  write_file(kSettings, "[A]\nkey=1\n[B]\n[EVENT]\nevent_trigger=1\n");
  write_file("/tmp/body", "<a>b</a>");
  setenv("CONTENT_LENGTH", "8", 1);
  ASSERT_TRUE(freopen("/tmp/body", "r", stdin));
  ASSERT_TRUE(g_settings = fopen(kSettings, "r"));
  strcpy(g_job.command, "job");
  memset(&g_job.wday_step, 0xFF, sizeof g_job - offsetof(SchdEntry, wday_step));
  g_ntp.mode = 1;
  g_string = cf_string_new("");
  g_tree = load_tree("<a><b name=\"x\">c</b></a>");

  size_t kept = 0;
  for (const auto& [name, call] : kCalls) {
    call();
    const size_t before = heap_in_use(), descriptors = open_descriptors();
    call();
    EXPECT_EQ(open_descriptors(), descriptors) << name;
    const size_t after = heap_in_use();
    EXPECT_EQ(after, before) << name;
    kept += after > before ? after - before : 0;
  }
  printf("heap after each call: %zu bytes\n", kept);
}

}  // namespace
