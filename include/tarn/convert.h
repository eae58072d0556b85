/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * Conversions between text and numbers, MAC, IPv4 and IPv6 addresses, and bytes written in hexadecimal; a hex dump.
 *
 * Unless said otherwise, a parser accepts the whole text or refuses it; white space and signs are refused, and the
 * locale has no effect. Where a function deliberately differs from libc's, its text says so.
 *
 * Holds for the whole header:
 * - Texts are NUL-terminated; no byte after the NUL is read. Their length is not limited.
 * - Results of type mu_status_t are 0 for success and 1 for failure.
 * - A function returns failure for a null pointer. Where the text says "not null", the pointer is not checked.
 * - Hexadecimal digits are of either case. The prefix of a hexadecimal number is "0x"; "0X" is invalid.
 * - Numbers that are too large wrap at the width of their result, without a failure, and errno is not changed. The
 *   exception is mu_strtoul.
 * - Every function may be called from any thread, keeps no state, and allocates nothing. Only mu_buffer_dump prints.
 */
#ifndef TARN_CONVERT_H
#define TARN_CONVERT_H

#include "tarn/types.h"

TARN_BEGIN_DECLS

#define MU_MAC_BYTES 6       /**< Bytes of a MAC address. */
#define MU_IPV6_BYTES 16     /**< Bytes of an IPv6 address. */
#define MU_IP_TEXT_SIZE 16   /**< Bytes that hold every text of mu_ip2str, its NUL included. */
#define MU_IPV6_TEXT_SIZE 40 /**< Bytes that hold every text of mu_ipv6tostr, its NUL included. */

/* ---- Numbers --------------------------------------------------------------------------------------------------- */

/**
 * Reads the decimal digits at the beginning of `s` and ignores the rest: the result for "12ab" is 12.
 *
 * @return The number modulo 2^32; 0 when `s` is null or does not begin with a digit.
 */
TARN_API uint32_t mu_atoi(const char *s);

/**
 * Parses a 32-bit number: decimal without a leading zero, or "0x" and up to 8 hexadecimal digits.
 *
 * Deliberate: the text "0x" is 0, and "012" is refused. mu_str2decl does the opposite in both cases.
 *
 * @param[in]  s    Not null.
 * @param[out] out  Not null. The number, modulo 2^32; 0 on failure.
 * @retval 0  Parsed.
 * @retval 1  `s` is empty, begins with "0" and a character other than "x", or has a character that is not a digit of
 *            its base; or more than 8 digits follow "0x".
 */
TARN_API mu_status_t mu_str2dec(const char *s, uint32_t *out);

/**
 * Parses a 64-bit number: decimal, or "0x" and hexadecimal digits, as many as there are.
 *
 * Deliberate: an empty text is 0, "012" is 12, and the text "0x" is refused.
 *
 * @param[out] out  The number, modulo 2^64; written on success only.
 * @retval 0  Parsed.
 * @retval 1  An argument is null, `s` is "0x", or `s` has a character that is not a digit of its base.
 */
TARN_API mu_status_t mu_str2decl(const char *s, uint64_t *out);

/** The number that mu_str2dec parses; 0 when it fails or `s` is null. */
TARN_API uint32_t mu_strtol(const char *s);

/** The number that mu_str2decl parses; 0 when it fails or `s` is null. */
TARN_API uint64_t mu_strtoll(const char *s);

/**
 * libc's strtoul, including its handling of white space, signs, saturation and errno: OS_STRTOUL.
 *
 * @param[in]  s     Null: the result is 0; `end` and errno are not changed.
 * @param[out] end   Where the number ends; may be null.
 * @param[in]  base  0, or 2 to 36; as in libc, the result for any other base is 0.
 */
TARN_API unsigned long mu_strtoul(const char *s, char **end, uint32_t base);

/** Joins two halves: `high` in the upper 32 bits, `low` in the lower. */
TARN_API uint64_t mu_inter_to64(uint32_t high, uint32_t low);

/* ---- Bytes in hexadecimal -------------------------------------------------------------------------------------- */

