#include "tools/trace_files.h"

#include <errno.h>
#include <fcntl.h>
#include <ktcomm/log.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/io.h"
#include "base/paths.h"
#include "base/unique_fd.h"
#include "tools/number.h"

namespace kt::tools {
namespace {

TracePath trace_directory(int module) {
  TracePath path;
  path.append_format("%s/%s", paths::kTraceDirectory, mod_define[module].name);
  return path;
}

TracePath info_file(TraceLog log) {
  TracePath path = trace_directory(log.module);
  path.append_format("/~%d.info", log.sub);
  return path;
}

// Takes "[...]" off the front of `text`; what was in it.
std::optional<std::string_view> take_bracketed(std::string_view& text) {
  if (text.empty() || text.front() != '[') return std::nullopt;
  const size_t end = text.find(']');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view inside(text.data() + 1, end - 1);
  text.remove_prefix(end + 1);
  return inside;
}

[[nodiscard]] bool is_time(std::string_view text) {
  constexpr std::string_view kForm = "0000-00-00 00:00:00 000000";
  if (text.size() != kForm.size()) return false;
  for (size_t i = 0; i < kForm.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kForm[i] == '0' ? !digit : text[i] != kForm[i]) return false;
  }
  return true;
}

// Sets all but `text` when `line` begins as an entry of this module does.
[[nodiscard]] bool read_head(std::string_view line, int module, TraceEntry& entry) {
  const auto level = take_bracketed(line);
  if (!level || !parse_number(*level)) return false;
  const auto name = take_bracketed(line);
  if (!name || *name != mod_define[module].name) return false;
  const auto time = take_bracketed(line);
  if (!time || !is_time(*time)) return false;
  const auto sequence = take_bracketed(line);
  if (!sequence || !parse_number<unsigned>(*sequence)) return false;
  entry = {{}, line, *level, *time, *sequence};
  return true;
}

// The length of the first line, with its line feed.
size_t line_length(std::string_view text) {
  const size_t end = text.find('\n');
  return end == std::string_view::npos ? text.size() : end + 1;
}

}  // namespace

TracePath trace_file(TraceLog log, int number) {
  TracePath path = trace_directory(log.module);
  path.append_format("/%d-%d.log", log.sub, number);
  return path;
}

std::optional<int> current_trace_file(TraceLog log) {
  int words[2];  // sequence number of the next line, file number
  const unique_fd file = open_fd(info_file(log).c_str(), O_RDONLY);
  if (!file.ok() || read_fully(file.get(), words, sizeof words) != sizeof words) {
    return std::nullopt;
  }
  const int number = words[1];
  if (number < 0 || number == INT_MAX) return std::nullopt;  // damaged: no trace gets there
  return number;
}

// When file N is full, file N - 1 - keep is deleted.
int oldest_trace_file(TraceLog log, int current) {
  const int older = mod_define[log.module].keep[log.sub] + 1;
  return current > older ? current - older : 0;
}

std::optional<int> find_trace_module(const char* text) {
  const auto number = parse_number(text);
  for (int module = 0; mod_define[module].name != nullptr; ++module) {
    if (number == module || strcmp(mod_define[module].name, text) == 0) return module;
  }
  return std::nullopt;
}

int read_trace_module(const char* text, int& module) {
  const auto found = find_trace_module(text);
  if (!found) return fail(kNotFound, "%s: there is no such trace module", text);
  module = *found;
  return kDone;
}

int read_trace_log(const Request& request, TraceLog& log) {
  const int unknown = read_trace_module(request.arguments[0], log.module);
  if (unknown != kDone) return unknown;
  const auto sub = request.count == 2 ? parse_number(request.arguments[1]) : 0;
  if (!sub || *sub < 0 || *sub >= kTraceSubs) {
    return fail(kUsage, "%s: SUB is 0 or 1", request.arguments[1]);
  }
  log.sub = *sub;
  // One that must not be read would pass for one that was not begun.
  const TracePath info = info_file(log);
  return ::access(info.c_str(), R_OK) == 0 || errno == ENOENT ? kDone : fail_errno(info.c_str());
}

void TraceReader::open(TraceLog log, bool older) {
  log_ = log;
  rest_ = {};
  const auto current = current_trace_file(log);
  last_ = current ? *current : -1;
  number_ = older ? oldest_trace_file(log, last_) : last_;
}

// A file that a rotation has taken away meanwhile holds nothing.
bool TraceReader::read_file(const char* path) {
  const unique_fd file = open_fd(path, O_RDONLY);
  struct stat status;
  if (!file.ok() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  content_ = allocate<char>(static_cast<size_t>(status.st_size));
  if (content_ == nullptr) return false;
  const ssize_t size = read_fully(file.get(), content_.get(), static_cast<size_t>(status.st_size));
  if (size <= 0) return false;
  rest_ = {content_.get(), static_cast<size_t>(size)};
  return true;
}

bool TraceReader::next() {
  while (rest_.empty()) {
    if (last_ < 0 || number_ > last_) return false;
    (void)read_file(trace_file(log_, number_++).c_str());
  }
  TraceEntry next = {};
  entry_ = {};
  if (!read_head(rest_, log_.module, entry_)) entry_.message = rest_;
  size_t length = line_length(rest_);
  for (std::string_view behind = rest_; length < rest_.size();) {
    behind.remove_prefix(line_length(behind));
    if (read_head(behind, log_.module, next)) break;
    length += line_length(behind);
  }
  entry_.text = {rest_.data(), length};
  rest_.remove_prefix(length);
  const size_t head = static_cast<size_t>(entry_.message.data() - entry_.text.data());
  entry_.message = {entry_.message.data(), length - head};
  if (!entry_.message.empty() && entry_.message.back() == '\n') entry_.message.remove_suffix(1);
  return true;
}

}  // namespace kt::tools
