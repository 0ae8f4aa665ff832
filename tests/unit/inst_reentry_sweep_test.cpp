// Every callback the library makes may call back into it. A scenario that reaches every
// callback of the consumer and the producer runs once per (callback, occurrence, action): on that one occurrence the
// application calls the library from inside the callback. After every step no timer may run that
// no live instance holds, an instance whose work is off must be unregistered with no items, and
// and its producer idle and empty, and the host must have seen no platform misuse; in the end
// nothing stays held. Run under the
// sanitizers, an orphaned timer firing on a freed instance is caught as well.
#include <algorithm>
#include <array>
#include <set>

#include "lib_fixture.h"

namespace {

enum Slot { RegAck, RecvData, MsgAllocFail, Fcm, IsDebugOn, DebugOut, ProdBatchBegin, TracePoint, ItemDown, SlotCount };
const char *const kSlotNames[SlotCount] = {"RegAck",   "RecvData",       "MsgAllocFail", "Fcm",     "IsDebugOn",
                                           "DebugOut", "ProdBatchBegin", "TracePoint",   "ItemDown"};

enum Action { WorkOff, WorkOffOn, WorkOn, Subscribe, UnSubscribe, SendDataNew, SendDataSame, ReplaceTable, ActionCount };
const char *const kActionNames[ActionCount] = {"work off",         "work off+on",       "work on",
                                               "subscribe",        "unsubscribe",       "senddata, new key",
                                               "senddata, stored key", "replace table"};

struct App {
    ZAN_VRRP_ADP_S *adp = nullptr;
    std::array<uint32_t, SlotCount> calls{};
    Slot slot = SlotCount;   // none
    uint32_t at = 0;         // the occurrence (1-based) that re-enters
    Action action = WorkOff;
};
App g_app;

ZAN_VRRP_CALLBACK_S Table();

ZAN_VRRP_TLV_S ItemKey(uint8_t ifIndex)
{
    return libtest::Tlv(1, 5, {ifIndex, 0, 0, 0, 1});
}

// One datum of the application's data set for interface group 1.
void SendDatum(uint8_t keyByte, uint8_t value)
{
    ZAN_VRRP_TLV_S key = libtest::Tlv(ZAN_VRRP_KEY_TLV_TYPE, 8, {keyByte, 0, 0, 0, 1, 0, 0, 0});
    ZAN_VRRP_TLV_S data = libtest::Tlv(ZAN_VRRP_DATA_TLV_TYPE, 8, {value, 2, 3, 4, 5, 6, 7, 8});
    ZAN_VrrpAdp_SendData(g_app.adp, 1, &key, &data);
}

void Act()
{
    ZAN_VRRP_TLV_S sub = libtest::Tlv(2, 1, {1});
    ZAN_VRRP_TLV_S key = ItemKey(2);
    ZAN_VRRP_CALLBACK_S table = Table();
    switch (g_app.action) {
        case WorkOff:
            ZAN_VrrpAdp_SetWorkState(g_app.adp, 0);
            break;
        case WorkOffOn:
            ZAN_VrrpAdp_SetWorkState(g_app.adp, 0);
            ZAN_VrrpAdp_SetWorkState(g_app.adp, 1);
            break;
        case WorkOn:
            ZAN_VrrpAdp_SetWorkState(g_app.adp, 1);
            break;
        case Subscribe:
            key = ItemKey(7);
            ZAN_VrrpAdp_Subscribe(g_app.adp, &key, &sub, 1);
            break;
        case UnSubscribe:
            ZAN_VrrpAdp_UnSubscribe(g_app.adp, &key, &sub, 1);
            break;
        case SendDataNew:
            SendDatum(9, 9);
            break;
        case SendDataSame:
            SendDatum(1, 7);  // replaces a stored part, possibly the one being packed
            break;
        case ReplaceTable:
            ZAN_VrrpAdp_RegCallBack(g_app.adp, &table);
            break;
        case ActionCount:
            break;
    }
}

void Called(Slot s)
{
    g_app.calls[s]++;
    if (s == g_app.slot && g_app.calls[s] == g_app.at) {
        Act();
    }
}

void OnRegAck(uint32_t ifGroup, uint32_t)
{
    // The application subscribes its items once registered, then maybe re-enters.
    ZAN_VRRP_TLV_S sub = libtest::Tlv(2, 1, {1});
    for (uint8_t i = 1; i <= 3; i++) {
        ZAN_VRRP_TLV_S key = ItemKey(i);
        ZAN_VrrpAdp_Subscribe(g_app.adp, &key, &sub, ifGroup);
    }
    Called(RegAck);
}
void OnRecvData(const void *, const void *, uint32_t) { Called(RecvData); }
void OnMsgAllocFail(uint32_t, uint32_t, uint32_t) { Called(MsgAllocFail); }
void OnFcm(uint32_t, uint32_t) { Called(Fcm); }
uint32_t OnIsDebugOn(uint32_t)
{
    Called(IsDebugOn);
    return 1;
}
void OnDebugOut(const char *, uint32_t) { Called(DebugOut); }
void OnProdBatchBegin(uint32_t ifGroup, uint32_t)
{
    // The application hands over its data set for the group, then maybe re-enters.
    if (ifGroup == 1) {
        for (uint8_t i = 1; i <= 3; i++) {
            SendDatum(i, i);
        }
    }
    Called(ProdBatchBegin);
}
void OnTracePoint(const char *, uint32_t, uint32_t) { Called(TracePoint); }
void OnItemDown(const void *, uint32_t) { Called(ItemDown); }

ZAN_VRRP_CALLBACK_S Table()
{
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = OnRegAck;
    cb.pfnRecvData = OnRecvData;
    cb.pfnMsgAllocFail = OnMsgAllocFail;
    cb.pfnFcm = OnFcm;
    cb.pfnIsDebugOn = OnIsDebugOn;
    cb.pfnDebugOut = OnDebugOut;
    cb.pfnProdBatchBegin = OnProdBatchBegin;
    cb.pfnTracePoint = OnTracePoint;
    cb.pfnItemDown = OnItemDown;
    return cb;
}

std::vector<uint8_t> Msg(uint8_t flags, uint8_t type, uint32_t seq, const std::vector<uint8_t> &body = {})
{
    std::vector<uint8_t> m(20, 0);
    const size_t len = m.size() + body.size();
    m[0] = static_cast<uint8_t>(len >> 8);
    m[1] = static_cast<uint8_t>(len);
    m[2] = flags;
    m[3] = type;
    m[12] = static_cast<uint8_t>(seq >> 24);
    m[13] = static_cast<uint8_t>(seq >> 16);
    m[14] = static_cast<uint8_t>(seq >> 8);
    m[15] = static_cast<uint8_t>(seq);
    m.insert(m.end(), body.begin(), body.end());
    return m;
}

// Records of type 3002: key TLV 3001/8 naming the interface, data TLV 1001/4.
std::vector<uint8_t> Recs(std::initializer_list<uint8_t> ifIndexes)
{
    std::vector<uint8_t> b;
    for (uint8_t i : ifIndexes) {
        const std::vector<uint8_t> r = {0x0b, 0xba, 0, 20,  0x0b, 0xb9, 0, 8, i, 0, 0, 0, 1, 0, 0, 0,
                                        0x03, 0xe9, 0, 4,  0,    0,    0, i};
        b.insert(b.end(), r.begin(), r.end());
    }
    return b;
}

void Deliver(uint32_t pid, const std::vector<uint8_t> &m)
{
    ASSERT_TRUE(host::DeliverMsg(pid, m));
}

// After every step: every running timer is held by a live instance (none orphaned, none
// shared), an instance whose work is off is unregistered and holds no items, no misuse.
void CheckInvariants(const char *step)
{
    SCOPED_TRACE(step);
    std::multiset<uint32_t> held;
    for (uint32_t pid : host::InstPids()) {
        const ZAN_VRRP_INST_S *inst = libtest::Inst(pid);
        for (uint32_t t : {inst->RegTmr, inst->SubTmr, inst->UnSubTmr, inst->NotifyTmr}) {
            if (t != 0u) {
                held.insert(t);
            }
        }
        if (inst->pProd != nullptr && inst->pProd->tmr != 0u) {
            held.insert(inst->pProd->tmr);
        }
        // A step that waits for an acknowledgement keeps its retransmission timer (the scenario
        // arms no timer failure).
        if (inst->stInstHead.ulStatus == 0u) {
            EXPECT_TRUE(inst->State != VRRP_INST_STATE_REGING || inst->RegTmr != 0u) << "pid " << pid;
        }
        if (inst->pProd != nullptr) {
            const ZAN_VRRP_PROD_S *prod = inst->pProd;
            const bool waiting = (prod->State >= VRRP_PROD_STATE_ADD_PROD && prod->State <= VRRP_PROD_STATE_BN_DATA) ||
                                 prod->stWaitAckList.pNext != &prod->stWaitAckList;
            EXPECT_TRUE(!waiting || prod->tmr != 0u) << "pid " << pid << " producer state " << (int)prod->State;
        }
        if (inst->bWorkOn == 0u && inst->stInstHead.ulStatus == 0u) {
            if (inst->pProd != nullptr) {
                EXPECT_EQ(inst->pProd->State, VRRP_PROD_STATE_INIT) << "pid " << pid;
                EXPECT_EQ(inst->pProd->tmr, 0u) << "pid " << pid;
                EXPECT_EQ(ZAN_VrrpProd_CountList_(&inst->pProd->stPartList) +
                              ZAN_VrrpProd_CountList_(&inst->pProd->stWaitAckList),
                          0u)
                    << "pid " << pid;
            }
            EXPECT_EQ(inst->RegTmr, 0u) << "pid " << pid;
            EXPECT_EQ(inst->State, (uint32_t)VRRP_INST_STATE_INIT) << "pid " << pid;
            EXPECT_EQ(inst->stItemTree.ulCount, 0u) << "pid " << pid;
        }
    }
    const std::vector<uint32_t> running = host::RunningTimerHandles();
    EXPECT_EQ(std::vector<uint32_t>(held.begin(), held.end()), running)
        << "running timers differ from those the instances hold (orphaned, stale or shared)";
    libtest::ExpectNoFaults();
}

// Reaches every consumer callback: registration, subscription, batch and real-time records,
// sequence errors with their notify event, flow control, allocation failures in every sender,
// unsubscription, work state and framework down and up, deletion.
void Scenario()
{
    host::Reset();
    g_app.calls = {};
    g_app.adp = ZAN_VrrpAdp_Get(host::Ctx());
    ASSERT_NE(g_app.adp, nullptr);
    const ZAN_VRRP_CALLBACK_S cb = Table();
    ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(g_app.adp, &cb), 0u);

