// Cost per data part of the producer as the data set grows: storing a changed datum
// (SendData), and the whole round of a changed data set (SendData, RNData messages of up to 169
// parts, their acknowledgements). Both should stay flat per part: a tree lookup, constant-time
// list moves and one allocation per part. The "bytes_per_part" counter is what the parts of the
// data set hold (bytes requested from the memory service), measured after the round.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench_world.h"
#include "prod/zan_vrrp_prod.h"

namespace {

std::vector<uint8_t> Ack(uint8_t type, uint32_t seq)
{
    std::vector<uint8_t> m(20, 0);
    m[1] = 20;
    m[2] = 0x81;
    m[3] = type;
    m[15] = static_cast<uint8_t>(seq);
    return m;
}

// An instance whose producer has finished an empty batch: state 5, nothing stored.
ZAN_VRRP_INST_S *RealTimeInstance()
{
    ZAN_VRRP_INST_S *inst = bench::MakeInstance();
    host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_ADD_PRODUCER, 0));
    host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_BN_BEGIN, 1));
    host::DeliverMsg(0x10, Ack(ZAN_VRRP_MSG_BN_END, 2));
    host::Sent().clear();
    return inst;
}

void SendDatum(ZAN_VRRP_ADP_S *adp, uint32_t key, uint32_t value)
{
    ZAN_VRRP_TLV_S k{};
    k.usType = ZAN_VRRP_KEY_TLV_TYPE;
    k.usLen = 8;
    std::memcpy(k.aucValue, &key, sizeof(key));
    ZAN_VRRP_TLV_S d{};
    d.usType = ZAN_VRRP_DATA_TLV_TYPE;
    d.usLen = 8;
    std::memcpy(d.aucValue, &value, sizeof(value));
    ZAN_VrrpAdp_SendData(adp, 1, &k, &d);
}

// Distinct keys in scrambled order.
uint32_t Key(uint32_t i, uint32_t n)
{
    return (uint32_t)(((uint64_t)i * 2654435761u) % n);
}

void BM_ProdSendData(benchmark::State &state)
{
    ZAN_VRRP_INST_S *inst = RealTimeInstance();
    ZAN_VRRP_ADP_S *adp = static_cast<ZAN_VRRP_ADP_S *>(host::Ctx()->pAdpSlot);
    const uint32_t n = (uint32_t)state.range(0);
    for (uint32_t i = 0; i < n; i++) {
        SendDatum(adp, i, 0);
    }
    uint32_t i = 0;
    for (auto _ : state) {
        SendDatum(adp, Key(i++, n), i);
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["bytes_per_part"] =
        (double)host::BytesOn(host::Ctx()->ulFwMemHandle) / ZAN_VrrpProd_CountList_(&inst->pProd->stPartList);
    ZAN_VrrpAdp_DeInit(host::Ctx());
}
BENCHMARK(BM_ProdSendData)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000);

void BM_ProdRealTimeRound(benchmark::State &state)
{
    ZAN_VRRP_INST_S *inst = RealTimeInstance();
    ZAN_VRRP_ADP_S *adp = static_cast<ZAN_VRRP_ADP_S *>(host::Ctx()->pAdpSlot);
    const uint32_t n = (uint32_t)state.range(0);
    const std::vector<uint8_t> ack = Ack(ZAN_VRRP_MSG_RN_DATA, 0);
    uint32_t round = 0;
    for (auto _ : state) {
        round++;
        for (uint32_t i = 0; i < n; i++) {
            SendDatum(adp, Key(i, n), round);
        }
        host::RunFlush();
        while (inst->pProd->stWaitAckList.pNext != &inst->pProd->stWaitAckList) {
            host::Sent().clear();
            host::DeliverMsg(0x10, ack);
        }
        host::Sent().clear();
    }
    state.SetItemsProcessed(state.iterations() * n);
    // Held per part while the whole set is stored (the last round's data set, stored again).
    for (uint32_t i = 0; i < n; i++) {
        SendDatum(adp, Key(i, n), 0);
    }
    state.counters["bytes_per_part"] = (double)host::BytesOn(host::Ctx()->ulFwMemHandle) / n;
    ZAN_VrrpAdp_DeInit(host::Ctx());
}
BENCHMARK(BM_ProdRealTimeRound)->Arg(1000)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace
