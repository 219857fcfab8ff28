// The file of the event log, as others or a killed writer have left it.
//
// Input: time of the oldest entry wanted, date format (9 = ISO), how often the content is
// repeated, the text of a new entry; the log.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "fuzz/fuzz.h"
#include "ktcomm/log.h"

using namespace kt::fuzz;

namespace {

constexpr char kLog[] = "/tmp/debug/user/nc.log";
constexpr size_t kLimit = 16384, kLongest = 254;

std::string date_of(long time, int format) {
  const time_t seconds = time;
  struct tm local = {};
  if (gmtime_r(&seconds, &local) == nullptr) {  // a year beyond all numbers
    if (format == 9) return "";
    local = {};
  }
  const long long year = local.tm_year + 1900LL;
  const int month = local.tm_mon + 1, day = local.tm_mday;
  char date[80], clock[20];
  snprintf(clock, sizeof clock, "%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
  if (format == 0) return snprintf(date, sizeof date, "%lld-%02d-%02d %s", year, month, day, clock), date;
  if (format == 2) return snprintf(date, sizeof date, "%02d/%02d/%lld %s", day, month, year, clock), date;
  if (format == 9) return snprintf(date, sizeof date, "%04lld-%02d-%02dT%s+00:00", year, month, day, clock), date;
  return snprintf(date, sizeof date, "%02d/%02d/%lld %s", month, day, year, clock), date;
}

// Entries as sscanf reads them.
std::string rendered(const std::string& log, long since, int format) {
  std::string text;
  for (const std::string& line : pieces_of(log, kLongest + 1)) {
    long time = 0;
    char message[kLongest + 2] = "";
    if (sscanf(line.c_str(), "%ld %255[^\n]", &time, message) != 2 || time < since) break;
    // Dates beyond the year 9999 are cut to the room there is.
    text += date_of(time, format).substr(0, format == 9 ? 62 : 22) + " " + message + "\n";
  }
  return text;
}

void judge_reading(const std::string& log, long since, int format) {
  char* text = nullptr;
  expect_same("log is read", GetLogFromFile_in(&text, since, format == 9 ? 1 : 0), 0);
  const std::string got = text != nullptr ? text : "";
  free(text);
  expect_same("entries", got, rendered(log, since, format));
}

// One entry more, in front, and whole lines of the old end less.
void judge_writing(const std::string& log, const std::string& entry) {
  std::string line = entry.back() == '\n' ? entry.substr(0, entry.size() - 1) : entry;
  line = line.substr(0, kLongest);
  for (char& c : line) c = c == '\n' ? ' ' : c;
  line += "\n";
  Text record(entry);
  const int result = SaveMessageToLogFile(record.get(), 1);
  const std::string after = read_file(kLog);
  expect_same("record", record.str(), entry);
  if (result != 0) {
    expect(log.size() + line.size() > kLimit && log.find('\n', 0) >= kLimit - line.size(),
           "only a log of one line is full");
    expect_same("log that is full", after, log);
    return;
  }
  expect(after.size() <= kLimit, "size of the log", after);
  expect_same("first line", after.substr(0, line.size()), line);
  const std::string rest = after.substr(line.size());
  expect_same("what follows", rest, log.substr(0, rest.size()));
  expect(rest.size() == log.size() || rest.empty() || rest.back() == '\n', "whole lines stay", rest);
  if (log.size() + line.size() <= kLimit && log.find('\n') != log.npos) {
    expect_same("what stays when all fits", rest.size(), log.rfind('\n') + 1);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int since = input.number(), format = input.number();
  const int times = static_cast<int>(static_cast<unsigned>(input.number()) % 600) + 1;
  const std::string entry = up_to_nul(input.line());
  std::string log;
  for (int i = 0; i < times && log.size() < 2 * kLimit; ++i) log += input.rest();

  write_file("/mnt/ramdisk/env/system.conf", "[SYSTEM]\ndate_format=" + std::to_string(format) + "\n");
  write_file("/tmp/SYS_LOG_start_wrap", "");
  write_file(kLog, log);
  judge_reading(log, since, format);
  if (!entry.empty() && !Text(entry).is_null()) judge_writing(log, entry);
  return 0;
}
