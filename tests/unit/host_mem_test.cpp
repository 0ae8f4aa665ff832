// The host's memory service (handles, per-handle accounting, finalisation, faults, asserts)
// and its failure injection.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "host/host_world.h"

namespace {

class HostMemTest : public ::testing::Test {
protected:
    void SetUp() override { host::Reset(); }

    static void *Alloc(uint32_t handle, uint32_t size)
    {
        return KOL_Malloc_F(handle, g_aucKolMemPt[0], size, "host_mem_test", __LINE__);
    }
};

TEST_F(HostMemTest, WorldStartsWithTheComponentValues)
{
    ZAN_COMP_CTX_S *ctx = host::Ctx();
    EXPECT_EQ(ctx->ulHandle, 1u);
    EXPECT_EQ(ctx->ulCid, 0x100u);
    EXPECT_EQ(ctx->usCompKind, 0x21u);
    EXPECT_EQ(ctx->usStartInhibit, 0u);
    EXPECT_EQ(ctx->pAdpSlot, nullptr);
    EXPECT_NE(ctx->ulFwMemHandle, 0u);
    EXPECT_EQ(host::LastCreatedHandle(), 0u);
    EXPECT_EQ(host::BlocksOn(ctx->ulFwMemHandle), 0u);
    EXPECT_TRUE(host::Asserts().empty());
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostMemTest, HandlesAreUniqueAndNonZero)
{
    uint32_t a = 0;
    uint32_t b = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 0x21ff09, &a), 0u);
    EXPECT_EQ(host::LastCreatedHandle(), a);
    ASSERT_EQ(KOL_HandleInitialize(0x100, 0x21ff09, &b), 0u);
    EXPECT_EQ(host::LastCreatedHandle(), b);
    EXPECT_NE(a, 0u);
    EXPECT_NE(b, 0u);
    EXPECT_NE(a, b);
    EXPECT_NE(a, host::Ctx()->ulFwMemHandle);
    EXPECT_NE(b, host::Ctx()->ulFwMemHandle);
}

TEST_F(HostMemTest, BlocksAreCountedPerHandleAndNotZeroed)
{
    const uint32_t fw = host::Ctx()->ulFwMemHandle;
    uint32_t h = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 1, &h), 0u);
    void *a = Alloc(fw, 16);
    void *b = Alloc(h, 32);
    void *c = Alloc(h, 1);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(host::BlocksOn(fw), 1u);
    EXPECT_EQ(host::BlocksOn(h), 2u);
    const uint8_t *bytes = static_cast<const uint8_t *>(b);
    for (uint32_t i = 0; i < 32; i++) {
        EXPECT_EQ(bytes[i], 0xA5u) << i;
    }
    KOL_Free_F(b, "host_mem_test", __LINE__);
    EXPECT_EQ(host::BlocksOn(h), 1u);
    KOL_Free_F(a, "host_mem_test", __LINE__);
    EXPECT_EQ(host::BlocksOn(fw), 0u);
    KOL_Free_F(c, "host_mem_test", __LINE__);
    EXPECT_EQ(host::BlocksOn(h), 0u);
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostMemTest, FinalizeReleasesEveryBlockAndEndsTheHandle)
{
    uint32_t h = 0;
    uint32_t other = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 1, &h), 0u);
    ASSERT_EQ(KOL_HandleInitialize(0x100, 2, &other), 0u);
    for (int i = 0; i < 5; i++) {
        ASSERT_NE(Alloc(h, 24), nullptr);
    }
    void *kept = Alloc(other, 8);
    ASSERT_NE(kept, nullptr);
    KOL_HandleFinalize(h);
    EXPECT_EQ(host::BlocksOn(h), 0u);
    EXPECT_EQ(host::BlocksOn(other), 1u);
    EXPECT_EQ(host::Faults(), 0u);
    // The ended handle gives no more blocks.
    EXPECT_EQ(Alloc(h, 8), nullptr);
    EXPECT_EQ(host::Faults(), 1u);
    KOL_Free_F(kept, "host_mem_test", __LINE__);
    EXPECT_EQ(host::BlocksOn(other), 0u);
}

