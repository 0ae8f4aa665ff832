// Google Benchmark timings of the scenarios that zan_costs counts: each iteration builds a fresh
// world (not timed) and runs one phase over N distinct keys; items are keys or records. Times
// are noisy on shared machines: scripts/bench.sh gives the stable figures.
#include <benchmark/benchmark.h>

#include "scenarios.h"

namespace {

using namespace zan_bench;

// A fresh world with N items subscribed and acknowledged (subscribed = true) or none.
ZAN_VRRP_ADP_S *Fresh(uint32_t n, bool subscribed)
{
    ZAN_VrrpAdp_DeInit(host::Ctx());
    ZAN_VRRP_ADP_S *adp = World();
    if (subscribed) {
        PhaseSubCall(adp, n);
        PhaseSubFlush();
    }
    return adp;
}

// The same, between two timed iterations.
ZAN_VRRP_ADP_S *FreshUntimed(benchmark::State &state, uint32_t n, bool subscribed)
{
    state.PauseTiming();
    ZAN_VRRP_ADP_S *adp = Fresh(n, subscribed);
    state.ResumeTiming();
    return adp;
}

void BM_Subscribe(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        ZAN_VRRP_ADP_S *adp = FreshUntimed(state, n, false);
        PhaseSubCall(adp, n);
        PhaseSubFlush();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_UnSubscribe(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        ZAN_VRRP_ADP_S *adp = FreshUntimed(state, n, true);
        PhaseUnSubCall(adp, n);
        PhaseUnSubFlush();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_SendDataChanged(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    ZAN_VRRP_ADP_S *adp = Fresh(n, false);
    PhaseSendNew(adp, n);
    for (auto _ : state) {
        PhaseSendData(adp, n);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_ProdRound(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    ZAN_VRRP_ADP_S *adp = Fresh(n, false);
    uint32_t round = 0;
    for (auto _ : state) {
        PhaseProdRound(adp, n, ++round);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_MapInsert(benchmark::State &state)
{
    const uint32_t n = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        std::map<std::array<uint8_t, 32>, Payload> m;
        PhaseMapSub(m, n);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_ReceiveRecords(benchmark::State &state)
{
    Fresh(0, false);
    const std::vector<uint8_t> msg = RuData();
    for (auto _ : state) {
        PhaseRecv(msg, 1);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

void BM_CopyRecords(benchmark::State &state)
{
    const std::vector<uint8_t> msg = RuData();
    std::vector<uint8_t> dst(msg.size());
    for (auto _ : state) {
        PhaseCopyRec(dst, msg, 1);
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
}

BENCHMARK(BM_Subscribe)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UnSubscribe)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SendDataChanged)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProdRound)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MapInsert)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReceiveRecords);
BENCHMARK(BM_CopyRecords);

}  // namespace
