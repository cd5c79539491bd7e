// Functions that convert a data-set name write to it, also those that leave it as they found it: a
// name that somebody else reads meanwhile, or that is constant, is not for them.

#include <sys/mman.h>
#include <unistd.h>

#include <functional>

#include "bytes.h"
#include "tests/support/fake/fixture.h"

namespace {

// A page that holds a name and can be made unwritable.
class Page {
 public:
  Page()
      : size_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
        at_(mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    EXPECT_NE(at_, MAP_FAILED);
    qim_dsetname_for_if_policy(5, QIM_DIR_IN, 1, 2, 3, 4, name());
  }
  ~Page() { munmap(at_, size_); }
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;

  qim_dsetname_t* name() const { return static_cast<qim_dsetname_t*>(at_); }
  void lock() const { EXPECT_EQ(mprotect(at_, size_, PROT_READ), 0); }

 private:
  std::size_t size_;
  void* at_;
};

bool returns_with_a_constant_name(const std::function<void(qim_dsetname_t*)>& use) {
  const Page page;
  page.lock();
  return fake::ending_of([&] { use(page.name()); }).returned;
}

std::uint32_t extract(qim_dsetname_t* name) {
  rov_sub_t sub = {};
  sub.dset_name = name;
  return qim_extract_pinst_from_sub(&sub);
}

TEST(SharedNames, are_written_by_every_conversion_in_place) {
  if (ids_tests::kBigEndian) GTEST_SKIP() << "host order is network order";
  qim_pinst_fields_t fields = {};
  qim_dsetname_t other = {};
  EXPECT_FALSE(returns_with_a_constant_name(qim_dsetname_hton));
  EXPECT_FALSE(returns_with_a_constant_name(qim_dsetname_ntoh));
  EXPECT_FALSE(returns_with_a_constant_name(
      [&](qim_dsetname_t* name) { qim_pinst_from_dsetname(&fields, name); }));
  EXPECT_FALSE(returns_with_a_constant_name([](qim_dsetname_t* name) { extract(name); }))
      << "although it restores it";
  EXPECT_FALSE(returns_with_a_constant_name([&](qim_dsetname_t* name) {
    qim_dbg_dsetname_print(name, &other, 1, 2, "", "");
  })) << "although it restores it";
}

TEST(SharedNames, are_copied_first_and_the_copy_is_decoded) {
  const Page page;
  page.lock();
  qim_dsetname_t copy = *page.name();
  qim_pinst_fields_t fields = {};
  qim_pinst_from_dsetname(&fields, &copy);
  EXPECT_EQ(fields.type, 5u);
  EXPECT_EQ(fields.dest.intf.ifix, 4u);
}

}  // namespace
