// Editing a crontab of others: all but the lines that are meant stay byte for byte.
//
// Input: operation (0 and 1 add, 2 and 3 delete, odd for linear lines, 4 delete by
// command), the fifteen numbers of the record from its first on, the command; the crontab.
#include <stdio.h>
#include <string.h>

#include "fuzz/fuzz.h"
#include "ktcomm/sched.h"

using namespace kt::fuzz;

namespace {

constexpr char kCrontab[] = "/mnt/ramdisk/crontab";
constexpr size_t kKnown = 255;  // characters by which a line is known

SchdEntry read_entry(Input& input) {
  SchdEntry entry;
  int* const numbers[] = {&entry.wday_step,   &entry.wday_start, &entry.wday_end,   &entry.month_step,
                          &entry.month_start, &entry.month_end,  &entry.mday_step,  &entry.mday_start,
                          &entry.mday_end,    &entry.hour_step,  &entry.hour_start, &entry.hour_end,
                          &entry.min_step,    &entry.min_start,  &entry.min_end};
  int given[15];
  const std::string line = input.line();
  int count = 0, length = 0;
  for (size_t at = 0; count < 15 && sscanf(line.c_str() + at, "%d%n", &given[count], &length) == 1; ++count) {
    at += static_cast<size_t>(length);
  }
  for (int i = 0; i < 15; ++i) *numbers[i] = i < count ? given[i] : -1;
  const std::string command = input.line();
  memset(entry.command, 0, sizeof entry.command);
  entry.reserved = 0;
  memcpy(entry.command, command.c_str(), std::min(command.size(), sizeof entry.command));
  return entry;
}

bool is_valid(const SchdEntry& entry) {
  const auto in = [](int low, int high, int a, int b, int c) {
    for (const int number : {a, b, c}) {
      if (number != -1 && (number < low || number > high)) return false;
    }
    return true;
  };
  return entry.command[0] != '\0' && in(0, 6, entry.wday_step, entry.wday_start, entry.wday_end) &&
         in(1, 12, entry.month_step, entry.month_start, entry.month_end) &&
         in(1, 31, entry.mday_step, entry.mday_start, entry.mday_end) &&
         in(0, 23, entry.hour_step, entry.hour_start, entry.hour_end) &&
         in(0, 59, entry.min_step, entry.min_start, entry.min_end);
}

std::string field_text(int step, int start, int end) {
  if (start == -1) return "*";
  const std::string range = std::to_string(start) + (end == -1 ? "" : "-" + std::to_string(end));
  return range + (end == -1 || step == -1 ? "" : "/" + std::to_string(step));
}

std::string line_of(const SchdEntry& e, bool linear) {
  return (linear ? "L" : "") + field_text(e.min_step, e.min_start, e.min_end) + " " +
         field_text(e.hour_step, e.hour_start, e.hour_end) + " " + field_text(e.mday_step, e.mday_start, e.mday_end) +
         " " + field_text(e.month_step, e.month_start, e.month_end) + " " +
         field_text(e.wday_step, e.wday_start, e.wday_end) + " root " +
         std::string(e.command, strnlen(e.command, sizeof e.command - 1)) + "\n";
}

// The first word behind the sixth blank; empty when there is none or it is not all known.
std::string command_of(const std::string& line) {
  size_t at = 0;
  for (int i = 0; i < 6; ++i) {
    at = line.find(' ', at);
    if (at == line.npos) return "";
    ++at;
  }
  const size_t end = line.find_first_of(" \n", at);
  if (end == line.npos ? line.size() >= kKnown : end >= kKnown) return "";
  return line.substr(at, end == line.npos ? end : end - at);
}

std::string edited(const std::string& crontab, const SchdEntry& entry, int operation) {
  const std::string line = line_of(entry, operation % 2 == 1), command(entry.command, strnlen(entry.command, 127));
  const bool adds = operation < 2;
  std::string kept;
  for (const std::string& old : pieces_of(crontab)) {
    const bool meant = operation == 4 ? command_of(old) == command : old == line || (adds && old + "\n" == line);
    if (!meant) kept += old;
  }
  if (!adds) return kept;
  return kept + (kept.empty() || kept.back() == '\n' ? "" : "\n") + line;
}

int run(SchdEntry& entry, int operation) {
  constexpr int (*kOperations[])(SchdEntry*) = {SCHDAddSchedule, SCHDAddLinearSchedule, SCHDDelSchedule,
                                                SCHDDelLinearSchedule, SCHDDelScheduleByCmd};
  return kOperations[operation](&entry);
}

// What follows each blank of a line.
void judge_fields(const std::string& line) {
  size_t at = 0;
  for (int n = 1; n < 9; ++n) {
    at = at == line.npos ? at : line.find(' ', at);
    at = at == line.npos ? at : at + 1;
    std::vector<char> out(line.size() + 1), exact(line.begin(), line.end());
    const bool there = at < line.size();
    expect_same("field", SCHDCutFields(exact.data(), static_cast<int>(line.size()), n, out.data()), there ? 0 : -1);
    if (!there) continue;
    std::string wanted = line.substr(at);
    if (wanted.back() == '\n') wanted.back() = '\0';
    expect(memcmp(out.data(), wanted.data(), wanted.size()) == 0, "what follows a blank", line);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int operation = static_cast<int>(static_cast<unsigned>(input.number()) % 5);
  SchdEntry entry = read_entry(input);
  const std::string crontab = input.rest();
  write_file(kCrontab, crontab);
  const bool valid = is_valid(entry);
  const std::string wanted = valid ? edited(crontab, entry, operation) : crontab;
  expect_same("result", run(entry, operation), valid ? 0 : -2);
  expect_same("crontab", read_file(kCrontab), wanted);
  for (const std::string& line : pieces_of(crontab.substr(0, 600))) judge_fields(line);
  return 0;
}
