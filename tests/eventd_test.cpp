// The event daemon of examples/, started as on a camera.
#include <ktcomm.h>
#include <sys/resource.h>
#include <time.h>

#include "tests/support.h"

using namespace kt::test;
using std::string;

namespace {

constexpr char kLock[] = "/tmp/hydra.lock";

bool runs(const string& command) { return system(command.c_str()) == 0; }

int start(const string& options = "") { return WEXITSTATUS(system(("eventd " + options + " 9</bin 2>&-").c_str())); }

int pid() { return atoi(read_file(kLock).c_str()); }

// The messages of the event log, newest first.
string logged() {
  string log = read_file("/tmp/debug/user/nc.log");
  for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1) log.erase(at, log.find(' ', at) + 1 - at);
  return log;
}

bool comes_to_trace(const string& end) {
  return runs("for i in $(seq 400); do tail -n1 /tmp/debug/event/* | grep -q '" + end +
              "$' && exit; usleep 29999; done; false");
}

// Ends the daemon; false when it does not take its lock file with it.
bool stop() { return runs("killall eventd; while pidof eventd >&-; do usleep 9000; done; [ ! -e /tmp/hydra.lock ]"); }

void configure(const string& section) {
  ASSERT_TRUE(runs("mkdir -p /mnt/ramdisk/env; rm -f /tmp/debug/event/* /tmp/debug/user/*"));
  write_file(kSettings, "[EVENT]\nevent_trigger=1\n" + section);
}

TEST(Eventd, is_ready_and_detached_when_its_command_returns) {
  configure("event1_entry=en=door|es=0|acts=op1:1;sd_rec:1;\n");
  ASSERT_EQ(start(), 0);
  EXPECT_TRUE(runs("grep -q 'event 1 (door) started, actions: op1 sd_rec$' /tmp/debug/event/0-0.log"));
  EXPECT_EQ(CFIsProcessAlive(8190) * 10 + (getsid(pid()) == pid()), 11);
  // Standard streams on /dev/null, and all but them close-on-exec.
  EXPECT_TRUE(
      runs("cd /proc/$(cat /tmp/hydra.lock) && [ $(ls -l fd | grep -c /dev/null) = 3 ] &&"
           "[ $(grep -l 'flags:.02......' fdinfo/* | grep -c .) = $(ls fd | grep -vc '^[012]$') ]"));
  EXPECT_EQ(start() * 100 + start("--port 7001") * 10 + start("--foreground"), 222);
  EXPECT_TRUE(kill(pid(), 18) == 0 && comes_to_trace("signal 18: no recorder here"));
  EXPECT_TRUE(kill(pid(), 22) == 0 && comes_to_trace("signal 22: no recorder here"));
  EXPECT_TRUE(stop() && CFIsProcessAlive(8190) == 0);
  EXPECT_EQ(logged(), "Event 1 (door) started\n") << "its own end is not logged";
}

TEST(Eventd, ends_with_a_code) {
  configure("event_alive_port=7002\n");
  for (const char* bad : {"--port 0", "--port 65536", "--port 8x", "--port", "-x"}) EXPECT_EQ(start(bad), 3) << bad;
  ASSERT_EQ(mkdir(kLock, 0777), 0);
  EXPECT_EQ(start() + rmdir(kLock), 1);
  EXPECT_TRUE(runs("eventd --foreground & until [ -s /tmp/hydra.lock ]; do usleep 9000; done; kill -2 $!; wait $!"));
  const auto start_crowded = [] {
    const rlimit limit = {1100, 1100};
    for (int fd = setrlimit(RLIMIT_NOFILE, &limit); fd < 1024; ++fd) dup2(2, fd);
    return execl("/usr/bin/eventd", "eventd", "--foreground", nullptr);
  };
  EXPECT_EQ(in_child(start_crowded), 1) << "no descriptor is left that a loop can wait for";
  EXPECT_TRUE(comes_to_trace("the loop has ended, with signals at 10..") && !exists(kLock));
  write_file(kLock, "999999999");
  EXPECT_EQ(start("<&- >&-") + 10 * CFIsProcessAlive(7002), 10);
  EXPECT_TRUE(stop());
}

TEST(Eventd, reads_the_events_again_when_told) {
  configure("event1_entry=en=a|es=0\nevent2_entry=en=b|es=0\nevent3_entry=en=c|es=0\n");
  ASSERT_EQ(start() + chmod(kSettings, 0) + kill(pid(), 10), 0);
  EXPECT_TRUE(comes_to_trace(string(kSettings) + " cannot be read, the events stay as they were"));
  EventConfig config;
  ASSERT_EQ(chmod(kSettings, 0666) + ReadEventConf(&config), 0);
  config.events[0].name[0] = 'A', config.events[2].enabled = 0, config.events[9] = config.events[0];
  EXPECT_EQ(SaveEventConf(&config) + RestartEvent(), 0);
  config.trigger = 0;
  EXPECT_EQ(SaveEventConf(&config) + RestartEvent(), 0);
  EXPECT_EQ(logged(),
            "Event 10 (A) ended\nEvent 2 (b) ended\nEvent 1 (A) ended\n"
            "Event 10 (A) started\nEvent 3 (c) ended\nEvent 1 (A) started\nEvent 1 (a) ended\n"
            "Event 3 (c) started\nEvent 2 (b) started\nEvent 1 (a) started\n");
  EXPECT_TRUE(stop());
}

TEST(Eventd, follows_the_schedules_from_minute_to_minute) {
  const time_t west = time(nullptr) - 54;  // of Greenwich, where it is 00:00:54 now
  char zone[16] = "XYZ";
  strftime(zone + 3, 9, "%T", gmtime(&west));
  configure("event1_entry=en=a|es=1,9,00:00,00:01\nevent2_entry=en=b|es=1,9,00:01,24:00\n");
  ASSERT_EQ(setenv("TZ", zone, 1) + start() + unsetenv("TZ"), 0);
  kill(pid(), SIGALRM);  // early: the next minute is met all the same
  EXPECT_TRUE(comes_to_trace("event 2 (b) started, actions:") && stop());
  EXPECT_EQ(logged(), "Event 2 (b) started\nEvent 1 (a) ended\nEvent 1 (a) started\n");
}

}  // namespace
