// The producer's building blocks called on their own, with what their callers never hand them:
// packing a part that is not valid or into a message without room, allocating a request shorter
// than its header, changing to a state that does not exist.
#include <functional>

#include "lib_fixture.h"

namespace {

using libtest::Rec;

// A part as the store keeps it: the record, then the key TLV and the data TLV (host order).
struct FakePart {
    alignas(ZAN_VRRP_PART_S) uint8_t bytes[sizeof(ZAN_VRRP_PART_S) + 24] = {};
    ZAN_VRRP_PART_S *Part() { return reinterpret_cast<ZAN_VRRP_PART_S *>(bytes); }
};

FakePart MakePart(uint16_t keyType, uint16_t keyLen, uint16_t dataType, uint16_t dataLen)
{
    FakePart p;
    uint8_t *tlv = ZAN_VrrpProd_PartTlv(p.Part());
    const uint16_t words[4] = {keyType, keyLen};
    std::memcpy(tlv, words, 4);
    const uint8_t key[8] = {4, 3, 2, 1, 5, 6, 7, 8};
    std::memcpy(tlv + 4, key, 8);
    const uint16_t dwords[2] = {dataType, dataLen};
    std::memcpy(tlv + 12, dwords, 4);
    const uint8_t data[8] = {0x0a, 0x0b, 0x0c, 0x0d, 0x14, 0x13, 0x12, 0x11};
    std::memcpy(tlv + 16, data, 8);
    return p;
}

struct FillCase {
    const char *name;
    uint16_t keyType, keyLen, dataType, dataLen;
    uint32_t used;      // usMsgLen of the message before
    uint32_t capacity;
    uint32_t result;
    uint32_t usedAfter;  // usMsgLen after (unchanged when nothing is packed)
    const char *text;    // the last debug text
};

const FillCase kFill[] = {
    {"PartWithData", 3001, 8, 1001, 8, 20, 4096, 0, 44, "vrrp prod, FillSendMsg_, 1, 5"},
    {"PartWithoutData", 3001, 8, 1001, 0, 20, 4096, 0, 36, "vrrp prod, FillSendMsg_, 1, 5"},
    {"ExactFit", 3001, 8, 1001, 8, 4072, 4096, 0, 4096, "vrrp prod, FillSendMsg_, 1, 5"},
    // Not a valid part: skipped, the message unchanged.
    {"KeyTypeNot3001", 3002, 8, 1001, 8, 20, 4096, 0, 20, "vrrp prod, FillSendMsg_, 1, 5"},
    {"KeyLengthNot8", 3001, 4, 1001, 8, 20, 4096, 0, 20, "vrrp prod, FillSendMsg_, 1, 5"},
    {"DataTypeNot1001", 3001, 8, 1002, 8, 20, 4096, 0, 20, "vrrp prod, FillSendMsg_, 1, 5"},
    {"DataLengthFour", 3001, 8, 1001, 4, 20, 4096, 0, 20, "vrrp prod, FillSendMsg_, 1, 5"},
    // No room: all ones, nothing written.
    {"UsedBeyondCapacity", 3001, 8, 1001, 8, 4097, 4096, ZAN_VRRP_ALL_ONES, 4097,
     "vrrp prod, FillSendMsg_, used len ng, 4097, 4096"},
    {"LeftShortOfNeeded", 3001, 8, 1001, 8, 4080, 4096, ZAN_VRRP_ALL_ONES, 4080,
     "vrrp prod, FillSendMsg_, left len ng, 16, 24"},
};

class ProdSteps : public libtest::LibTest {
protected:
    void SetUp() override
    {
        LibTest::SetUp();
        ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
        inst = libtest::Inst(0x10);
        ASSERT_TRUE(inst != nullptr && inst->pProd != nullptr);
        inst->pProd->State = VRRP_PROD_STATE_RN_DATA;
        host::Sent().clear();
        Rec() = libtest::Recorder{};
    }
    ZAN_VRRP_INST_S *inst = nullptr;
};

class FillSendMsg : public ProdSteps, public ::testing::WithParamInterface<FillCase> {
protected:
    void SetUp() override { ProdSteps::SetUp(); }
};

TEST_P(FillSendMsg, PacksValidPartsThatFitAndNothingElse)
{
    const FillCase &c = GetParam();
    FakePart part = MakePart(c.keyType, c.keyLen, c.dataType, c.dataLen);
    std::vector<uint8_t> msg(4200, 0xee);
    msg[0] = static_cast<uint8_t>(c.used >> 8);
    msg[1] = static_cast<uint8_t>(c.used);
    const uint16_t entries = 3;
    std::memcpy(&msg[18], &entries, 2);
    const std::vector<uint8_t> before = msg;

    EXPECT_EQ(ZAN_VrrpProd_FillSendMsg_(host::Ctx(), inst, part.Part(), msg.data(), c.capacity), c.result);

    ASSERT_FALSE(Rec().debug.empty());
    EXPECT_EQ(Rec().debug.back(), c.text);
    EXPECT_EQ((uint32_t)((msg[0] << 8) | msg[1]), c.usedAfter);
    uint16_t entriesAfter = 0;
    std::memcpy(&entriesAfter, &msg[18], 2);
    EXPECT_EQ(entriesAfter, c.usedAfter != c.used ? 4u : 3u);
    // Bytes outside the header's length and entry count change only where the part went.
    for (size_t i = 2; i < msg.size(); i++) {
        if (i == 18 || i == 19 || (i >= c.used && i < c.usedAfter)) {
            continue;
        }
        ASSERT_EQ(msg[i], before[i]) << "byte " << i;
    }
    if (c.usedAfter == c.used + 24u) {
        const std::vector<uint8_t> packed(msg.begin() + c.used, msg.begin() + c.usedAfter);
        EXPECT_EQ(packed, (std::vector<uint8_t>{0x0b, 0xb9, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8, 0x03, 0xe9, 0, 8, 0x0a, 0x0b,
                                                0x0c, 0x0d, 0x11, 0x12, 0x13, 0x14}));
    }
}

INSTANTIATE_TEST_SUITE_P(Parts, FillSendMsg, ::testing::ValuesIn(kFill),
                         [](const ::testing::TestParamInfo<FillCase> &p) { return std::string(p.param.name); });

// A request shorter than its header is refused before allocation and counted nowhere; a type
// beyond the table is counted as Unknown.
TEST_F(ProdSteps, RequestsShorterThanTheirHeaderAreRefusedAndUnknownTypesCountAsUnknown)
{
    const ZAN_VRRP_INST_S before = *inst;
    ZAN_VRRP_PROD_SEND_PARA_S para{};
    para.ucMsgType = ZAN_VRRP_MSG_RN_DATA;
    para.usMsgLen = 19;
    EXPECT_EQ(ZAN_VrrpProd_MallocSendMsg_(host::Ctx(), inst, &para), nullptr);
    ASSERT_FALSE(Rec().debug.empty());
    EXPECT_EQ(Rec().debug.back(), "vrrp prod, MallocSendMsg_, usMsgLen ng, 1, 5, (19/20)");
    EXPECT_EQ(std::memcmp(inst->aulSendReqCnt, before.aulSendReqCnt, sizeof(before.aulSendReqCnt)), 0);
    EXPECT_EQ(inst->stErrStat.usAllocMsg, before.stErrStat.usAllocMsg);
    EXPECT_EQ(host::MsgsOutstanding(), 0u);

    para.ucMsgType = 200;
    para.usMsgLen = 20;
    uint8_t *msg = ZAN_VrrpProd_MallocSendMsg_(host::Ctx(), inst, &para);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg[3], 200u);
    EXPECT_EQ(inst->aulSendReqCnt[0], before.aulSendReqCnt[0] + 1u);
    MSG_Free(inst->stInstHead.ulPid, msg);
}

