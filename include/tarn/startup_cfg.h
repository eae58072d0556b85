/* SPDX-FileCopyrightText: 2026 The tarn authors */
/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file
 * The startup configuration: a checksummed image of typed fields in the caller's buffer.
 *
 * The library uses no file or device for it. The caller reads the image into a buffer, opens it with tlv_inst_init and
 * tlv_load, and reads and writes fields. The caller's save function stores the image.
 *
 * The image: a header of 16 bytes (tlv_hdr) followed by `cfg_len` bytes of field records, packed back to back
 * (tlv_field and `max_len` value bytes). Every number in it is big-endian.
 *
 * Holds for the whole header:
 * - Results are 0 for success and -1 for failure unless said otherwise.
 * - Unless a function says what null does, its pointers must not be null; this is not checked.
 * - No locking: callers serialise all use of an instance and of its image, including checks.
 * - Messages go to standard output through mu_printf. Memory comes from mu_malloc.
 * - An instance, its index and a duplicate's image are blocks of mu_malloc. No function frees an instance: its owner
 *   frees `field_tbl`, for a duplicate also `base`, and then the instance with mu_free.
 *
 * Duties of the caller:
 * - Provide at least 16 bytes at `base`, even if `max_size` is smaller: if the buffer does not hold an image, tlv_load
 *   writes a blank one before it compares sizes.
 * - Pass `max_size` = the buffer's size - 16. An append compares only the record area with `max_size`, so an image may
 *   end up to 16 bytes after it.
 * - If no tlv_load has succeeded, make sure before each check and each write that the buffer holds the 16 bytes of a
 *   header and the `cfg_len` bytes after it: all calls trust that number, and only tlv_load compares it with a size.
 * - Do not write to a duplicate beyond its image's size: its buffer holds only the image that was copied, although its
 *   `max_size` is the source's.
 * - Do not change a buffer field's `max_len` in place: build a new image. See tlv_write_buffer.
 */
#ifndef TARN_STARTUP_CFG_H
#define TARN_STARTUP_CFG_H

#include "tarn/types.h"

TARN_BEGIN_DECLS

/** The magic number of an image: bytes 84 73 94 58. */
#define TLV_MAGIC UINT32_C(0x84739458)

/** The header of an image: byte strings, because an image may be at any address. */
typedef struct tlv_hdr {
  uint8_t magic[4];   /**< TLV_MAGIC. */
  uint8_t crc[2];     /**< Checksum of header and records, with 0 in this field. 0 is accepted: not yet computed. */
  uint8_t active;     /**< The application's; written only by tlv_write_active. */
  uint8_t flag;       /**< The application's; see tlv_write_flag and tlv_read_flag. */
  uint8_t cfg_len[4]; /**< Bytes of records after the header. */
  uint8_t version[4]; /**< The application's; see tlv_write_version. */
} tlv_hdr;

/** The head of a field record; `max_len` value bytes follow. */
typedef struct tlv_field {
  uint8_t type[2];    /**< The field's key, set by the application. If two records have it, the first is found. */
  uint8_t max_len[2]; /**< Bytes of the value area, 1 to 65535. Unused bytes at its end are zero. */
} tlv_field;

TARN_STATIC_ASSERT(sizeof(tlv_hdr) == 16 && offsetof(tlv_hdr, crc) == 4 && offsetof(tlv_hdr, active) == 6 &&
                       offsetof(tlv_hdr, flag) == 7 && offsetof(tlv_hdr, cfg_len) == 8 &&
                       offsetof(tlv_hdr, version) == 12,
                   "image header layout");
TARN_STATIC_ASSERT(sizeof(tlv_field) == 4 && offsetof(tlv_field, max_len) == 2, "field record layout");

/**
 * Stores the first `size` bytes at `base`, for example in a file. It runs on the writer's thread, during the write. Its
 * result is ignored, so it must report its failures itself. It must not write to the instance, throw or longjmp.
 */
typedef int32_t (*tlv_save_cb)(const uint8_t *base, uint32_t size);

/** One image in one buffer. */
typedef struct tlv_inst {
  uint8_t *base;         /**< The image's first byte, in the caller's buffer or in a duplicate's. */
  tlv_field **field_tbl; /**< The records in image order; null before a load and for an image without records. */
  uint32_t field_num;    /**< Entries of `field_tbl`. */
  uint32_t max_size;     /**< Bytes at `base` that an image may take; see the duties above. */
  tlv_save_cb save_cb;   /**< May be null. */
} tlv_inst;

TARN_STATIC_ASSERT(offsetof(tlv_inst, field_tbl) == 8 && offsetof(tlv_inst, field_num) == 16 &&
                       offsetof(tlv_inst, max_size) == 20 && offsetof(tlv_inst, save_cb) == 24 &&
                       sizeof(tlv_inst) == 32,
                   "instance layout");

