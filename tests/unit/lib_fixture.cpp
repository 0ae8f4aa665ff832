#include "lib_fixture.h"

#include "labels.h"

namespace libtest {

Recorder &Rec()
{
    static Recorder r;
    return r;
}

namespace {

void OnRegAck(uint32_t ifGroup, uint32_t)
{
    Rec().regAcks.push_back(ifGroup);
}
void OnRecvData(const void *, const void *, uint32_t) {}
void OnItemDown(const void *, uint32_t) {}
uint32_t IsDebugOn(uint32_t)
{
    return Rec().debugOn;
}
void DebugOut(const char *text, uint32_t)
{
    Rec().debug.emplace_back(text);
}
void TracePoint(const char *module, uint32_t line, uint32_t)
{
    Rec().traces.emplace_back(module, line);
}

}  // namespace

ZAN_VRRP_CALLBACK_S AllCallbacks()
{
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = OnRegAck;
    cb.pfnRecvData = OnRecvData;
    cb.pfnItemDown = OnItemDown;
    cb.pfnIsDebugOn = IsDebugOn;
    cb.pfnDebugOut = DebugOut;
    cb.pfnTracePoint = TracePoint;
    return cb;
}

std::vector<uint8_t> DeployRec(uint32_t pid, uint32_t ifGroup, uint32_t kind)
{
    ZAN_VRRP_DEPLOY_REC_S rec{};
    rec.ulKind = kind;
    rec.ulPid = pid;
    rec.ulIfGroupId = ifGroup;
    std::vector<uint8_t> bytes(sizeof(rec));
    std::memcpy(bytes.data(), &rec, sizeof(rec));
    return bytes;
}

uint32_t CreateDeploy(uint32_t pid, uint32_t ifGroup)
{
    return host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_CREATE, DeployRec(pid, ifGroup)).value_or(99);
}

uint32_t DeleteDeploy(uint32_t pid, uint32_t ifGroup)
{
    return host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_DELETE, DeployRec(pid, ifGroup)).value_or(99);
}

ZAN_VRRP_INST_S *Inst(uint32_t pid)
{
    return reinterpret_cast<ZAN_VRRP_INST_S *>(host::FindInst(pid));
}

ZAN_VRRP_TLV_S Tlv(uint16_t type, uint16_t len, const std::vector<uint8_t> &value)
{
    ZAN_VRRP_TLV_S tlv{};
    tlv.usType = type;
    tlv.usLen = len;
    if (!value.empty()) {
        std::memcpy(tlv.aucValue, value.data(), std::min(value.size(), sizeof(tlv.aucValue)));
    }
    return tlv;
}

void ExpectNoFaults()
{
    std::string log;
    for (const std::string &fault : host::FaultLog()) {
        log += "\n  " + fault;
    }
    EXPECT_EQ(host::Faults(), 0u) << "platform misuse:" << log;
}

void LibTest::SetUp()
{
    host::Reset();
    Rec() = Recorder{};
    adp = ZAN_VrrpAdp_Get(host::Ctx());
    ASSERT_NE(adp, nullptr);
    const ZAN_VRRP_CALLBACK_S cb = AllCallbacks();
    ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
}

uint32_t FwBlocksBesideContext()
{
    return static_cast<uint32_t>(sim::FwBlocksBesideKeptContext().size());
}

void LibTest::TearDown()
{
    ZAN_VrrpAdp_DeInit(host::Ctx());
    EXPECT_EQ(FwBlocksBesideContext(), 0u);
    EXPECT_EQ(host::MsgsOutstanding(), 0u);
    ExpectNoFaults();
}

}  // namespace libtest
