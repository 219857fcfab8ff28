#include "config/ini_line.h"

#include <errno.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>

#include "base/shell.h"
#include "base/text.h"

namespace kt {
namespace {

// Leaves room on a command line for the command and the temporary copy.
constexpr size_t kLongestPath = kCommandLength - 128;

}  // namespace

SectionHeader::SectionHeader(std::string_view section)
    : given_(section), bracketed_(has_prefix(section, "[")) {
  if (bracketed_) return;
  built_.append("[");
  built_.append(section);
  built_.append("]");
}

bool SectionHeader::matches(std::string_view line, LetterCase letter_case) const {
  return valid() && begins_with(line, text(), letter_case);  // which begins with a bracket
}

void cut_at_line_feed(const char* section) {
  char* const line_feed = section != nullptr ? const_cast<char*>(strchr(section, '\n')) : nullptr;
  if (line_feed != nullptr) *line_feed = '\0';
}

bool begins_with(std::string_view text, std::string_view prefix, LetterCase letter_case) {
  if (letter_case == LetterCase::kExact) return has_prefix(text, prefix);
  return text.size() >= prefix.size() &&
         strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

std::optional<KeyMatch> match_key(std::string_view line, std::string_view key,
                                  LetterCase letter_case) {
  line = skip_blanks(line);
  if (!begins_with(line, key, letter_case)) return std::nullopt;
  KeyMatch match{{line.data(), key.size()}, line};
  match.rest.remove_prefix(key.size());
  return match;
}

std::string_view skip_blanks(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  return text;
}

std::optional<std::string_view> find_value(std::string_view line, std::string_view key) {
  const auto match = match_key(line, key, LetterCase::kExact);
  if (!match) return std::nullopt;
  std::string_view rest = skip_blanks(match->rest);
  if (rest.empty() || rest.front() != '=') return std::nullopt;
  rest.remove_prefix(1);
  return rest;
}

std::string_view strip_line_end(std::string_view text) {
  const size_t nul = text.find('\0');
  if (nul != std::string_view::npos) text.remove_suffix(text.size() - nul);
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) text.remove_suffix(1);
  return text;
}

void store_value(std::string_view value, char* out, size_t size) {
  const size_t count = value.size() > size ? size - 1 : value.size();
  if (count != 0) memcpy(out, value.data(), count);
  out[count] = '\0';
}

unique_fd open_or_create(const char* path) {
  if (path == nullptr || strlen(path) > kLongestPath) {
    errno = path == nullptr ? EINVAL : ENAMETOOLONG;
    return unique_fd();
  }
  constexpr int kRead = O_RDONLY | O_NONBLOCK;  // a named pipe is refused, not waited for
  unique_fd file = open_fd(path, kRead);
  if (!file.ok()) {
    // Not truncating: another writer may have made the file in the meantime.
    if (!open_fd(path, O_WRONLY | O_CREAT, 0666).ok()) return unique_fd();
    file = open_fd(path, kRead);
  }
  struct stat status;
  if (file.ok() && ::fstat(file.get(), &status) == 0 && !S_ISREG(status.st_mode)) {
    errno = EINVAL;
    file.reset();
  }
  return file;
}

}  // namespace kt
