// The host services where no host defines its own.
#include <norvwlib/norvwlib.h>

#include "support.h"

#include <sched.h>

namespace {

TEST(HostServices, HaveWorkingDefaults) {
  EXPECT_GE(getthreads_(), 1);
  // Kilobytes: from a small first-level cache to the largest shared one.
  EXPECT_GE(getmcache_(), 16);
  EXPECT_LE(getmcache_(), 4 << 20);
  EXPECT_EQ(velmor::test::MessageOf<NorvGoToCaller>([] { atnnxt_(); }),
            "a host error ended the run");
}

TEST(HostServices, CountOnlyProcessorsOpenToTheProcess) {
  cpu_set_t before;
  ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(getthreads_(), 1);
  sched_setaffinity(0, sizeof before, &before);
  EXPECT_EQ(getthreads_(), CPU_COUNT(&before));
}

}  // namespace
