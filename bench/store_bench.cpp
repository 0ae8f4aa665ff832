// Cost of the two keyed stores as they grow: replacing a datum in the producer's part store
// and adding/withdrawing a subscription item. Both should grow with log n.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "adp/zan_vrrpadp.h"
#include "host/host_world.h"
#include "inst/zan_vrrpinst.h"
#include "prod/zan_vrrp_prod.h"

namespace {

void Noop2(uint32_t, uint32_t) {}
void NoopData(const void *, const void *, uint32_t) {}
void NoopItem(const void *, uint32_t) {}

ZAN_VRRP_INST_S *MakeInstance()
{
    host::Reset();
    ZAN_VRRP_ADP_S *adp = ZAN_VrrpAdp_Get(host::Ctx());
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = Noop2;
    cb.pfnRecvData = NoopData;
    cb.pfnItemDown = NoopItem;
    ZAN_VrrpAdp_RegCallBack(adp, &cb);
    ZAN_VRRP_DEPLOY_REC_S rec{};
    rec.ulKind = ZAN_VRRP_DEPLOY_KIND;
    rec.ulPid = 0x10;
    rec.ulIfGroupId = 1;
    std::vector<uint8_t> bytes(sizeof(rec));
    std::memcpy(bytes.data(), &rec, sizeof(rec));
    host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_CREATE, bytes);
    return reinterpret_cast<ZAN_VRRP_INST_S *>(host::FindInst(0x10));
}

ZAN_VRRP_TLV_S Tlv(uint16_t type, uint16_t len, uint32_t word)
{
    ZAN_VRRP_TLV_S tlv{};
    tlv.usType = type;
    tlv.usLen = len;
    std::memcpy(tlv.aucValue, &word, sizeof(word));
    return tlv;
}

void BM_PartReplace(benchmark::State &state)
{
    ZAN_VRRP_INST_S *inst = MakeInstance();
    inst->pProd->State = VRRP_PROD_STATE_RN_DATA;
    const uint32_t n = (uint32_t)state.range(0);
    ZAN_VRRP_TLV_S data = Tlv(1001, 8, 7);
    for (uint32_t i = 0; i < n; i++) {
        ZAN_VRRP_TLV_S key = Tlv(3001, 8, i);
        ZAN_VrrpProd_SendData(host::Ctx(), inst, &key, &data);
    }
    uint32_t i = 0;
    for (auto _ : state) {
        ZAN_VRRP_TLV_S key = Tlv(3001, 8, (i++ * 2654435761u) % n);
        benchmark::DoNotOptimize(ZAN_VrrpProd_SendData(host::Ctx(), inst, &key, &data));
    }
    ZAN_VrrpAdp_DeInit(host::Ctx());
}
BENCHMARK(BM_PartReplace)->RangeMultiplier(8)->Range(8, 32768);

void BM_SubItemToggle(benchmark::State &state)
{
    ZAN_VRRP_INST_S *inst = MakeInstance();
    inst->State = VRRP_INST_STATE_REGED;
    const uint32_t n = (uint32_t)state.range(0);
    ZAN_VRRP_TLV_S sub = Tlv(2, 1, 1);
    for (uint32_t i = 0; i < n; i++) {
        ZAN_VRRP_TLV_S key = Tlv(1, 5, i);
        ZAN_VrrpInst_AddSubItem(inst, &key, &sub);
    }
    uint32_t i = 0;
    for (auto _ : state) {
        ZAN_VRRP_TLV_S key = Tlv(1, 5, (i++ * 2654435761u) % n);
        ZAN_VrrpInst_AddUnSubItem(inst, &key, &sub);
        ZAN_VrrpInst_AddSubItem(inst, &key, &sub);
    }
    ZAN_VrrpAdp_DeInit(host::Ctx());
}
BENCHMARK(BM_SubItemToggle)->RangeMultiplier(8)->Range(8, 32768);

}  // namespace
