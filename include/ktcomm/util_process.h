/* util_process.h - commands, processes and what they exchange.
 *
 * Shared rules:
 * - No call keeps anything for the next one; every call opens what it needs and
 *   closes it again unless it says otherwise. Every descriptor, also one that
 *   stays open, is close-on-exec.
 * - Null arguments fail like wrong ones; outputs are untouched on failure.
 * - Nothing is printed where no text is quoted. A text that ends in a line feed
 *   is given to perror, so that the reason follows on the next line.
 * - A pid below 1 is never signalled and never alive: kill would take it for a
 *   whole process group. Pids in files are decimal; the rest of the file after
 *   the number is ignored. */
#ifndef KTCOMM_UTIL_PROCESS_H
#define KTCOMM_UTIL_PROCESS_H

#include <ktcomm/export.h>
#include <ktcomm/util_text.h>

KT_BEGIN_DECLS

/* ---- Commands ---------------------------------------------------------- */

/* Runs the program `argv[0]`, looked up on the search path, without a shell;
 * `argv` ends with a null. `out` and `err`, where given, are emptied and receive
 * all that it writes to standard output and error; otherwise it shares ours.
 *
 * `out` is read to its end before `err`: a program that fills the pipe of `err`
 * (64 KiB) while it keeps standard output open waits for ever. The call also
 * waits for whatever other process has inherited a captured stream.
 * Returns the exit status (0 to 255), which is the error number when the program
 * cannot be run (2 = not found), and 0 when the caller's own SIGCHLD handling
 * has taken the status away; -1 when a pipe or the fork fails ("fork failed\n"),
 * when a signal ended the program, or for an empty `argv`. */
KT_EXPORT int cf_system(char *const argv[], cf_string *out, cf_string *err);

/* cf_system of a program and its arguments, the last one a null pointer:
 * CFSystem2(out, NULL, "ls", "-l", (char *)NULL). */
KT_EXPORT int CFSystem2(cf_string *out, cf_string *err, const char *program, ...)
    __attribute__((sentinel));

/* Runs a shell command line while holding an exclusive flock on
 * /tmp/cgi_locker.lock, waiting for it: one such command at a time on the whole
 * camera, and none during a write of settings.
 * Returns the status from system(); 0 when errno is ECHILD afterwards, be it left over
 * from before the call; -1 when the lock cannot be had. */
KT_EXPORT int system_with_lock(const char *command);

/* Runs a command line through the shell after escape_sequence, which leaves it
 * one command. Its status is not reported. Returns 0; -1 when it cannot be escaped. */
KT_EXPORT int system_signal(const char *command);

/* ---- Text for the shell and for markup --------------------------------- */

/* Stores a copy of `text` with a backslash before each ';', '\', '|' and '&', but
 * not before a '&' at the very end, which runs a command in the background. Other
 * shell characters are left as they are. The caller frees the copy.
 * Returns 0; -1 for a null argument or when memory runs out. */
KT_EXPORT int escape_sequence(const char *text, char **escaped);

/* Writes the first `length` characters of `text`, at most 519, to `out` as one
 * single-quoted shell word: it's becomes 'it'\''s'. A word that does not fit is
 * cut to `size` - 1 characters and is no word any more: 3 * `length` + 3 bytes
 * are always enough. `out` and `text` may be the same.
 * Returns `out`; null for a null argument, or a `length` or `size` out of range. */
KT_EXPORT char *shell_cmd_paras_convert(const char *text, int length, char *out, int size);

/* Clears `size` bytes of `out` and copies `text` there with each double quote as
 * "&quot;". The caller's `size` covers the worst case, 6 bytes a character and a
 * NUL; what does not fit is left out.
 * Returns 0; -1 for a null argument. */
KT_EXPORT int tx_quot(char *out, const char *text, int size);

/* ---- Finding and signalling programs ----------------------------------- */

/* These ask /bin/pidof for the processes of a program. `name` is put into the
 * shell's command line and into the name of a temporary file in /tmp as it is: a plain
 * program name, never text from outside. A name too long for either counts as
 * one without processes.
 *
 * A pid list, pidof's or in a file, is read in lines of 511 characters; a longer line counts
 * as several. Blanks and line ends separate pids. */

