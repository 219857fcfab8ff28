// ktctl.cpp - the command line: options, finding the command, help.
#include "tools/ktctl.h"

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/unique_fd.h"
#include "tools/command_table.h"
#include "tools/lock_timeout.h"
#include "tools/number.h"

namespace kt::tools {
namespace {

constexpr unsigned kOptionCount = static_cast<unsigned>(Option::kCount);

struct OptionText {
  const char* name;
  const char* argument;  // null for an option that takes none
  const char* summary;
};

// In the order of `Option`.
constexpr OptionText kOptions[] = {
    {"file", "PATH", "another settings file than /mnt/ramdisk/env/system.conf"},
    {"sha256", nullptr, "SHA-256"},
    {"crc16", nullptr, "CRC-16"},
    {"message", "CATEGORY", "a message of this section of /etc/logfile"},
    {"level", "N", "its level, 0 to 3; 0 when left out"},
    {"since", "TIME", "no entries that are older"},
    {"iso", nullptr, "dates as in 2026-11-21T03:05:00+01:00"},
    {"linear", nullptr, "a linear line, with an L in front"},
    {"command", "WORD", "all jobs whose command's first word this is"},
    {"yes", nullptr, "yes, erase all that is on the card"},
    {"xml", nullptr, "TEXT is XML, not plain text"},
    {"cdata", nullptr, "TEXT becomes a CDATA section"},
    {"add", nullptr, "behind what the node holds, not in its place"},
    {"all", nullptr, "the older files, too, oldest first"},
    {"dry-run", nullptr, "say what would be done, without doing it"},
    {"lock-timeout", "SECONDS", "give up when another holds a lock for longer"},
    {"shell", nullptr, "NAME='VALUE', for eval"},
    {"json", nullptr, "as one JSON document"},
};
static_assert(sizeof kOptions / sizeof kOptions[0] == kOptionCount);

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 not found or different, 2 wrong usage, 3 input refused,\n"
    "4 system error, 5 lock not had in time.\n";

// ---- Finding the command --------------------------------------------------

// The words of a command's name that `words` begins with: 1 or 2; 0 for none.
int words_matched(const Command& command, int count, char** words) {
  const size_t length = strcspn(command.name, " ");
  if (count < 1 || strncmp(command.name, words[0], length) != 0 || words[0][length] != '\0') {
    return 0;
  }
  if (command.name[length] == '\0') return 1;
  return count >= 2 && strcmp(command.name + length + 1, words[1]) == 0 ? 2 : 0;
}

bool is_of_group(const Command& command, const char* group) {
  const size_t length = strlen(group);
  return strncmp(command.name, group, length) == 0 && command.name[length] == ' ';
}

bool is_group(const char* word) {
  for (const Command& command : all_commands()) {
    if (is_of_group(command, word)) return true;
  }
  return false;
}

struct CommandLine {
  const Command* command = nullptr;
  const char* group = nullptr;  // named without a command of it
  bool help = false;
  unsigned options = 0;
  Request request;
};

// Sets what the words name and `optind` behind them; false when it is unknown. A
// command of two words goes before one of the first of them alone.
bool find_command(int argc, char** argv, CommandLine& line) {
  int most_words = 0;
  for (const Command& command : all_commands()) {
    const int words = words_matched(command, argc - optind, argv + optind);
    if (words <= most_words) continue;
    line.command = &command;
    most_words = words;
  }
  optind += most_words;
  if (most_words != 0) return true;
  const char* const word = argv[optind];
  const bool alone = argc - optind < 2 || argv[optind + 1][0] == '-';
  if (is_group(word) && alone) {
    line.group = word;
    ++optind;
    return true;
  }
  if (is_group(word)) {
    (void)fail(kUsage, "%s %s: there is no such command; see ktctl %s --help", word,
               argv[optind + 1], word);
  } else {
    (void)fail(kUsage, "%s: there is no such command; see ktctl --help", word);
  }
  return false;
}

// ---- Options --------------------------------------------------------------

struct LongOptions {
  static constexpr int kHelp = 'h';
  static constexpr int kFirst = 256;

  LongOptions() {
    for (unsigned i = 0; i < kOptionCount; ++i) {
      const int argument = kOptions[i].argument != nullptr ? required_argument : no_argument;
      rows[i] = {kOptions[i].name, argument, nullptr, kFirst + static_cast<int>(i)};
    }
    rows[kOptionCount] = {"help", no_argument, nullptr, kHelp};
  }

