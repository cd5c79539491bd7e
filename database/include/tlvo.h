/*
 * tlvo.h - the TLV object codec: conversion between records and TLV arrays, driven by descriptor
 * tables (rov_types.h). docs/tlv.md describes the format.
 *
 * Conventions
 *  1. An array is attributes behind one another: a u32 tag (struct id << 16 | field id), a u32
 *     length of the value in bytes, the value, and zero bytes up to a multiple of 4; integers in
 *     network order. Arrays, records and buffers may lie at any address.
 *  2. An array is data from elsewhere: whatever its bytes are, nothing is read beyond the length
 *     given, and what is wrong has a status of its own:
 *       ROV_ERR_TLV_TRUNCATED  the head of the first attribute, or a value or its padding, runs
 *                              past the end
 *       ROV_ERR_TLV_OVERLONG   fewer than 8 bytes, so no head, follow an attribute
 *       ROV_ERR_TLV_PADDING    padding is not zero
 *       ROV_ERR_TLV_WIDTH      an integer has not the width of its field
 *       ROV_ERR_TLV_DUPLICATE  a field that is not a list comes twice
 *       ROV_ERR_TLV_UNION      a union has a discriminator that its table does not hold
 *       ROV_ERR_TLV_DEPTH      records are nested in one another more than 8 deep
 *     Attributes with another struct id, or a field id that the table lacks, are skipped; their
 *     lengths and padding are looked at all the same. rov_err_message (rov_edit.h) tells the place.
 *  3. A table is trusted to end; otherwise what it says is checked as it is used:
 *     ROV_ERR_TLV_TABLE for a missing table, an unknown kind, a width that no integer has, a field
 *     beyond its record, an embedded record larger than its field, a missing callback, a field id
 *     above 0xffff, more than 64 fields, or more than 8 lists in one record. Tables are constant. A
 *     shared object that has tables in memory that is only read stays loaded once they are used.
 *  4. Records that are encoded are trusted: their pointers and lengths are followed, lists to their
 *     end.
 *  5. Statuses of callbacks pass unchanged.
 *  6. Threads: no shared state; any thread.
 *
 * Plain C99; usable from C++.
 */
#ifndef TLVO_H
#define TLVO_H

#include "rov_types.h"

/* What follows is exported, also where the default is hidden. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* tlvo_dec_tlva_to_struct flags */
enum {
  TLVO_DEC_IN_PLACE = 1 /* *record points at a zeroed record to fill; without it the codec
                           allocates one */
};

/* What the size functions answer for a failure. */
#define TLVO_SIZE_FAILED 0xffffffffu

/* Decodes `len` bytes at `tlva` (NULL only when len is 0). Fields of which there is no attribute
 * stay as they are.
 * With TLVO_DEC_IN_PLACE into the record at *record, of table->record_size bytes. What a failed
 * decode got to is in the record then, and what its callbacks had allocated hangs in it: the caller
 * frees it as that of a whole record.
 * Without it into a new record from the process's own pool, zeroed, at *record; the caller frees
 * what hangs in it and then the record itself, with mem_free(record, NULL). A failure sets *record
 * to NULL and gives back what was allocated, by rov_tlv_to_bufptr and rov_tlv_to_listel too.
 *   0; ROV_ERR_TLV_* as above; ROV_ERR_NO_MEM; ROV_ERR_INVALID for a bad argument (NULL, unknown
 *   flags); a callback's status. */
uint32_t tlvo_dec_tlva_to_struct(void** record, const void* tlva, uint32_t len,
                                 const tlvo_table_t* table, uint32_t flags);

/* Adds to *size the bytes that the decoded record takes, and everything that it owns: byte strings
 * and list elements, those of a union's member included, as rov_tlv_to_bufptr and rov_tlv_to_listel
 * would allocate them. The array is decoded for this, into memory that is given back.
 * len 0 means that the caller does not know the array's length: the array is not read and only the
 * fixed record counts.
 *   0; statuses of decoding; ROV_ERR_LENGTH when the sum passes 0xfffffffe. *size is left as it was
 *   on failure. */
uint32_t tlvo_dec_tlva_to_struct_size(uint32_t* size, const void* tlva, uint32_t len,
                                      const tlvo_table_t* table);

/* Encodes `record` into `room` bytes at `tlva` (NULL only when room is 0), its fields in the
 * table's order: every integer and embedded record, byte strings that are not empty, each element
 * of a list. *len (optional) receives the bytes written, *count (optional) the number of top-level
 * attributes. flags: 0. On failure *len and *count are 0 and the buffer's contents are unspecified.
 *   0; ROV_ERR_TLV_ROOM; ROV_ERR_TLV_TABLE, _DEPTH, _UNION; ROV_ERR_INVALID for a bad argument, and
 *   for a byte string that has a length and no bytes; a callback's status. */
uint32_t tlvo_enc_struct_to_tlva(void* tlva, uint32_t room, const tlvo_table_t* table,
                                 const void* record, uint32_t* len, uint32_t* count,
                                 uint32_t flags);

/* Bytes that tlvo_enc_struct_to_tlva would write, or TLVO_SIZE_FAILED. */
uint32_t tlvo_enc_struct_to_tlva_size(const tlvo_table_t* table, const void* record);

#ifdef __cplusplus
}
#endif

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
