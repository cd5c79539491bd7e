// What the tests of the database's operations share: statuses in words, a node that is easily
// changed, pieces of private data.
#ifndef TESTS_SYSTEM_E2E_OPERATIONS_H
#define TESTS_SYSTEM_E2E_OPERATIONS_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "rov_edit.h"
#include "tests/system/e2e/client.h"

namespace e2e {

// Whether a call gave this status; says what it gave instead, and why.
testing::AssertionResult gives(std::uint32_t expected, std::uint32_t status);
testing::AssertionResult ok(std::uint32_t status);

// ---- A node ----------------------------------------------------------------------------------

inline constexpr qim_node_id_t kNode = 0x1c300001;

// Stores a group whose subtype is that value, and perhaps a data-set name, in a write session.
void put_value(std::uint32_t writer, qim_node_id_t node, std::uint32_t value,
               const Bytes& dset_name = {});
void put_link(std::uint32_t writer, qim_node_id_t owner, std::uint16_t field, qim_node_id_t node);
// The same as a commit of its own.
void commit_value(std::uint32_t db, std::uint32_t value, qim_node_id_t node = kNode);
// The value that a session sees.
std::uint32_t value_in(std::uint32_t ses, qim_node_id_t node = kNode);
// The value of the newest commit.
std::uint32_t newest_value(std::uint32_t db, qim_node_id_t node = kNode);

// The data-set name of an interface's policy.
Bytes interface_name(std::uint32_t ifix);

// ---- Private data ----------------------------------------------------------------------------

// A piece, with room for what comes back.
class Piece {
 public:
  explicit Piece(std::uint32_t key, std::size_t room = 64);
  Piece(std::uint32_t key, const std::string& text);

  rov_priv_t* get() { return &priv_; }
  std::uint32_t key() const { return priv_.key; }
  std::string text() const { return {bytes_.begin(), bytes_.begin() + priv_.len}; }

 private:
  Bytes bytes_;
  rov_priv_t priv_{};
};

// ---- Time ------------------------------------------------------------------------------------

// A writer of this process waits that long for another one.
void wait_for_writers(std::uint32_t milliseconds);

// Milliseconds since it was made.
class StopWatch {
 public:
  std::int64_t elapsed() const;

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Nobody waits longer than this, in milliseconds, for a process that was killed. Emulated machines
// get more: they take that long for what others do at once.
std::int64_t soon();

}  // namespace e2e

#endif
