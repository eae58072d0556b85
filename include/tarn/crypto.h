/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * Cryptography: the AES-128 block cipher (FIPS 197), the AES-CMAC message authentication code (RFC 4493, the CMAC of
 * NIST SP 800-38B), and console routines that print bytes in hexadecimal.
 *
 * Holds for the whole header:
 * - All buffers are the caller's, are byte arrays of any alignment, and must not be null. Only the tag length of
 *   aes128_cmac_compute is checked.
 * - Buffers must not overlap unless a function says which may be the same.
 * - A block has the byte order of FIPS 197: byte i is row i mod 4, column i div 4 of the state.
 * - Thread-safe: nothing is allocated or locked. Only one thing is kept between calls: which of two paths this
 *   processor takes.
 * - Only aes128_cmac_compute (for a bad tag length) and the print functions print: to standard output, through libc's
 *   printf and putchar.
 * - Wiped: after a call that uses a key, the stack holds no round keys, subkeys or intermediate values. On x86-64 and
 *   64-bit Arm, the registers that a call may change do not hold them either. On other processors only the stack is
 *   wiped. The caller wipes its own buffers. Link a program that contains the library statically with -Wl,-z,now:
 *   docs/crypto.md.
 *
 * There are two paths with the same results. One uses the processor's AES instructions (x86-64: AES-NI; 64-bit Arm: the
 * Cryptography Extensions); on processors without them the portable path is used. On both, neither the executed
 * instructions nor the memory accesses depend on key or data. The first call that uses a key chooses the path according
 * to the processor, once for the process; nothing else affects the choice.
 */
#ifndef TARN_CRYPTO_H
#define TARN_CRYPTO_H

#include "tarn/types.h"

TARN_BEGIN_DECLS

#define AES128_KEY_BYTES 16         /**< Bytes of a key. */
#define AES128_BLOCK_BYTES 16       /**< Bytes of a block. */
#define AES128_ROUND_KEYS_BYTES 176 /**< Bytes of an expanded key: 11 round keys; round key 0 is the key itself. */
#define AES128_CMAC_MAX_TAG 16      /**< Bytes of an untruncated tag. */

/* ---- Block cipher ----------------------------------------------------------------------------------------------- */

/** Expands a key for aes_encrypt_128 and aes_decrypt_128: the key expansion of FIPS 197, section 5.2, for Nk = 4. */
TARN_API void aes_key_schedule_128(const uint8_t key[AES128_KEY_BYTES], uint8_t round_keys[AES128_ROUND_KEYS_BYTES]);

/**
 * Enciphers one block: the cipher of FIPS 197, section 5.1.
 *
 * @param[in]  round_keys  From aes_key_schedule_128.
 * @param[out] out         May be `in`.
 */
TARN_API void aes_encrypt_128(const uint8_t round_keys[AES128_ROUND_KEYS_BYTES], const uint8_t in[AES128_BLOCK_BYTES],
                              uint8_t out[AES128_BLOCK_BYTES]);

/**
 * Deciphers one block: the inverse cipher of FIPS 197, section 5.3, with the round keys of encryption. For any 176
 * bytes of round keys it is the exact inverse of aes_encrypt_128.
 *
 * @param[in]  round_keys  From aes_key_schedule_128.
 * @param[out] out         May be `in`.
 */
TARN_API void aes_decrypt_128(const uint8_t round_keys[AES128_ROUND_KEYS_BYTES], const uint8_t in[AES128_BLOCK_BYTES],
                              uint8_t out[AES128_BLOCK_BYTES]);

/**
 * Expands a key and enciphers one block. The key is expanded anew in each call: for many blocks under one key use
 * aes_key_schedule_128 and aes_encrypt_128.
 *
 * @param[out] out  May be `in` or `key`.
 * @return 0.
 */
TARN_API mu_status_t aes128_ecb_encrypt(const uint8_t key[AES128_KEY_BYTES], const uint8_t in[AES128_BLOCK_BYTES],
                                        uint8_t out[AES128_BLOCK_BYTES]);

/** Expands a key and deciphers one block; otherwise as aes128_ecb_encrypt. */
TARN_API mu_status_t aes128_ecb_decrypt(const uint8_t key[AES128_KEY_BYTES], const uint8_t in[AES128_BLOCK_BYTES],
                                        uint8_t out[AES128_BLOCK_BYTES]);

/* ---- AES-CMAC --------------------------------------------------------------------------------------------------- */

/**
 * The constant Rb of RFC 4493, section 2.3: fifteen zero bytes, then 0x87.
 *
 * Deliberate: the object is writable, and subkeys are derived from its current content. Do not change it.
 */
