// zan_costs SCENARIO N: one scenario of scenarios.h, sized N, for instruction counts under
// callgrind (scripts/bench.sh). Each scenario checks that the library did what it was asked to
// (every item acknowledged, every part sent and acknowledged, every record handed over) and
// exits non-zero when not, so a figure always describes a working path. It prints, one per
// line, "PHASE OPERATIONS", and "bytes_per_item B" / "bytes_per_part B": the bytes the library
// requested from the memory service per item or part held.
//
// Keys are distinct and in scrambled order (i * 2654435761 mod N).
//   subscribe N    PhaseSubCall: N ZAN_VrrpAdp_Subscribe; PhaseSubFlush: the requests and their
//                  acknowledgements until every item is acknowledged
//   unsubscribe N  the same N items subscribed and acknowledged, then PhaseUnSubCall: N
//                  ZAN_VrrpAdp_UnSubscribe; PhaseUnSubFlush: requests and acknowledgements
//                  until no item is left
//   senddata N     PhaseSendNew: N ZAN_VrrpAdp_SendData storing new data; PhaseSendData: N
//                  more of the same keys with changed data (each replaces its stored part)
//   prodround N    PhaseProdRound: N SendData of new values, the RNData messages and their
//                  acknowledgements, until nothing waits
//   map N          PhaseMapSub / PhaseMapPart: std::map inserts of the same 32-byte item keys
//                  and 16-byte part keys, the baselines
//   recv N         PhaseRecv: N RUData messages of 145 records each through the whole receive
//                  path; PhaseCopyMsg: a memcpy of each message; PhaseCopyRec: a memcpy of
//                  each record on its own (28 bytes)
#include <cstdio>
#include <cstdlib>
#include <string>

#include "scenarios.h"

namespace {

using namespace zan_bench;

void RunSubscribe(uint32_t n, bool thenUnsubscribe)
{
    ZAN_VRRP_ADP_S *adp = World();
    if (!thenUnsubscribe) {
        PhaseSubCall(adp, n);
        const uint64_t bytes = host::BytesOn(Inst()->MemHandle);
        PhaseSubFlush();
        if (GroupState(ZAN_VRRP_GROUP_SUB, 2) != n) {
            Die("not every item was acknowledged");
        }
        std::printf("PhaseSubCall %u\nPhaseSubFlush %u\n", n, n);
        // The adapter's handle holds the deploy relation and the instance besides the items.
        std::printf("bytes_per_item %.1f\n",
                    static_cast<double>(bytes - sizeof(ZAN_VRRP_DEPLOY_NODE_S) - sizeof(ZAN_VRRP_INST_S)) / n);
    } else {
        CallAll(adp, n, ZAN_VrrpAdp_Subscribe);
        FlushAndAck(ZAN_VRRP_MSG_SUBSCRIBE);
        PhaseUnSubCall(adp, n);
        PhaseUnSubFlush();
        if (Inst()->stItemTree.ulCount != 0u) {
            Die("items are left after the unsubscribe exchange");
        }
        std::printf("PhaseUnSubCall %u\nPhaseUnSubFlush %u\n", n, n);
    }
    ZAN_VrrpAdp_DeInit(host::Ctx());
}

void RunSendData(uint32_t n)
{
    ZAN_VRRP_ADP_S *adp = World();
    PhaseSendNew(adp, n);
    const uint32_t before = host::BlocksOn(host::Ctx()->ulFwMemHandle);
    const uint64_t bytes = host::BytesOn(host::Ctx()->ulFwMemHandle);
    PhaseSendData(adp, n);
    if (host::BlocksOn(host::Ctx()->ulFwMemHandle) != before ||
        ZAN_VrrpProd_CountList_(&Inst()->pProd->stPartList) != n) {
        Die("changed data did not replace the stored parts");
    }
    // The framework's handle holds the adapter and the producer besides the parts.
    std::printf("PhaseSendNew %u\nPhaseSendData %u\nbytes_per_part %.1f\n", n, n,
                static_cast<double>(bytes - sizeof(ZAN_VRRP_ADP_S) - sizeof(ZAN_VRRP_PROD_S)) / n);
    ZAN_VrrpAdp_DeInit(host::Ctx());
}

void RunProdRound(uint32_t n)
{
    ZAN_VRRP_ADP_S *adp = World();
    const uint32_t rounds = 2;
    for (uint32_t r = 1; r <= rounds; r++) {
        PhaseProdRound(adp, n, r);
        const ZAN_VRRP_PROD_S *prod = Inst()->pProd;
        if (ZAN_VrrpProd_CountList_(&prod->stPartList) != 0u || ZAN_VrrpProd_CountList_(&prod->stWaitAckList) != 0u ||
            host::BlocksOn(host::Ctx()->ulFwMemHandle) != 2u) {
            Die("parts are left after the round");
        }
    }
    std::printf("PhaseProdRound %u\n", rounds * n);
    ZAN_VrrpAdp_DeInit(host::Ctx());
}

void RunMap(uint32_t n)
{
    std::map<std::array<uint8_t, 32>, Payload> sub;
    std::map<std::array<uint32_t, 4>, Payload> part;
    PhaseMapSub(sub, n);
    PhaseMapPart(part, n);
    if (sub.size() != n || part.size() != n) {
        Die("the maps lost keys");
    }
    std::printf("PhaseMapSub %u\nPhaseMapPart %u\n", n, n);
}

// An RUData of kRecords records (3002, key 3001/8, data 1001/8: 28 bytes each), as on the wire.
void RunRecv(uint32_t n)
{
    World();
    const std::vector<uint8_t> msg = RuData();
    std::vector<uint8_t> dst(msg.size());
    g_delivered = 0;
    PhaseRecv(msg, n);
    if (g_delivered != n * kRecords) {
        Die("not every record was handed over");
    }
    PhaseCopyMsg(dst, msg, n);
    PhaseCopyRec(dst, msg, n);
    std::printf("PhaseRecv %u\nPhaseCopyMsg %u\nPhaseCopyRec %u\n", n * kRecords, n * kRecords, n * kRecords);
    ZAN_VrrpAdp_DeInit(host::Ctx());
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: zan_costs subscribe|unsubscribe|senddata|prodround|map|recv N\n");
        return 2;
    }
    const std::string what = argv[1];
    const long n = std::strtol(argv[2], nullptr, 10);
    if (n <= 0 || n > 10000000) {
        Die("N out of range");
    }
    const uint32_t un = static_cast<uint32_t>(n);
    if (what == "subscribe") {
        RunSubscribe(un, false);
    } else if (what == "unsubscribe") {
        RunSubscribe(un, true);
    } else if (what == "senddata") {
        RunSendData(un);
    } else if (what == "prodround") {
        RunProdRound(un);
    } else if (what == "map") {
        RunMap(un);
    } else if (what == "recv") {
        RunRecv(un);
    } else {
        Die("unknown scenario " + what);
    }
    if (host::Faults() != 0u) {
        Die("platform misuse");
    }
    return 0;
}
