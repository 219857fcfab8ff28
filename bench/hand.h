// hand.h - what several families need written out by hand: plain system calls on
// fixed buffers, nothing checked that cannot fail here.
#ifndef KTCOMM_BENCH_HAND_H
#define KTCOMM_BENCH_HAND_H

#include <stddef.h>
#include <sys/types.h>

#include <string>

namespace kt::bench {

inline constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf";

// The value of `key` in `section` ("[NAME]") of an open settings file, read from
// its start up to that line; false when it is not there.
[[nodiscard]] bool find_key(int fd, const char* section, const char* key, char* out, size_t size);

// One kept trace line: lock, sequence number, line, datagram.
[[gnu::format(printf, 4, 5)]] void trace_by_hand(int level, int module, int sub, const char* format,
                                                 ...);

// Empties the trace files of a module, so that no batch comes to fill one: what a full one costs
// is another daemon's affair.
void empty_trace(int module);

void write_text(const char* path, const std::string& text);
[[nodiscard]] std::string read_text(const char* path);

// The factory defaults as the settings file: what a camera starts with.
void install_settings();

// Runs a command line that is to succeed.
void shell(const char* command);

}  // namespace kt::bench

#endif
