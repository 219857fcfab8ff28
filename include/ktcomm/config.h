/* config.h - the settings files: look up, set and edit by section and key.
 *
 * A settings file is INI text: "[section]" header lines and "key=value" lines,
 * no comments. Lines are read 511 characters at a time; a longer line counts as
 * several. The bytes and rules are described in doc/settings-file.md.
 *
 * Shared rules:
 * - A section is given bare ("USER", at most 61 characters) or bracketed
 *   ("[USER]", used as it is); a longer bare name is no section: it is not
 *   found and cannot be written. A header line matches when it begins with the
 *   whole bracketed name. A null section means the keys before any header.
 * - Except in PRO_SetStr_In and PRO_iSetStr, everything from the first line feed
 *   of a section on is cut off, in the caller's own string. A text without a
 *   line feed is never written to.
 * - Readers take an open stream, rewind it on every call, take no lock, and
 *   neither rewind it afterwards nor close it.
 * - Writers take the path of a regular file. The path reaches the shell: no
 *   blanks and no shell characters in it.
 * - A key that is not found is looked up again in /etc/def_sys.conf, which must
 *   be open to reading and writing; this goes for every function that looks a
 *   key up.
 * - Unless said otherwise functions return 0, or -1 on failure, and leave their
 *   outputs untouched on failure: preset your defaults.
 * - Null arguments fail like missing ones. Sizes are in bytes. */
#ifndef KTCOMM_CONFIG_H
#define KTCOMM_CONFIG_H

#include <ktcomm/export.h>
#include <stdio.h>

KT_BEGIN_DECLS

/* ---- Reading ---------------------------------------------------------- */

/* Copies the value of `key` in `section` of `stream` to `out`, NUL-terminated.
 *
 * The value is all that follows the '=', blanks included, without the CR and LF
 * characters at the end of the line. One longer than `size` is cut to `size` - 1
 * characters; one of exactly `size` is stored whole, so `out` must hold `size` + 1
 * bytes. With a null `stream` only the factory defaults are asked. The stream is
 * left after the line found.
 * Returns 0; -1 when found nowhere, for a null `key` or `out`, a `size` below 1,
 * or when a buffer of more than 512 bytes cannot be had. */
KT_EXPORT int PRO_GetStr(const char *section, const char *key, char *out, int size, FILE *stream);

/* The value as a number, read as atoi and atol do: "12abc" is 12, "abc" is 0. Of
 * a value of more than 63 characters the first 62 count. As PRO_GetStr otherwise. */
KT_EXPORT int PRO_GetInt(const char *section, const char *key, int *out, FILE *stream);
KT_EXPORT int PRO_GetLong(const char *section, const char *key, long *out, FILE *stream);

/* The value's first character, NUL for an empty one; as PRO_GetStr otherwise. */
KT_EXPORT int PRO_GetChar(const char *section, const char *key, char *out, FILE *stream);

/* Rewinds `stream` and leaves it after the header line of `section`; PRO_i2sect
 * takes upper and lower case as equal. Returns 0 = found, 1 = not found. */
KT_EXPORT int PRO_2sect(const char *section, FILE *stream);
KT_EXPORT int PRO_i2sect(const char *section, FILE *stream);

/* ---- Writing one key -------------------------------------------------- */

/* Each write streams the whole file into a copy in /tmp, puts the copy in place
 * with one shell command and calls sync(). Until that command runs the file is
 * as it was, and a failed write leaves it so. A last line without a line feed
 * gets one when something is added behind it.
 *
 * Sets `key` in `section` of the file at `path` to `value`. Creates the file, the
 * section (at the end of the file) or the key (at the end of the section) where
 * missing; of duplicate keys the first is replaced. With a null section every
 * line of the file is replaced that begins with the key and has a blank or '='
 * right behind it. A value that is already current, also by way of the factory
 * defaults, is not written at all.
 * Holds an exclusive flock on /tmp/cgi_locker.lock, waiting for it.
 * Returns 0; -1 when the file, the lock or the copy cannot be opened or
 * written. */
KT_EXPORT int PRO_SetStr(const char *section, const char *key, const char *value, const char *path);

/* PRO_SetStr of a number in decimal, and of one character. */
KT_EXPORT int PRO_SetInt(const char *section, const char *key, int value, const char *path);
KT_EXPORT int PRO_SetChar(const char *section, const char *key, char value, const char *path);