/* ---- Bytes at any address, in the processor's own order --------------------------------------------------------- */

/** The byte at `p`. */
TARN_API uint8_t tlv_get_char(const uint8_t *p);

/** Stores `value` at `p`. */
TARN_API void tlv_set_char(uint8_t *p, uint8_t value);

/** The 16-bit number at `p`, which needs no alignment. Not swapped: the caller converts to and from big-endian. */
TARN_API uint16_t tlv_get_short(const void *p);

/** Stores a 16-bit number at `p`, as tlv_get_short reads it. */
TARN_API void tlv_set_short(void *p, uint16_t value);

/** The 32-bit number at `p`, which needs no alignment. Not swapped: the caller converts to and from big-endian. */
TARN_API uint32_t tlv_get_int(const void *p);

/** Stores a 32-bit number at `p`, as tlv_get_int reads it. */
TARN_API void tlv_set_int(void *p, uint32_t value);

/* ---- Checks ----------------------------------------------------------------------------------------------------- */

/**
 * The Internet checksum (RFC 1071) of `len` bytes at `data`, over big-endian 16-bit words; an odd last byte is the
 * high byte of a final word.
 *
 * @param[in] len  A negative length counts as 0.
 * @return The checksum in the low 16 bits, all ones in the high 16; 0xFFFFFFFF for no bytes. The words are added in 32
 *         bits and folded at the end: above 128 KiB the sum can wrap, and the result then differs from RFC 1071.
 */
TARN_API uint32_t tlv_crc_calc(const void *data, int32_t len);

/**
 * Compares the checksum stored in `image` with that of its first `cfg_len` + 16 bytes. Prints nothing.
 *
 * @retval 0   Equal.
 * @retval -1  Different.
 */
TARN_API int32_t tlv_crc_check(uint8_t *image);

/**
 * Walks the records of `image`. Trusts its `cfg_len`, and reads nothing after the bytes that it counts.
 *
 * @return The number of records, 0 for an empty image. -1 for a record whose `max_len` is 0 ("\r\n The max len of
 *         field(%d) is 0.", with the two bytes of `type` in the processor's own order: a little-endian processor prints
 *         256 for type 1), and for records that do not end exactly at `cfg_len` ("\r\n Cfg len doesn't mach.").
 */
TARN_API int32_t tlv_field_check(const uint8_t *image);

/**
 * Checks an image: magic, checksum, records, in this order. A `crc` of 0 is replaced by the checksum, before the walk
 * of the records.
 *
 * @return The number of records. -1 after "\r\n Startup-cfg magic number is error(0x%08x).", "\r\n Startup-cfg CRC
 *         doesn't match." or (after the walk's own message) "\r\n Startup-cfg field check failed.".
 */
TARN_API int32_t tlv_check(uint8_t *image);

/* ---- Instances -------------------------------------------------------------------------------------------------- */

/**
 * Makes an instance for a buffer. Does not read the buffer: call tlv_load next.
 *
 * @param[in] base      At least 16 bytes; stays the caller's, and must exist as long as the instance.
 * @param[in] max_size  The buffer's size - 16; see the duties above.
 * @param[in] save_cb   Called after changes; null for none.
 * @return The instance; null when `base` is null or memory runs out.
 */
TARN_API tlv_inst *tlv_inst_init(uint8_t *base, uint32_t max_size, tlv_save_cb save_cb);

/**
 * Makes a private copy of a loaded instance and of its image; the copy has no save function.
 *
 * @return The copy; null when `src` is null or has no index (an image without records cannot be copied), or memory
 *         runs out.
 *
 * Deliberate: the copy keeps the source's `max_size`, although its buffer holds only the `cfg_len` + 16 bytes of the
 * image: writes that make the image longer overrun the buffer.
 */
TARN_API tlv_inst *tlv_inst_duplicate(const tlv_inst *src);

/**
 * Checks the image of an instance and builds the index of its fields.
 *
 * If the buffer does not begin with the magic number, it first becomes a blank image, silently and without a call of
 * `save_cb`: its content is lost. If that matters, check for damage with tlv_check before.
 *
 * @retval 0   Loaded. An image without records has no index: readers then print that nothing is loaded.
 * @retval -1  `inst` is null ("\r\n The base address of startup configuration is NULL."); or the image is longer than
 *             `max_size` (silent) or fails tlv_check (its messages): the index is unchanged; or memory for the index
 *             ran out (silent): the instance is unloaded.
 */
TARN_API int32_t tlv_load(tlv_inst *inst);

/* ---- Readers ----------------------------------------------------------------------------------------------------
 *
 * Common to the four: a null instance fails silently. An instance without an index, such as that of an image without
 * records, fails with "\r\n Maybe startup-cfg hasn't been loaded."; a null output with "\r\n Input an invalid
 * parameter.". A missing field fails silently. The readers find the fields that the latest successful tlv_load found.
 * The output is written on success only.
 */