// Any state 1 to 5 is taken from any state; others are refused and leave the state.
TEST_F(ProdSteps, StateChangesOutsideOneToFiveAreRefused)
{
    struct {
        uint32_t to;
        uint32_t result;
        uint8_t state;
        const char *text;
    } const cases[] = {
        {0, ZAN_VRRP_ALL_ONES, 5, "vrrp prod, ChgState_, new state ng, 1, 5 -> 0"},
        {6, ZAN_VRRP_ALL_ONES, 5, "vrrp prod, ChgState_, new state ng, 1, 5 -> 6"},
        {0xFFFFFFFFu, ZAN_VRRP_ALL_ONES, 5, "vrrp prod, ChgState_, new state ng, 1, 5 -> 4294967295"},
        {1, 0, 1, "vrrp prod, ChgState_, 1, 5 -> 1"},
        {5, 0, 5, "vrrp prod, ChgState_, 1, 1 -> 5"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.to);
        EXPECT_EQ(ZAN_VrrpProd_ChgState_(host::Ctx(), inst, c.to), c.result);
        EXPECT_EQ(inst->pProd->State, c.state);
        ASSERT_FALSE(Rec().debug.empty());
        EXPECT_EQ(Rec().debug.back(), c.text);
    }
}

// The AddProducer step of the instance's start left its timer running.
TEST_F(ProdSteps, TheTimerIsStartedWhileItsHandleIsSet)
{
    EXPECT_EQ(ZAN_VrrpProd_TmrIsStart_(host::Ctx(), inst), 1u);
    EXPECT_EQ(host::TimerPeriod(inst->pProd->tmr), ZAN_VRRP_PROD_TMR_ADD_PROD);
    ZAN_VrrpProd_StopTmr_(host::Ctx(), inst);
    EXPECT_EQ(ZAN_VrrpProd_TmrIsStart_(host::Ctx(), inst), 0u);
    ASSERT_EQ(ZAN_VrrpProd_StartTmr_(host::Ctx(), inst, ZAN_VRRP_PROD_TMR_RN_DATA), 0u);
    EXPECT_EQ(ZAN_VrrpProd_TmrIsStart_(host::Ctx(), inst), 1u);
    EXPECT_EQ(host::TimerPeriod(inst->pProd->tmr), ZAN_VRRP_PROD_TMR_RN_DATA);
    EXPECT_EQ(host::RunningTimerPeriods(), (std::vector<uint32_t>{ZAN_VRRP_REG_TMR_MS, ZAN_VRRP_PROD_TMR_RN_DATA}));
}

}  // namespace
