// Calls the application makes from inside a trace point or from pfnItemDown, at the one place
// where a step must notice them: each case names the trace site (module, line) whose n-th call
// runs the application's action, and checks exactly what the step then did.
#include <functional>

#include "lib_fixture.h"

namespace {

struct Trigger {
    std::string module;
    uint32_t line = 0;
    uint32_t nth = 1;
    std::function<void()> action;
    uint32_t seen = 0;
};
Trigger g_trigger;
uint32_t g_itemDowns = 0;
std::function<void()> g_onItemDown;
ZAN_VRRP_ADP_S *g_adp = nullptr;

void OnTrace(const char *module, uint32_t line, uint32_t)
{
    if (g_trigger.action && module == g_trigger.module && line == g_trigger.line && ++g_trigger.seen == g_trigger.nth) {
        g_trigger.action();
    }
}

void OnItemDown(const void *, uint32_t)
{
    g_itemDowns++;
    if (g_onItemDown) {
        std::function<void()> once = std::move(g_onItemDown);
        g_onItemDown = nullptr;
        once();
    }
}

std::vector<uint8_t> Ack(uint8_t type, uint8_t seq = 0)
{
    std::vector<uint8_t> m(20, 0);
    m[1] = 20;
    m[2] = 0x81;
    m[3] = type;
    m[15] = seq;
    return m;
}

void SendDatum(uint16_t n)
{
    const ZAN_VRRP_TLV_S key = libtest::Tlv(ZAN_VRRP_KEY_TLV_TYPE, 8,
                                            {static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8), 0, 0, 1, 0, 0, 0});
    const ZAN_VRRP_TLV_S data = libtest::Tlv(ZAN_VRRP_DATA_TLV_TYPE, 8, {1, 2, 3, 4, 5, 6, 7, 8});
    ASSERT_EQ(ZAN_VrrpAdp_SendData(g_adp, 1, &key, &data), 0u);
}

uint16_t g_batchParts = 0;

class TraceReentry : public libtest::LibTest {
protected:
    void SetUp() override
    {
        LibTest::SetUp();
        g_adp = adp;
        g_trigger = Trigger{};
        g_itemDowns = 0;
        g_onItemDown = nullptr;
        g_batchParts = 0;
        ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
        cb.pfnTracePoint = OnTrace;
        cb.pfnItemDown = OnItemDown;
        cb.pfnProdBatchBegin = [](uint32_t, uint32_t) {
            for (uint16_t i = 0; i < g_batchParts; i++) {
                SendDatum(i);
            }
        };
        ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
        ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
        ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_REGISTER)));
        inst = libtest::Inst(0x10);
        host::Sent().clear();
    }
    void TearDown() override
    {
        g_trigger = Trigger{};
        g_onItemDown = nullptr;
        LibTest::TearDown();
    }
    void WhenTraced(const char *module, uint32_t line, std::function<void()> action, uint32_t nth = 1)
    {
        g_trigger = Trigger{module, line, nth, std::move(action), 0};
    }
    static void WorkOff() { ASSERT_EQ(ZAN_VrrpAdp_SetWorkState(g_adp, 0), 0u); }
    // The producer through AddProducer and BNBegin: the batch runs with the application's data.
    void Batch(uint16_t parts)
    {
        g_batchParts = parts;
        ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_ADD_PRODUCER)));
        ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_BN_BEGIN, 1)));
    }
    // A producer the application's work-off reset: idle, empty, no timer of its own.
    void ExpectProducerReset()
    {
        EXPECT_EQ(inst->pProd->State, VRRP_PROD_STATE_INIT);
        EXPECT_EQ(inst->pProd->tmr, 0u);
        EXPECT_EQ(ZAN_VrrpProd_CountList_(&inst->pProd->stPartList), 0u);
        EXPECT_EQ(inst->bWorkOn, 0u);
        EXPECT_TRUE(host::RunningTimerPeriods().empty());
        EXPECT_EQ(host::MsgsOutstanding(), 0u);
    }
    ZAN_VRRP_INST_S *inst = nullptr;
};

// Subscribing a key that waits in the unsubscribe group traces before it frees that item; the
// application subscribing the same key from the trace has moved it already, and the outer call
// leaves it so.
TEST_F(TraceReentry, AKeyMovedFromTheTraceOfItsMoveIsLeftWhereItWent)
{
    const ZAN_VRRP_TLV_S key = libtest::Tlv(1, 5, {1, 0, 0, 0, 1});
    const ZAN_VRRP_TLV_S sub = libtest::Tlv(2, 1, {1});
    ASSERT_EQ(ZAN_VrrpAdp_UnSubscribe(adp, &key, &sub, 1), 0u);
    const uint32_t blocks = host::BlocksOn(adp->ulMemHandle);
    WhenTraced("zan vrrp, inst", 244, [&] { EXPECT_EQ(ZAN_VrrpAdp_Subscribe(g_adp, &key, &sub, 1), 0u); });
    EXPECT_EQ(ZAN_VrrpAdp_Subscribe(adp, &key, &sub, 1), 0u);
    EXPECT_EQ(g_trigger.seen, 2u);  // the outer call's trace and the nested call's
    EXPECT_EQ(ZAN_VrrpInst_GroupCount(inst, ZAN_VRRP_GROUP_SUB), 1u);
    EXPECT_EQ(ZAN_VrrpInst_GroupCount(inst, ZAN_VRRP_GROUP_UNSUB), 0u);
    EXPECT_EQ(inst->stErrStat.usRepeatSub, 0u);
    EXPECT_EQ(host::BlocksOn(adp->ulMemHandle), blocks);  // one item freed, one taken
}

