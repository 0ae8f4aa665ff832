// Short and lying messages. A message of fewer than 20 delivered bytes, or whose usMsgLen claims
// more than was delivered, is refused before anything past the delivered bytes is read, and
// counted; a usMsgLen below 20 is dispatched, but the echo (usMsgLen bytes long, its header alone
// 20) is refused and counted, and no record is read. A flow-control message too short to name a
// pid is refused and counted. The host hands over a heap buffer of exactly the delivered size, so
// under the address sanitizer a read past it fails the test too.
#include "lib_fixture.h"

namespace {

enum class Class { Adapter, Fcm };

struct Want {
    uint32_t shortMsg = 0, badLen = 0, shortFcm = 0;  // adapter's refusal counters
    int reqType = -1, ackType = -1;                   // the adapter's RcvReq / RcvAck entry counted
    uint32_t shortEcho = 0;                           // the instance's refused echoes
    std::vector<uint8_t> sent;                        // the one message sent back, if any
    uint32_t records = 0;                             // records handed to pfnRecvData
    uint32_t fcmCalls = 0;                            // pfnFcm calls
};

struct Case {
    const char *name;
    Class cls;
    uint32_t pid;
    std::vector<uint8_t> bytes;
    uint32_t delivered;  // for Class::Fcm: the buffer's size
    Want want;
};

std::vector<uint8_t> Hdr(uint16_t len, uint8_t flags, uint8_t type, uint8_t seq = 0, std::vector<uint8_t> body = {})
{
    std::vector<uint8_t> m = {static_cast<uint8_t>(len >> 8), static_cast<uint8_t>(len), flags, type, 0, 0, 0, 0, 0, 1,
                              0, 0, 0, 0, 0, seq, 0, 0, 0, 1};
    m.insert(m.end(), body.begin(), body.end());
    return m;
}

std::vector<uint8_t> Cut(std::vector<uint8_t> m, size_t n)
{
    m.resize(n);
    return m;
}

// One usual record: type 3002, key TLV 3001/8, data TLV 1001/4.
const std::vector<uint8_t> kRec = {0x0b, 0xba, 0, 20, 0x0b, 0xb9, 0, 8, 1, 0, 0, 0, 1, 0, 0, 0, 0x03, 0xe9, 0, 4, 1, 2, 3, 4};

const Case kCases[] = {
    {"NoBytes", Class::Adapter, 0x10, {}, 0, {.shortMsg = 1}},
    {"NineteenBytes", Class::Adapter, 0x10, Cut(Hdr(20, 0x81, 7), 19), 19, {.shortMsg = 1}},
    {"LengthBeyondTheDeliveredBytes", Class::Adapter, 0x10, Hdr(21, 0x01, 15), 20, {.badLen = 1}},
    {"LengthBeyondTheDeliveredBytesOfAnUnknownSender", Class::Adapter, 0x77, Hdr(0xffff, 0x01, 15), 20,
     {.badLen = 1}},
    // Dispatched: the batch begins, but its echo is refused.
    {"BatchBeginWithALengthBelowTheHeader", Class::Adapter, 0x10, Hdr(16, 0x01, 11, 7), 20,
     {.reqType = 11, .shortEcho = 1}},
    // Dispatched and counted, the echo refused, and the record behind the length not read.
    {"UpdateWithALengthBelowTheHeader", Class::Adapter, 0x10, Hdr(10, 0x01, 15, 0, kRec), 44,
     {.reqType = 15, .shortEcho = 1}},
    {"AcknowledgementWithLengthZero", Class::Adapter, 0x10, Hdr(0, 0x81, 9), 20, {.ackType = 9}},
    // More delivered than the length: the length rules, the echo is usMsgLen bytes.
    {"DeliveredBeyondTheLength", Class::Adapter, 0x10, Hdr(20 + 24, 0x01, 15, 0, kRec), 44 + 16,
     {.reqType = 15, .sent = Hdr(20 + 24, 0x81, 15, 0, kRec), .records = 1}},
    {"FlowControlTooShortToNameThePid", Class::Fcm, 0x10, {}, 11, {.shortFcm = 1}},
    {"FlowControlNamingThePid", Class::Fcm, 0x10, {}, 12, {.fcmCalls = 1}},
};

uint32_t g_records = 0;
uint32_t g_fcms = 0;

class ShortMessages : public libtest::LibTest, public ::testing::WithParamInterface<Case> {};

TEST_P(ShortMessages, AreRefusedOrDispatchedAsTheirLengthsAllow)
{
    ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
    cb.pfnRecvData = [](const void *, const void *, uint32_t) { g_records++; };
    cb.pfnFcm = [](uint32_t, uint32_t) { g_fcms++; };
    ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    ASSERT_TRUE(host::DeliverMsg(0x10, Hdr(20, 0x81, ZAN_VRRP_MSG_REGISTER)));
    host::Sent().clear();
    g_records = 0;
    g_fcms = 0;
    const ZAN_VRRP_ADP_S before = *adp;
    const ZAN_VRRP_INST_S instBefore = *libtest::Inst(0x10);

    const Case &c = GetParam();
    if (c.cls == Class::Adapter) {
        ASSERT_TRUE(host::DeliverMsg(c.pid, c.bytes, c.delivered));
    } else {
        ASSERT_TRUE(host::DeliverFcm(c.pid, c.delivered));
    }

    const ZAN_VRRP_INST_S *inst = libtest::Inst(0x10);
    EXPECT_EQ(adp->stDropStat.ulShortMsg - before.stDropStat.ulShortMsg, c.want.shortMsg);
    EXPECT_EQ(adp->stDropStat.ulBadMsgLen - before.stDropStat.ulBadMsgLen, c.want.badLen);
    EXPECT_EQ(adp->stDropStat.ulShortFcm - before.stDropStat.ulShortFcm, c.want.shortFcm);
    for (uint32_t t = 0; t < ZAN_VRRP_MSG_TYPE_NUM; t++) {
        EXPECT_EQ(adp->aulRcvReqCnt[t] - before.aulRcvReqCnt[t], c.want.reqType == static_cast<int>(t) ? 1u : 0u) << t;
        EXPECT_EQ(adp->aulRcvAckCnt[t] - before.aulRcvAckCnt[t], c.want.ackType == static_cast<int>(t) ? 1u : 0u) << t;
        // Whatever is dispatched is counted for the echo, sent or refused.
        EXPECT_EQ(inst->aulSendAckCnt[t] - instBefore.aulSendAckCnt[t], c.want.reqType == static_cast<int>(t) ? 1u : 0u)
            << t;
    }
    EXPECT_EQ(inst->stDropStat.ulShortEcho - instBefore.stDropStat.ulShortEcho, c.want.shortEcho);
    EXPECT_EQ(adp->stErrStat.usNoInst, before.stErrStat.usNoInst);
    EXPECT_EQ(adp->stErrStat.usFindInstByPid, before.stErrStat.usFindInstByPid);
    EXPECT_EQ(inst->stErrStat.usGenKey, instBefore.stErrStat.usGenKey);
    EXPECT_EQ(inst->stErrStat.usErrInfoNum - instBefore.stErrStat.usErrInfoNum, c.want.records > 0u ? 1u : 0u);
    EXPECT_EQ(g_records, c.want.records);
    EXPECT_EQ(g_fcms, c.want.fcmCalls);
    if (c.want.sent.empty()) {
        EXPECT_TRUE(host::Sent().empty());
    } else {
        ASSERT_EQ(host::Sent().size(), 1u);
        EXPECT_EQ(host::Sent().front().bytes, c.want.sent);
    }
    if (c.want.reqType == ZAN_VRRP_MSG_BU_BEGIN) {
        EXPECT_EQ(inst->BatchSeqNum, 8u);  // the begin was taken
    }
}

INSTANTIATE_TEST_SUITE_P(Messages, ShortMessages, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case> &p) { return std::string(p.param.name); });

}  // namespace