/* The first pid; 0 when there is none. */
KT_EXPORT int GetAppsPid(const char *name);

/* How many pids there are. */
KT_EXPORT int GetAppsNum(const char *name);

/* 1 when `pid` is among them, else 0. */
KT_EXPORT int CheckAppsPidAlive(const char *name, int pid);

/* The first pid in the file `pid_list` if that is above 0, alive or not;
 * otherwise (also without such a file) GetAppsPid of `name`. */
KT_EXPORT int GetAppsPidBySpecFile(const char *name, const char *pid_list);

/* Traces the pid (level 8, module 8) and sends a signal to it; the pid is read
 * from the first 128 bytes of the file.
 * Returns kill's result; -1 also when the file cannot be opened or holds no pid
 * above 0. */
KT_EXPORT int SendSignal2PidFromFile(const char *path, int signo);

/* Sends a signal to the first process of a program, if there is one, after a
 * trace of name and monotonic seconds (level 8, module 8). */
KT_EXPORT void SendSignal2Apps(const char *name, int signo);

/* The same to the process found by GetAppsPidBySpecFile. After a signal to
 * "hydra", in upper or lower case, it sleeps 2 seconds.
 * Returns kill's result, 0 when there is no process, -1 for a null `name`. */
KT_EXPORT int SendSignal2AppsBySpecFile(const char *name, int signo, const char *pid_list);

/* ---- Pid files, lock files, liveness ----------------------------------- */

/* Overwrites the file with the caller's pid and a line feed.
 * Returns the pid; -1 when the file cannot be written. */
KT_EXPORT int WritePidToFile(const char *path);

/* Takes the lock file of a program that runs once: the caller's pid, without a line
 * feed, overwrites the pid of a process that is no more. Two programs that
 * start in the same moment can both succeed.
 * Returns 0 = written, 1 = cannot be written, 2 = the file names a live process
 * (one that the caller may signal; its own pid counts), -1 = null `path`. */
KT_EXPORT int create_apps_lock_file(const char *path);

/* Creates the lock file of a program that runs once (exclusively, mode 0644)
 * and returns its descriptor, open for writing; the caller puts its pid there.
 *
 * When the file exists, the process that it names, if any, gets signal 15, and
 * once more if it is still among those of `name` a second later. Then the file
 * is removed and -2 returned: the caller tries again.
 * Returns -1 when the file cannot be created for another reason, or for a null
 * argument. */
KT_EXPORT int check_app_filelock(const char *name, const char *path);

/* Shows that this process is alive: makes it listen at 127.0.0.1 on TCP `port` (1
 * to 65535). The socket stays open for the life of the process.
 * Returns 0; -1 when the port is taken or out of range, or no socket can be made. */
KT_EXPORT int CFToggleProcessAlive(int port);

/* Whether some process holds the port of CFToggleProcessAlive.
 * Returns 1 = yes (it cannot be bound or listened on), 0 = no, -1 = no socket
 * can be made or `port` is out of range. */
KT_EXPORT int CFIsProcessAlive(int port);

/* ---- System facts and time --------------------------------------------- */

/* The number of viewers, from the first two bytes of /tmp/viewer in decimal; 0
 * when the file is missing or empty. Stored in `*number` too if that is given. */
KT_EXPORT int kt_get_viewer_num(int *number);

/* Free memory in the units of sysinfo(2) (its mem_unit, bytes on the camera). */
KT_EXPORT unsigned long kt_get_sys_free_mem(void);

/* Seconds of the monotonic clock; stored in `*seconds` too if that is given. */
KT_EXPORT unsigned kt_linear_time(unsigned *seconds);

/* fsync of a file by name, opened for reading. The descriptor is left open after
 * success: one is lost for each such call.
 * Returns 0; -1 when the file cannot be opened or flushed. */
KT_EXPORT int kt_fsync_byname(const char *path);

