// The power cut: a save stopped before and in the middle of every flash
// operation, then a boot; on NAND and on plain files.
#include <ktcomm/config.h>
#include <ktcomm/flash.h>

#include <functional>
#include <random>
#include <set>

#include "tests/nand_double.h"
#include "tests/settings_image.h"
#include "tools/flash_copies.h"

using namespace kt::test;
using nand::Cut;
using nand::Kind;

namespace {

struct Flash {
  const char* name;
  Kind kind;
  nand::Shape shape;
  size_t noise;  // bytes of a file beside the settings, which do not compress well
};

constexpr Flash kFlashes[] = {
    {"NAND, 128 KiB blocks", Kind::nand, {4, 131072, 2048, 64}, 60000},
    {"NAND, 4 KiB blocks", Kind::nand, {32, 4096, 512, 16}, 12000},
    {"plain files", Kind::plain, {4, 131072, 2048, 64}, 100000},
};

// Both partitions, byte for byte.
struct Cells {
  std::string normal, backup;
  bool operator<(const Cells& o) const { return normal != o.normal ? normal < o.normal : backup < o.backup; }
};

class PowerCut : public testing::TestWithParam<Flash> {
 protected:
  void SetUp() override {
    saved_defaults_ = read_file(kDefaults);
    write_file(kDefaults, settings_text("defaults"));
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk"), 0);
    load({});
  }
  void TearDown() override {
    EXPECT_EQ(nand::breach(), "");
    nand::take_out();
    write_file(kDefaults, saved_defaults_);
  }

  static void load(const Cells& cells) {
    for (const char* path : {kNormalDevice, kBackupDevice}) {
      nand::insert(path, GetParam().kind, GetParam().shape);
      const std::string& content = path == kNormalDevice ? cells.normal : cells.backup;
      memcpy(nand::cells(path), content.data(), content.size());
    }
  }
  static Cells store() {
    const auto read = [](const char* path) {
      return std::string(reinterpret_cast<char*>(nand::cells(path)), GetParam().shape.size());
    };
    return {read(kNormalDevice), read(kBackupDevice)};
  }

  // What is saved under a title: the settings and a file with noise of its own.
  static std::string noise(const std::string& title, size_t size) {
    std::mt19937 random(static_cast<unsigned>(title[0]));
    std::string text(size, ' ');
    for (char& c : text) c = static_cast<char>(32 + random() % 95);
    return text;
  }
  static void put(const std::string& title, size_t size) {
    lose_power();
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env"), 0);
    write_file(kSettings, settings_text(title));
    write_file("/mnt/ramdisk/env/noise", noise(title, size));
  }
  // Boots and tells the title, or what is wrong with what was found.
  static std::string boot(size_t size) {
    lose_power();
    if (fl_read_conf(kSettings) != 0) return "boot failed";
    const std::string title = title_of_settings();
    if (title == "defaults") return "lost";
    return read_file("/mnt/ramdisk/env/noise") == noise(title, size) ? title : "a mixture";
  }
  static int save() { return fl_write_conf(kSettings); }
  static int repair() {
    const auto result = kt::tools::repair_copies().result;
    return result == kt::tools::RepairResult::kRepaired || result == kt::tools::RepairResult::kNotNeeded ? 0 : 1;
  }

  // Runs `action` on `before` once for every cut, and hands the number of the
  // operation, the kind of cut and the flash left behind to `check`. Returns how
  // many cuts there were.
  static int at_every_cut(const Cells& before, int (*action)(), const std::string& title, size_t size,
                          const std::function<void(unsigned, Cut)>& check) {
    int cuts = 0;
    for (const Cut how : {Cut::before, Cut::middle}) {
      for (unsigned n = 1;; ++n) {
        load(before);
        put(title, size);
        const int status = in_child([&] {
          nand::cut_at(n, how);
          return action();
        });
        nand::cut_at(0);
        if (status != nand::kCutExit) {
          EXPECT_EQ(status, 0) << "uncut, it must come through";
          break;
        }
        ++cuts;
        check(n, how);
        if (HasFailure()) return cuts;
      }
    }
    return cuts;
  }

