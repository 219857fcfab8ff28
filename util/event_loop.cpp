#include <errno.h>
#include <string.h>
#include <sys/select.h>

#include "base/unique_malloc.h"
#include "ktcomm/util_loop.h"
#include "util/event_list.h"

namespace kt {
namespace {

// The callback of a ready descriptor, deferred with all that it is given: the event
// may be gone by the time it is called.
struct Call {
  cf_fdevent_callback callback;
  cf_fdevent* event;
  int fd;
  void* arg;
};

// The calls of a pass, as a list of actions would hold them, but in one block: passes
// allocate nothing once it is large enough. The first few need no memory at all, so
// that a loop goes on when that is short.
class Calls {
 public:
  void clear() { count_ = 0; }

  // False when memory runs out.
  [[nodiscard]] bool add(const Call& call) {
    if (count_ == capacity_ && !grow()) return false;
    at_[count_++] = call;
    return true;
  }

  void run(cf_fdevents* set) const {
    for (size_t i = 0; i < count_; ++i) {
      const Call& call = at_[i];
      (void)call.callback(set, call.event, call.fd, call.arg);
    }
  }

 private:
  [[nodiscard]] bool grow() {
    unique_malloc<Call[]> grown = allocate<Call>(capacity_ * 2);
    if (grown == nullptr) return false;
    memcpy(grown.get(), at_, count_ * sizeof(Call));
    more_.swap(grown);
    at_ = more_.get();
    capacity_ *= 2;
    return true;
  }

  static constexpr size_t kFew = 16;
  Call few_[kFew];
  unique_malloc<Call[]> more_;
  Call* at_ = few_;
  size_t capacity_ = kFew;
  size_t count_ = 0;
};

bool is_waitable(int fd) {
  return fd >= 0 && fd < FD_SETSIZE;
}

// The lowest descriptor in `set`; -1 when it is empty.
int lowest_in(const fd_set& set) {
  unsigned long words[sizeof set / sizeof(unsigned long)];
  memcpy(words, &set, sizeof set);
  constexpr int kBits = sizeof words[0] * 8;
  for (int i = 0; i < FD_SETSIZE / kBits; ++i) {
    if (words[i] != 0) return i * kBits + __builtin_ctzl(words[i]);
  }
  return -1;
}

// The descriptors that a pass waits on and then those of them that are ready.
class Descriptors {
 public:
  // Takes those of a set of events; false when there is none to wait on.
  [[nodiscard]] bool take(cf_list* head) {
    FD_ZERO(&readable_);
    FD_ZERO(&writable_);
    highest_ = -1;
    any_writable_ = false;
    any_shared_ = false;
    for (cf_list* link = first_of(head); link != head; link = link->next) {
      cf_fdevent& event = *owner_of<cf_fdevent>(link);
      if (is_waitable(event.fd)) add(event);
    }
    return highest_ >= 0;
  }

  int wait() {
    fd_set* const writable = any_writable_ ? &writable_ : nullptr;
    return select(highest_ + 1, &readable_, writable, nullptr, nullptr);
  }

  // Collects the callbacks for the `count` that are ready, in the order of the events,
  // until memory runs out.
  void collect(cf_list* head, int count, Calls& calls) const {
    for (cf_list* link = first_to_look_at(head, count); link != head; link = link->next) {
      const Call call = call_of(*owner_of<cf_fdevent>(link));
      if (call.callback == nullptr) continue;
      if (!calls.add(call)) return;
      if (--count == 0 && !any_shared_) return;
    }
  }

 private:
  void add(cf_fdevent& event) {
    const int fd = event.fd;
    if (fd > highest_) highest_ = fd;
    if (FD_ISSET(fd, &readable_) || FD_ISSET(fd, &writable_)) any_shared_ = true;
    by_fd_[fd] = &event;
    if (event.read_cb != nullptr) FD_SET(fd, &readable_);
    if (event.write_cb != nullptr) {
      FD_SET(fd, &writable_);
      any_writable_ = true;
    }
  }

  // The usual pass has one descriptor ready, and its event need not be searched for.
  cf_list* first_to_look_at(cf_list* head, int count) const {
    if (count != 1 || any_shared_) return head->next;
    const int readable = lowest_in(readable_);
    return &by_fd_[readable >= 0 ? readable : lowest_in(writable_)]->link;
  }

  // What there is to call for an event: without a callback when it is not ready.
  Call call_of(cf_fdevent& event) const {
    const int fd = event.fd;
    if (!is_waitable(fd)) return {};
    if (event.read_cb != nullptr && FD_ISSET(fd, &readable_)) {
      return {event.read_cb, &event, fd, event.read_arg};
    }
    if (event.write_cb != nullptr && FD_ISSET(fd, &writable_)) {
      return {event.write_cb, &event, fd, event.write_arg};
    }
    return {};
  }

  fd_set readable_;
  fd_set writable_;
  int highest_;
  bool any_writable_;
  bool any_shared_;
  cf_fdevent* by_fd_[FD_SETSIZE];  // those of the descriptors in the sets
};

}  // namespace
}  // namespace kt

int cf_fdevents_trigger(cf_fdevents* set) {
  if (set == nullptr) return -1;
  cf_list* const head = &set->head.link;
  kt::Calls calls;
  for (kt::Descriptors descriptors; descriptors.take(head);) {
    const int count = descriptors.wait();
    if (count < 0 && errno != EINTR) return -1;
    if (count <= 0) continue;
    calls.clear();
    descriptors.collect(head, count, calls);
    calls.run(set);
  }
  return -1;
}
