// The loop over descriptors, deferred calls, signals as descriptors.
#include <ktcomm/util_loop.h>
#include <sys/eventfd.h>
#include <sys/select.h>

#include <map>
#include <random>

#include "base/unique_fd.h"
#include "tests/support.h"

using namespace kt::test;
using std::string;

static int g_passes, g_nfds, g_interruptions;
extern "C" int select(int nfds, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  ++g_passes, g_nfds = nfds;
  return g_interruptions-- > 0 ? errno = EINTR, -1 : libc("select", &select)(nfds, read, write, except, timeout);
}
#ifndef __SANITIZE_ADDRESS__
static bool g_no_memory;
extern "C" void* __libc_malloc(size_t size);
extern "C" void* malloc(size_t size) { return g_no_memory ? nullptr : __libc_malloc(size); }
#endif

namespace {

string g_calls;
int ready_fd() { return eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK); }
bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

// Events note their argument, a character, when called. '.' also frees all, '-'
// the event itself, '~' itself and the next one while it changes the one after that.
int call(cf_fdevents* set, cf_fdevent* event, int fd, void* arg);
cf_fdevent* add(cf_fdevents& set, int fd, const char* text, bool write = false) {
  const auto arg = const_cast<char*>(text);
  cf_fdevent* const event =
      write ? cf_fdevent_new(fd, nullptr, nullptr, call, arg) : cf_fdevent_new(fd, call, arg, nullptr, nullptr);
  return cf_fdevents_add(&set, event), event;
}
int call(cf_fdevents* set, cf_fdevent* event, int fd, void* arg) {
  g_calls += *static_cast<char*>(arg);
  if (g_calls.back() == '.') return cf_fdevents_free_all(set);
  if (g_calls.back() == '-') return cf_fdevents_del_close_free(set, event);
  if (g_calls.back() != '~') return 7;
  cf_fdevents_del_close_free(set, cf_fdevent_get_next(event));
  cf_fdevent_get_next(event)->read_arg = const_cast<char*>("!");
  return add(*set, fd, "."), cf_fdevents_del_free(set, event);
}

TEST(Events, keep_their_order_and_bear_being_added_and_deleted_twice) {
  cf_fdevents set;
  cf_fdevent *const head = &set.head, *event[3], zeros = {};
  EXPECT_TRUE(cf_fdevents_init(&set) == 0 && head->fd == -1 && set.reserved[8] == nullptr);
  EXPECT_TRUE(cf_fdevent_init(&zeros, 5, call, head, call, head) == -1 && zeros.fd == 0 && zeros.read_cb == nullptr);
  EXPECT_TRUE(!cf_fdevent_new(5, call, nullptr, call, nullptr) && !cf_fdevent_get_next(&zeros));
  for (const int i : {0, 1, 2}) event[i] = add(set, ready_fd(), &"012"[i]);
  const auto order = [&](string names = "") {
    for (cf_fdevent* e = head; (e = cf_fdevent_get_next(e)) != head;) names += *static_cast<char*>(e->read_arg);
    return names;
  };
  EXPECT_EQ(order(), "012");
  EXPECT_EQ(cf_fdevents_add(&set, event[0]) + cf_fdevents_del(&set, event[2]) + cf_fdevents_del(&set, event[2]), 0);
  EXPECT_EQ(order() + (cf_fdevent_get_next(event[2]) == event[0] ? "!" : ""), "10!");
  EXPECT_TRUE(cf_fdevents_del_all(&set) + cf_fdevents_del(&set, event[1]) == 0 && order().empty());
  EXPECT_EQ(cf_fdevents_add(&set, event[0]) + cf_fdevents_add(&set, event[1]), 0);
  EXPECT_EQ(cf_fdevents_add(&set, head) + cf_fdevents_del(&set, head) + cf_fdevents_add(&set, event[2]), -2);
  const int fd[] = {event[0]->fd, event[1]->fd, event[2]->fd};
  EXPECT_EQ(cf_fdevents_del_close(&set, event[1]) + cf_fdevents_del_close_free(&set, event[0]), 0);
  EXPECT_TRUE(order() == "2" && !is_open(fd[0]) && !is_open(fd[1]) && event[1]->fd == -1);
  EXPECT_EQ(cf_fdevents_del_free(&set, event[1]), 0);
  EXPECT_TRUE(cf_fdevents_free_all(&set) == 0 && close(fd[2]) == 0 && order().empty());
}