// The framework running the instance's Down from inside pfnItemDown: the down already under way
// goes on alone, and every item is reported and freed once.
TEST_F(TraceReentry, ADownRunFromInsidePfnItemDownDoesNothing)
{
    for (uint8_t i = 1; i <= 3; i++) {
        const ZAN_VRRP_TLV_S key = libtest::Tlv(1, 5, {i, 0, 0, 0, 1});
        const ZAN_VRRP_TLV_S sub = libtest::Tlv(2, 1, {1});
        ASSERT_EQ(ZAN_VrrpAdp_Subscribe(adp, &key, &sub, 1), 0u);
    }
    ASSERT_TRUE(host::RunFlush());
    ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_SUBSCRIBE)));
    g_onItemDown = [] { EXPECT_TRUE(host::RunDown(0x10)); };
    ASSERT_TRUE(host::RunDown(0x10));
    EXPECT_EQ(g_itemDowns, 3u);
    EXPECT_EQ(inst->State, (uint32_t)VRRP_INST_STATE_INIT);
    EXPECT_EQ(inst->stItemTree.ulCount, 0u);
    EXPECT_EQ(host::BlocksOn(adp->ulMemHandle), 2u);  // the instance and its relation
}

// A send the message service refuses traces its failure; the application turning the work off
// there resets the producer, and the step that sent ends: no timer for the AddProducer.
TEST_F(TraceReentry, AWorkOffFromARefusedSendEndsTheProducersStep)
{
    ASSERT_EQ(ZAN_VrrpAdp_SetWorkState(adp, 0), 0u);
    host::Sent().clear();
    host::ArmFail(host::FailKind::Send, 1, 1);  // Register goes, AddProducer is refused
    WhenTraced("zan vrrp, inst", 1033, WorkOff);
    ASSERT_EQ(ZAN_VrrpAdp_SetWorkState(adp, 1), 0u);
    EXPECT_EQ(g_trigger.seen, 1u);
    EXPECT_EQ(inst->stErrStat.usSendMsg, 1u);
    ASSERT_EQ(host::Sent().size(), 1u);
    EXPECT_EQ(host::Sent().front().bytes[3], ZAN_VRRP_MSG_REGISTER);
    ExpectProducerReset();
}

// The same in the batch: a refused send of the first of two BNData messages, and of the last.
TEST_F(TraceReentry, AWorkOffFromARefusedBatchSendEndsTheBatch)
{
    for (const bool first : {true, false}) {
        SCOPED_TRACE(first ? "first BNData" : "last BNData");
        ASSERT_EQ(ZAN_VrrpAdp_SetWorkState(adp, 1), 0u);
        ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_REGISTER)));
        host::Sent().clear();
        host::ArmFail(host::FailKind::Send, first ? 1 : 2, 1);  // after the BNBegin
        WhenTraced("zan vrrp, inst", 1033, WorkOff);
        Batch(200);
        EXPECT_EQ(g_trigger.seen, 1u);
        // BNBegin, and before the refusal's work-off the BNData messages that went
        ASSERT_EQ(host::Sent().size(), first ? 1u : 2u);
        EXPECT_EQ(inst->aulSendReqCnt[ZAN_VRRP_MSG_BN_END], 0u);
        ExpectProducerReset();
        g_trigger = Trigger{};
        host::ClearFail();
    }
}

// The rest of a batch, repeated by the timer after a refused allocation: the application turns
// the work off from the step's first trace, and the batch is over (no BNData, no BNEnd).
TEST_F(TraceReentry, AWorkOffFromTheRepeatedBatchStepEndsIt)
{
    host::ArmFail(host::FailKind::MsgAlloc, 1, 1);  // BNBegin goes, the BNData is refused
    Batch(3);
    ASSERT_EQ(inst->pProd->State, VRRP_PROD_STATE_BN_DATA);
    ASSERT_EQ(ZAN_VrrpProd_CountList_(&inst->pProd->stPartList), 3u);
    host::Sent().clear();
    WhenTraced("zan vrrp, prod", 940, WorkOff);  // DoBNotifyData_, run by the timer's ReDo_
    host::Advance(ZAN_VRRP_PROD_TMR_BN_DATA);
    EXPECT_EQ(g_trigger.seen, 1u);
    EXPECT_TRUE(host::Sent().empty());
    EXPECT_EQ(inst->aulSendReqCnt[ZAN_VRRP_MSG_BN_DATA], 0u);
    ExpectProducerReset();
}

}  // namespace
