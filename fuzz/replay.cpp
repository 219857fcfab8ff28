// Replays all seeds and all inputs that ever failed, and small changes of them: the same in
// every run, only fewer on a slow machine. Says which input failed; the result is 1 when
// one did.
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>

#include "fuzz/fuzz.h"

#define PARSER(name) extern "C" int fuzz_##name(const uint8_t* data, size_t size);
#include "fuzz_inputs.inc"
#undef PARSER

namespace {

constexpr int kChanges = 300;  // for each parser, at most
constexpr std::chrono::milliseconds kChangesTime(500);

struct Replayed {
  const char* parser;
  const char* name;
  std::string bytes;
};

const Replayed kInputs[] = {
// NOLINTNEXTLINE(bugprone-macro-parentheses)
#define INPUT(parser, name, bytes) {#parser, name, {bytes, sizeof bytes - 1}},
#include "fuzz_inputs.inc"
#undef INPUT
};

using Parser = int (*)(const uint8_t* data, size_t size);

// Where the child that replays is, for the parent that sees it die.
struct Progress {
  char name[200];
  int change;  // 0 = the input itself
};

void replay(Parser parser, const std::string& bytes) {
  const std::vector<uint8_t> exact(bytes.begin(), bytes.end());
  (void)parser(exact.data(), exact.size());
}

std::string changed(std::string bytes, std::mt19937& random) {
  constexpr char kTelling[] = {'\0', '\n', '\r', ' ', '[', ']', '=', ',', ';', ':', '|', '\'', '<', '/', '9', '\xFF'};
  for (unsigned i = random() % 4 + 1; i > 0; --i) {
    const size_t at = random() % (bytes.size() + 1), length = random() % 20;
    switch (random() % 4) {
      case 0:
        bytes.insert(at, 1, kTelling[random() % sizeof kTelling]);
        break;
      case 1:
        bytes.erase(at, length);
        break;
      case 2:
        bytes.insert(at, bytes.substr(random() % (bytes.size() + 1), length));
        break;
      default:
        if (at < bytes.size()) bytes[at] = kTelling[random() % sizeof kTelling];
        break;
    }
  }
  return bytes;
}

void replay_all(const char* name, Parser parser, Progress& progress) {
  std::vector<const Replayed*> inputs;
  for (const Replayed& input : kInputs) {
    if (strcmp(input.parser, name) != 0) continue;
    inputs.push_back(&input);
    snprintf(progress.name, sizeof progress.name, "%s", input.name);
    replay(parser, input.bytes);
  }
  kt::fuzz::expect(!inputs.empty(), "a parser has seeds", name);
  using Clock = std::chrono::steady_clock;
  std::mt19937 random;
  const auto end = Clock::now() + kChangesTime;
  for (progress.change = 1; progress.change <= kChanges && Clock::now() < end; ++progress.change) {
    const Replayed& input = *inputs[random() % inputs.size()];
    snprintf(progress.name, sizeof progress.name, "%s", input.name);
    replay(parser, changed(input.bytes, random));
  }
}

bool passes(const char* name, Parser parser) {
  auto* const progress = static_cast<Progress*>(
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  *progress = {};
  const pid_t child = fork();
  if (child == 0) {
    replay_all(name, parser, *progress);
    _exit(0);
  }
  int status = 1;
  const bool passed = waitpid(child, &status, 0) == child && status == 0;
  if (!passed)
    printf("%s: failed at %s, change %d (0 = none), status 0x%x\n", name, progress->name, progress->change, status);
  return passed;
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IONBF, 0);
  bool passed = true;
#define PARSER(name) passed = passes(#name, fuzz_##name) && passed;
#include "fuzz_inputs.inc"
  printf("%zu inputs and their changes: %s\n", std::size(kInputs), passed ? "passed" : "FAILED");
  return passed ? 0 : 1;
}
