// Cost of the receive path per data record handed to pfnRecvData, next to a memcpy of the same
// bytes. An RUData message is filled with records (3002, key 3001/8, data 1001/8: 28 bytes each).
//
// BM_CopyMsg       memcpy of the message                       (the baseline)
// BM_ParseRecords  memcpy of the message + the record parser   (the parser converts in place,
//                                                               so every run starts from a copy)
// BM_ReceiveRUData the whole receive path through the host: header, dispatch, acknowledgement
//                  (allocated and sent through the host), parser
//
// Time is noisy on shared machines; for a stable figure count instructions under callgrind,
// only inside the two marked functions:
//   valgrind --tool=callgrind --toggle-collect='*CopyOnce*' --toggle-collect='*ParseOnce*' \
//       build/bench/bench/zan_bench --benchmark_filter='BM_(CopyMsg|ParseRecords)' --benchmark_min_time=0.01
//   callgrind_annotate --inclusive=yes callgrind.out.<pid> | grep -E 'CopyOnce|ParseOnce'
// and divide by the calls and the records per message (printed as the "records" counter).
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench_world.h"

namespace {

using bench::g_delivered;
using bench::MakeInstance;

// An RUData of `records` records, as on the wire.
std::vector<uint8_t> FullMessage(uint32_t records)
{
    std::vector<uint8_t> m(20, 0);
    m[2] = 0x01;
    m[3] = ZAN_VRRP_MSG_RU_DATA;
    for (uint32_t i = 0; i < records; i++) {
        const uint8_t rec[28] = {0x0b, 0xba, 0, 24, 0x0b, 0xb9, 0, 8, (uint8_t)i, (uint8_t)(i >> 8), 0, 0, 1, 0, 0, 0,
                                 0x03, 0xe9, 0, 8, 1,   2,    3, 4,  5,          6,               7, 8};
        m.insert(m.end(), rec, rec + sizeof(rec));
    }
    m[0] = static_cast<uint8_t>(m.size() >> 8);
    m[1] = static_cast<uint8_t>(m.size());
    return m;
}

__attribute__((noinline)) void CopyOnce(uint8_t *dst, const std::vector<uint8_t> &src)
{
    std::memcpy(dst, src.data(), src.size());
    benchmark::ClobberMemory();
}

__attribute__((noinline)) void ParseOnce(ZAN_VRRP_INST_S *inst, uint8_t *buf)
{
    ZAN_VrrpInst_ParseDataMsg_(inst, buf);
}

void BM_CopyMsg(benchmark::State &state)
{
    const uint32_t records = (uint32_t)state.range(0);
    const std::vector<uint8_t> msg = FullMessage(records);
    std::vector<uint8_t> buf(msg.size());
    for (auto _ : state) {
        CopyOnce(buf.data(), msg);
    }
    state.SetItemsProcessed(state.iterations() * records);
    state.counters["records"] = records;
}
BENCHMARK(BM_CopyMsg)->Arg(1)->Arg(16)->Arg(145);

void BM_ParseRecords(benchmark::State &state)
{
    ZAN_VRRP_INST_S *inst = MakeInstance();
    const uint32_t records = (uint32_t)state.range(0);
    const std::vector<uint8_t> msg = FullMessage(records);
    std::vector<uint8_t> buf(msg.size());
    g_delivered = 0;
    for (auto _ : state) {
        CopyOnce(buf.data(), msg);
        ParseOnce(inst, buf.data());
    }
    if (g_delivered != state.iterations() * records) {
        state.SkipWithError("records were not all handed over");
    }
    state.SetItemsProcessed(state.iterations() * records);
    state.counters["records"] = records;
    ZAN_VrrpAdp_DeInit(host::Ctx());
}
BENCHMARK(BM_ParseRecords)->Arg(1)->Arg(16)->Arg(145);

void BM_ReceiveRUData(benchmark::State &state)
{
    MakeInstance();
    const uint32_t records = (uint32_t)state.range(0);
    const std::vector<uint8_t> msg = FullMessage(records);
    g_delivered = 0;
    for (auto _ : state) {
        host::DeliverMsg(0x10, msg);
        host::Sent().clear();
    }
    if (g_delivered != state.iterations() * records) {
        state.SkipWithError("records were not all handed over");
    }
    state.SetItemsProcessed(state.iterations() * records);
    state.counters["records"] = records;
    ZAN_VrrpAdp_DeInit(host::Ctx());
}
BENCHMARK(BM_ReceiveRUData)->Arg(1)->Arg(16)->Arg(145);

}  // namespace
