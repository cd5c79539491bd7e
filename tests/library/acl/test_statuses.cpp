// Statuses in words, and numbers of interfaces.
#include <gtest/gtest.h>

#include "qim_acl.h"
#include "rov.h"

namespace {

TEST(Statuses, OfBothLibrariesHaveNamesAndTexts) {
  EXPECT_STREQ(qim_status_name(QIM_ERR_NO_EDEST), "QIM_ERR_NO_EDEST");
  EXPECT_STREQ(qim_status_text(QIM_ERR_NO_EDEST), "the policy instance is not enforced there");
  EXPECT_STREQ(qim_status_name(QIM_ERR_NO_MEM), "QIM_ERR_NO_MEM");
  EXPECT_STREQ(qim_status_name(ROV_ERR_BUSY), "ROV_ERR_BUSY");
  EXPECT_STREQ(qim_status_text(ROV_ERR_BUSY), rov_status_text(ROV_ERR_BUSY));
  EXPECT_STREQ(qim_status_name(0), "ROV_OK");
  EXPECT_STREQ(qim_status_name(QIM_ERR_GENERIC + 0x99), "ROV_ERR_UNKNOWN");
  EXPECT_STREQ(qim_status_name(7), "ROV_ERR_UNKNOWN");
}

TEST(Statuses, ASessionThatIsNoneIsNotClosed) {
  EXPECT_EQ(qim_ses_close(0), uint32_t{ROV_ERR_HANDLE});
}

// Stored in databases, so they must stay what they are.
TEST(InterfaceIndex, FollowsFromTheNameAlone) {
  EXPECT_EQ(qim_interface_index("te0/1", 5), 0x69d3a5d9u);
  EXPECT_EQ(qim_interface_index("te0/12", 5), qim_interface_index("te0/1", 5));
  EXPECT_NE(qim_interface_index("te0/2", 5), qim_interface_index("te0/1", 5));
  EXPECT_LE(qim_interface_index("", 0), 0x7fffffffu);
  EXPECT_EQ(qim_interface_index("nohjec", 6), 1u);  // whose hash would give 0, which is no index
}

}  // namespace