 private:
  std::string saved_defaults_;
};

TEST_P(PowerCut, leaves_the_old_or_the_new_settings_at_every_cut_of_a_save) {
  const size_t size = GetParam().noise;
  put("old", size);
  ASSERT_EQ(save(), 0);
  const Cells before = store();
  std::set<unsigned> durable[2];
  int differ = 0, lost = 0;
  const int cuts = at_every_cut(before, save, "new", size, [&](unsigned n, Cut how) {
    const auto normal = kt::tools::inspect_copy(0);
    const auto backup = kt::tools::inspect_copy(1);
    EXPECT_TRUE(normal.intact || backup.intact) << "cut " << n;
    const std::string title = boot(size);
    EXPECT_TRUE(title == "old" || title == "new") << "cut " << n << ": " << title;
    lost += title != "old" && title != "new" ? 1 : 0;
    // The rule of which copy boots, where the two differ.
    const bool normal_changed = store().normal != before.normal;
    if (normal.intact && backup.intact && !are_equal(normal, backup)) ++differ;
    EXPECT_EQ(title, normal_changed ? "new" : "old") << "cut " << n;
    if (title == "new") durable[how == Cut::middle].insert(n);
  });
  ASSERT_FALSE(durable[0].empty() || durable[1].empty());
  EXPECT_EQ(*durable[0].rbegin() - *durable[0].begin() + 1, durable[0].size())
      << "old settings came back after the new ones";
  printf(
      "%s: %d cuts in a save, %d lost; durable from operation %u of %d on; at %d cuts two intact "
      "copies differ and the normal one, the old settings, boots\n",
      GetParam().name, cuts, lost, *durable[1].begin(), cuts / 2, differ);
}

TEST_P(PowerCut, repair_keeps_what_booted_at_every_cut) {
  constexpr size_t kSize = 500;
  put("old", kSize);
  ASSERT_EQ(save(), 0);
  const Cells old = store();
  put("new", kSize);
  ASSERT_EQ(save(), 0);
  const Cells after = store();
  Cells normal_broken = after, backup_broken = old;
  normal_broken.normal[100] ^= 1;
  backup_broken.backup.assign(backup_broken.backup.size(), '\xFF');
  const struct {
    Cells cells;
    const char* boots;
  } kStates[] = {{normal_broken, "new"},
                 {backup_broken, "old"},
                 {{old.normal, after.backup}, "old"},
                 {{after.normal, old.backup}, "new"}};
  int cuts = 0;
  for (const auto& state : kStates) {
    cuts += at_every_cut(state.cells, repair, "live", kSize, [&](unsigned n, Cut) {
      EXPECT_EQ(boot(kSize), state.boots) << "cut " << n;
      EXPECT_EQ(repair(), 0);
      EXPECT_TRUE(are_equal(kt::tools::inspect_copy(0), kt::tools::inspect_copy(1)));
      EXPECT_EQ(boot(kSize), state.boots) << "repaired after cut " << n;
    });
  }
  printf("%s: %d cuts in a repair%s\n", GetParam().name, cuts, HasFailure() ? "" : ", 0 lost");
}

TEST_P(PowerCut, two_cuts_with_a_boot_and_a_repair_between_lose_nothing) {
  constexpr size_t kSize = 500;
  put("old", kSize);
  ASSERT_EQ(save(), 0);
  // The flash after the first cut, the boot and the repair, and what it boots.
  std::set<std::pair<Cells, std::string>> states;
  const int first = at_every_cut(store(), save, "new", kSize, [&](unsigned, Cut) {
    const std::string title = boot(kSize);
    EXPECT_EQ(repair(), 0);
    states.emplace(store(), title);
  });
  int pairs = 0;
  for (const auto& [cells, title] : states) {
    const int second = at_every_cut(cells, save, "third", kSize, [&](unsigned n, Cut) {
      const std::string found = boot(kSize);
      EXPECT_TRUE(found == title || found == "third") << "second cut " << n << ": " << found;
    });
    pairs = std::max(pairs, first * second);
  }
  // Equal flash behaves alike: each state is gone through once, for all the
  // first cuts that lead to it.
  printf("%s: %d pairs of cuts (%zu states of the flash between them)%s\n", GetParam().name, pairs, states.size(),
         HasFailure() ? "" : ", 0 lost");
}

TEST_P(PowerCut, unchanged_settings_cost_no_erase_and_changed_ones_few) {
  const size_t size = GetParam().noise;
  put("old", size);
  ASSERT_EQ(save(), 0);
  nand::reset_counts();
  ASSERT_EQ(save(), 0);
  if (GetParam().kind == Kind::nand) { EXPECT_EQ(nand::operations(), 0u); }
  put("new", size);
  nand::reset_counts();
  ASSERT_EQ(save(), 0);
  for (const char* path : {kNormalDevice, kBackupDevice}) {
    for (unsigned block = 0; block < GetParam().shape.blocks; ++block) {
      EXPECT_LE(nand::counts(path, block).erases, block == 0 ? 2u : 1u) << path << " " << block;
    }
  }
}

class NandFault : public PowerCut {};

TEST_P(NandFault, a_bad_block_in_either_copy_leaves_the_other_one) {
  constexpr size_t kSize = 12000;
  for (const auto fault : {nand::Fault::marked_bad, nand::Fault::erase_fails, nand::Fault::program_fails}) {
    for (const char* path : {kNormalDevice, kBackupDevice}) {
      load({});
      put("old", kSize);
      ASSERT_EQ(save(), 0);
      nand::set_fault(path, 0, fault);
      put("new", kSize);
      EXPECT_EQ(save(), path == kNormalDevice ? -2 : 0);
      // Refused before anything was erased, the normal copy goes on with the old.
      const bool normal_intact = kt::tools::inspect_copy(0).intact;
      const std::string serves = path == kNormalDevice && normal_intact ? "old" : "new";
      EXPECT_EQ(boot(kSize), serves) << path;
      const bool target_is_bad = (path == kBackupDevice) == normal_intact;
      EXPECT_EQ(repair(), target_is_bad ? 1 : 0) << path;
      EXPECT_EQ(boot(kSize), serves) << path;
    }
  }
}

// A chip that stores something else than it was told is found out by reading back.
TEST_P(NandFault, wrong_bytes_are_written_three_times_and_never_trusted) {
  constexpr size_t kSize = 12000;
  put("old", kSize);
  ASSERT_EQ(save(), 0);
  nand::set_fault(kNormalDevice, 0, nand::Fault::programs_wrong);
  put("new", kSize);
  nand::reset_counts();
  EXPECT_EQ(save(), -2);
  EXPECT_EQ(nand::counts(kNormalDevice, 0).erases, 3u) << "three attempts; the id stands there already";
  EXPECT_EQ(boot(kSize), "new") << "the backup copy serves";
}

class SmallBlocks : public PowerCut {};

TEST_P(SmallBlocks, a_copy_given_up_keeps_its_old_header_behind_the_id) {
  constexpr size_t kSize = 12000;
  for (const bool erased_before : {false, true}) {
    load({});
    put("old", kSize);
    if (!erased_before) { ASSERT_EQ(save(), 0); }
    const std::string before(reinterpret_cast<char*>(nand::cells(kNormalDevice)), 24);
    nand::set_fault(kNormalDevice, 1, nand::Fault::program_fails);
    put("new", kSize);
    EXPECT_EQ(save(), -2);
    const std::string after(reinterpret_cast<char*>(nand::cells(kNormalDevice)), 24);
    EXPECT_EQ(after, "\xAA\xCC" + before.substr(2));
    EXPECT_EQ(boot(kSize), "new") << "the backup copy serves";
  }
}

std::string name_of(const testing::TestParamInfo<Flash>& info) {
  return info.param.kind == Kind::plain ? "plain_files" : info.param.noise > 20000 ? "large_blocks" : "small_blocks";
}
INSTANTIATE_TEST_SUITE_P(Flash, PowerCut, testing::ValuesIn(kFlashes), name_of);
INSTANTIATE_TEST_SUITE_P(Flash, NandFault, testing::Values(kFlashes[0], kFlashes[1]), name_of);
INSTANTIATE_TEST_SUITE_P(Flash, SmallBlocks, testing::Values(kFlashes[1]), name_of);

}  // namespace
