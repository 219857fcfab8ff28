// Killed while saving, on a real NAND driver: whenever that happens, a boot finds the old or
// the new settings. For the emulated camera only.
#include <limits.h>
#include <sys/prctl.h>
#include <time.h>

#include "tests/real_nand.h"
#include "tools/flash_copies.h"

using namespace kt::test;
using kt::tools::are_equal, kt::tools::inspect_copy;
using std::string, std::to_string;

namespace {

constexpr size_t kNoise = 170000;  // two erase blocks for each copy

long now_us() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

class NandKill : public testing::Test {
 protected:
  const unsigned seed_ = std::random_device()();
  std::mt19937 random_{seed_};

  void SetUp() override {
    write_file(kDefaults, settings_text("defaults"));
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);  // the shells of a killed process come here
    insert_chip();
    put_settings("0", kNoise);
    ASSERT_EQ(fl_write_conf(kSettings), 0);
  }

  // Starts `action` with all that it starts in a process group of its own, and kills the
  // group after `after_us`. Whether that ended it; what it started is gone then, too.
  static bool killed(auto action, long after_us) {
    const pid_t group = start_child([=] { return setpgid(0, 0) + action(); });
    setpgid(group, group);
    usleep(static_cast<useconds_t>(after_us));
    kill(-group, SIGKILL);
    const int status = wait_for_child(group);
    while (waitpid(-1, nullptr, 0) > 0) continue;
    return status == -SIGKILL;
  }

  // How long `action` takes, the shortest of three.
  static long time_of(auto action) {
    long shortest = LONG_MAX;
    for (int i = 0; i < 3; ++i) {
      const long start = now_us();
      EXPECT_EQ(in_child(action), 0);
      shortest = std::min(shortest, now_us() - start);
    }
    return shortest;
  }

  long at_random(long us) { return std::uniform_int_distribution<long>(0, us)(random_); }
};

int save() { return fl_write_conf(kSettings); }

// Repairs one copy from the other, as `ktctl restore` does.
int repair() { return kt::tools::repair_copies().result <= kt::tools::RepairResult::kRepaired ? 0 : 1; }

TEST_F(NandKill, a_boot_finds_the_old_or_the_new_settings) {
  constexpr int kKills = 200;
  put_settings("1", kNoise);
  const long us = time_of(save);
  string old = "1";
  int kills = 0, older = 0, newer = 0, lost = 0, broken = 0, repairs = 0;
  for (int i = 2; kills < kKills && lost == 0; ++i) {
    const string title = to_string(i);
    put_settings(title, kNoise);
    const bool hit = killed(save, at_random(us));
    const bool normal = inspect_copy(0).intact, backup = inspect_copy(1).intact;
    string found = boot_settings();
    kills += hit;  // else it had come through
    broken += hit && (!normal || !backup);
    older += hit && found == old;
    newer += hit && found == title;
    lost += found != title && (found != old || !hit);
    EXPECT_EQ(lost, 0) << "seed " << seed_ << ", kill " << kills << ": " << old << ", " << title << ", " << found;
    // As after every boot; that, too, is killed now and then. What booted stays.
    if (!are_equal(inspect_copy(0), inspect_copy(1)) && killed(repair, at_random(us / 2))) {
      ++repairs;
      const string again = boot_settings();
      lost += again != found;
      EXPECT_EQ(again, found) << "seed " << seed_ << ", killed repair " << repairs;
    }
    EXPECT_EQ(repair(), 0);
    old = found;
  }
  EXPECT_EQ(boot_settings(), old);
  printf(
      "%d kills of a save, each at a random moment of %ld ms (seed %u): %d old, %d new, one copy broken after %d, "
      "and %d kills of the repair after it, %d lost\n",
      kills, us / 1000, seed_, older, newer, broken, repairs, lost);
}

}  // namespace
