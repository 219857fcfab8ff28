// The power cut: a save stopped before and in the middle of every flash
// operation, then a boot; on NAND and on plain files.
#include <ktcomm/flash.h>

#include <functional>
#include <map>
#include <random>
#include <set>

#include "tests/nand_double.h"
#include "tests/settings_image.h"
#include "tools/flash_copies.h"

using namespace kt::test;
using kt::tools::inspect_copy, kt::tools::RepairResult, nand::Cut, nand::Fault, nand::Kind, std::string, std::to_string;

namespace {

constexpr const char* kDevices[] = {kNormalDevice, kBackupDevice};

struct Flash {
  const char* name;
  Kind kind;
  nand::Shape shape;
  size_t noise;  // bytes of a file beside the settings, which do not compress well
};

constexpr Flash kFlashes[] = {
    {"large_blocks", Kind::nand, {4, 131072, 2048, 64}, 60000},
    {"small_blocks", Kind::nand, {32, 4096, 512, 16}, 12000},
    {"plain_files", Kind::plain, {4, 131072, 2048, 64}, 100000},
};

// The normal and the backup partition, byte for byte.
using Cells = std::pair<string, string>;

class PowerCut : public testing::TestWithParam<Flash> {
 protected:
  size_t noise_size_ = GetParam().noise;

  void SetUp() override {
    write_file(kDefaults, settings_text("defaults"));
    load({});
  }
  void TearDown() override {
    EXPECT_EQ(nand::breach(), "");
    nand::take_out();
  }

  static void load(const Cells& cells) {
    for (const auto& [path, content] : {std::pair{kNormalDevice, cells.first}, {kBackupDevice, cells.second}}) {
      nand::insert(path, GetParam().kind, GetParam().shape);
      memcpy(nand::cells(path), content.data(), content.size());
    }
  }
  static string cells(const char* path, size_t size = GetParam().shape.size()) {
    return {reinterpret_cast<char*>(nand::cells(path)), size};
  }
  static Cells store() { return {cells(kNormalDevice), cells(kBackupDevice)}; }

  // What is saved under a title: the settings and a file with noise of its own.
  string noise(const string& title) const {
    std::mt19937 random(static_cast<unsigned>(title[0]));
    string text(noise_size_, ' ');
    for (char& c : text) c = static_cast<char>(32 + random() % 95);
    return text;
  }
  void put(const string& title) const {
    lose_power();
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env"), 0);
    write_file(kSettings, settings_text(title));
    write_file("/mnt/ramdisk/env/noise", noise(title));
  }
  static int save() { return fl_write_conf(kSettings); }
  void put_and_save(const string& title) const {
    put(title);
    ASSERT_EQ(save(), 0);
  }
  // Boots and tells the title, or what is wrong with what was found.
  string boot() const {
    lose_power();
    if (fl_read_conf(kSettings) != 0) return "boot failed";
    const string title = title_of_settings();
    return title == "defaults" || read_file("/mnt/ramdisk/env/noise") == noise(title) ? title : "a mixture";
  }
  static int repair() {
    const RepairResult result = kt::tools::repair_copies().result;
    return result == RepairResult::kRepaired || result == RepairResult::kNotNeeded ? 0 : 1;
  }

