/* util_hash.h - MD5, SHA-224/256, CRC-16 and the text cipher.
 *
 * Shared rules:
 * - Digests are raw bytes, or in the text form: two lowercase hex digits a
 *   byte, high nibble first. The "_chk" functions compare nothing; they choose between
 *   the two forms.
 * - Sizes are in bytes. Data may be null where its length is 0.
 * - Null arguments fail; a function without a result then does nothing.
 * - Everything here is reentrant; records belong to the caller. */
#ifndef KTCOMM_UTIL_HASH_H
#define KTCOMM_UTIL_HASH_H

#include <ktcomm/export.h>

KT_BEGIN_DECLS

/* ---- MD5 -------------------------------------------------------------- */

typedef struct md5_ctx {
  unsigned count[2];        /* message length in bits, low word first */
  unsigned state[4];        /* chaining words */
  unsigned char buffer[64]; /* input that fills no block yet */
  unsigned char digest[16]; /* filled by the final call */
} md5_ctx;

/* The digest of a message that comes in pieces: MD5Initial, any number of
 * MD5Process, MD5Finsh; the result is then in `ctx->digest`. The record is not
 * cleared. */
KT_EXPORT void MD5Initial(md5_ctx *ctx);
KT_EXPORT void MD5Process(md5_ctx *ctx, const unsigned char *data, unsigned len);
KT_EXPORT void MD5Finsh(md5_ctx *ctx);

/* The same under their other names. */
KT_EXPORT void kt_md5_init(md5_ctx *ctx);
KT_EXPORT void kt_md5_update(md5_ctx *ctx, const unsigned char *data, unsigned len);
KT_EXPORT void kt_md5_final(md5_ctx *ctx);

/* Writes the 16 bytes of the digest of `data` to `out`. */
KT_EXPORT void md5_buffer(const unsigned char *data, unsigned len, unsigned char out[16]);

/* As md5_buffer with `as_text` 0; otherwise writes the text form and a NUL, 33
 * bytes. */
KT_EXPORT void md5_buffer_chk(const unsigned char *data, unsigned len, unsigned char *out,
                              int as_text);

/* The digest of the bytes of the open file `fd` from offset `start` up to, not
 * including, `end`. Reads 4096 bytes at a time and leaves the file offset after
 * the last byte read.
 * A read that fails counts as -1 bytes: the next byte takes the place of the one
 * before, and one more is read. A failure that finds no byte before it in its 4096 ends
 * the call.
 * Returns 0; -1 when `end` is below `start`, `fd` is negative or cannot seek,
 * `out` is null, the file ends before `end` or cannot be read. */
KT_EXPORT int md5_stream(unsigned char out[16], int fd, unsigned start, unsigned end);

/* md5_stream of the `att_len` bytes of `att`, then those of the file. A null
 * `att` or an `att_len` of 0 or less means none.
 * The attachment is meant to be shorter than 4096 bytes. Of a longer one every
 * whole leading 4096 bytes are left out, and as many bytes more are read from the file,
 * beyond `end`.
 * Returns as md5_stream; at the end of the file it also says so on standard
 * error. */
KT_EXPORT int md5_stream_att_data(unsigned char out[16], int fd, unsigned start, unsigned end,
                                  const unsigned char *att, int att_len);

/* Writes the text form of a digest, 32 characters, to `out`; the NUL is written
 * only when `out_size` is above 32.
 * Returns 32; -1 with nothing written when `out_size` is below 32. */
KT_EXPORT int md5_value_to_str(char *out, int out_size, const unsigned char digest[16]);

/* ---- SHA-224 and SHA-256 ---------------------------------------------- */

/* Results of the functions below, as in RFC 4634. */
enum {
  shaSuccess = 0,
  shaNull,         /* null argument; also the flag of a message that grew too long */
  shaInputTooLong, /* reserved */
  shaStateError    /* input after the result was taken */
};

typedef struct SHA256Context {
  unsigned Intermediate_Hash[8];
  unsigned Length_Low; /* message length in bits */
  unsigned Length_High;
  short Message_Block_Index;
  unsigned char Message_Block[64];
  int Computed;  /* the digest is in Intermediate_Hash */
  int Corrupted; /* 0, or the result of every further call */
} SHA256Context;

