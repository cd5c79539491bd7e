// The programmable platform: a stand-in for librovcommon.
//
// Every rov_*, tlvo_* and mem_* function that the policy library calls is defined here. By default
// each does something sensible on a small store in memory, and records its call. A test can
//   - read the calls, in order, with all their arguments (call.h);
//   - let the n-th call of a function, or the n-th call at all, fail with a status;
//   - put a function of its own in the place of a platform function (`script`);
//   - say what the database holds (nodes.h) and what its parameter block carries;
//   - ask what memory is still allocated and whether anything was freed that must not be.
// Whatever the platform may leave undefined is filled with garbage.
//
// A call that the platform makes to itself (its codec allocating, say) is not recorded.
// Use fixture.h, which starts every test from a clean state, and child.h for what lasts as long as
// a process.
#ifndef TESTS_SUPPORT_FAKE_FAKE_H
#define TESTS_SUPPORT_FAKE_FAKE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "call.h"
#include "rov_types.h"

namespace fake {

// The byte that undefined memory is filled with, and a word of it.
inline constexpr std::uint8_t kGarbage = 0xa5;
inline constexpr std::uint32_t kGarbageWord = 0xa5a5a5a5;

// Forgets calls, scripts, failures, nodes, settings and reports, and frees every block.
void reset();

// ---- Calls ----------------------------------------------------------------------------------

Calls calls();
Calls calls_of(std::string_view name);
std::size_t count(std::string_view name);
std::vector<std::string> names();
void clear_calls();

// ---- Failures and scripts -------------------------------------------------------------------

// The nth call from now on of function `name` returns `status` and does nothing else, except that
// undefined outputs are garbage. For a function that returns a size or count, `status` is that.
void fail(std::string_view name, std::uint32_t status, unsigned nth = 1);
void fail_every(std::string_view name, std::uint32_t status);
// The same for the nth call from now on of any function that returns a status.
void fail_nth(std::uint32_t status, unsigned nth);
// Calls of functions that return a status since the last reset or clear_calls.
unsigned fallible_calls();
// The function that the last injected failure hit, empty when none did since the last reset.
std::string injected();
// That call, and the how-manieth of its function it was since the last reset or clear_calls.
struct Hit {
  Call call;
  std::size_t nth = 0;
};
Hit hit();

// Runs in the place of a platform function; gets the recorded call, whose pointers it may write
// through, and says what the function returns.
using Script = std::function<std::uint32_t(const Call&)>;
void script(std::string_view name, Script script);

// ---- Settings -------------------------------------------------------------------------------

struct Settings {
  std::uint32_t lib = 0x11b;        // handle that rov_lib_init gives
  std::uint32_t db = 0xdb;          // handle that rov_db_init gives
  std::uint32_t ses = 0x5e5;        // handle that rov_ses_open_ro gives
  std::uint32_t base_ses = 0xba5e;  // handle that rov_ses_orig_handle gives
  rov_db_parms_t parms = {};        // what rov_db_init_parms_get answers
  rov_db_parms_t defaults = {};     // what rov_db_init_parms_init answers
  bool zero_ary = true;             // mem_alloc_ary clears its blocks
  bool empty_blocks = false;        // a request of size 0 gives a block instead of NULL
};
Settings& settings();

// ---- Memory ---------------------------------------------------------------------------------

// Blocks allocated and not yet freed.
std::size_t live_blocks();
// Frees of what is no live block (NULL included), or through another pool than the block came from.
std::size_t bad_frees();
bool is_live(const void* block);
// Bytes asked for a live block, 0 for anything else.
std::size_t block_size(const void* block);
// A block as mem_zalloc or, filled with garbage, as another allocator would give it; for scripts
// and for tests that build records of their own.
void* allocate(std::uint32_t size, rov_mem_ctx_t* pool);
void* allocate_dirty(std::uint32_t size, rov_mem_ctx_t* pool);
// Frees what a test owns, from whatever pool.
void release(void* block);

// ---- Reports --------------------------------------------------------------------------------

struct Report {
  std::uint32_t severity;
  std::string text;
  void* arg;
  friend bool operator==(const Report&, const Report&) = default;
};
// A logger that keeps what it is given.
void logger(std::uint32_t severity, const char* text, void* arg);
std::vector<Report> reports();
// The texts alone, and the text that a report must have.
std::vector<std::string> report_texts();
std::string report(std::uint32_t status, std::string_view function, int line);

// ---- Identifiers ----------------------------------------------------------------------------

// The database's form of an identifier, and back.
rov_node_id_t id(std::uint32_t node);
std::uint32_t node_of(const rov_node_id_t& id);

}  // namespace fake

#endif
