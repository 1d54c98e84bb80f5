#include "ServiceStatus.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

TEST(ServiceStatus, countsInterfacesElectionsAndGroups) {
  EXPECT_EQ(serviceStatusText({.interfaces = 3, .elected = 2, .groups = 57}),
            "3 interfaces, querier on 2, 57 groups");
}

TEST(ServiceStatus, countsOneOfEach) {
  EXPECT_EQ(serviceStatusText({.interfaces = 1, .elected = 1, .groups = 1}),
            "1 interface, querier on 1, 1 group");
}

TEST(ServiceStatus, countsNone) {
  EXPECT_EQ(serviceStatusText({}), "0 interfaces, querier on 0, 0 groups");
}

}  // namespace
}  // namespace Agent
