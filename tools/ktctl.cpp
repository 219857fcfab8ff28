// ktctl.cpp - the command line: options, the table of commands, their help.
#include "tools/ktctl.h"

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/unique_fd.h"

namespace kt::tools {
namespace {

enum Trait : unsigned {
  kTakesFile = 1,
  kTakesDigest = 2,
  kOutputMayGetLost = 4,  // what it does counts, not what it says of it
};

struct Command {
  const char* name;
  const char* arguments;
  const char* summary;
  int (*run)(const Request&);
  int fewest;
  int most;
  unsigned traits;
  const char* details;
};

constexpr Command kCommands[] = {
    {"get", "SECTION KEY", "print one value", get_value, 2, 2, kTakesFile,
     "Prints the value and a line feed. A key that the file lacks is looked up in\n"
     "/etc/def_sys.conf. An empty SECTION means the keys before the first section.\n"},
    {"set", "SECTION KEY VALUE", "set one value", set_value, 3, 3, kTakesFile,
     "Makes the file, the section or the key where missing. What a save could not\n"
     "store is refused: bytes other than printable ASCII, a line of more than 511\n"
     "characters. Only `ktctl save` makes the change outlive a power cut.\n"},
    {"unset-section", "SECTION", "remove a section and its keys", unset_section, 1, 1, kTakesFile,
     "The file's permissions become 666.\n"},
    {"rename-section", "OLD NEW", "give a section another name", rename_section, 2, 2, kTakesFile,
     "Refused when there is a section NEW already.\n"},
    {"show", "[SECTION]", "print the settings, or one section's lines", show_settings, 0, 1,
     kTakesFile, ""},
    {"save", "", "store the settings in both flash copies", save_settings, 0, 0, kTakesFile,
     "With --file, PATH becomes the camera's settings first. Settings that cannot be\n"
     "stored are refused and left as they are. Signals wait until the flash is whole.\n"
     "Exit code 4 also when only the normal copy could be written: it holds the\n"
     "settings, but a power cut in the next save may lose them.\n"},
    {"restore", "", "bring the settings back from flash, as a boot does", restore_settings, 0, 0,
     kOutputMayGetLost,
     "Then repairs a copy that is broken, or holds other settings than those that a\n"
     "boot takes, from the other one, and prints a line for each copy. Settings that\n"
     "are on the RAM disk already are kept.\n"},
    {"reset", "", "return to the factory defaults, in both flash copies, too", reset_settings, 0, 0,
     0, ""},
    {"flash", "", "show both flash copies and which one a boot takes", show_flash, 0, 0, 0,
     "Exit code 0 when both are intact and equal, else 1.\n"},
    {"trace", "[MODULE [SUB]]", "list the trace modules, or print a trace file", show_trace, 0, 2,
     0,
     "MODULE is a name or a number, SUB is 0 or 1 and 0 when left out. Prints the\n"
     "file that is being written, without the older ones.\n"},
    {"hash", "FILE...", "print digests of files, as md5sum does", hash_files, 1, INT_MAX,
     kTakesDigest,
     "A FILE of - is standard input. MD5 unless one of these is given:\n"
     "  --sha256       SHA-256\n"
     "  --crc16        CRC-16, for files of at most 65535 bytes\n"},
};

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 not found or different, 2 wrong usage, 3 input refused,\n"
    "4 system error.\n";

const Command* find_command(const char* name) {
  for (const Command& command : kCommands) {
    if (strcmp(command.name, name) == 0) return &command;
  }
  return nullptr;
}

void print_help() {
  (void)printf(
      "usage: ktctl [--file PATH] COMMAND [ARGUMENT...]\n"
      "       ktctl COMMAND --help\n\n"
      "The settings of the camera, their copies in flash, traces and digests.\n\n");
  for (const Command& command : kCommands) {
    (void)printf("  %-14s %-18s %s\n", command.name, command.arguments, command.summary);
  }
  (void)printf(
      "\n"
      "  --file PATH    another settings file than %s\n"
      "  --help         this text, or that of a command\n\n"
      "Options stand before the arguments.\n%s",
      paths::kSettings, kExitCodes);
}

void print_help_of(const Command& command) {
  const char* const options = (command.traits & kTakesFile) != 0     ? " [--file PATH]"
                              : (command.traits & kTakesDigest) != 0 ? " [--sha256 | --crc16]"
                                                                     : "";
  const char* const blank = command.arguments[0] != '\0' ? " " : "";
  (void)printf("usage: ktctl %s%s%s%s - %s\n%s%s", command.name, options, blank, command.arguments,
               command.summary, command.details, kExitCodes);
}

struct CommandLine {
  const Command* command = nullptr;
  bool help = false;
  bool file_given = false;
  bool digest_given = false;
  Request request;
};

// Reads options up to the first argument; false when one is wrong.
bool read_options(int argc, char** argv, CommandLine& line) {
  enum : int { kHelp = 'h', kFile = 256, kSha256, kCrc16 };
  static constexpr option kOptions[] = {{"help", no_argument, nullptr, kHelp},
                                        {"file", required_argument, nullptr, kFile},
                                        {"sha256", no_argument, nullptr, kSha256},
                                        {"crc16", no_argument, nullptr, kCrc16},
                                        {nullptr, 0, nullptr, 0}};
  int found;
  while ((found = getopt_long(argc, argv, "+:h", kOptions, nullptr)) != -1) {
    switch (found) {
      case kHelp:
        line.help = true;
        break;
      case kFile:
        line.file_given = true;
        line.request.file = optarg;
        break;
      case kSha256:
      case kCrc16:
        line.digest_given = true;
        line.request.digest = found == kSha256 ? Digest::kSha256 : Digest::kCrc16;
        break;
      default:
        (void)fail(kUsage, "%s: %s", argv[optind - 1],
                   found == ':' ? "what follows is missing" : "there is no such option");
        return false;
    }
  }
  return true;
}

// Options may stand on either side of the command's name.
bool read_command_line(int argc, char** argv, CommandLine& line) {
  opterr = 0;
  line.request.file = paths::kSettings;
  if (!read_options(argc, argv, line)) return false;
  if (optind == argc) return true;
  line.command = find_command(argv[optind]);
  if (line.command == nullptr) {
    (void)fail(kUsage, "%s: there is no such command; see ktctl --help", argv[optind]);
    return false;
  }
  ++optind;
  if (!read_options(argc, argv, line)) return false;
  line.request.count = argc - optind;
  line.request.arguments = argv + optind;
  return true;
}

int run_command(const CommandLine& line) {
  const Command& command = *line.command;
  if (line.request.count < command.fewest || line.request.count > command.most) {
    return fail(kUsage, "%s takes %s; see ktctl %s --help", command.name,
                command.most == 0 ? "no arguments" : command.arguments, command.name);
  }
  if ((line.file_given && (command.traits & kTakesFile) == 0) ||
      (line.digest_given && (command.traits & kTakesDigest) == 0)) {
    return fail(kUsage, "%s does not take this option; see ktctl %s --help", command.name,
                command.name);
  }
  return command.run(line.request);
}

// What was printed counts only once it has been written.
int finish_output(int code, bool may_get_lost) {
  const bool written = fflush(stdout) == 0 && ferror(stdout) == 0;
  if (written || may_get_lost || code != kDone) return code;
  return fail(kSystemError, "standard output: %s", strerror(errno));
}

int run(int argc, char** argv) {
  CommandLine line;
  if (!read_command_line(argc, argv, line)) return kUsage;
  if (line.help) {
    line.command != nullptr ? print_help_of(*line.command) : print_help();
    return finish_output(kDone, false);
  }
  if (line.command == nullptr) return fail(kUsage, "no command; see ktctl --help");
  return finish_output(run_command(line), (line.command->traits & kOutputMayGetLost) != 0);
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