/**
 * Parses `len` bytes of one or two hexadecimal digits each, separated by one ":" or "."; the separators may be mixed.
 * Of two digits, the first is the high one: "a:b.0c" is 0x0a, 0x0b, 0x0c.
 *
 * Deliberate: one separator may end the text. mu_str2mac refuses it; otherwise it accepts the same texts.
 *
 * @param[out] out  `len` bytes. Each is written when it is complete, at its separator or at the end of the text. On
 *                  failure, the bytes before the fault have been written.
 * @param[in]  len  With 0 only the empty text is accepted; with a negative `len` no text is accepted.
 * @retval 0  Parsed.
 * @retval 1  An argument is null, there are more or fewer bytes than `len`, a third digit in a row, a separator at the
 *            start or after another, or any other character.
 */
TARN_API mu_status_t mu_str2hex(const char *s, uint8_t *out, int len);

/**
 * Parses a MAC address: six bytes as mu_str2hex accepts them, such as "00:1b:44:11:3a:b7" or "0.1b.44.11.3a.b7".
 *
 * @param[out] mac  On failure, the bytes before the fault have been written, as in mu_str2hex.
 * @retval 0  Parsed.
 * @retval 1  As mu_str2hex for 6 bytes, or the text ends in a separator.
 */
TARN_API mu_status_t mu_str2mac(const char *s, uint8_t mac[MU_MAC_BYTES]);

/**
 * Prints bytes in rows of 16, through mu_printf: "\r\n", the title and "\n"; each byte as two lower-case digits and a
 * blank; "\n" after each 16th byte, and "\n" at the end. If the last row is full, an empty line therefore follows it. A
 * title of up to 892 characters fits mu_printf's buffer with its "\n"; a longer one is cut at 893, without the "\n".
 *
 * @retval 0  Printed.
 * @retval 1  `title` or `buf` is null; nothing is printed.
 */
TARN_API mu_status_t mu_buffer_dump(const char *title, const uint8_t *buf, uint16_t len);

/* ---- IPv4 ------------------------------------------------------------------------------------------------------ */

/**
 * Parses a dotted-quad IPv4 address: four decimal octets of at most 255.
 *
 * Deliberate: the text must not begin with "0", not even for an address of the network 0. The later octets may have
 * leading zeros: "10.01.0.1" parses, "0.1.2.3" and "010.1.0.1" do not. An octet is read as mu_atoi reads it, modulo
 * 2^32: "1.2.3.4294967300" is 1.2.3.4.
 *
 * @param[out] ip  The address in host order, first octet in the top byte; written on success only.
 * @retval 0  Parsed.
 * @retval 1  An argument is null, or the text is not such an address.
 */
TARN_API mu_status_t mu_str2ip(const char *s, uint32_t *ip);

/**
 * Writes an IPv4 address as a dotted quad.
 *
 * @param[out] dst  MU_IP_TEXT_SIZE bytes; no byte after the NUL is written.
 * @param[in]  ip   In host order, first octet in the top byte.
 * @retval 0  Written.
 * @retval 1  `dst` is null.
 */
TARN_API mu_status_t mu_ip2str(char *dst, uint32_t ip);

/* ---- IPv6 ------------------------------------------------------------------------------------------------------ */

/**
 * Parses an IPv6 address in the text forms of RFC 4291, section 2.2: eight groups of one to four hexadecimal digits;
 * "::", once, for one or more groups of zeros; a dotted quad for the last two groups. The quad's octets are at most 255
 * and have no leading zeros. A prefix length or a zone is refused.
 *
 * @param[in]  s     Not null.
 * @param[out] addr  Not null. The address in network order; written on success only.
 * @retval 0  Parsed.
 * @retval 1  The text is not such an address; for example it has a ninth group, or a "::" that replaces no group.
 */
TARN_API mu_status_t mu_str2ipv6(const char *s, uint8_t addr[MU_IPV6_BYTES]);

/**
 * Writes an IPv6 address as eight groups in upper-case hexadecimal without leading zeros.
 *
 * Deliberate: zeros are never compressed to "::" and no group is written as a dotted quad: "2001:DB8:0:0:0:0:0:1".
 *
 * @param[out] dst   MU_IPV6_TEXT_SIZE bytes; no byte after the NUL is written.
 * @param[in]  addr  Not null. The address in network order.
 * @retval 0  Written.
 * @retval 1  `dst` is null.
 */
TARN_API mu_status_t mu_ipv6tostr(char *dst, const uint8_t addr[MU_IPV6_BYTES]);

TARN_END_DECLS

#endif
