// shell.h - run a command line through the shell.
#ifndef KTCOMM_BASE_SHELL_H
#define KTCOMM_BASE_SHELL_H

namespace kt {

// The longest command line, in characters.
constexpr unsigned kCommandLength = 2047;

// Formats a command line and runs it with system(3). True when it ended with
// status 0, or when its status was lost to the caller's own SIGCHLD handling
// (ECHILD). A line too long to be formatted whole is not run at all.
[[nodiscard, gnu::format(printf, 1, 2)]] bool run_shell(const char* format, ...);

}  // namespace kt

#endif
