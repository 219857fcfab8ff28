#include "ktcomm/settings.h"

namespace kt {
namespace {

constexpr int kFallbackZone = 4;  // UTC-8:00
constexpr int kNoZone = -1;

bool is_in_table(int index) {
  return static_cast<unsigned>(index) < KT_TIME_ZONES;
}

// What stands in for a reserved index; kNoZone for any other.
int replacement(int index) {
  for (const int(*pair)[2] = g_timezone_resv; (*pair)[0] != kNoZone; ++pair) {
    if ((*pair)[0] == index) return (*pair)[1];
  }
  return kNoZone;
}

}  // namespace
}  // namespace kt

using namespace kt;

// Programs and stored settings go by the index: new zones are added at the end.
const int kt_time_zone[KT_TIME_ZONES] = {
    -1200, -1100, -1000, -900, -800, -700, -700, -700, -600, -600, -600, -600, -500, -500, -500,
    -400,  -400,  -400,  -350, -300, -300, -300, -200, -100, -100, 0,    0,    100,  100,  100,
    100,   100,   200,   200,  200,  200,  200,  200,  300,  300,  300,  300,  350,  400,  400,
    450,   500,   500,   550,  575,  600,  600,  550,  650,  700,  700,  800,  800,  800,  800,
    800,   900,   900,   900,  950,  950,  1000, 1000, 1000, 1000, 1000, 1100, 1200, 1200, 1300,
    -450,  -800,  -400,  -300, 200,  200,  200,  300,  400,  200};

const int g_timezone_resv[][2] = {{33, 32}, {-1, -1}};

const int* get_time_zone_table(void) {
  return kt_time_zone;
}

int TIME_TimezoneCheck(int index) {
  return is_in_table(index) && replacement(index) == kNoZone ? 0 : -1;
}

void TIME_TimezoneCorrect(int* index) {
  if (index == nullptr) return;
  if (!is_in_table(*index)) *index = kFallbackZone;
  const int other = replacement(*index);
  if (other != kNoZone) *index = other;
}
