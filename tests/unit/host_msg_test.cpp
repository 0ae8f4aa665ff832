// The host's message service: library buffers, sending, freeing, and delivery of received
// and flow-control messages to the registered handlers.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <vector>

#include "host/host_world.h"

namespace {

struct Seen {
    uint32_t calls = 0;
    uint32_t sender = 0;
    uint32_t size = 0;
    std::vector<uint8_t> bytes;
    uint32_t flushes = 0;
};

Seen &S()
{
    static Seen s;
    return s;
}

uint32_t Handler(void *pMsg, void *pArg)
{
    Seen &s = *static_cast<Seen *>(pArg);
    s.calls++;
    s.sender = MSG_SenderCidGet(pMsg);
    s.size = MSG_DataSizeGet(pMsg);
    const uint8_t *p = static_cast<const uint8_t *>(pMsg);
    s.bytes.assign(p, p + s.size);
    return 0;
}

uint32_t Flush(void *pArg)
{
    static_cast<Seen *>(pArg)->flushes++;
    return 0;
}

class HostMsgTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host::Reset();
        S() = Seen{};
    }

    void *Alloc(uint32_t pid, uint32_t len)
    {
        return KOL_MsgFlowCtrlAlloc_F(host::Ctx()->ulMsgAllocHandle, pid, len, "host_msg_test", 1);
    }

    void RegisterAdapter()
    {
        ASSERT_EQ(ZAN_CompAdp_Init(&adp, 3, 85, host::Ctx()), 0u);
        ASSERT_EQ(ZAN_Frame_RegMsgProc(host::Ctx(), adp.usMsgClass, Handler, &S(), Flush), 0u);
    }

    ZAN_COMP_ADP_S adp{};
};