/* Reset, any number of Input, FinalBits if the message is no whole number of
 * bytes, Result; a context is reset for one of the two lengths and stays with
 * its functions. */

/* Starts a message. Returns 0, or 1 for a null context. */
KT_EXPORT int SHA224Reset(SHA256Context *context);
KT_EXPORT int SHA256Reset(SHA256Context *context);

/* Adds `len` bytes; a `len` of 0 is always fine, also with null pointers.
 * Returns 0; 1 for a null argument; 3 after the result was taken, which marks the
 * context corrupted; of a corrupted context its flag. A message of 2^64 bits or
 * more sets the flag to 1: this call still returns 0, all later ones 1. */
KT_EXPORT int SHA224Input(SHA256Context *context, const unsigned char *data, unsigned len);
KT_EXPORT int SHA256Input(SHA256Context *context, const unsigned char *data, unsigned len);

/* Ends the message with the `bit_count` (1 to 7) highest bits of `bits`; 0 bits
 * are always fine and do not end it. Returns as Input does; 3 also for a count
 * above 7. */
KT_EXPORT int SHA224FinalBits(SHA256Context *context, unsigned char bits, unsigned bit_count);
KT_EXPORT int SHA256FinalBits(SHA256Context *context, unsigned char bits, unsigned bit_count);

/* Ends the message, unless that is done, and writes the digest to `out`, 28 or
 * 32 bytes. May be repeated. Returns 0; 1 for a null argument; of a corrupted
 * context its flag. */
KT_EXPORT int SHA224Result(SHA256Context *context, unsigned char *out);
KT_EXPORT int SHA256Result(SHA256Context *context, unsigned char *out);

/* Writes the SHA-256 digest of `data` to `out`: 32 bytes with `as_text` 0,
 * otherwise the text form and a NUL, 65 bytes. The output comes first here.
 * Returns 0; 1 with nothing written for a null argument. */
KT_EXPORT int sha256_buffer_chk(unsigned char *out, const unsigned char *data, unsigned len,
                                int as_text);

/* ---- CRC-16 ----------------------------------------------------------- */

/* CRC-16/MODBUS of `data` with its two bytes swapped: the high byte is the one
 * sent first. "123456789" gives 0x374B; no data gives 0xFFFF. */
KT_EXPORT unsigned short crc16(const unsigned char *data, unsigned short len);

/* ---- Text cipher ------------------------------------------------------ */

/* AES-256 in CBC mode with PKCS#7 padding; the key and the initialisation
 * vector are the library's own, so equal texts give equal ciphers.
 * `out` may be `in`; the two may not overlap otherwise. */

/* Encrypts `len` bytes of `in` to `out`. The cipher is 1 to 16 bytes longer,
 * a multiple of 16; with `as_hex` not 0 it is written in the text form with a NUL, and
 * `out` holds 2 * (`len` + 16) + 1 bytes.
 * Returns the bytes or characters written, the NUL not counted; -1 for a null argument or
 * when that number is no int. */
KT_EXPORT int kt_aes_encrypt(unsigned char *out, const unsigned char *in, unsigned len, int as_hex);

/* Decrypts the `len` bytes of `in`, with `from_hex` not 0 `len` hex digits of
 * either case, to `out`, which holds as many bytes as the cipher; a NUL follows the
 * plaintext.
 * Returns the length of the plaintext; -1 for a null argument, a `len` below 16 or
 * not a multiple of 16, digits that make no whole number of 16-byte blocks, or a
 * character that is no digit (the bytes before it are in `out`, then a 0); -2 when the
 * pad count, the last byte, is not within 1 to 16. The pad bytes before it are not
 * looked at. */
KT_EXPORT int kt_aes_decrypt(unsigned char *out, const unsigned char *in, int len, int from_hex);

/* Writes the first `len` bytes, at most 32, of a built-in key to `out`.
 * `selector` is 1 (the text cipher's key) or 2.
 * Returns `out`; null for another selector or a null `out`. */
KT_EXPORT unsigned char *get_encrypt_key(unsigned char *out, unsigned len, int selector);

KT_END_DECLS

#endif
