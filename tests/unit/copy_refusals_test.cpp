// A bounded copy that fits, refused all the same by a misbehaving memcpy_s: the library reports
// it through KOL_Assert where that is its documented reaction and goes on as the steps say, with
// the bytes the copy did not write (the host fills every buffer it hands out with 0xA5).
#include <functional>
#include <optional>

#include "lib_fixture.h"

namespace {

ZAN_VRRP_TLV_S DataKey(uint8_t b)
{
    return libtest::Tlv(ZAN_VRRP_KEY_TLV_TYPE, 8, {b, 0, 0, 0, 1, 2, 3, 4});
}

const ZAN_VRRP_TLV_S kData = libtest::Tlv(ZAN_VRRP_DATA_TLV_TYPE, 8, {1, 2, 3, 4, 5, 6, 7, 8});

std::vector<uint8_t> Ack(uint8_t type, uint8_t seq)
{
    std::vector<uint8_t> m(20, 0);
    m[1] = 20;
    m[2] = 0x81;
    m[3] = type;
    m[15] = seq;
    return m;
}

struct Case {
    const char *name;
    std::function<void(ZAN_VRRP_ADP_S *)> setup;   // before the copy is refused
    uint32_t skip;                                 // copies of the step that succeed first
    std::function<uint32_t(ZAN_VRRP_ADP_S *)> step;
    uint32_t result;
    std::optional<std::pair<std::string, uint32_t>> assertAt;
    std::function<void(ZAN_VRRP_ADP_S *)> check;   // what the step left
};

void Registered(ZAN_VRRP_ADP_S *)
{
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_REGISTER, 0)));
}

// The producer in real-time notification, nothing stored.
void RealTime(ZAN_VRRP_ADP_S *a)
{
    Registered(a);
    ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_ADD_PRODUCER, 0)));
    ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_BN_BEGIN, 1)));
    ASSERT_TRUE(host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_BN_END, 2)));
    ASSERT_EQ(libtest::Inst(0x10)->pProd->State, VRRP_PROD_STATE_RN_DATA);
}

const ZAN_VRRP_TLV_S kKey = libtest::Tlv(1, 5, {1, 0, 0, 0, 9});
const ZAN_VRRP_TLV_S kSub = libtest::Tlv(2, 1, {1});

