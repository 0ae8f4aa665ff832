// Null arguments. The application's calls refuse a null adapter, context or TLV with their
// failure result and touch nothing; the library's own entry points that the framework or the
// dispatch never call with null report it through KOL_Assert where that is their documented
// reaction, and otherwise do nothing.
#include <functional>
#include <optional>

#include "lib_fixture.h"

namespace {

struct Expect {
    uint32_t result;
    std::optional<std::pair<std::string, uint32_t>> assertAt;  // file, line of the one KOL_Assert
    uint16_t subscribes = 0;    // usSubscribe raised by
    uint16_t unsubscribes = 0;  // usUnSubscribe raised by
};

struct Case {
    const char *name;
    std::function<uint32_t(ZAN_VRRP_ADP_S *, ZAN_VRRP_INST_S *)> call;
    Expect want;
};

std::vector<uint8_t> g_msg(20, 0);
ZAN_VRRP_MSG_DECODE_S g_decode{};
ZAN_VRRP_TLV_S g_key = libtest::Tlv(1, 5, {1, 0, 0, 0, 1});
ZAN_VRRP_TLV_S g_sub = libtest::Tlv(2, 1, {1});
ZAN_VRRP_TLV_S g_dkey = libtest::Tlv(ZAN_VRRP_KEY_TLV_TYPE, 8, {1, 0, 0, 0, 1, 0, 0, 0});
ZAN_VRRP_TLV_S g_data = libtest::Tlv(ZAN_VRRP_DATA_TLV_TYPE, 8, {1, 2, 3, 4, 5, 6, 7, 8});
const ZAN_VRRP_CALLBACK_S g_table = libtest::AllCallbacks();

uint32_t Void(const std::function<void()> &f)
{
    f();
    return 0;
}

const std::pair<std::string, uint32_t> At(const char *file, uint32_t line)
{
    return {file, line};
}

const Case kCases[] = {
    // The application's calls.
    {"GetWithoutContext", [](auto, auto) { return ZAN_VrrpAdp_Get(nullptr) == nullptr ? 0u : 1u; }, {0}},
    {"DeInitWithoutContext", [](auto, auto) { return Void([] { ZAN_VrrpAdp_DeInit(nullptr); }); }, {0}},
    {"RegCallBackWithoutAdapter", [](auto, auto) { return ZAN_VrrpAdp_RegCallBack(nullptr, &g_table); }, {1}},
    {"RegCallBackWithoutTable", [](auto a, auto) { return ZAN_VrrpAdp_RegCallBack(a, nullptr); }, {1}},
    {"SetWorkStateWithoutAdapter", [](auto, auto) { return ZAN_VrrpAdp_SetWorkState(nullptr, 0); }, {ZAN_VRRP_FAIL}},
    {"SubscribeWithoutAdapter", [](auto, auto) { return ZAN_VrrpAdp_Subscribe(nullptr, &g_key, &g_sub, 1); },
     {ZAN_VRRP_FAIL}},
    {"SubscribeWithoutKey", [](auto a, auto) { return ZAN_VrrpAdp_Subscribe(a, nullptr, &g_sub, 1); },
     {ZAN_VRRP_FAIL, std::nullopt, 1}},
    {"SubscribeWithoutSubscription", [](auto a, auto) { return ZAN_VrrpAdp_Subscribe(a, &g_key, nullptr, 1); },
     {ZAN_VRRP_FAIL, std::nullopt, 1}},
    {"UnSubscribeWithoutAdapter", [](auto, auto) { return ZAN_VrrpAdp_UnSubscribe(nullptr, &g_key, &g_sub, 1); },
     {ZAN_VRRP_FAIL}},
    {"UnSubscribeWithoutKey", [](auto a, auto) { return ZAN_VrrpAdp_UnSubscribe(a, nullptr, &g_sub, 1); },
     {ZAN_VRRP_FAIL, std::nullopt, 0, 1}},
    {"UnSubscribeWithoutSubscription", [](auto a, auto) { return ZAN_VrrpAdp_UnSubscribe(a, &g_key, nullptr, 1); },
     {ZAN_VRRP_FAIL, std::nullopt, 0, 1}},
    {"SendDataWithoutAdapter", [](auto, auto) { return ZAN_VrrpAdp_SendData(nullptr, 1, &g_dkey, &g_data); },
     {ZAN_VRRP_FAIL}},
    {"SendDataWithoutKey", [](auto a, auto) { return ZAN_VrrpAdp_SendData(a, 1, nullptr, &g_data); },
     {ZAN_VRRP_FAIL}},
    {"SendDataWithoutData", [](auto a, auto) { return ZAN_VrrpAdp_SendData(a, 1, &g_dkey, nullptr); },
     {ZAN_VRRP_FAIL}},
    // What the framework or the dispatch never passes: reported where that is documented.
    {"InitWithoutAdapter", [](auto, auto) { return ZAN_VrrpAdp_Init_(nullptr, host::Ctx()); },
     {1, At("zan_vrrpadp", 241)}},
    {"AckDispatchWithoutInstance",
     [](auto a, auto) { return Void([a] { ZAN_VrrpAdp_ProcAckMsg_(a, nullptr, g_msg.data(), &g_decode); }); },
     {0, At("zan_vrrpadp", 513)}},
    {"RequestDispatchWithoutInstance",
     [](auto a, auto) { return Void([a] { ZAN_VrrpAdp_ProcReqMsg_(a, nullptr, g_msg.data(), &g_decode); }); },
     {0, At("zan_vrrpadp", 576)}},
    {"SubscribeAckWithoutInstance",
     [](auto, auto) { return Void([] { ZAN_VrrpInst_ProcSubAck(nullptr, g_msg.data(), &g_decode); }); },
     {0, At("zan_vrrpinst", 790)}},
    {"UnSubscribeAckWithoutInstance",
     [](auto, auto) { return Void([] { ZAN_VrrpInst_ProcUnSubAck(nullptr, g_msg.data(), &g_decode); }); },
     {0, At("zan_vrrpinst", 960)}},
    {"NotifyAckWithoutInstance",
     [](auto, auto) { return Void([] { ZAN_VrrpInst_ProcNotifyAck(nullptr, g_msg.data(), &g_decode); }); },
     {0, At("zan_vrrpinst", 1240)}},
    {"VrrpDownWithoutInstance", [](auto, auto) { return Void([] { ZAN_VrrpInst_NotifyVrrpDown_(nullptr); }); },
     {0, At("zan_vrrpinst", 1205)}},
    {"VrrpDownWithoutContext",
     [](auto, auto) {
         ZAN_VRRP_INST_S bare{};
         return Void([&bare] { ZAN_VrrpInst_NotifyVrrpDown_(&bare); });
     },
     {0, At("zan_vrrpinst", 1206)}},
    {"VrrpDownWithoutAdapter",
     [](auto, auto) {
         ZAN_VRRP_INST_S bare{};
         bare.stInstHead.pCompCtx = host::Ctx();
         return Void([&bare] { ZAN_VrrpInst_NotifyVrrpDown_(&bare); });
     },
     {0, At("zan_vrrpinst", 1207)}},
    {"UpWithoutInstance", [](auto, auto) { return ZAN_VrrpInst_Up_(nullptr); }, {0}},
    {"DownWithoutInstance", [](auto, auto) { return ZAN_VrrpInst_Down_(nullptr); }, {0}},
    {"InstanceDeInitWithoutInstance", [](auto, auto) { return ZAN_VrrpInst_DeInit(nullptr); }, {0}},
    {"WorkOnWithoutInstance", [](auto, auto) { return ZAN_VrrpAdp_SetWorkOn_(nullptr); }, {0}},
    {"WorkDownWithoutInstance", [](auto, auto) { return ZAN_VrrpAdp_SetWorkDown_(nullptr); }, {0}},
    {"AdapterEndWithoutInstance", [](auto, auto) { return ZAN_VrrpAdp_DeInitInst_(nullptr); }, {0}},
    // A record the configuration service could not hand over is not copied, so not taken.
    {"CreateDeployWithoutRecord", [](auto a, auto) { return ZAN_VrrpAdp_CreateDeploy_(a, nullptr); }, {0}},
    {"DeleteDeployWithoutRecord", [](auto a, auto) { return ZAN_VrrpAdp_DeleteDeploy_(a, nullptr); }, {0}},
};

class NullArguments : public libtest::LibTest, public ::testing::WithParamInterface<Case> {};

TEST_P(NullArguments, AreRefusedOrReportedAndChangeNothing)
{
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    ASSERT_TRUE(host::DeliverMsg(0x10, {0, 20, 0x81, ZAN_VRRP_MSG_REGISTER, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                        0}));
    ZAN_VRRP_INST_S *inst = libtest::Inst(0x10);
    ASSERT_NE(inst, nullptr);
    host::Sent().clear();
    const ZAN_VRRP_ADP_S adpBefore = *adp;
    const ZAN_VRRP_INST_S instBefore = *inst;
    const uint32_t blocks = host::BlocksOn(adp->ulMemHandle) + host::BlocksOn(host::Ctx()->ulFwMemHandle);
    const size_t asserts = host::Asserts().size();
    libtest::Rec() = libtest::Recorder{};

    const Case &c = GetParam();
    EXPECT_EQ(c.call(adp, inst), c.want.result);

    if (c.want.assertAt) {
        ASSERT_EQ(host::Asserts().size(), asserts + 1u);
        EXPECT_EQ(host::Asserts().back().file, c.want.assertAt->first);
        EXPECT_EQ(host::Asserts().back().line, c.want.assertAt->second);
    } else {
        EXPECT_EQ(host::Asserts().size(), asserts);
    }
    EXPECT_EQ(adp->stEvtStat.usSubscribe - adpBefore.stEvtStat.usSubscribe, c.want.subscribes);
    EXPECT_EQ(adp->stEvtStat.usUnSubscribe - adpBefore.stEvtStat.usUnSubscribe, c.want.unsubscribes);
    ZAN_VRRP_ADP_S adpAfter = *adp;
    adpAfter.stEvtStat.usSubscribe = adpBefore.stEvtStat.usSubscribe;
    adpAfter.stEvtStat.usUnSubscribe = adpBefore.stEvtStat.usUnSubscribe;
    EXPECT_EQ(std::memcmp(&adpAfter, &adpBefore, sizeof(adpAfter)), 0) << "the adapter changed";
    EXPECT_EQ(std::memcmp(inst, &instBefore, sizeof(instBefore)), 0) << "the instance changed";
    EXPECT_EQ(host::BlocksOn(adp->ulMemHandle) + host::BlocksOn(host::Ctx()->ulFwMemHandle), blocks);
    EXPECT_TRUE(host::Sent().empty());
    EXPECT_TRUE(libtest::Rec().regAcks.empty());
    EXPECT_TRUE(libtest::Rec().traces.empty());
}

INSTANTIATE_TEST_SUITE_P(Calls, NullArguments, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case> &p) { return std::string(p.param.name); });

}  // namespace