  // Saves or repairs with `title` on the RAM disk once for every cut, beginning
  // with `before`, and has what is left checked with the number of the operation.
  // Returns how many cuts there were.
  int at_every_cut(const Cells& before, int (*action)(), const string& title,
                   const std::function<void(unsigned)>& check) {
    int cuts = 0;
    for (const Cut how : {Cut::before, Cut::middle}) {
      for (unsigned n = 1; !HasFailure(); ++n) {
        load(before);
        put(title);
        const int status = in_child([&] { return nand::cut_at(n, how), action(); });
        nand::cut_at(0);
        EXPECT_TRUE(status == nand::kCutExit || (status == 0 && n > 1)) << "uncut, it must come through";
        if (status == 0) break;
        SCOPED_TRACE(n);
        check(n);
        ++cuts;
      }
    }
    return cuts;
  }
  // The line that tells what was gone through; nothing is claimed after a failure.
  static void report(const string& what) {
    printf("%s: %s%s\n", GetParam().name, what.c_str(), HasFailure() ? ", FAILED" : ", 0 lost");
  }
};

TEST_P(PowerCut, leaves_the_old_or_the_new_settings_at_every_cut_of_a_save) {
  put_and_save("old");
  const Cells before = store();
  std::set<unsigned> durable;
  int differ = 0;
  const int cuts = at_every_cut(before, save, "new", [&](unsigned n) {
    const auto normal = inspect_copy(0), backup = inspect_copy(1);
    differ += normal.intact && backup.intact && !are_equal(normal, backup);
    const string title = boot();
    EXPECT_EQ(title, store().first == before.first ? "old" : "new") << "the normal copy decides";
    if (title == "new") durable.insert(n);
  });
  ASSERT_FALSE(durable.empty());
  EXPECT_EQ(durable.size(), *durable.rbegin() - *durable.begin() + 1) << "the old settings came back";
  report(to_string(cuts) + " cuts in a save, durable from operation " + to_string(*durable.begin()) + " of " +
         to_string(cuts / 2) + " on, at " + to_string(differ) +
         " two intact copies differ and the normal one, the old settings, boots");
}

TEST_P(PowerCut, repair_keeps_what_booted_at_every_cut) {
  noise_size_ = 500;
  put_and_save("old");
  const Cells old = store();
  put_and_save("new");
  const Cells now = store();
  const string broken = string(now.first).replace(100, 1, 1, static_cast<char>(~now.first[100])),
               erased(now.second.size(), '\xFF');
  const std::pair<Cells, string> kStates[] = {{{broken, now.second}, "new"},
                                              {{old.first, erased}, "old"},
                                              {{old.first, now.second}, "old"},
                                              {{now.first, old.second}, "new"}};
  int cuts = 0;
  for (const auto& [cells, title] : kStates) {
    cuts += at_every_cut(cells, repair, "live", [&, boots = title](unsigned) {
      EXPECT_EQ(boot(), boots);
      EXPECT_TRUE(repair() == 0 && are_equal(inspect_copy(0), inspect_copy(1)));
      EXPECT_EQ(boot(), boots) << "repaired";
    });
  }
  report(to_string(cuts) + " cuts in a repair");
}

TEST_P(PowerCut, two_cuts_with_a_boot_and_a_repair_between_lose_nothing) {
  noise_size_ = 500;
  put_and_save("old");
  // The flash after the first cut, the boot and the repair, and what it boots.
  // Equal flash behaves alike: each state is gone through once, for all first
  // cuts that lead to it.
  std::map<std::pair<Cells, string>, int> states;
  at_every_cut(store(), save, "new", [&](unsigned) {
    const string title = boot();
    EXPECT_EQ(repair(), 0);
    ++states[{store(), title}];
  });
  int pairs = 0;
  for (const auto& [state, first_cuts] : states) {
    pairs += first_cuts * at_every_cut(state.first, save, "third", [&, booted = state.second](unsigned) {
               const string found = boot();
               EXPECT_TRUE(found == booted || found == "third") << found;
             });
  }
  report(to_string(pairs) + " pairs of cuts, over " + to_string(states.size()) + " states of the flash between them");
}

TEST_P(PowerCut, unchanged_settings_cost_no_erase_and_changed_ones_few) {
  put_and_save("old");
  nand::reset_counts();
  ASSERT_EQ(save(), 0);
  EXPECT_TRUE(nand::operations() == 0 || GetParam().kind == Kind::plain);
  nand::reset_counts();
  put_and_save("new");
  for (const char* path : kDevices) {
    for (unsigned block = 0; block < GetParam().shape.blocks; ++block)
      EXPECT_LE(nand::counts(path, block).erases, block == 0 ? 2u : 1u) << path << " " << block;
  }
}

class NandFault : public PowerCut {};

TEST_P(NandFault, a_bad_block_in_either_copy_leaves_the_other_one) {
  noise_size_ = 12000;
  for (const Fault fault : {Fault::marked_bad, Fault::erase_fails, Fault::program_fails}) {
    for (const char* path : kDevices) {
      SCOPED_TRACE(path);
      load({});
      put_and_save("old");
      nand::set_fault(path, 0, fault);
      put("new");
      EXPECT_EQ(save(), path == kNormalDevice ? -2 : 0);
      // Refused before anything was erased, the normal copy goes on with the old.
      const bool normal_intact = inspect_copy(0).intact;
      const string serves = path == kNormalDevice && normal_intact ? "old" : "new";
      EXPECT_EQ(boot(), serves);
      EXPECT_EQ(repair() != 0, (path == kBackupDevice) == normal_intact) << "when the target is bad";
      EXPECT_EQ(boot(), serves);
    }
  }
}

// A chip that stores something else than it was told is found out by reading back.
TEST_P(NandFault, wrong_bytes_are_written_three_times_and_never_trusted) {
  noise_size_ = 12000;
  put_and_save("old");
  nand::set_fault(kNormalDevice, 0, Fault::programs_wrong);
  nand::reset_counts();
  put("new");
  EXPECT_EQ(save(), -2);
  EXPECT_EQ(nand::counts(kNormalDevice, 0).erases, 3u) << "three attempts; the id stands there already";
  EXPECT_EQ(boot(), "new") << "the backup copy serves";
}

class SmallBlocks : public PowerCut {};  // the archive goes over several

TEST_P(SmallBlocks, a_copy_given_up_keeps_its_old_header_behind_the_id) {
  noise_size_ = 12000;
  put_and_save("old");
  nand::cells(kNormalDevice)[0] = 0;
  const string before = cells(kNormalDevice, 24);
  nand::reset_counts();
  nand::set_fault(kNormalDevice, 1, Fault::program_fails);
  put("new");
  EXPECT_EQ(save(), -2);
  EXPECT_EQ(nand::counts(kNormalDevice, 1).erases, 3u) << "attempts";
  EXPECT_EQ(cells(kNormalDevice, 24), "\xAA\xCC" + before.substr(2));
  EXPECT_EQ(boot(), "new") << "the backup copy serves";
}

constexpr auto kName = [](const testing::TestParamInfo<Flash>& flash) { return flash.param.name; };
INSTANTIATE_TEST_SUITE_P(Flash, PowerCut, testing::ValuesIn(kFlashes), kName);
INSTANTIATE_TEST_SUITE_P(Flash, NandFault, testing::Values(kFlashes[0], kFlashes[1]), kName);
INSTANTIATE_TEST_SUITE_P(Flash, SmallBlocks, testing::Values(kFlashes[1]), kName);

}  // namespace
