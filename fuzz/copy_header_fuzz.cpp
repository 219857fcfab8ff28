// The headers of the two copies in flash: restoring takes the first copy that is intact.
//
// Input: for the normal and for the backup copy a line each of an id (52394 is right), a
// length (-1 = the archive's) and 1 for the right digest; then the archive, which is the
// settings file itself here, or what stands there, too.
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "flash/copy_header.h"
#include "fuzz/fuzz.h"
#include "ktcomm/flash.h"
#include "ktcomm/util_hash.h"

using namespace kt::fuzz;

namespace {

constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf", kDefaults[] = "[SYSTEM]\ncfg_ver=1\n";
constexpr const char* kPartitions[] = {"/dev/mtd3", "/dev/mtd4"};

struct Copy {
  unsigned id;
  long length;
  bool right_digest;
};

Copy read_copy(Input& input) {
  const auto id = static_cast<unsigned>(input.number());
  const long length = input.number();
  return {id, length, input.number() == 1};
}

// As doc/settings-copy.md has it.
std::string image_of(const Copy& copy, const std::string& archive) {
  const auto length = static_cast<unsigned>(copy.length < 0 ? static_cast<long>(archive.size()) : copy.length);
  std::string header;
  for (const unsigned word : {copy.id & 0xFFFF, length}) {
    for (unsigned shift = 0; shift < 32; shift += 8) header += static_cast<char>(word >> shift & 0xFF);
  }
  unsigned char digest[16] = {};
  const auto* const bytes = reinterpret_cast<const unsigned char*>(archive.data());
  if (copy.right_digest) md5_buffer(bytes, static_cast<unsigned>(std::min<size_t>(length, archive.size())), digest);
  return header + std::string(reinterpret_cast<const char*>(digest), sizeof digest) + archive;
}

// Puts plain files in the place of a chip's partitions, which would take an erase each time.
bool make_plain_partitions() {
  for (const char* const partition : kPartitions) {
    struct stat status = {};
    if (stat(partition, &status) == 0 && !S_ISREG(status.st_mode)) unlink(partition);
  }
  return true;
}

// The settings that a copy restores; nothing when it is not intact or they are not valid.
std::string restored(const Copy& copy, const std::string& archive) {
  const size_t length = copy.length < 0 ? archive.size() : static_cast<size_t>(copy.length);
  if ((copy.id & 0xFFFF) != 0xCCAA || length == 0 || length > archive.size() || !copy.right_digest) return "";
  std::string settings = archive.substr(0, length);
  for (const char c : up_to_nul(settings)) {
    if (c != '\r' && c != '\n' && (c < ' ' || c > '~')) return "";
  }
  return settings;
}

// Settings that were restored are written and read again by the library alone.
void judge_save(const std::string& settings) {
  for (const char* const partition : kPartitions) write_file(partition, "");
  expect_same("saved", fl_write_conf(kSettings), 0);
  const std::string wanted = image_of({kt::kCopyId, -1, true}, settings);
  for (const char* const partition : kPartitions) expect_same(partition, read_file(partition), wanted);
  unlink(kSettings);
  expect_same("restored again", fl_read_conf(kSettings), 0);
  expect_same("settings restored again", read_file(kSettings), settings);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const Copy normal = read_copy(input), backup = read_copy(input);
  const std::string archive = input.rest();
  [[maybe_unused]] static const bool plain = make_plain_partitions();
  write_file("/etc/def_sys.conf", kDefaults);
  write_file(kPartitions[0], image_of(normal, archive));
  write_file(kPartitions[1], image_of(backup, archive));
  unlink(kSettings);

  std::string wanted = restored(normal, archive);
  if (wanted.empty()) wanted = restored(backup, archive);
  expect_same("result", fl_read_conf(kSettings), 0);
  const std::string settings = read_file(kSettings);
  // Settings of another version give way to the defaults.
  expect(settings == kDefaults || settings == wanted, "settings", settings);
  if (wanted.find("cfg_ver") == wanted.npos) expect_same("settings", settings, wanted.empty() ? kDefaults : wanted);
  judge_save(settings);
  return 0;
}
