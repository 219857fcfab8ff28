// schedule_commands.cpp - weekly schedules: their items, their state, their week.
#include <errno.h>
#include <ktcomm/sched.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "base/paths.h"
#include "tools/event_form.h"
#include "tools/event_lookup.h"
#include "tools/ktctl.h"
#include "tools/schedule_item.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"
#include "tools/week_grid.h"
#include "tools/week_plan.h"

namespace kt::tools {
namespace {

// A schedule that the command line names.
struct Target {
  int plain = kNone;  // the number that schedule_chk has for it
  int number = 0;     // of an event
  EvtSchRecord list = {};
  EventEntry event = {};
  const char* off = nullptr;  // why it is inactive, whatever the schedule says
  WeekPlan plan;

  enum : int { kNone = -1, kEventList = 0, kVideoList = 1 };
};

int read_plain(Target& target) {
  SettingsLock lock;
  lock.try_for_a_moment();
  unique_file file;
  const int unfit = open_settings(paths::kSettings, file);
  if (unfit != kDone) return unfit;
  const auto read = target.plain == Target::kVideoList ? ReadAceSch : ReadEvtSch;
  if (read(&target.list) != 0) return fail_errno(paths::kSettings);
  target.plan = WeekPlan(target.list);
  return kDone;
}

int read_event(const char* text, Target& target) {
  EventConfig config;
  const int unread = read_events(config);
  if (unread != kDone) return unread;
  target.number = find_event(config, text);
  if (target.number == 0) return kNotFound;
  target.event = config.events[target.number - 1];
  target.event.schedule.enable = has_schedule(target.event) ? 1 : 0;
  target.plan = WeekPlan(target.event.schedule);
  if (config.trigger == 0) target.off = "all events are off";
  if (target.event.enabled == 0) target.off = "the event is disabled";
  return kDone;
}

// Returns kDone, or the exit code after it has said why not.
int read_target(const char* text, Target& target) {
  if (strcmp(text, "event") == 0) target.plain = Target::kEventList;
  if (strcmp(text, "video") == 0) target.plain = Target::kVideoList;
  return target.plain != Target::kNone ? read_plain(target) : read_event(text, target);
}

// ---- Now ------------------------------------------------------------------

int minute_of_week() {
  const time_t now = ::time(nullptr);
  struct tm local = {};
  (void)::localtime_r(&now, &local);  // Sunday 00:00 when it cannot be told, as in the library
  return local.tm_wday * kDayMinutes + local.tm_hour * 60 + local.tm_min;
}

struct Answer {
  int minute;  // of the week
  int active;  // 1, 0, or -1 when it cannot be told
};

int ask(Target& target) {
  if (target.plain != Target::kNone) return schedule_chk(target.plain);
  // A set just filled has an answer for 00:00, which is not of its slots.
  target.event.schedule.last_minute = kDayMinutes;
  return chk_sch_from_mm(&target.event.schedule);
}

// The answer and the minute that it is for.
Answer ask_now(Target& target) {
  for (;;) {
    const int minute = minute_of_week();
    const int active = target.off != nullptr ? 0 : ask(target);
    if (minute == minute_of_week()) return {minute, active};
  }
}

using Sentence = StringBuffer<80>;

// "active until Mon 17:00"
Sentence state(const Target& target, const Answer& answer) {
  Sentence text;
  const bool active = answer.active == 1;
  if (target.off != nullptr) {
    text.append_format("inactive: %s", target.off);
  } else if (const auto change = target.plan.next(answer.minute, !active)) {
    text.append_format("%s until %s %02d:%02d", active ? "active" : "inactive",
                       day_name(*change / kDayMinutes), *change % kDayMinutes / 60, *change % 60);
  } else {
    text.append(active ? "always active" : "never active");
  }
  return text;
}

int cannot_tell() {
  return fail(kSystemError, "%s: %s", paths::kSettings, strerror(errno));
}

// ---- The week -------------------------------------------------------------

void print_title(const Target& target) {
  if (target.number != 0) {
    (void)printf("Event %d, %s\n", target.number, target.event.name);
  } else {
    (void)printf("%s schedule\n", target.plain == Target::kVideoList ? "Video" : "Event");
  }
}

// The item, what it is taken for, and what is wrong with it.
void print_item(int number, const char* item, const SchSlot& slot, const char* reason) {
  (void)printf("%2d   %-13s  %s%s%s\n", number, item, item_meaning(slot).c_str(),
               reason ? "; not valid: " : "", reason ? reason : "");
}

void print_plain_items(const EvtSchRecord& list) {
  if (list.mode == 0) (void)printf("switched off, so always active\n");
  int number = 0;
  bool any = false;
  for (const auto& item : list.items) {
    ++number;
    if (item[0] == '\0') continue;
    any = true;
    SchSlot slot;
    const char* const reason = read_item(item, slot);
    print_item(number, item, read_plain_item(item), reason);
  }
  if (!any && list.mode != 0) (void)printf("no items, so always active\n");
}

void print_slots(const EventEntry& event) {
  if (!has_schedule(event)) (void)printf("no schedule, so always active\n");
  int number = 0;
  for (const SchSlot& slot : event.schedule.slots) {
    if (slot.day_mask == 0 || !has_schedule(event)) continue;
    print_item(++number, item_text(slot).c_str(), slot, nullptr);
  }
}

}  // namespace

int check_schedule_items(const Request& request) {
  int worst = kDone;
  for (int i = 0; i < request.count; ++i) {
    SchSlot slot;
    const char* const reason = read_item(request.arguments[i], slot);
    (void)printf("%s: %s\n", request.arguments[i], reason ? reason : "valid");
    if (reason) worst = kRefused;
  }
  return worst;
}

int schedule_now(const Request& request) {
  Target target;
  const int unread = read_target(request.arguments[0], target);
  if (unread != kDone) return unread;
  const Answer answer = ask_now(target);
  if (answer.active < 0) return cannot_tell();
  (void)printf("%s\n", state(target, answer).c_str());
  return answer.active == 1 ? kDone : kNotFound;
}

int schedule_week(const Request& request) {
  Target target;
  const int unread = read_target(request.arguments[0], target);
  if (unread != kDone) return unread;
  const Answer answer = ask_now(target);
  if (answer.active < 0) return cannot_tell();
  print_title(target);
  draw_week(target.plan, answer.minute);
  (void)printf("\n");
  if (target.number != 0) {
    print_slots(target.event);
  } else {
    print_plain_items(target.list);
  }
  (void)printf("\nnow, %s %02d:%02d: %s\n", day_name(answer.minute / kDayMinutes),
               answer.minute % kDayMinutes / 60, answer.minute % 60, state(target, answer).c_str());
  return kDone;
}

}  // namespace kt::tools