TEST(Trigger, ends_when_there_is_nothing_to_wait_on) {
  cf_fdevents set = {};
  EXPECT_EQ(cf_fdevents_trigger(nullptr) + cf_fdevents_trigger(&set), -2);
  add(set, -1, "low"), add(set, 1024, "high", true);
  EXPECT_EQ(cf_fdevents_trigger(&set) + g_passes, -1);
  const int fd = ready_fd();
  add(set, fd, "closed"), close(fd), g_interruptions = 2;
  EXPECT_TRUE(cf_fdevents_trigger(&set) == -1 && errno == EBADF && g_passes == 3 && g_nfds == fd + 1);
  EXPECT_TRUE(cf_fdevents_free_all(&set) == 0 && g_calls.empty());
}

TEST(Trigger, calls_in_order_what_was_ready_as_it_was_then) {
  cf_fdevents set = {};
  const int fd = ready_fd(), both = ready_fd(), idle = eventfd(0, EFD_CLOEXEC), last = dup2(fd, 1023);
  add(set, fd, "~"), add(set, ready_fd(), "freed"), add(set, fd, "c"), add(set, idle, "idle"), add(set, fd, "w", true);
  add(set, both, "r")->write_cb = call, add(set, both, "s"), add(set, -1, "low"), add(set, 1024, "high");
  EXPECT_EQ(cf_fdevents_trigger(&set), -1);
  add(set, idle, "idle"), add(set, last, ".", true);  // alone
  EXPECT_EQ(cf_fdevents_trigger(&set), -1);
  add(set, idle, ".", true), add(set, idle, "idle");  // alone, on a descriptor of two events
  EXPECT_EQ(cf_fdevents_trigger(&set), -1);
  EXPECT_EQ(std::exchange(g_calls, ""), "~fcwrs!wrs...");
  for (const int each : {fd, both, idle, last}) close(each);
}

#ifndef __SANITIZE_ADDRESS__
TEST(Trigger, calls_16_a_pass_when_memory_is_short) {
  for (const int passes : {1, 3}) {
    cf_fdevents set = {};
    for (int i = 0; i < 40; ++i) add(set, ready_fd(), "-");
    g_passes = 0, g_calls.reserve(64), g_no_memory = passes > 1;
    const bool ended = cf_fdevents_trigger(&set) == -1 && (passes == 1 || cf_fdevents_new() == nullptr);
    g_no_memory = false;
    EXPECT_TRUE(ended && std::exchange(g_calls, "").size() == 40 && g_passes == passes) << g_passes;
  }
}
#endif

// Of 1,000 eventfds, 24 to 1023, each may be called once in a pass, up to the pass in
// which its event was deleted.
cf_fdevent* g_event[1024];
int g_until[1024], g_called_in[1024], g_wrong, g_load, g_taken;

int load(cf_fdevents* set, cf_fdevent* event, int fd, void* arg);
void add_load(cf_fdevents* set, int fd) {
  if (const kt::unique_fd made(ready_fd()); !is_open(fd)) dup3(made.get(), fd, O_CLOEXEC);
  if (g_event[fd] == nullptr) g_event[fd] = cf_fdevent_new(fd, load, &g_until[fd], nullptr, nullptr);
  g_event[fd]->fd = fd, g_until[fd] = 1 << 30, cf_fdevents_add(set, g_event[fd]);
}
int load(cf_fdevents* set, cf_fdevent*, int fd, void* arg) {
  static std::mt19937 random;
  const auto any_fd = [] { return 24 + int(random() % 1000); };
  g_wrong += arg != &g_until[fd] || g_until[fd] < g_passes || std::exchange(g_called_in[fd], g_passes) == g_passes;
  if (++g_load >= 100000) return cf_fdevents_del_all(set);
  if (g_load % 50 == 0) raise(SIGUSR1);
  eventfd_t value;
  eventfd_read(fd, &value), eventfd_write(any_fd(), 1), eventfd_write(any_fd(), 1);
  static int away[256];  // the last ones deleted
  const int gone = 24 + int(random() % 999), back = std::exchange(away[g_load % 256], gone);
  g_until[gone] = std::min(g_until[gone], g_passes);
  (random() % 2 == 0 ? cf_fdevents_del : cf_fdevents_del_close)(set, g_event[gone]);
  if (random() % 2 == 0) cf_fdevents_del_free(set, std::exchange(g_event[gone], nullptr));
  if (back != 0) add_load(set, back);
  return add_load(set, any_fd()), 0;
}
int take(cf_fdevents*, cf_fdevent*, int fd, void*) { return g_taken += cf_sigfd_get_next_signal(fd) == SIGUSR1; }