/* PRO_SetStr without the test for a current value. `mode` chooses the lines:
 *   0      key=value lines
 *   1      bare lines: the key alone is the line and `value`, which may be null,
 *          is ignored. In a section a line matches when only blanks stand
 *          between the key and CR or LF; with a null section a blank or LF right
 *          behind the key is enough.
 *   other  key=value is written over a line that begins with the key, whatever
 *          follows; with a null section always added at the end */
KT_EXPORT int PRO_SetStr_In(const char *section, const char *key, const char *value,
                            const char *path, int mode);

/* PRO_SetStr_In with mode 0, upper and lower case taken as equal in section and
 * key; a line found keeps its key in its own case. Takes no lock: the caller
 * keeps other writers away. */
KT_EXPORT int PRO_iSetStr(const char *section, const char *key, const char *value,
                          const char *path);

/* ---- Editing whole sections ------------------------------------------- */

/* One rewrite pass at a time per process: PRO_uopen, any number of PRO_u2sect
 * calls and whole lines written to the returned stream or read from `ifp`, then
 * PRO_uclose with the same path. No lock is taken. A pass still open when
 * the next one is opened is given up as by PRO_uclose with `how` 2. */

/* The file being edited, open for reading at the place reached; null outside a
 * pass. */
KT_EXPORT extern FILE *ifp;

/* Opens a pass on the file, creating it where missing. Returns the stream that
 * becomes the new content, or null when the file or the copy cannot be opened. */
KT_EXPORT FILE *PRO_uopen(const char *path);

/* Copies lines from `ifp` up to the header of `section`. The header line itself is
 * copied with `append` 1 and dropped otherwise. At the end of the file `append` 1
 * adds the header.
 * Returns 0 = found, 1 = not found, -1 = write or read error, no open pass, null
 * or over-long section. */
KT_EXPORT int PRO_u2sect(const char *section, int append);

/* Ends the pass; returns 0 always, also when there is none. `how`:
 *   0, other  the new content is what was written so far
 *   1         the rest of the file is copied first
 *   2         give up: the file stays as it was
 *   3         the rest of the current section is skipped, then as 1
 * A write error gives up. `file_mode` is what chmod is told after the copy, in
 * decimal digits that it reads as octal (666), or -1 for no chmod. */
KT_EXPORT int PRO_uclose(const char *path, int file_mode, int how);

/* Removes a section, header and lines, and makes the file's permissions 666. A
 * section that is not there is no error and changes nothing.
 * Returns 0; -1 when the pass cannot be opened. */
KT_EXPORT int PRO_DelSect(const char *section, const char *path);

/* Replaces the header line of `section`. `new_section` is cut like it, once the
 * section is found. Returns 0; -1 when not found, not opened or not written. */
KT_EXPORT int PRO_RenSect(const char *section, const char *new_section, const char *path);

/* ---- Message catalogues ----------------------------------------------- */

/* The number of messages in a section of /share/message.txt, its key "total"; 0
 * when the file cannot be opened or the key is missing. */
KT_EXPORT int PRO_GetMsgSize(const char *section);

/* Fills 256-byte slots of `out` with messages of `section`: the first is that of
 * key `first`, the next ones are the values of the lines that follow it, whatever
 * their keys, up to `count` in all. An empty line, a header or the end of the file
 * ends them; lines without '=' are passed over. A text of more than 128 characters
 * is cut to 127. A null `path` means /share/message.txt.
 * Returns the number of slots filled, at least 1; -1 when the catalogue cannot be
 * opened or has no key `first`. In the latter case the catalogue stays open: one
 * descriptor is lost for each such call. */
KT_EXPORT int PRO_GetMsgByIndex(const char *section, int first, int count, char (*out)[256],
                                const char *path);

/* Writes the text for `code` in `section` of /usr/local/www/adm/cgi_msg to `out`,
 * at most `size` bytes with the NUL. Without such a text it writes "Unknown Error"
 * (14 bytes), without the file a sentence that names it (58 bytes), both whatever
 * the `size`: `out` holds 64 bytes at least. */
KT_EXPORT void GetErrMsg2(const char *section, int code, char *out, int size);

KT_END_DECLS

#endif
