// Cost of the two keyed stores as they grow: replacing a datum in the producer's part store
// and adding/withdrawing a subscription item. Both should grow with log n.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench_world.h"
#include "prod/zan_vrrp_prod.h"

namespace {

using bench::MakeInstance;

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