TEST(Trigger, bears_100000_calls_on_1000_descriptors_with_signals) {
  cf_fdevents* const set = cf_fdevents_new();
  const int signals = cf_sigfd_open(SIGUSR1, 0);
  cf_fdevent taker;
  EXPECT_EQ(cf_fdevent_init(&taker, signals, take, nullptr, nullptr, nullptr) + cf_fdevents_add(set, &taker), 0);
  for (int fd = 24; fd < 1024; ++fd) close(fd), add_load(set, fd);  // no descriptor of whoever started this
  interrupt_every_10_ms();
  EXPECT_EQ(cf_fdevents_trigger(set), -1);
  ualarm(0, 0);
  EXPECT_TRUE(g_load >= 100000 && g_nfds == 1024 && g_wrong == 0) << g_load << " " << g_wrong;
  fcntl(signals, F_SETFL, O_NONBLOCK);
  while (cf_sigfd_get_next_signal(signals) == SIGUSR1) ++g_taken;
  EXPECT_EQ(g_taken, 1999);
  for (int fd = 24; fd < 1024; ++fd) cf_fdevents_del_free(set, g_event[fd]), close(fd);
  cf_fdevents_free_all_self(set), cf_sigfd_close();
}

// Each action notes its name. One of them does, once, what the test is to find out
// ("a-b" = a deletes and frees b): '+' adds, '*' frees all, '>' notes who follows.
std::map<char, cf_event_action*> g_action;
string g_does;
int act(void* list, void* name, void*, void*) {
  const auto actions = static_cast<cf_event_action*>(list);
  g_calls += *static_cast<char*>(name);
  if (g_does[0] != g_calls.back()) return 7;
  cf_event_action* const other = g_action[g_does[2]];
  switch (std::exchange(g_does[0], '\0'), g_does[1]) {
    case '+':
      return cf_event_actions_add(actions, other);
    case '*':
      return cf_event_actions_free(actions), 0;
    case '>':
      return g_calls += *static_cast<char*>(cf_event_action_get_next(other)->b), 0;
  }
  if (cf_event_actions_del(actions, other) - cf_event_actions_del(actions, other) != 1) g_calls += "?";
  return cf_event_action_free(other);
}

TEST(Actions, are_called_in_order_whatever_they_do_to_the_list) {
  const std::map<string, string> cases = {{"   ", "abcabc"},  {"a-a", "abcbc"},    {"a-b", "acac"},
                                          {"b-a", "abcbc"},   {"a*a", "a"},        {"a>a", "abbcabc"},
                                          {"a+a", "abcabca"}, {"c+z", "abczabcz"}, {"c-c", "abcab"}};
  for (const auto& [does, called] : cases) {
    char names[] = "habcz";
    for (char& name : names) g_action[name] = cf_event_action_new(act, g_action['h'], &name, nullptr, nullptr);
    cf_event_action* const list = cf_event_actions_safe_add(nullptr, g_action['h']);
    for (const char name : {'a', 'b', 'c'}) EXPECT_EQ(cf_event_actions_safe_add(list, g_action[name]), list);
    g_does = does;
    cf_event_actions_add(list, cf_event_action_new(nullptr, nullptr, nullptr, nullptr, nullptr));  // calls nothing
    EXPECT_EQ(cf_event_actions_del(list, list) + cf_event_actions_go(list) + cf_event_actions_go(list), -1);
    EXPECT_EQ(std::exchange(g_calls, ""), called) << does;
    cf_event_actions_add(list, g_action['z']), cf_event_actions_free(list);
    EXPECT_EQ(cf_event_action_get_next(list), list);
    cf_event_action_free(list), cf_event_action_free(g_action['\0']);
  }
}

TEST(Signals, come_as_numbers_one_by_one) {
  const size_t before = open_descriptors();
  const int first = cf_sigfd_open(SIGUSR1, 9999, SIGUSR2, -1, SIGTERM), fd = cf_sigfd_open(SIGHUP, 0);
  EXPECT_TRUE(!is_open(first) && fcntl(fd, F_GETFD) == FD_CLOEXEC && open_descriptors() == before + 2);
  EXPECT_EQ(signal(SIGTERM, SIG_DFL), SIG_DFL);
  for (const int signo : {SIGUSR1, SIGUSR1, SIGHUP, SIGUSR2}) raise(signo);
  for (const int signo : {SIGUSR1, SIGUSR1, SIGHUP, SIGUSR2}) EXPECT_EQ(cf_sigfd_get_next_signal(fd), signo);
  errno = 77;
  for (int i = 0; i < 20000; ++i) raise(SIGHUP);  // more than a pipe holds
  EXPECT_EQ(errno, 77);
  cf_sigfd_close(), cf_sigfd_close();
  int others[2];
  EXPECT_EQ(pipe2(others, O_CLOEXEC | O_NONBLOCK) + raise(SIGHUP), 0);
  EXPECT_EQ(cf_sigfd_get_next_signal(others[0]), -1);
  EXPECT_EQ(close(others[1]) + cf_sigfd_get_next_signal(others[0]) + close(others[0]), -1);
  EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