const std::vector<Case> kCases = {
    {"ItemKey", Registered, 0,
     [](ZAN_VRRP_ADP_S *a) { return ZAN_VrrpAdp_Subscribe(a, &kKey, &kSub, 1); }, ZAN_VRRP_FAIL,
     std::make_pair(std::string("zan_vrrpinst"), 233u),
     [](ZAN_VRRP_ADP_S *a) {
         EXPECT_EQ(libtest::Inst(0x10)->stItemTree.ulCount, 0u);
         EXPECT_EQ(a->stErrStat.usAddSubItem, 1u);
     }},
    // The request goes out with the item's TLV words but not its key bytes.
    {"SubscribeRequest",
     [](ZAN_VRRP_ADP_S *a) {
         Registered(a);
         ASSERT_EQ(ZAN_VrrpAdp_Subscribe(a, &kKey, &kSub, 1), 0u);
         host::Sent().clear();
     },
     0, [](ZAN_VRRP_ADP_S *) { return host::RunFlush() ? 0u : 1u; }, 0u,
     std::make_pair(std::string("zan_vrrpinst"), 745u),
     [](ZAN_VRRP_ADP_S *) {
         ASSERT_EQ(host::Sent().size(), 1u);
         EXPECT_EQ(host::Sent().front().bytes,
                   (std::vector<uint8_t>{0,    0x22, 1,    9,    0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2,
                                         0,    1,    0,    5,    0xa5, 0xa5, 0xa5, 0xa5, 0xa5, 0, 2, 0, 1, 1}));
         EXPECT_EQ(libtest::Inst(0x10)->astGroup[ZAN_VRRP_GROUP_SUB].aulLen[SUB_ITEM_STATE_SENT], 1u);
     }},
    // The part is stored with its key TLV left zeroed: not a valid part, so it is not packed.
    {"PartCopy", RealTime, 0,
     [](ZAN_VRRP_ADP_S *a) {
         const ZAN_VRRP_TLV_S key = DataKey(1);
         return ZAN_VrrpAdp_SendData(a, 1, &key, &kData);
     },
     0u, std::make_pair(std::string("zan_vrrp_prod"), 310u),
     [](ZAN_VRRP_ADP_S *) {
         EXPECT_EQ(ZAN_VrrpProd_CountList_(&libtest::Inst(0x10)->pProd->stPartList), 1u);
         host::Sent().clear();
         ASSERT_TRUE(host::RunFlush());
         ASSERT_EQ(host::Sent().size(), 1u);
         EXPECT_EQ(host::Sent().front().bytes,
                   (std::vector<uint8_t>{0, 0x14, 1, 6, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
     }},
    // The packed part keeps its converted words; the key bytes the copy did not write are not it.
    {"PackedPart",
     [](ZAN_VRRP_ADP_S *a) {
         RealTime(a);
         const ZAN_VRRP_TLV_S key = DataKey(1);
         ASSERT_EQ(ZAN_VrrpAdp_SendData(a, 1, &key, &kData), 0u);
         host::Sent().clear();
     },
     0, [](ZAN_VRRP_ADP_S *) { return host::RunFlush() ? 0u : 1u; }, 0u,
     std::make_pair(std::string("zan_vrrp_prod"), 715u),
     [](ZAN_VRRP_ADP_S *) {
         ASSERT_EQ(host::Sent().size(), 1u);
         EXPECT_EQ(host::Sent().front().bytes,
                   (std::vector<uint8_t>{0,    0x2c, 1,    6,    0,    0,    0,    0,    0,    1,    0,    0,
                                         0,    0,    0,    0,    0,    0,    0,    1,    0x0b, 0xb9, 0,    8,
                                         0,    0,    0,    1,    0xa5, 0xa5, 0xa5, 0xa5, 0x03, 0xe9, 0,    8,
                                         1,    2,    3,    4,    8,    7,    6,    5}));
     }},
    // The echo of a request cannot be made: none is sent, and the update is still handed over.
    {"Echo", Registered, 0,
     [](ZAN_VRRP_ADP_S *) {
         host::Sent().clear();
         return host::DeliverMsg(0x10, {0, 44, 1, 15, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0x0b, 0xba, 0, 20,
                                        0x0b, 0xb9, 0, 8, 1, 0, 0, 0, 1, 0, 0, 0, 0x03, 0xe9, 0, 4, 1, 2, 3, 4})
                    ? 0u
                    : 1u;
     },
     0u, std::nullopt,
     [](ZAN_VRRP_ADP_S *) {
         const ZAN_VRRP_INST_S *inst = libtest::Inst(0x10);
         EXPECT_TRUE(host::Sent().empty());
         EXPECT_EQ(host::MsgsOutstanding(), 0u);
         EXPECT_EQ(inst->stDropStat.ulEchoCopy, 1u);
         EXPECT_EQ(inst->aulSendAckCnt[ZAN_VRRP_MSG_RU_DATA], 1u);
         EXPECT_EQ(inst->stErrStat.usErrInfoNum, 1u);  // the record was handed over
     }},
    {"CallbackTable", nullptr, 0,
     [](ZAN_VRRP_ADP_S *a) {
         ZAN_VRRP_CALLBACK_S none{};
         return ZAN_VrrpAdp_RegCallBack(a, &none);
     },
     1u, std::nullopt,
     [](ZAN_VRRP_ADP_S *a) { EXPECT_NE(a->stCallBack.pfnRegAck, nullptr) << "the table was replaced"; }},
    {"DeployRecord", nullptr, 0, [](ZAN_VRRP_ADP_S *) { return libtest::CreateDeploy(0x10, 1); }, 0u, std::nullopt,
     [](ZAN_VRRP_ADP_S *a) {
         EXPECT_EQ(a->stDeployList.pNext, &a->stDeployList);
         EXPECT_EQ(a->stEvtStat.usCrtDeploy, 0u);
         EXPECT_EQ(host::FindInst(0x10), nullptr);
     }},
};

class CopyRefusals : public libtest::LibTest, public ::testing::WithParamInterface<Case> {};

TEST_P(CopyRefusals, AreReportedAndTheStepGoesOn)
{
    const Case &c = GetParam();
    if (c.setup) {
        c.setup(adp);
    }
    ASSERT_FALSE(HasFatalFailure());
    const size_t asserts = host::Asserts().size();
    host::ArmFail(host::FailKind::Copy, c.skip, 1);
    EXPECT_EQ(c.step(adp), c.result);
    EXPECT_FALSE(host::FailArmed(host::FailKind::Copy)) << "the step made fewer copies than expected";
    host::ClearFail();
    if (c.assertAt) {
        ASSERT_EQ(host::Asserts().size(), asserts + 1u);
        EXPECT_EQ(host::Asserts().back().file, c.assertAt->first);
        EXPECT_EQ(host::Asserts().back().line, c.assertAt->second);
    } else {
        EXPECT_EQ(host::Asserts().size(), asserts);
    }
    c.check(adp);
}

INSTANTIATE_TEST_SUITE_P(Copies, CopyRefusals, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case> &p) { return std::string(p.param.name); });

}  // namespace
