// The event loop: passes over 1, 100 and 900 descriptors.
#include <ktcomm/util.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <string>

#include "bench/bench.h"

namespace kt::bench {
namespace {

// A set of events over eventfds, of which the first `active` stay ready for ever.
struct Loop {
  cf_fdevents* set = cf_fdevents_new();
  std::vector<cf_fdevent*> events;
  long passes_left = 0;
};

// The callback of all. The one of the first event ends the loop, by emptying the set.
int on_ready(cf_fdevents* set, cf_fdevent* event, int /*fd*/, void* arg) {
  Loop& loop = *static_cast<Loop*>(arg);
  if (event == loop.events[0] && --loop.passes_left == 0) cf_fdevents_del_all(set);
  return 0;
}

Loop* make_loop(size_t descriptors, size_t active) {
  Loop* const loop = new Loop;
  for (size_t i = 0; i < descriptors; ++i) {
    const int fd = eventfd(i < active ? 1 : 0, EFD_CLOEXEC);
    require(fd >= 0 && fd < FD_SETSIZE, "eventfd");
    loop->events.push_back(cf_fdevent_new(fd, on_ready, loop, nullptr, nullptr));
  }
  return loop;
}

void fill(Loop& loop, long passes) {
  loop.passes_left = passes;
  for (cf_fdevent* const event : loop.events) cf_fdevents_add(loop.set, event);
}

cf_fdevent& event_of(cf_list* link) {
  return *reinterpret_cast<cf_fdevent*>(reinterpret_cast<char*>(link) - offsetof(cf_fdevent, link));
}

struct Ready {
  cf_fdevent* event;
  int fd;
};

// Collects who waits, waits, collects who is ready, calls them.
void run_by_hand(cf_fdevents* set) {
  cf_list* const head = &set->head.link;
  Ready ready[FD_SETSIZE];
  while (head->next != head) {
    fd_set readable, writable;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    int highest = -1;
    for (cf_list* link = head->next; link != head; link = link->next) {
      const cf_fdevent& event = event_of(link);
      if (event.fd > highest) highest = event.fd;
      if (event.read_cb != nullptr) FD_SET(event.fd, &readable);
      if (event.write_cb != nullptr) FD_SET(event.fd, &writable);
    }
    if (select(highest + 1, &readable, &writable, nullptr, nullptr) <= 0) continue;
    size_t count = 0;
    for (cf_list* link = head->next; link != head; link = link->next) {
      cf_fdevent& event = event_of(link);
      if ((event.read_cb != nullptr && FD_ISSET(event.fd, &readable)) ||
          (event.write_cb != nullptr && FD_ISSET(event.fd, &writable))) {
        ready[count++] = {&event, event.fd};
      }
    }
    for (size_t i = 0; i < count; ++i) {
      cf_fdevent& event = *ready[i].event;
      if (event.read_cb != nullptr) {
        (void)event.read_cb(set, &event, ready[i].fd, event.read_arg);
      } else {
        (void)event.write_cb(set, &event, ready[i].fd, event.write_arg);
      }
    }
  }
}

void add_loop(const char* name, double most, size_t descriptors, size_t active) {
  constexpr long kPasses = 200;  // so that filling and emptying the set count for little
  const auto run = [=](benchmark::State& state) {
    Loop* const loop = make_loop(descriptors, active);
    auto library = [loop] { require(cf_fdevents_trigger(loop->set) == -1, "the loop's end"); };
    auto minimum = [loop] { run_by_hand(loop->set); };
    auto prepare = [loop] { fill(*loop, kPasses); };
    compare(state, {{Aim::kRatio, most}, 101, 1}, library, minimum, prepare);
    for (cf_fdevent* const event : loop->events) cf_fdevents_del_close_free(loop->set, event);
    cf_fdevents_free(loop->set);
    delete loop;
  };
  benchmark::RegisterBenchmark(name, run)->Iterations(101);
}

}  // namespace

void add_all() {
  const struct rlimit limit = {FD_SETSIZE, FD_SETSIZE};
  require(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
  add_loop("event loop, 200 passes, 1 descriptor", 1.05, 1, 1);
  add_loop("event loop, 200 passes, 100 descriptors, 1 active", 1.02, 100, 1);
  add_loop("event loop, 200 passes, 900 descriptors, 1 active", 1.01, 900, 1);
  add_loop("event loop, 200 passes, 100 descriptors, all active", 1.5, 100, 100);
  add_loop("event loop, 200 passes, 900 descriptors, all active", 1.5, 900, 900);
}

}  // namespace kt::bench