TARN_API extern uint8_t const_Rb[AES128_BLOCK_BYTES];

/**
 * Computes the tag of a message: AES-CMAC of RFC 4493, section 2.4, for every length, including 0 and multiples of 16.
 *
 * @param[in]  msg_len  Bytes at `msg`; none after them is read. At most 0xFFFFFFF0.
 *                      Deliberate: blocks are counted in 32 bits, so the count of a longer message wraps to 0, and its
 *                      tag is that of the empty message. Such a message is not authenticated: cut it into parts.
 * @param[in]  tag_len  Bytes of the tag, 1 to 16. Do not use fewer than 8 without need (SP 800-38B, appendix A).
 * @param[out] tag      The first `tag_len` bytes of the tag. May be a part of `msg` or `key`: it is written last.
 * @retval 0  Done.
 * @retval 2  `tag_len` is 0 or above 16: "parameter error!!val is :%d\n" is printed with `tag_len`; `tag` is unchanged.
 *
 * Compare tags with tarn_tags_match: the time of memcmp depends on where they differ.
 */
TARN_API mu_status_t aes128_cmac_compute(const uint8_t key[AES128_KEY_BYTES], const uint8_t *msg, uint32_t msg_len,
                                         uint8_t tag_len, uint8_t *tag);

/**
 * Compares two tags in a time that depends only on their length, not on where they differ.
 *
 * @param[in] size  Bytes of each tag.
 * @retval 1  They are equal. Tags of 0 bytes are always equal: check a length that a peer sends.
 * @retval 0  They differ.
 */
static inline int tarn_tags_match(const uint8_t *a, const uint8_t *b, size_t size) {
  unsigned difference = 0;
  size_t i;
  for (i = 0; i < size; i++) {
    unsigned bits = a[i];
    bits ^= b[i];
    difference |= bits;
    __asm__("" : "+r"(difference)); /* hides the value from the compiler: the loop cannot end early */
  }
  return difference == 0;
}

/**
 * Derives the subkeys of AES-CMAC: RFC 4493, section 2.3.
 *
 * @param[out] k1  For a last block that is complete.
 * @param[out] k2  For a last block that was padded.
 */
TARN_API void generate_subkey(const uint8_t key[AES128_KEY_BYTES], uint8_t k1[AES128_BLOCK_BYTES],
                              uint8_t k2[AES128_BLOCK_BYTES]);

/**
 * Pads the last block of a message: RFC 4493, section 2.4.
 *
 * @param[in]  last    The block's bytes; no more than `length` of them are read.
 * @param[out] pad     `length` bytes of `last`, 0x80, zeros. May be `last`.
 * @param[in]  length  0 to 15. With 16 and above, `pad` is the 16 bytes at `last`; with a negative value, zeros.
 */
TARN_API void padding(const uint8_t *last, uint8_t pad[AES128_BLOCK_BYTES], int32_t length);

/** out[i] = a[i] XOR b[i]. `out` may be `a` or `b`. */
TARN_API void xor_128(const uint8_t a[AES128_BLOCK_BYTES], const uint8_t b[AES128_BLOCK_BYTES],
                      uint8_t out[AES128_BLOCK_BYTES]);

/**
 * Shifts a block left by one bit, as a big-endian number of 128 bits: the top bit is dropped, the low bit is zero.
 *
 * @param[out] out  May be `in`.
 */
TARN_API void leftshift_onebit(const uint8_t in[AES128_BLOCK_BYTES], uint8_t out[AES128_BLOCK_BYTES]);

/* ---- Bytes in hexadecimal --------------------------------------------------------------------------------------- */

/**
 * Prints bytes as lower-case hexadecimal digits, sixteen bytes per line: a blank after every fourth byte, a line feed
 * after every sixteenth and after the last.
 *
 * @param[in] prefix  NUL-terminated; begins each line but the first.
 * @param[in] len     Bytes at `buf`; 0 and negative lengths print nothing.
 *
 * A last line whose number of bytes is not a multiple of 4 ends without a blank. 20 bytes with the prefix "> " print as
 *
 *     00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 \n
 */
TARN_API void print_hex(const char *prefix, const uint8_t *buf, int32_t len);

/** Prints 16 bytes: four groups of eight digits, a blank after each, no line feed. */
TARN_API void print128(const uint8_t *p);

/** Prints 12 bytes as print128 prints 16. */
TARN_API void print96(const uint8_t *p);

/** Prints 8 bytes as print128 prints 16. */
TARN_API void print64(const uint8_t *p);

/** Prints 4 bytes as print128 prints 16. */
TARN_API void print32(const uint8_t *p);

TARN_END_DECLS

#endif
