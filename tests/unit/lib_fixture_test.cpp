// The fixture's fault check: any platform misuse the host recorded fails the test, with the
// fault log in the message.
#include <gtest/gtest-spi.h>

#include "lib_fixture.h"

namespace {

void StopUnknownTimers()
{
    host::Reset();
    ZAN_Frame_StopTmr(host::Ctx(), 0xdead);
    ZAN_Frame_StopTmr(host::Ctx(), 0xbeef);
}

TEST(ExpectNoFaults, FailsAndListsEveryFault)
{
    EXPECT_NONFATAL_FAILURE(
        {
            StopUnknownTimers();
            libtest::ExpectNoFaults();
        },
        "platform misuse:\n  ZAN_Frame_StopTmr of unknown timer 57005\n  ZAN_Frame_StopTmr of unknown timer 48879");
    host::Reset();
}

TEST(ExpectNoFaults, PassesInACleanWorld)
{
    host::Reset();
    uint32_t handle = ZAN_Frame_StartLoopTmr(host::Ctx(), [](void *, uint32_t, ZAN_COMP_CTX_S *) {}, 10, nullptr);
    ASSERT_NE(handle, 0u);
    ZAN_Frame_StopTmr(host::Ctx(), handle);
    libtest::ExpectNoFaults();
    EXPECT_FALSE(HasNonfatalFailure());
}

}  // namespace