/**
 * Reads a field of one byte; for a longer field it prints
 * "\r\n Attempt to read a cfg which length is %d into a char(type = %d)." and returns -1.
 */
TARN_API int32_t tlv_read_char(const tlv_inst *inst, uint16_t type, uint8_t *out);

/**
 * Reads a field of two bytes; for a field of another size it prints
 * "\r\n Attempt to read a cfg which length is %d into a short(type = %d )" and returns -1.
 */
TARN_API int32_t tlv_read_short(const tlv_inst *inst, uint16_t type, uint16_t *out);

/**
 * Reads a field of four bytes; for a field of another size it prints
 * "\r\n Attempt to read a cfg which length is %d into a int(type = %d )." and returns -1.
 */
TARN_API int32_t tlv_read_int(const tlv_inst *inst, uint16_t type, uint32_t *out);

/**
 * Reads a whole value area, including the zeros at its end.
 *
 * @param[in]  buf_len  Bytes at `buf`: at least the field's `max_len`; 0 fails like a null `buf`.
 * @param[out] buf      The value.
 * @return The field's `max_len`; 0 on any failure. A buffer that is too short prints "\r\n The length of buffer is too
 *         short to store the value (type = %d).".
 */
TARN_API uint32_t tlv_read_buffer(const tlv_inst *inst, uint16_t type, uint32_t buf_len, void *buf);

/* ---- Writers ----------------------------------------------------------------------------------------------------
 *
 * Common to all: a null instance fails silently (but see tlv_write_buffer); a null `base` fails with "\r\n Maybe
 * startup-cfg hasn't been loaded.". A change is sealed: the checksum is stored. Then `save_cb` gets `base` and the
 * image's size.
 *
 * A missing field is appended; tlv_load then indexes and seals the image, and its messages may appear. Deliberate: only
 * the record area after an append must fit `max_size`. If the area fits, but the image, which is 16 bytes longer, does
 * not, the field is written and saved and the result is 0; but the image is not sealed, and the field gets no index
 * entry. The saved image can be loaded only with a larger `max_size`.
 */

/** Writes a field of one byte. A field of another size: "\r\n This type tlv should be %d bytes length.", with that
 * size, and -1. An append that does not fit: -1, silent. */
TARN_API int32_t tlv_write_char(tlv_inst *inst, uint16_t type, uint8_t value);

/** Writes a field of two bytes; fails like tlv_write_char. */
TARN_API int32_t tlv_write_short(tlv_inst *inst, uint16_t type, uint16_t value);

/** Writes a field of four bytes; fails like tlv_write_char. */
TARN_API int32_t tlv_write_int(tlv_inst *inst, uint16_t type, uint32_t value);

/**
 * Writes a buffer field: `len` bytes of `data`; the rest of the value area becomes zero.
 *
 * @param[in] max_len  Bytes of the value area, 1 to 65535. An existing field must have exactly this `max_len`.
 * @param[in] len      Bytes at `data`, 1 to `max_len`.
 * @retval 0   Written and saved.
 * @retval -1  Nothing changed: `inst` is null, `len` is negative or above `max_len` (compared as signed), or `max_len`
 *             is above 65535 ("parameter wrong \n"); `data` is null or `len` is 0 ("\r\n Input an invalid
 *             parameter."); the append does not fit ("new cfg len %d > max len %d \n", with the new length of the
 *             record area); or memory ran out (silent).
 *
 * Deliberate: an existing field with another `max_len` is resized in place. The records after it move, without a check
 * of the capacity. But the index keeps their old addresses, only the upper half of `cfg_len` is written, and the
 * checksum covers the old length: the image can no longer be loaded, unless it happens to end at a record's end. Never
 * change a field's `max_len` this way: build a new image.
 */
TARN_API int32_t tlv_write_buffer(tlv_inst *inst, uint16_t type, uint32_t max_len, int32_t len, const uint8_t *data);

/** Writes the header's `flag` and saves; needs no index. */
TARN_API int32_t tlv_write_flag(tlv_inst *inst, uint8_t flag);

/** Writes the header's `active`; needs no index. Deliberate: seals the image, but never calls `save_cb`. */
TARN_API int32_t tlv_write_active(tlv_inst *inst, uint8_t active);

/** Writes the header's `version` and saves; needs no index. */
TARN_API int32_t tlv_write_version(tlv_inst *inst, uint32_t version);

/** Reads the header's `flag` into `out`, which must not be null. Fails like the writers; needs no index. */
TARN_API int32_t tlv_read_flag(const tlv_inst *inst, uint8_t *out);

TARN_END_DECLS

#endif