  option rows[kOptionCount + 2] = {};
};

// Says what is wrong with the option at which getopt_long has stopped: a letter, maybe
// amid others, or a `word`.
void refuse_option(int found, const char* word) {
  const bool is_long = optopt >= LongOptions::kFirst || optopt == LongOptions::kHelp;
  if (found == '?' && optopt != 0 && !is_long) {
    (void)fail(kUsage, "-%c: there is no such option", optopt);
  } else {
    (void)fail(kUsage, "%s: %s", word,
               found == ':' ? "what follows is missing"
               : is_long    ? "this option takes nothing"
                            : "there is no such option");
  }
}

// Reads options up to the first argument; false when one is wrong.
bool read_options(int argc, char** argv, CommandLine& line) {
  const LongOptions options;
  int found;
  while ((found = getopt_long(argc, argv, "+:h", options.rows, nullptr)) != -1) {
    if (found == LongOptions::kHelp) {
      line.help = true;
    } else if (found >= LongOptions::kFirst) {
      const unsigned index = static_cast<unsigned>(found - LongOptions::kFirst);
      line.options |= 1u << index;
      line.request.values[index] = optarg != nullptr ? optarg : kOptions[index].name;
    } else {
      refuse_option(found, argv[optind - 1]);
      return false;
    }
  }
  return true;
}

// Options may stand on either side of the command's name, and between its words.
bool read_command_line(int argc, char** argv, CommandLine& line) {
  opterr = 0;
  if (!read_options(argc, argv, line)) return false;
  if (optind == argc) return true;
  char* const first = argv[optind];
  if (!find_command(argc, argv, line) || !read_options(argc, argv, line)) return false;
  if (line.group != nullptr && optind < argc) {
    argv[--optind] = first;
    line.group = nullptr;
    if (!find_command(argc, argv, line) || !read_options(argc, argv, line)) return false;
  }
  const char* const file = line.request.value(Option::kFile);
  line.request.file = file != nullptr ? file : paths::kSettings;
  line.request.count = argc - optind;
  line.request.arguments = argv + optind;
  return true;
}

// ---- Help -----------------------------------------------------------------

void print_summaries(const char* group) {
  for (const Command& command : all_commands()) {
    if (group != nullptr && !is_of_group(command, group)) continue;
    const int padding = 33 - static_cast<int>(strlen(command.name));
    (void)printf("  %s %-*s %s\n", command.name, padding, command.arguments, command.summary);
  }
}

void print_help() {
  (void)printf(
      "usage: ktctl COMMAND [OPTION...] [ARGUMENT...]\n"
      "       ktctl COMMAND --help\n\n"
      "The camera's settings, their copies in flash, and what its programs keep.\n\n");
  print_summaries(nullptr);
  (void)printf("\nOptions stand before the arguments.\n%s", kExitCodes);
}

void print_help_of_group(const char* group) {
  (void)printf("usage: ktctl %s COMMAND [OPTION...] [ARGUMENT...]\n\n", group);
  print_summaries(group);
  (void)printf("\n%s", kExitCodes);
}

void print_help_of(const Command& command) {
  (void)printf("usage: ktctl %s", command.name);
  if (command.options != 0) (void)printf(" [OPTION...]");
  if (command.arguments[0] != '\0') (void)printf(" %s", command.arguments);
  (void)printf(" - %s\n%s", command.summary, command.details);
  for (unsigned i = 0; i < kOptionCount; ++i) {
    if ((command.options & (1u << i)) == 0) continue;
    const char* const argument = kOptions[i].argument != nullptr ? kOptions[i].argument : "";
    const int padding = 20 - static_cast<int>(strlen(kOptions[i].name));
    (void)printf("  --%s %-*s %s\n", kOptions[i].name, padding, argument, kOptions[i].summary);
  }
  (void)printf("%s", kExitCodes);
}

// ---- Running --------------------------------------------------------------

// The options that mean the same to all commands that take them.
int run_with_options(const Command& command, const Request& request) {
  if (request.has(Option::kShell) && request.has(Option::kJson)) {
    return fail(kUsage, "--shell and --json: one of them is wanted");
  }
  if (const char* const text = request.value(Option::kLockTimeout)) {
    const auto seconds = parse_number(text);
    if (!seconds || *seconds < 0 || *seconds > kLongestLockTimeout) {
      return fail(kUsage, "--lock-timeout: %s: whole seconds from 0 to %d are wanted", text,
                  kLongestLockTimeout);
    }
    set_lock_timeout(*seconds);
  }
  return command.run(request);
}

int run_command(const CommandLine& line) {
  const Command& command = *line.command;
  if (line.request.count < command.fewest || line.request.count > command.most) {
    return fail(kUsage, "%s takes %s; see ktctl %s --help", command.name,
                command.most == 0 ? "no arguments" : command.arguments, command.name);
  }
  for (unsigned i = 0; i < kOptionCount; ++i) {
    if ((line.options & ~command.options & (1u << i)) == 0) continue;
    return fail(kUsage, "%s does not take --%s; see ktctl %s --help", command.name,
                kOptions[i].name, command.name);
  }
  return run_with_options(command, line.request);
}

// What was printed counts only once it has been written: a list of what differs or is
// refused that was cut off is no answer either.
int finish_output(int code, bool may_get_lost) {
  const bool written = fflush(stdout) == 0 && ferror(stdout) == 0;
  if (written || may_get_lost) return code;
  return fail(kSystemError, "standard output: %s", strerror(errno));
}

int print_wanted_help(const CommandLine& line) {
  if (line.command != nullptr) {
    print_help_of(*line.command);
  } else if (line.group != nullptr) {
    print_help_of_group(line.group);
  } else {
    print_help();
  }
  return finish_output(kDone, false);
}

int run(int argc, char** argv) {
  CommandLine line;
  if (!read_command_line(argc, argv, line)) return kUsage;
  if (line.help) return print_wanted_help(line);
  if (line.group != nullptr) {
    return fail(kUsage, "%s: no command of this group; see ktctl %s --help", line.group,
                line.group);
  }
  if (line.command == nullptr) return fail(kUsage, "no command; see ktctl --help");
  return finish_output(run_command(line),
                       line.command->output_may_get_lost && !line.request.dry_run());
}

// With one of the three closed, the next file opened would take its place and
// be printed into. Writes to these give an error, as they should.
void fill_standard_descriptors() {
  for (;;) {
    unique_fd fd(::open("/dev/null", O_RDONLY));
    if (!fd.ok() || fd.get() > STDERR_FILENO) return;
    (void)fd.release();  // stays open as one of the three
  }
}

}  // namespace

}  // namespace kt::tools

int main(int argc, char** argv) {
  kt::tools::fill_standard_descriptors();
  return kt::tools::run(argc, argv);
}
