// Every allocation, message buffer and timer of a full scenario can fail: for each position
// in turn the scenario runs with that one failure and must end with nothing held and no
// misuse of the platform.
#include "labels.h"
#include "lib_fixture.h"

namespace {

std::vector<uint8_t> Header(uint8_t flags, uint8_t type, uint8_t seq = 0, const std::vector<uint8_t> &body = {})
{
    std::vector<uint8_t> m(20, 0);
    m[1] = static_cast<uint8_t>(20 + body.size());
    m[2] = flags;
    m[3] = type;
    m[15] = seq;
    m.insert(m.end(), body.begin(), body.end());
    return m;
}

// Two records: key TLV 3001/8, data TLV 1001/4.
const std::vector<uint8_t> kRecs = {0x0b, 0xba, 0, 20, 0x0b, 0xb9, 0, 8, 1, 0, 0, 0, 1, 0, 0, 0, 0x03, 0xe9, 0, 4, 1, 2, 3, 4,
                                    0x0b, 0xba, 0, 20, 0x0b, 0xb9, 0, 8, 2, 0, 0, 0, 1, 0, 0, 0, 0x03, 0xe9, 0, 4, 1, 2, 3, 4};

void Scenario()
{
    ZAN_VRRP_ADP_S *adp = nullptr;
    for (int tries = 0; tries < 4 && adp == nullptr; tries++) {
        adp = ZAN_VrrpAdp_Get(host::Ctx());
    }
    ASSERT_NE(adp, nullptr);
    const ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
    ZAN_VrrpAdp_RegCallBack(adp, &cb);
    libtest::CreateDeploy(0x10, 1);
    libtest::CreateDeploy(0x10, 2);
    libtest::CreateDeploy(0x20, 3);
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_REGISTER));
    host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_RU_DATA));
    for (uint8_t i = 0; i < 4; i++) {
        ZAN_VRRP_TLV_S key = libtest::Tlv(1, 8, {i, 0, 0, 0, 1});
        ZAN_VRRP_TLV_S sub = libtest::Tlv(2, 2, {i, i});
        ZAN_VrrpAdp_Subscribe(adp, &key, &sub, 1);
        if (i == 2) {
            ZAN_VrrpAdp_UnSubscribe(adp, &key, &sub, 1);
        }
    }
    host::RunFlush();
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_SUBSCRIBE));
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_UNSUBSCRIBE));
    host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_BU_BEGIN, 7));
    host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_BU_DATA, 8, kRecs));
    host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_BU_DATA, 10, kRecs));
    host::Advance(3000);
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_NOTIFY_EVENT));
    host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_BU_END, 9));
    host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_BU_BEGIN_END, 0, kRecs));
    host::DeliverMsg(0x10, Header(0x01, ZAN_VRRP_MSG_BU_DATA, 30, kRecs));
    host::DeliverFcm(0x10);
    // The producer through its batch to real-time data.
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_ADD_PRODUCER));
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_BN_BEGIN, 1));
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_BN_END, 2));
    for (uint8_t i = 0; i < 3; i++) {
        ZAN_VRRP_TLV_S key = libtest::Tlv(ZAN_VRRP_KEY_TLV_TYPE, 8, {i, 0, 0, 0, 1, 0, 0, 0});
        ZAN_VRRP_TLV_S data = libtest::Tlv(ZAN_VRRP_DATA_TLV_TYPE, 8, {1, 2, 3, 4, 5, 6, 7, 8});
        ZAN_VrrpAdp_SendData(adp, 1, &key, &data);
    }
    host::RunFlush();
    host::Advance(5005);
    host::DeliverMsg(0x10, Header(0x81, ZAN_VRRP_MSG_RN_DATA));
    host::Advance(5001);
    for (const char *item : {"adp-base", "adp-stat", "inst-base", "inst-msgstat", "inst-srvstat", "inst-consumer",
                             "inst-subinfo", "inst-prod"}) {
        host::RunCli("zanvrrp", item, std::string("0x10"), 0);
    }
    ZAN_VrrpAdp_SetWorkState(adp, 0);
    ZAN_VrrpAdp_SetWorkState(adp, 1);
    libtest::DeleteDeploy(0x10, 1);
    libtest::DeleteDeploy(0x20, 3);
    ZAN_VrrpAdp_DeInit(host::Ctx());
}

struct Kind {
    host::FailKind kind;
    const char *name;
};

TEST(AllocFailure, ScenarioSurvivesAnySingleFailureAndReleasesEverything)
{
    const Kind kinds[] = {{host::FailKind::Malloc, "malloc"}, {host::FailKind::MsgAlloc, "msgalloc"},
                          {host::FailKind::Timer, "timer"},   {host::FailKind::Send, "send"},
                          {host::FailKind::MemInit, "meminit"}, {host::FailKind::RegMsg, "regmsg"},
                          {host::FailKind::RegCfg, "regcfg"}, {host::FailKind::RegInner, "reginner"},
                          {host::FailKind::AdpInit, "adpinit"}, {host::FailKind::AddInst, "addinst"},
                          {host::FailKind::DelInst, "delinst"}, {host::FailKind::InstInit, "instinit"},
                          {host::FailKind::StartWork, "startwork"}, {host::FailKind::RbtAdd, "rbtadd"},
                          {host::FailKind::CliAddRec, "cliaddrec"}, {host::FailKind::CliRetCode, "cliretcode"}};
    for (const Kind &k : kinds) {
        // Each position in turn, up to the first that the scenario no longer reaches.
        for (uint32_t skip = 0;; skip++) {
            SCOPED_TRACE(std::string(k.name) + " skip " + std::to_string(skip));
            host::Reset();
            libtest::Rec() = libtest::Recorder{};
            host::ArmFail(k.kind, skip, 1);
            Scenario();
            const bool reached = !host::FailArmed(k.kind);
            host::ClearFail();
            EXPECT_EQ(libtest::FwBlocksBesideContext(), 0u);
            EXPECT_EQ(host::BlocksOn(host::LastCreatedHandle()), 0u);
            EXPECT_EQ(host::MsgsOutstanding(), 0u);
            EXPECT_EQ(sim::LiveAdp(), nullptr);
            EXPECT_TRUE(host::RunningTimerPeriods().empty());
            libtest::ExpectNoFaults();
            if (HasFailure()) {
                return;
            }
            if (!reached) {
                break;
            }
        }
    }
}

}  // namespace
