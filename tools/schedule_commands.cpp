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
#include "tools/printer.h"
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

// "Mon 17:00"
Sentence moment(int minute_of_week) {
  Sentence text;
  text.append_format("%s %02d:%02d", day_name(minute_of_week / kDayMinutes),
                     minute_of_week % kDayMinutes / 60, minute_of_week % 60);
  return text;
}

// When the answer will change; nothing when it will not.
std::optional<int> change_of(const Target& target, const Answer& answer) {
  if (target.off != nullptr) return std::nullopt;
  return target.plan.next(answer.minute, answer.active != 1);
}

// "active until Mon 17:00"
Sentence state(const Target& target, const Answer& answer) {
  Sentence text;
  const bool active = answer.active == 1;
  if (target.off != nullptr) {
    text.append_format("inactive: %s", target.off);
  } else if (const auto change = change_of(target, answer)) {
    text.append_format("%s until %s", active ? "active" : "inactive", moment(*change).c_str());
  } else {
    text.append(active ? "always active" : "never active");
  }
  return text;
}

void print_state(Printer& printer, const Target& target, const Answer& answer) {
  printer.flag("active", answer.active == 1);
  printer.text("now", moment(answer.minute).view());
  const auto change = change_of(target, answer);
  printer.text("until", change ? moment(*change).view() : "");
  printer.text("off", target.off != nullptr ? target.off : "");
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

struct Item {
  int number;
  const char* text;
  const SchSlot& slot;  // what it is taken for
  const char* reason;   // why it is not valid, or null
};

// Calls `use` for each item; returns whether there were any.
template <typename F>
bool for_each_item(const EvtSchRecord& list, F use) {
  int number = 0;
  bool any = false;
  for (const auto& item : list.items) {
    ++number;
    if (item[0] == '\0') continue;
    any = true;
    SchSlot slot;
    const char* const reason = read_item(item, slot);
    use(Item{number, item, read_plain_item(item), reason});
  }
  return any;
}

template <typename F>
bool for_each_item(const EventEntry& event, F use) {
  int number = 0;
  for (const SchSlot& slot : event.schedule.slots) {
    if (slot.day_mask == 0 || !has_schedule(event)) continue;
    use(Item{++number, item_text(slot).c_str(), slot, nullptr});
  }
  return number != 0;
}

template <typename F>
bool for_each_item(const Target& target, F use) {
  return target.number != 0 ? for_each_item(target.event, use) : for_each_item(target.list, use);
}

void print_items(const Target& target) {
  const bool is_list = target.number == 0;
  const bool is_off = is_list && target.list.mode == 0;
  if (is_off) (void)printf("switched off, so always active\n");
  const bool any = for_each_item(target, [](const Item& item) {
    (void)printf("%2d   %-13s  %s%s%s\n", item.number, item.text, item_meaning(item.slot).c_str(),
                 item.reason ? "; not valid: " : "", item.reason ? item.reason : "");
  });
  if (any || is_off) return;
  (void)printf("no %s, so always active\n", is_list ? "items" : "schedule");
}

void week_for_people(const Target& target, const Answer& answer) {
  print_title(target);
  draw_week(target.plan, answer.minute);
  (void)printf("\n");
  print_items(target);
  (void)printf("\nnow, %s: %s\n", moment(answer.minute).c_str(), state(target, answer).c_str());
}

void print_verdict(Printer& printer, const char* item, const char* reason) {
  printer.text("item", item);
  printer.flag("valid", reason == nullptr);
  printer.text("reason", reason != nullptr ? reason : "");
}

// The items, and the times of the week in which they make it active.
void week_for_programs(Printer& printer, const Target& target) {
  printer.begin_list("items");
  (void)for_each_item(target, [&](const Item& item) {
    printer.begin_object(nullptr);
    printer.number("number", item.number);
    print_verdict(printer, item.text, item.reason);
    printer.text("meaning", item_meaning(item.slot).view());
    printer.end_object();
  });
  printer.end_list();
  const WeekPlan& plan = target.plan;
  printer.begin_list("week");
  for (int minute = 0; minute < kWeekMinutes; ++minute) {
    if (!plan.is_active(minute)) continue;
    const int first = minute;
    while (minute + 1 < kWeekMinutes && plan.is_active(minute + 1)) ++minute;
    printer.begin_object(nullptr);
    printer.text("from", moment(first).view());
    printer.text("until", moment((minute + 1) % kWeekMinutes).view());
    printer.end_object();
  }
  printer.end_list();
}

}  // namespace

int check_schedule_items(const Request& request) {
  int worst = kDone;
  Printer printer(request);
  if (!printer.plain()) printer.begin_list("items");
  for (int i = 0; i < request.count; ++i) {
    SchSlot slot;
    const char* const item = request.arguments[i];
    const char* const reason = read_item(item, slot);
    if (reason) worst = kRefused;
    if (printer.plain()) {
      (void)printf("%s: %s\n", item, reason ? reason : "valid");
    } else {
      printer.begin_object(nullptr);
      print_verdict(printer, item, reason);
      printer.end_object();
    }
  }
  return worst;
}

int schedule_now(const Request& request) {
  Target target;
  const int unread = read_target(request.arguments[0], target);
  if (unread != kDone) return unread;
  const Answer answer = ask_now(target);
  if (answer.active < 0) return cannot_tell();
  Printer printer(request);
  if (printer.plain()) {
    (void)printf("%s\n", state(target, answer).c_str());
  } else {
    print_state(printer, target, answer);
  }
  return answer.active == 1 ? kDone : kNotFound;
}

int schedule_week(const Request& request) {
  Target target;
  const int unread = read_target(request.arguments[0], target);
  if (unread != kDone) return unread;
  const Answer answer = ask_now(target);
  if (answer.active < 0) return cannot_tell();
  Printer printer(request);
  if (printer.plain()) {
    week_for_people(target, answer);
    return kDone;
  }
  print_state(printer, target, answer);
  week_for_programs(printer, target);
  return kDone;
}

}  // namespace kt::tools
