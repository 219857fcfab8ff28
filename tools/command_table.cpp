#include "tools/command_table.h"

#include <limits.h>

namespace kt::tools {
namespace {

constexpr unsigned kTakesFile = takes(Option::kFile);

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
    {"restore", "", "bring the settings back from flash, as a boot does", restore_settings, 0, 0, 0,
     "Then repairs a copy that is broken, or holds other settings than those that a\n"
     "boot takes, from the other one, and prints a line for each copy. Settings that\n"
     "are on the RAM disk already are kept.\n",
     true},
    {"reset", "", "return to the factory defaults, in both flash copies, too", reset_settings, 0, 0,
     0, ""},
    {"flash", "", "show both flash copies and which one a boot takes", show_flash, 0, 0, 0,
     "Exit code 0 when both are intact and equal, else 1.\n"},

    {"trace", "[MODULE [SUB]]", "list the trace modules, or print a trace file", show_trace, 0, 2,
     0,
     "MODULE is a name or a number, SUB is 0 or 1 and 0 when left out. Prints the\n"
     "file that is being written, without the older ones.\n"},
    {"hash", "FILE...", "print digests of files, as md5sum does", hash_files, 1, INT_MAX,
     takes(Option::kSha256) | takes(Option::kCrc16),
     "A FILE of - is standard input. MD5 unless an option says otherwise. CRC-16 is\n"
     "for files of at most 65535 bytes.\n"},
};

}  // namespace

std::span<const Command> all_commands() {
  return kCommands;
}

}  // namespace kt::tools