TEST_F(HostMsgTest, AllocatedBufferIsNotZeroedAndCounted)
{
    uint8_t *p = static_cast<uint8_t *>(Alloc(0x10, 24));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 24; i++) {
        EXPECT_EQ(p[i], 0xA5u);
    }
    EXPECT_EQ(host::MsgsOutstanding(), 1u);
    MSG_Free(0x10, p);
    EXPECT_EQ(host::MsgsOutstanding(), 0u);
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostMsgTest, SendCopiesTheBytesAndTakesTheBufferOver)
{
    uint8_t *p = static_cast<uint8_t *>(Alloc(0x10, 8));
    ASSERT_NE(p, nullptr);
    for (uint8_t i = 0; i < 8; i++) {
        p[i] = i;
    }
    EXPECT_EQ(KOL_SEND_MSG(0x10, 0, 0, p, 6), 0u);
    EXPECT_EQ(host::MsgsOutstanding(), 0u);
    ASSERT_EQ(host::Sent().size(), 1u);
    EXPECT_EQ(host::Sent().front().pid, 0x10u);
    EXPECT_EQ(host::Sent().front().bytes, (std::vector<uint8_t>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostMsgTest, FailedSendDeliversNothingAndStillReleases)
{
    host::ArmFail(host::FailKind::Send, 1, 1);
    for (uint32_t pid : {0x10u, 0x20u, 0x30u}) {
        void *p = Alloc(pid, 4);
        ASSERT_NE(p, nullptr);
        std::memset(p, static_cast<int>(pid), 4);
        EXPECT_EQ(KOL_SEND_MSG(pid, 0, 0, p, 4), pid == 0x20u ? 1u : 0u);
    }
    EXPECT_EQ(host::MsgsOutstanding(), 0u);
    ASSERT_EQ(host::Sent().size(), 2u);
    EXPECT_EQ(host::Sent()[0].pid, 0x10u);
    EXPECT_EQ(host::Sent()[1].pid, 0x30u);
    EXPECT_EQ(host::Sent()[1].bytes, (std::vector<uint8_t>{0x30, 0x30, 0x30, 0x30}));
}

TEST_F(HostMsgTest, FailedAllocationGivesNull)
{
    host::ArmFail(host::FailKind::MsgAlloc, 0, 2);
    EXPECT_EQ(Alloc(0x10, 20), nullptr);
    EXPECT_EQ(Alloc(0x10, 20), nullptr);
    void *p = Alloc(0x10, 20);
    EXPECT_NE(p, nullptr);
    EXPECT_EQ(host::MsgsOutstanding(), 1u);
    MSG_Free(0x10, p);
}

TEST_F(HostMsgTest, MisuseOfBuffersIsAFault)
{
    uint8_t local[4] = {};
    EXPECT_NE(KOL_SEND_MSG(0x10, 0, 0, local, 4), 0u);
    EXPECT_EQ(host::Faults(), 1u);
    MSG_Free(0x10, local);
    EXPECT_EQ(host::Faults(), 2u);
    void *p = Alloc(0x10, 4);
    EXPECT_NE(KOL_SEND_MSG(0x10, 0, 0, p, 5), 0u);   // more than was allocated
    EXPECT_EQ(host::Faults(), 3u);
    EXPECT_TRUE(host::Sent().empty());
    EXPECT_EQ(host::MsgsOutstanding(), 0u);
}

TEST_F(HostMsgTest, DeliveryNeedsTheAdapterHandler)
{
    EXPECT_EQ(host::AdapterMsgClass(), 0u);
    EXPECT_FALSE(host::DeliverMsg(0x10, {1, 2, 3}));
    EXPECT_FALSE(host::RunFlush());
    RegisterAdapter();
    EXPECT_NE(host::AdapterMsgClass(), 0u);
    EXPECT_EQ(host::AdapterMsgClass(), adp.usMsgClass);
    EXPECT_TRUE(host::DeliverMsg(0x10, {1, 2, 3}));
    EXPECT_EQ(S().calls, 1u);
}

TEST_F(HostMsgTest, ReceivedBufferCarriesSenderAndDeliveredSize)
{
    RegisterAdapter();
    struct Case {
        const char *name;
        std::vector<uint8_t> bytes;
        std::optional<uint32_t> size;
        uint32_t expectSize;
        std::vector<uint8_t> expectBytes;
    };
    const Case cases[] = {
        {"whole", {9, 8, 7, 6}, std::nullopt, 4, {9, 8, 7, 6}},
        {"shorter size", {9, 8, 7, 6}, 2u, 2, {9, 8}},
        {"longer size is zero padded", {9, 8}, 4u, 4, {9, 8, 0, 0}},
        {"empty", {}, std::nullopt, 0, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(host::DeliverMsg(0x44, c.bytes, c.size));
        EXPECT_EQ(S().sender, 0x44u);
        EXPECT_EQ(S().size, c.expectSize);
        EXPECT_EQ(S().bytes, c.expectBytes);
    }
    EXPECT_EQ(host::Faults(), 0u);
}

TEST_F(HostMsgTest, FlowControlMessageNamesThePidAtOffsetEight)
{
    RegisterAdapter();
    EXPECT_FALSE(host::DeliverFcm(0x10));
    Seen fcm;
    ASSERT_EQ(ZAN_Frame_RegMsgProc(host::Ctx(), 7, Handler, &fcm, Flush), 0u);
    ASSERT_TRUE(host::DeliverFcm(0x12345678));
    EXPECT_EQ(fcm.calls, 1u);
    ASSERT_GE(fcm.bytes.size(), 12u);
    uint32_t pid = 0;
    std::memcpy(&pid, fcm.bytes.data() + 8, sizeof(pid));
    EXPECT_EQ(pid, 0x12345678u);
    EXPECT_EQ(S().calls, 0u);
}

TEST_F(HostMsgTest, FlushRunsTheRoutineOfTheAdapterClass)
{
    RegisterAdapter();
    EXPECT_TRUE(host::RunFlush());
    EXPECT_TRUE(host::RunFlush());
    EXPECT_EQ(S().flushes, 2u);
}

}  // namespace
