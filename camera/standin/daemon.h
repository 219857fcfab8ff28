// daemon.h - what the stand-in programs share.
#ifndef KTCOMM_CAMERA_DAEMON_H
#define KTCOMM_CAMERA_DAEMON_H

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>

namespace camera {

// Goes into the background. The caller has made everything ready before, so
// that whoever started the daemon may count on it as soon as it returns: the
// foreground process ends here, after `tell_pid` (if any) was given the
// daemon's process id.
inline void become_daemon(void (*tell_pid)(pid_t) = nullptr) {
  const pid_t pid = fork();
  if (pid < 0) {
    perror("fork");
    _exit(1);
  }
  if (pid > 0) {
    if (tell_pid) tell_pid(pid);
    _exit(0);
  }
  (void)setsid();
  const int null = open("/dev/null", O_RDWR);
  for (int fd = 0; fd <= 2; ++fd) (void)dup2(null, fd);
  if (null > 2) (void)close(null);
}

// Appends `size` bytes to the file at `path` with one write.
inline void append(const char* path, const void* bytes, size_t size) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (fd < 0 || write(fd, bytes, size) < 0) perror(path);
  if (fd >= 0) (void)close(fd);
}

}  // namespace camera

#endif