    libtest::CreateDeploy(0x10, 1);
    libtest::CreateDeploy(0x20, 2);
    CheckInvariants("deploy");
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_REGISTER, 0));
    host::RunFlush();
    CheckInvariants("registered, subscribed");
    host::ArmFail(host::FailKind::MsgAlloc, 0, 1);  // the acknowledgement
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_RU_DATA, 0, Recs({1, 2})));
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_SUBSCRIBE, 0));
    CheckInvariants("real-time update, subscription acknowledged");

    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_BEGIN, 7));
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_DATA, 8, Recs({1, 2, 3})));
    host::ArmFail(host::FailKind::MsgAlloc, 0, 1);  // the notify event
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_DATA, 10, Recs({1})));
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_DATA, 11, Recs({2})));
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_END, 12));
    CheckInvariants("broken batch");
    host::Advance(3000);
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_NOTIFY_EVENT, 0));
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_BEGIN, 20));
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_DATA, 21, Recs({3})));
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_END, 22));
    Deliver(0x10, Msg(0x01, ZAN_VRRP_MSG_BU_BEGIN_END, 0, Recs({1, 2})));
    CheckInvariants("batch again");

    // The producer of 0x10: AddProducer acknowledged, BNBegin refused once and repeated, the
    // data set from pfnProdBatchBegin in BNData, BNEnd acknowledged; then real-time data held
    // back by flow control, repeated on the timer and acknowledged.
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_ADD_PRODUCER, 0));
    host::ArmFail(host::FailKind::MsgAlloc, 0, 1);  // the BNBegin
    host::Advance(5002);
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_BN_BEGIN, 1));
    CheckInvariants("batch sent");
    const ZAN_VRRP_INST_S *inst10 = libtest::Inst(0x10);
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_BN_END, inst10->pProd != nullptr ? inst10->pProd->seq + 1u : 0u));
    SendDatum(4, 4);
    SendDatum(1, 9);
    host::ArmFail(host::FailKind::MsgAlloc, 0, 1);  // the RNData
    host::RunFlush();
    host::DeliverFcm(0x10);
    host::Advance(5005);
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_RN_DATA, 0));
    CheckInvariants("real-time data");
    if (g_app.slot == SlotCount) {
        // Without re-entry the scenario reaches real-time notification: the batch, one RNData
        // repeated on its timer, and its acknowledgement.
        EXPECT_EQ(inst10->pProd->State, VRRP_PROD_STATE_RN_DATA);
        EXPECT_EQ(inst10->aulSendReqCnt[ZAN_VRRP_MSG_BN_DATA], 1u);
        EXPECT_EQ(inst10->aulSendReqCnt[ZAN_VRRP_MSG_RN_DATA], 2u);
        EXPECT_EQ(ZAN_VrrpProd_CountList_(&inst10->pProd->stWaitAckList), 0u);
    }

    ZAN_VRRP_TLV_S sub = libtest::Tlv(2, 1, {1});
    ZAN_VRRP_TLV_S key = ItemKey(3);
    ZAN_VrrpAdp_UnSubscribe(g_app.adp, &key, &sub, 1);
    host::ArmFail(host::FailKind::MsgAlloc, 0, 1);  // the unsubscribe request
    host::RunFlush();
    host::DeliverFcm(0x10);
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_UNSUBSCRIBE, 0));
    CheckInvariants("unsubscribed");

    host::ArmFail(host::FailKind::MsgAlloc, 0, 1);  // the Register retry of 0x20
    host::Advance(500);
    host::Advance(500);
    Deliver(0x20, Msg(0x81, ZAN_VRRP_MSG_REGISTER, 0));
    host::ArmFail(host::FailKind::MsgAlloc, 0, 1);  // its first Subscribe request
    host::RunFlush();
    host::DeliverFcm(0x20);
    Deliver(0x20, Msg(0x81, ZAN_VRRP_MSG_SUBSCRIBE, 0));
    CheckInvariants("0x20 registered");
    // The producer of 0x20 restarts its batch on NotifyEvent requests, in states 3 and 4.
    const std::vector<uint8_t> notify = {0x07, 0xd1, 0, 4, 0, 1, 0, 0};
    Deliver(0x20, Msg(0x81, ZAN_VRRP_MSG_ADD_PRODUCER, 0));
    Deliver(0x20, Msg(0x01, ZAN_VRRP_MSG_NOTIFY_EVENT, 5, notify));
    Deliver(0x20, Msg(0x81, ZAN_VRRP_MSG_BN_BEGIN, 1));
    Deliver(0x20, Msg(0x01, ZAN_VRRP_MSG_NOTIFY_EVENT, 6, notify));
    CheckInvariants("0x20 batch restarted");

    ZAN_VrrpAdp_SetWorkState(g_app.adp, 0);
    CheckInvariants("work off");
    host::ArmFail(host::FailKind::MsgAlloc, 0, 2);  // the Register and AddProducer requests of 0x10
    ZAN_VrrpAdp_SetWorkState(g_app.adp, 1);
    CheckInvariants("work on");
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_REGISTER, 0));
    host::RunFlush();
    Deliver(0x10, Msg(0x81, ZAN_VRRP_MSG_SUBSCRIBE, 0));
    host::RunDown(0x10);
    CheckInvariants("framework down");
    host::RunUp(0x10);
    host::Advance(6000);
    CheckInvariants("framework up");

    libtest::DeleteDeploy(0x10, 1);
    host::Advance(10000);
    CheckInvariants("0x10 deleted");
    libtest::DeleteDeploy(0x20, 2);
    host::Advance(10000);
    EXPECT_TRUE(host::RunningTimerPeriods().empty());
    ZAN_VrrpAdp_DeInit(host::Ctx());
    EXPECT_EQ(libtest::FwBlocksBesideContext(), 0u);
    EXPECT_EQ(host::MsgsOutstanding(), 0u);
    libtest::ExpectNoFaults();
}

class ReentrySweep : public ::testing::TestWithParam<int> {};

TEST_P(ReentrySweep, EveryOccurrenceEveryAction)
{
    const Slot slot = static_cast<Slot>(GetParam());
    g_app = App{};
    Scenario();
    ASSERT_FALSE(HasFailure()) << "the scenario fails without re-entry";
    const uint32_t occurrences = g_app.calls[slot];
    ASSERT_GT(occurrences, 0u) << "the scenario never calls " << kSlotNames[slot];
    for (uint32_t at = 1; at <= occurrences; at++) {
        for (int a = 0; a < ActionCount; a++) {
            SCOPED_TRACE(std::string(kSlotNames[slot]) + " call " + std::to_string(at) + ": " + kActionNames[a]);
            g_app = App{};
            g_app.slot = slot;
            g_app.at = at;
            g_app.action = static_cast<Action>(a);
            Scenario();
            if (HasFailure()) {
                return;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Callbacks, ReentrySweep, ::testing::Range(0, static_cast<int>(SlotCount)),
                         [](const ::testing::TestParamInfo<int> &p) { return kSlotNames[p.param]; });

}  // namespace