/* Writes the monotonic seconds (4 bytes, native order) into the file and,
 * for a path of at most 253 characters, into its twin, whose name has ".2" added.
 * Returns 0; 1 when a file cannot be opened or written: the file may then be
 * new and its twin not. */
KT_EXPORT int write_timestamp_into_file(const char *path);

/* Reads them back into `*seconds`, if that is given.
 * Returns 0; 1 when a file cannot be opened, is too short, differs from its twin, or the
 * value is not positive as a signed number. */
KT_EXPORT int read_timestamp_from_file(const char *path, unsigned *seconds);

/* `a` - `b` modulo 2^32, and one less when `a` is below `b`. */
KT_EXPORT unsigned compare_timestamp(unsigned a, unsigned b);

/* ---- System V message queues ------------------------------------------- */

/* A message is a record whose first word is its type, a `long` above 0. Every `size`
 * is that of the whole record, type included. A signal interrupts the calls
 * that wait (EINTR). */

/* The queue of `key`, created for everybody to read and write if there is none.
 * Returns its id; -1 when it cannot be had. */
KT_EXPORT int msg_init(int key);

/* Sends a message; `flags` as for msgsnd(2).
 * Returns msgsnd's result; -1 with "input parameters error!\n" for a negative
 * id, null message or `size` below 1. */
KT_EXPORT int kt_msg_send(int id, const void *message, int size, int flags);
KT_EXPORT int msg_send(int id, const void *message, int size); /* flags 0: waits for room */

/* Clears the buffer and receives a message of `type` (0 = any) into it; `flags` as
 * for msgrcv(2).
 * Returns the payload's bytes, the type not counted; -1 on failure, with the
 * text of kt_msg_send for bad arguments. With flags of exactly IPC_NOWAIT: -2
 * when there is no message, "receive message error!\n" for any other failure. */
KT_EXPORT int kt_msg_recv(int id, long type, void *buffer, int size, int flags);
KT_EXPORT int msg_recv(int id, long type, void *buffer, int size); /* flags 0: waits */

/* Removes the queue. Returns 0; -1 with "queue id error!\n" for a negative id, or
 * with "delete message queue failed!\n". */
KT_EXPORT int msg_exit(int id);

/* ---- Shared memory, task queues, descriptor passing -------------------- */

/* Attaches the System V segment of `key`, `size` rounded up to whole pages;
 * `flags` as for shmget(2). With IPC_CREAT a segment that this call creates starts
 * zeroed and one that was there keeps its content; without, it is cleared: who shares a
 * segment gives IPC_CREAT.
 * Returns the address, stored in `*address` too if that is given; null on failure. */
KT_EXPORT void *pub_attach_shm(void **address, unsigned long size, int key, int flags);

/* Detaches the segment; null is ignored. Returns 0. */
KT_EXPORT int pub_detach_shm(void *address);

/* Waits for its turn: opens the file (created with mode 0700) and takes an
 * exclusive flock on it.
 * Returns the descriptor for kt_task_queue_out; -1 when the file cannot be
 * opened or locked, also when a signal interrupts the wait. */
KT_EXPORT int kt_task_queue_in(const char *path);

/* Ends the turn: unlocks and closes. Returns the unlock's result; 0 with nothing
 * done for a descriptor below 1. */
KT_EXPORT int kt_task_queue_out(int fd);

/* The record that travels with a descriptor. Its bytes are the programs' own,
 * but for a second descriptor to pass: a little-endian 32-bit number at
 * KT_FD_MESSAGE_SECOND_FD, 0 or below for none. */
#define KT_FD_MESSAGE_SIZE 2043
#define KT_FD_MESSAGE_SECOND_FD 1374

/* Sends the record and `fd` to the server at "./zSOCKET-SERVER", a local stream
 * socket in the current directory.
 * Returns 0; -1 when no socket can be made (" create socket error" on standard
 * output), nobody listens ("connect failed"; the socket stays open: one is lost for each
 * such call), or the send fails. */
KT_EXPORT int pass_fd_and_message(int fd, const void *message);

KT_END_DECLS

#endif
