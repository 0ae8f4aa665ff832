// The scenarios that zan_costs counts under callgrind and zan_bench times: the library at work
// on the host platform with one registered instance (pid 0x10, interface group 1), driven with
// distinct keys in scrambled order (i * 2654435761 mod N). Each measured phase is a function
// named Phase*: it zeroes callgrind's counters when it starts and dumps them, named after it,
// when it ends; outside callgrind that costs nothing.
#ifndef ZAN_BENCH_SCENARIOS_H
#define ZAN_BENCH_SCENARIOS_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "adp/zan_vrrpadp.h"
#include "host/host_world.h"
#include "host/zan_host.h"
#include "inst/zan_vrrpinst.h"
#include "prod/zan_vrrp_prod.h"
#include "zan_vrrp_lib.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) ((void)(name))
#endif

#define NOINLINE __attribute__((noinline))

namespace zan_bench {

constexpr uint32_t kPid = 0x10;
constexpr uint32_t kGroup = 1;
constexpr uint32_t kRecords = 145;  // 20 + 145 x 28 = 4080 bytes

inline uint32_t g_delivered = 0;
inline volatile uint32_t g_sink = 0;

// Callgrind's counters cover exactly the scope of one of these.
class Measure {
public:
    explicit Measure(const char *name) : m_name(name) { CALLGRIND_ZERO_STATS; }
    ~Measure() { CALLGRIND_DUMP_STATS_AT(m_name); }
    Measure(const Measure &) = delete;
    Measure &operator=(const Measure &) = delete;

private:
    const char *m_name;
};

[[noreturn]] inline void Die(const std::string &what)
{
    std::fprintf(stderr, "zan_costs: %s\n", what.c_str());
    std::exit(1);
}

inline uint32_t Scramble(uint32_t i, uint32_t n)
{
    return static_cast<uint32_t>((static_cast<uint64_t>(i) * 2654435761u) % n);
}

inline void Noop2(uint32_t, uint32_t) {}
inline void NoopItem(const void *, uint32_t) {}
inline void NoopBatch(uint32_t, uint32_t) {}
inline NOINLINE void CountData(const void *, const void *, uint32_t) { g_delivered++; }

// The acknowledgement of a request: its header, flagged as an acknowledgement, without body.
inline std::vector<uint8_t> HeaderEcho(const std::vector<uint8_t> &req)
{
    std::vector<uint8_t> ack(req.begin(), req.begin() + ZAN_VRRP_MSG_HDR_LEN);
    ack[0] = 0;
    ack[1] = ZAN_VRRP_MSG_HDR_LEN;
    ack[2] |= 0x80;
    return ack;
}

inline ZAN_VRRP_INST_S *Inst();

// An adapter with one instance (pid 0x10, group 1), registered; its producer in real-time
// state with nothing stored.
inline ZAN_VRRP_ADP_S *World()
{
    host::Reset();
    ZAN_VRRP_ADP_S *adp = ZAN_VrrpAdp_Get(host::Ctx());
    if (adp == nullptr) {
        Die("no adapter");
    }
    ZAN_VRRP_CALLBACK_S cb{};
    cb.pfnRegAck = Noop2;
    cb.pfnRecvData = CountData;
    cb.pfnItemDown = NoopItem;
    cb.pfnProdBatchBegin = NoopBatch;
    ZAN_VrrpAdp_RegCallBack(adp, &cb);
    if (ZAN_Host_Deploy(kPid, kGroup, 1) != 0u) {
        Die("the deploy relation was refused");
    }
    // Register, AddProducer, BNBegin, BNEnd: each request acknowledged as it comes.
    for (int round = 0; round < 16 && !host::Sent().empty(); round++) {
        std::vector<std::vector<uint8_t>> acks;
        for (const host::SentMsg &m : host::Sent()) {
            acks.push_back(HeaderEcho(m.bytes));
        }
        host::Sent().clear();
        for (const std::vector<uint8_t> &a : acks) {
            host::DeliverMsg(kPid, a);
        }
    }
    const ZAN_VRRP_INST_S *inst = Inst();
    if (inst->State != VRRP_INST_STATE_REGED || inst->pProd->State != VRRP_PROD_STATE_RN_DATA) {
        Die("the instance did not reach its working states");
    }
    return adp;
}

inline ZAN_VRRP_INST_S *Inst()
{
    return reinterpret_cast<ZAN_VRRP_INST_S *>(host::FindInst(kPid));
}

// Subscription item i: key TLV 1/8 and subscription TLV 2/4, 32 bytes as stored.
inline void ItemTlvs(uint32_t i, ZAN_VRRP_TLV_S &key, ZAN_VRRP_TLV_S &sub)
{
    key = ZAN_VRRP_TLV_S{};
    key.usType = 1;
    key.usLen = 8;
    key.aucValue[0] = 0xc0;
    key.aucValue[1] = 0xa8;
    std::memcpy(key.aucValue + 4, &i, sizeof(i));
    sub = ZAN_VRRP_TLV_S{};
    sub.usType = 2;
    sub.usLen = 4;
    sub.aucValue[0] = 0xb1;
}

inline void Datum(uint32_t i, uint32_t value, ZAN_VRRP_TLV_S &key, ZAN_VRRP_TLV_S &data)
{
    key = ZAN_VRRP_TLV_S{};
    key.usType = ZAN_VRRP_KEY_TLV_TYPE;
    key.usLen = 8;
    std::memcpy(key.aucValue, &i, sizeof(i));
    data = ZAN_VRRP_TLV_S{};
    data.usType = ZAN_VRRP_DATA_TLV_TYPE;
    data.usLen = 8;
    std::memcpy(data.aucValue + 4, &value, sizeof(value));
}

inline uint32_t GroupState(uint32_t group, uint32_t state)
{
    return Inst()->astGroup[group].aulLen[state];
}

// Acknowledges the requests of the type the library sends (their header echoed), until it
// sends none.
inline NOINLINE void AckRequests(uint8_t type)
{
    for (;;) {
        const std::vector<uint8_t> *last = nullptr;
        for (const host::SentMsg &m : host::Sent()) {
            if (m.bytes.size() >= ZAN_VRRP_MSG_HDR_LEN && m.bytes[3] == type) {
                last = &m.bytes;
            }
        }
        if (last == nullptr) {
            host::Sent().clear();
            return;
        }
        const std::vector<uint8_t> ack = HeaderEcho(*last);
        host::Sent().clear();
        host::DeliverMsg(kPid, ack);
    }
}

// Every item 0..n-1, in scrambled order, to ZAN_VrrpAdp_Subscribe or ZAN_VrrpAdp_UnSubscribe.
inline void CallAll(ZAN_VRRP_ADP_S *adp, uint32_t n, uint32_t (*pfnCall)(ZAN_VRRP_ADP_S *, const ZAN_VRRP_TLV_S *,
                                                                        const ZAN_VRRP_TLV_S *, uint32_t))
{
    for (uint32_t i = 0; i < n; i++) {
        ZAN_VRRP_TLV_S key, sub;
        ItemTlvs(Scramble(i, n), key, sub);
        g_sink = pfnCall(adp, &key, &sub, kGroup);
    }
}

// The requests of the type that the flush sends, and their acknowledgements, until none is left.
inline void FlushAndAck(uint8_t type)
{
    host::RunFlush();
    AckRequests(type);
}

inline NOINLINE void PhaseSubCall(ZAN_VRRP_ADP_S *adp, uint32_t n)
{
    const Measure measure("PhaseSubCall");
    CallAll(adp, n, ZAN_VrrpAdp_Subscribe);
}

inline NOINLINE void PhaseSubFlush()
{
    const Measure measure("PhaseSubFlush");
    FlushAndAck(ZAN_VRRP_MSG_SUBSCRIBE);
}

inline NOINLINE void PhaseUnSubCall(ZAN_VRRP_ADP_S *adp, uint32_t n)
{
    const Measure measure("PhaseUnSubCall");
    CallAll(adp, n, ZAN_VrrpAdp_UnSubscribe);
}

inline NOINLINE void PhaseUnSubFlush()
{
    const Measure measure("PhaseUnSubFlush");
    FlushAndAck(ZAN_VRRP_MSG_UNSUBSCRIBE);
}

inline void SendAll(ZAN_VRRP_ADP_S *adp, uint32_t n, uint32_t value)
{
    for (uint32_t i = 0; i < n; i++) {
        ZAN_VRRP_TLV_S key, data;
        Datum(Scramble(i, n), value, key, data);
        g_sink = ZAN_VrrpAdp_SendData(adp, kGroup, &key, &data);
    }
}

inline NOINLINE void PhaseSendNew(ZAN_VRRP_ADP_S *adp, uint32_t n)
{
    const Measure measure("PhaseSendNew");
    SendAll(adp, n, 0);
}

inline NOINLINE void PhaseSendData(ZAN_VRRP_ADP_S *adp, uint32_t n)
{
    const Measure measure("PhaseSendData");
    SendAll(adp, n, 1);
}

inline NOINLINE void PhaseProdRound(ZAN_VRRP_ADP_S *adp, uint32_t n, uint32_t value)
{
    const Measure measure("PhaseProdRound");
    SendAll(adp, n, value);
    FlushAndAck(ZAN_VRRP_MSG_RN_DATA);
}

struct Payload {
    uint32_t a[6];
};

inline NOINLINE void PhaseMapSub(std::map<std::array<uint8_t, 32>, Payload> &m, uint32_t n)
{
    const Measure measure("PhaseMapSub");
    for (uint32_t i = 0; i < n; i++) {
        ZAN_VRRP_TLV_S key, sub;
        ItemTlvs(Scramble(i, n), key, sub);
        std::array<uint8_t, 32> k{};
        std::memcpy(k.data(), &key, 4u + key.usLen);
        std::memcpy(k.data() + 16, &sub, 4u + sub.usLen);
        m.emplace(k, Payload{});
    }
}

inline NOINLINE void PhaseMapPart(std::map<std::array<uint32_t, 4>, Payload> &m, uint32_t n)
{
    const Measure measure("PhaseMapPart");
    for (uint32_t i = 0; i < n; i++) {
        ZAN_VRRP_TLV_S key, data;
        Datum(Scramble(i, n), 0, key, data);
        std::array<uint32_t, 4> k{};
        std::memcpy(k.data(), &key, 12);
        std::memcpy(k.data() + 3, &data, 4);
        m.emplace(k, Payload{});
    }
}

inline std::vector<uint8_t> RuData()
{
    std::vector<uint8_t> m(ZAN_VRRP_MSG_HDR_LEN, 0);
    m[2] = 0x01;
    m[3] = ZAN_VRRP_MSG_RU_DATA;
    for (uint32_t i = 0; i < kRecords; i++) {
        const uint8_t rec[28] = {0x0b, 0xba, 0, 24, 0x0b, 0xb9, 0, 8, static_cast<uint8_t>(i), 0, 0, 0, 1, 0, 0, 0,
                                 0x03, 0xe9, 0, 8, 1,    2,    3, 4, 5,                        6, 7, 8};
        m.insert(m.end(), rec, rec + sizeof(rec));
    }
    m[0] = static_cast<uint8_t>(m.size() >> 8);
    m[1] = static_cast<uint8_t>(m.size());
    return m;
}

// What the library sent (the acknowledgements), dropped: the host's work.
inline NOINLINE void DropSent()
{
    host::Sent().clear();
}

inline NOINLINE void PhaseRecv(const std::vector<uint8_t> &msg, uint32_t n)
{
    const Measure measure("PhaseRecv");
    for (uint32_t i = 0; i < n; i++) {
        host::DeliverMsg(kPid, msg);
        DropSent();
    }
}

inline NOINLINE void PhaseCopyMsg(std::vector<uint8_t> &dst, const std::vector<uint8_t> &msg, uint32_t n)
{
    const Measure measure("PhaseCopyMsg");
    for (uint32_t i = 0; i < n; i++) {
        std::memcpy(dst.data(), msg.data(), msg.size());
        __asm__ __volatile__("" : : "r"(dst.data()) : "memory");
    }
}

inline NOINLINE void PhaseCopyRec(std::vector<uint8_t> &dst, const std::vector<uint8_t> &msg, uint32_t n)
{
    const Measure measure("PhaseCopyRec");
    for (uint32_t i = 0; i < n; i++) {
        for (uint32_t r = 0; r < kRecords; r++) {
            const size_t at = ZAN_VRRP_MSG_HDR_LEN + r * 28u;
            std::memcpy(dst.data() + at, msg.data() + at, 28u);
            __asm__ __volatile__("" : : "r"(dst.data()) : "memory");
        }
    }
}

}  // namespace zan_bench

#endif