TEST_F(HostMemTest, FreeOfUnknownBlockIsAFaultNotACrash)
{
    int onStack = 0;
    KOL_Free_F(&onStack, "host_mem_test", 1);
    EXPECT_EQ(host::Faults(), 1u);
    void *p = Alloc(host::Ctx()->ulFwMemHandle, 4);
    KOL_Free_F(p, "host_mem_test", 2);
    KOL_Free_F(p, "host_mem_test", 3);   // second free of the same block
    EXPECT_EQ(host::Faults(), 2u);
    KOL_Free_F(nullptr, "host_mem_test", 4);
    EXPECT_EQ(host::Faults(), 3u);
    ASSERT_EQ(host::FaultLog().size(), 3u);
    EXPECT_NE(host::FaultLog()[1].find("host_mem_test:3"), std::string::npos);
}

TEST_F(HostMemTest, AssertsAreRecordedInOrder)
{
    KOL_Assert("zan_vrrpadp", 241, 0);
    KOL_Assert("zan_vrrpinst", 12, 5);
    ASSERT_EQ(host::Asserts().size(), 2u);
    EXPECT_EQ(host::Asserts()[0].file, "zan_vrrpadp");
    EXPECT_EQ(host::Asserts()[0].line, 241u);
    EXPECT_EQ(host::Asserts()[0].value, 0u);
    EXPECT_EQ(host::Asserts()[1].file, "zan_vrrpinst");
    EXPECT_EQ(host::Asserts()[1].line, 12u);
    EXPECT_EQ(host::Asserts()[1].value, 5u);
}

TEST_F(HostMemTest, ResetDropsEverything)
{
    uint32_t h = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 1, &h), 0u);
    ASSERT_NE(Alloc(h, 8), nullptr);
    ASSERT_NE(Alloc(host::Ctx()->ulFwMemHandle, 8), nullptr);
    KOL_Assert("x", 1, 1);
    KOL_Free_F(nullptr, "x", 1);
    host::Ctx()->usStartInhibit = 1;
    host::ArmFail(host::FailKind::Malloc, 0, 1);
    host::Reset();
    EXPECT_EQ(host::BlocksOn(h), 0u);
    EXPECT_EQ(host::BlocksOn(host::Ctx()->ulFwMemHandle), 0u);
    EXPECT_EQ(host::LastCreatedHandle(), 0u);
    EXPECT_TRUE(host::Asserts().empty());
    EXPECT_EQ(host::Faults(), 0u);
    EXPECT_EQ(host::Ctx()->usStartInhibit, 0u);
    EXPECT_NE(Alloc(host::Ctx()->ulFwMemHandle, 8), nullptr);   // the armed failure is gone
    host::Reset();
}

// One call of each fallible kind; true when it succeeded.
std::function<bool()> CallOf(host::FailKind kind)
{
    switch (kind) {
        case host::FailKind::Malloc:
            return [] {
                void *p = KOL_Malloc_F(host::Ctx()->ulFwMemHandle, g_aucKolMemPt[0], 8, "t", 1);
                if (p != nullptr) {
                    KOL_Free_F(p, "t", 2);
                }
                return p != nullptr;
            };
        case host::FailKind::MsgAlloc:
            return [] {
                void *p = KOL_MsgFlowCtrlAlloc_F(host::Ctx()->ulMsgAllocHandle, 0x10, 20, "t", 1);
                if (p != nullptr) {
                    MSG_Free(0x10, p);
                }
                return p != nullptr;
            };
        case host::FailKind::Timer:
            return [] {
                const uint32_t h = ZAN_Frame_StartLoopTmr(host::Ctx(), [](void *, uint32_t, ZAN_COMP_CTX_S *) {}, 100,
                                                          nullptr);
                if (h != 0u) {
                    ZAN_Frame_StopTmr(host::Ctx(), h);
                }
                return h != 0u;
            };
        case host::FailKind::Send:
            return [] {
                void *p = KOL_MsgFlowCtrlAlloc_F(host::Ctx()->ulMsgAllocHandle, 0x10, 4, "t", 1);
                return KOL_SEND_MSG(0x10, 0, 0, p, 4) == 0u;
            };
        case host::FailKind::MemInit:
            return [] {
                uint32_t h = 0;
                return KOL_HandleInitialize(0x100, 1, &h) == 0u;
            };
        case host::FailKind::RegMsg:
            return [] {
                return ZAN_Frame_RegMsgProc(host::Ctx(), 0x40, [](void *, void *) -> uint32_t { return 0; }, nullptr,
                                            nullptr) == 0u;
            };
        case host::FailKind::RegCfg:
            return [] {
                return ZAN_SMP_RegCfgCallBack(&host::Ctx()->stCfgObj, 1, 2, 4,
                                              [](void *, const void *) -> uint32_t { return 0; }, nullptr) == 0u;
            };
        case host::FailKind::RegInner:
            return [] {
                return ZAN_InnerData_RegCallBack(
                           host::Ctx(), "cmd",
                           [](ZAN_INNERDATA_REQ_S *, ZAN_CLI_CMD_S *, void *) -> uint32_t { return 0; }, nullptr) == 0u;
            };
        case host::FailKind::Count:
            break;
    }
    return [] { return false; };
}

