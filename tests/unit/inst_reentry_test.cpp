// Application calls made from inside the library's callbacks.
#include <cstring>

#include "lib_fixture.h"

namespace {

ZAN_VRRP_ADP_S *g_adp = nullptr;
int g_itemDowns = 0;

void ItemDownTurnsWorkOff(const void *, uint32_t)
{
    g_itemDowns++;
    ZAN_VrrpAdp_SetWorkState(g_adp, 0);
}

void ItemDownTogglesWork(const void *, uint32_t)
{
    g_itemDowns++;
    ZAN_VrrpAdp_SetWorkState(g_adp, 0);
    ZAN_VrrpAdp_SetWorkState(g_adp, 1);
}

std::vector<uint8_t> Header(uint8_t flags, uint8_t type, uint8_t seq = 0)
{
    std::vector<uint8_t> m(20, 0);
    m[1] = 20;
    m[2] = flags;
    m[3] = type;
    m[15] = seq;
    return m;
}

// Turns the work state off at the consumer's trace site g_offAtLine, once.
uint32_t g_offAtLine = 0;
void TraceTurnsWorkOff(const char *module, uint32_t line, uint32_t)
{
    if (line == g_offAtLine && std::strcmp(module, "zan vrrp, inst") == 0) {
        g_offAtLine = 0;
        ZAN_VrrpAdp_SetWorkState(g_adp, 0);
    }
}

class Reentry : public libtest::LibTest {
protected:
    void Subscribed(void (*itemDown)(const void *, uint32_t));
};

void Reentry::Subscribed(void (*itemDown)(const void *, uint32_t))
{
    g_adp = adp;
    g_itemDowns = 0;
    ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
    cb.pfnItemDown = itemDown;
    ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    ASSERT_TRUE(host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_REGISTER)));
    for (uint8_t i = 1; i <= 3; i++) {
        ZAN_VRRP_TLV_S key = libtest::Tlv(1, 5, {i, 0, 0, 0, 1});
        ZAN_VRRP_TLV_S sub = libtest::Tlv(2, 1, {1});
        ASSERT_EQ(ZAN_VrrpAdp_Subscribe(adp, &key, &sub, 1), 0u);
    }
    ASSERT_TRUE(host::RunFlush());
    ASSERT_TRUE(host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_SUBSCRIBE)));
    ASSERT_EQ(libtest::Inst(0x10)->stItemTree.ulCount, 3u);
}

TEST_F(Reentry, WorkOffFromInsideItemDownReportsEveryItemOnce)
{
    Subscribed(ItemDownTurnsWorkOff);
    ZAN_VRRP_INST_S *inst = libtest::Inst(0x10);

    ASSERT_TRUE(host::RunDown(0x10));
    EXPECT_EQ(g_itemDowns, 3);
    EXPECT_EQ(inst->State, (uint32_t)VRRP_INST_STATE_INIT);
    EXPECT_EQ(WUX_RBT_FirstNode(&inst->stItemTree), nullptr);
    EXPECT_EQ(inst->bWorkOn, 0u);
    EXPECT_EQ(inst->bDownBusy, 0u);
    EXPECT_EQ(host::Faults(), 0u);
}

// Work turned off and on again inside the callback: the down still ends with no timer
// running, so deleting the instance afterwards leaves nothing that could fire on it.
TEST_F(Reentry, WorkToggledInsideItemDownLeavesNoTimer)
{
    Subscribed(ItemDownTogglesWork);
    ASSERT_TRUE(host::RunDown(0x10));
    EXPECT_EQ(g_itemDowns, 3);
    EXPECT_TRUE(host::RunningTimerPeriods().empty());
    EXPECT_EQ(libtest::DeleteDeploy(0x10, 1), 0u);
    host::Advance(10000);
    EXPECT_EQ(host::Faults(), 0u);
}

// A sequence error is traced before it is reported; work turned off from that trace ends the
// batch, and no notify event is sent or repeated for it afterwards.
TEST_F(Reentry, WorkOffFromASequenceErrorTraceSendsNoNotifyEvent)
{
    g_adp = adp;
    ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
    cb.pfnTracePoint = TraceTurnsWorkOff;
    ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    const struct {
        uint32_t line;
        uint8_t type;
    } cases[] = {{341, ZAN_VRRP_MSG_BU_DATA}, {361, ZAN_VRRP_MSG_BU_END}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        ZAN_VrrpAdp_SetWorkState(adp, 1);
        ASSERT_TRUE(host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_REGISTER)));
        ASSERT_TRUE(host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_BU_BEGIN, 7)));
        host::Sent().clear();
        g_offAtLine = c.line;
        ASSERT_TRUE(host::DeliverMsg(0x10, Header(0x01, c.type, 9)));
        const ZAN_VRRP_INST_S *inst = libtest::Inst(0x10);
        EXPECT_EQ(g_offAtLine, 0u) << "the trace site was not reached";
        EXPECT_EQ(inst->bWorkOn, 0u);
        EXPECT_EQ(inst->NotifyTmr, 0u);
        EXPECT_EQ(inst->NotifySeq, 0u);
        EXPECT_TRUE(host::Sent().empty());
        host::Advance(10000);
        EXPECT_TRUE(host::Sent().empty());
        EXPECT_TRUE(host::RunningTimerPeriods().empty());
    }
}

}  // namespace
