// Runs an operation again and again with its k-th allocation failing
// (k = 1, 2, ...) until it gets through, checking that every failure
// surfaces with its own code and that nothing leaks.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "support/memory_stream.h"
#include "util/alloc.h"

namespace tmx::test {

struct FaultCall {
  const char* name;
  std::function<std::int32_t()> run;
};

// Returns how many allocations the call makes; each failed one gives -10.
inline int FailEachAllocation(const FaultCall& call) {
  for (std::uint64_t k = 1; k < 1000; ++k) {
    const std::int64_t live = testing::LiveAllocations();
    const std::uint64_t made = testing::AllocationCount();
    testing::FailAllocation(k);
    const std::int32_t rc = call.run();
    testing::FailAllocation(0);
    EXPECT_EQ(testing::LiveAllocations(), live) << call.name << ", allocation " << k;
    if (testing::AllocationCount() - made < k) {
      EXPECT_EQ(rc, TMX_OK) << call.name;
      return int(k - 1);
    }
    EXPECT_EQ(rc, TMX_ERR_MEMORY) << call.name << ", allocation " << k;
  }
  ADD_FAILURE() << call.name << " never succeeded";
  return 0;
}

}  // namespace tmx::test
