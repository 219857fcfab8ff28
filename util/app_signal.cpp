#include <signal.h>
#include <string.h>
#include <strings.h>

#include "base/pause.h"
#include "ktcomm/log.h"
#include "ktcomm/util_process.h"
#include "util/small_file.h"

namespace {

constexpr int kTraceLevel = 8;
constexpr int kTraceModule = 8;
constexpr size_t kPidFileLimit = 128;
constexpr char kSlowProgram[] = "hydra";
constexpr unsigned kSlowProgramDelay_s = 2;

void trace_signal(const char* function, int line, const char* name) {
  (void)KT_DEBUGn_in(kTraceLevel, kTraceModule, 0, "%s(%d):app_name=%s, time=%lu\n", function, line,
                     name, static_cast<unsigned long>(kt_linear_time(nullptr)));
}

}  // namespace

int SendSignal2PidFromFile(const char* path, int signo) {
  if (path == nullptr) return -1;
  const int pid = kt::decimal_in_file(path, kPidFileLimit).value_or(-1);
  if (pid < 0) return -1;
  (void)KT_DEBUGn_in(kTraceLevel, kTraceModule, 0, "%s(%d):pid = %lu\n", __func__, __LINE__,
                     static_cast<unsigned long>(pid));
  return pid > 0 ? kill(pid, signo) : -1;  // 0 would be our own group
}

void SendSignal2Apps(const char* name, int signo) {
  const int pid = GetAppsPid(name);
  if (pid < 1) return;
  trace_signal(__func__, __LINE__, name);
  (void)kill(pid, signo);  // it may have ended by now
}

int SendSignal2AppsBySpecFile(const char* name, int signo, const char* pid_list) {
  if (name == nullptr) return -1;
  const int pid = GetAppsPidBySpecFile(name, pid_list);
  if (pid < 1) return 0;
  trace_signal(__func__, __LINE__, name);
  const int result = kill(pid, signo);
  if (strcasecmp(name, kSlowProgram) == 0) kt::pause_s(kSlowProgramDelay_s);
  return result;
}
