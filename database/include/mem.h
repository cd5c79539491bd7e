/*
 * mem.h - memory helpers of the node database: pool allocation, a bounded fill, a hex formatter.
 *
 * Conventions
 *  1. A pool is named by a rov_mem_ctx_t. NULL, and a context whose `pool` is NULL, name the
 *     process's own pool, the only one that the embedded database has: a context that names another
 *     gives ROV_ERR_INVALID.
 *  2. `limit` of a context bounds the bytes that are handed out of the pool at a time, whoever
 *     asked for them, counted as they were asked for: a request through the context that would pass
 *     it gives ROV_ERR_NO_MEM. 0 = no limit. A NULL context has none.
 *  3. Threads: every function may be called from any thread at any time. Copies of a context may be
 *     used at once. A block may be freed by another thread than the one that took it.
 *  4. Memory of freed blocks of up to 4 KiB stays with the pool and is handed out again.
 *
 * Plain C99; usable from C++.
 */
#ifndef MEM_H
#define MEM_H

#include "rov_types.h"

/* What follows is exported, also where the default is hidden. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One request of mem_alloc_ary. */
typedef struct mem_request {
  uint32_t size; /* bytes; 0 gives NULL */
  void** out;    /* receives the block */
} mem_request_t;

/* Allocates `size` zero-filled bytes, aligned for any object, into *out; the caller gives them back
 * with mem_free. `size` 0 gives NULL and success.
 *   0                the block is in *out
 *   ROV_ERR_NO_MEM   the system has no memory, or the limit would be passed; *out is NULL
 *   ROV_ERR_INVALID  `out` is NULL, or the pool is none of ours; *out, where there is one, is
 *   NULL */
uint32_t mem_zalloc(uint32_t size, rov_mem_ctx_t* pool, void** out);

/* Allocates `count` zero-filled blocks, all or none. Each is freed by itself.
 *   0                every block is in its *out
 *   ROV_ERR_NO_MEM   as in mem_zalloc; every *out is NULL
 *   ROV_ERR_INVALID  `requests` or an `out` is NULL: nothing is written; or the pool is none of
 *                    ours: every *out is NULL */
uint32_t mem_alloc_ary(uint32_t count, const mem_request_t* requests, rov_mem_ctx_t* pool);

/* Gives `block` back to the pool it came from.
 *   0                done
 *   ROV_ERR_INVALID  nothing was freed: `block` is not a live block of a pool (NULL, freed already,
 *                    from elsewhere), or the pool is none of ours. A live block is told by the 16
 *                    bytes before it, which must be readable */
uint32_t mem_free(void* block, rov_mem_ctx_t* pool);

/* Sets `count` bytes of `dest`, which has room for `destsz`, to the low byte of `ch`. Never left
 * out by an optimiser. Source: C11 Annex K, K.3.7.4.1.
 *   0         done
 *   non-zero  `dest` is NULL or `destsz` over RSIZE_MAX (half the address space): nothing is
 *             written; or `count` is over `destsz`: the first `destsz` bytes are set */
int memset_s(void* dest, size_t destsz, int ch, size_t count);

/* Formats `len` bytes at `bytes` as lower-case hexadecimal into `out` of `room` bytes, always
 * terminated when room > 0, cut at a whole byte when the room ends. style 0: digits run together
 * ("0a0b0c"). style 1: a blank before every byte after the first ("0a 0b 0c"). Returns the number
 * of characters written, the terminator not counted; 0 when `out` or `bytes` is NULL. */
int snprintf_bytes(char* out, size_t room, const void* bytes, size_t len, int style);

#ifdef __cplusplus
}
#endif

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
