// Lets functions of the library fail that nothing else can make fail, or give what no database
// could hold: the linker puts these in the place of qim_node_cp and qim_ref_get_all (see
// CMakeLists.txt).
#ifndef TESTS_LIBRARY_QUERY_SEAMS_H
#define TESTS_LIBRARY_QUERY_SEAMS_H

#include <cstdint>
#include <vector>

namespace query_test {

// Every further copy of a node works, but returns this.
void set_copy_status(std::uint32_t status);
// The next gathering of referrers gives an array of these identifiers and claims this count.
void set_referrers(const std::vector<std::uint32_t>& ids, std::uint32_t count);
// The library's own functions again.
void reset_seams();

}  // namespace query_test

#endif