std::string Pattern(const std::function<bool()> &call, int n)
{
    std::string s;
    for (int i = 0; i < n; i++) {
        s += call() ? '.' : 'F';
    }
    return s;
}

TEST_F(HostMemTest, FailureInjectionSkipsThenFailsCountTimesForEveryKind)
{
    struct Arm {
        uint32_t skip;
        uint32_t count;
        const char *pattern;
    };
    const Arm arms[] = {{0, 1, "F......"}, {2, 1, "..F...."}, {1, 3, ".FFF..."}, {0, 0, "......."}};
    for (int k = 0; k < static_cast<int>(host::FailKind::Count); k++) {
        const host::FailKind kind = static_cast<host::FailKind>(k);
        for (const Arm &a : arms) {
            SCOPED_TRACE("kind " + std::to_string(k) + " skip " + std::to_string(a.skip) + " count " +
                         std::to_string(a.count));
            host::Reset();
            host::ArmFail(kind, a.skip, a.count);
            EXPECT_EQ(Pattern(CallOf(kind), 7), a.pattern);
            // Other kinds are not affected.
            const host::FailKind other = static_cast<host::FailKind>((k + 1) % static_cast<int>(host::FailKind::Count));
            host::ArmFail(kind, 0, 5);
            EXPECT_EQ(Pattern(CallOf(other), 3), "...");
            host::ClearFail();
            EXPECT_EQ(Pattern(CallOf(kind), 2), "..");
            EXPECT_EQ(host::Faults(), 0u);
        }
    }
}

TEST_F(HostMemTest, MallocFailureNarrowedToAHandle)
{
    uint32_t h = 0;
    ASSERT_EQ(KOL_HandleInitialize(0x100, 1, &h), 0u);
    const uint32_t fw = host::Ctx()->ulFwMemHandle;
    host::ArmFail(host::FailKind::Malloc, 1, 2, h);
    std::string got;
    // fw, h, fw, h, h, fw, h: calls on fw neither fail nor count.
    for (uint32_t handle : {fw, h, fw, h, h, fw, h}) {
        void *p = Alloc(handle, 8);
        got += p != nullptr ? '.' : 'F';
        if (p != nullptr) {
            KOL_Free_F(p, "t", 1);
        }
    }
    EXPECT_EQ(got, "...FF..");
}

TEST_F(HostMemTest, FailedMallocAndMemInitHoldNothing)
{
    host::ArmFail(host::FailKind::Malloc, 0, 1);
    EXPECT_EQ(Alloc(host::Ctx()->ulFwMemHandle, 8), nullptr);
    EXPECT_EQ(host::BlocksOn(host::Ctx()->ulFwMemHandle), 0u);
    host::ArmFail(host::FailKind::MemInit, 0, 1);
    uint32_t h = 0x55;
    EXPECT_NE(KOL_HandleInitialize(0x100, 1, &h), 0u);
    EXPECT_EQ(host::LastCreatedHandle(), 0u);
}

}  // namespace
