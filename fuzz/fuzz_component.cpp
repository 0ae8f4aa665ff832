// libFuzzer target: the library's receive path and application interface driven by a sequence
// of operations decoded from the input, over a component set up with four deploy relations of
// three VRRP components brought into consumer and producer states chosen by the input's first
// byte. After every operation the invariants below are checked; a broken one aborts.
//
// Input: byte 0 chooses how far each component is brought in the setup (2 bits each), then
// operations follow until the input ends, each an opcode byte and its operands (see Step()).
// A missing byte reads as zero. fuzz/make_seeds.py writes hand-made sequences in this format.
//
// Invariants, after every operation:
//  - no message buffer held by the library (host::MsgsOutstanding() == 0);
//  - no platform misuse (host::Faults() == 0);
//  - blocks held on the framework's and the adapter's handles equal what the adapter, the deploy
//    relations, the instances with their items and the producers with their parts account for;
//  - every running timer is held by a live instance or its producer, none twice, none missing;
//  - an instance whose work is off (and whose framework status is up) is unregistered and holds
//    no items, and its producer is idle and empty;
//  - no KOL_Assert but the expected ones:
//      zan_vrrpinst 232: a subscription key or subscription TLV longer than 12 bytes was passed to
//                        ZAN_VrrpAdp_Subscribe / ZAN_VrrpAdp_UnSubscribe during the operation
//                        (the library refuses it by design and reports it);
//      zan_vrrpinst 150 / 330 / 1208: pfnRegAck / pfnRecvData / pfnItemDown was missing from the
//                        callback table at some moment of the operation (a required slot left
//                        empty is reported, not called);
//      zan_vrrpinst 233 / 745, zan_vrrp_prod 310 / 715: an armed copy refusal fired during the
//                        operation (a refused copy into an item key, a request, a part or a
//                        packed part is reported).
// At the end ZAN_VrrpAdp_DeInit leaves no block on the framework handle (but the adapter context
// it keeps for the framework's registrations) or the adapter's handle, no message buffer and no
// timer.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "adp/zan_vrrpadp.h"
#include "host/host_world.h"
#include "inst/zan_vrrpinst.h"
#include "prod/zan_vrrp_prod.h"
#include "zan_vrrp_lib.h"

namespace {

// Reads the input front to back; past its end every read is zero.
struct Reader {
    const uint8_t *p = nullptr;
    size_t n = 0;
    size_t i = 0;

    bool More() const { return i < n; }
    uint8_t U8() { return i < n ? p[i++] : 0; }
    uint16_t U16()
    {
        const uint16_t hi = U8();
        return static_cast<uint16_t>((hi << 8) | U8());
    }
    uint32_t U32()
    {
        const uint32_t hi = U16();
        return (hi << 16) | U16();
    }
    std::vector<uint8_t> Bytes(size_t k)
    {
        const size_t take = std::min(k, n - i);
        std::vector<uint8_t> v(p + i, p + i + take);
        i += take;
        return v;
    }
};

[[noreturn]] void Fail(const char *what, const std::string &detail = {})
{
    std::fprintf(stderr, "fuzz_component: invariant broken: %s %s\n", what, detail.c_str());
    for (const std::string &f : host::FaultLog()) {
        std::fprintf(stderr, "  fault: %s\n", f.c_str());
    }
    for (const host::AssertRec &a : host::Asserts()) {
        std::fprintf(stderr, "  assert: %s:%u value %u\n", a.file.c_str(), a.line, a.value);
    }
    std::fflush(stderr);
    __builtin_trap();
}

constexpr uint32_t kPids[] = {0x10, 0x20, 0x30, 0x40, 0x99};
constexpr uint32_t kGroups[] = {1, 2, 3, 4, 5, 6};

uint32_t ReadPid(Reader &r)
{
    const uint8_t b = r.U8();
    return b % 6 < 5 ? kPids[b % 6] : r.U32();
}

uint32_t ReadGroup(Reader &r)
{
    const uint8_t b = r.U8();
    return b % 7 < 6 ? kGroups[b % 7] : r.U32();
}

// A TLV as the application passes it: mostly well formed, sometimes any type and length
// (lengths above 12 included).
ZAN_VRRP_TLV_S ReadTlv(Reader &r, uint16_t defType, uint16_t defLen)
{
    ZAN_VRRP_TLV_S t{};
    const uint8_t sel = r.U8();
    switch (sel >> 6) {
        case 0:
            t.usType = defType;
            t.usLen = defLen;
            t.aucValue[0] = sel & 0x3f;
            t.aucValue[4] = 1;
            break;
        case 1: {
            t.usType = defType;
            t.usLen = static_cast<uint16_t>((sel & 0x3f) % 13);
            const std::vector<uint8_t> v = r.Bytes(t.usLen);
            std::copy(v.begin(), v.end(), t.aucValue);
            break;
        }
        case 2: {
            t.usType = r.U16();
            t.usLen = static_cast<uint16_t>(r.U8() % 20);
            const std::vector<uint8_t> v = r.Bytes(12);
            std::copy(v.begin(), v.end(), t.aucValue);
            break;
        }
        default: {
            t.usType = r.U16();
            t.usLen = r.U16();
            const std::vector<uint8_t> v = r.Bytes(12);
            std::copy(v.begin(), v.end(), t.aucValue);
            break;
        }
    }
    return t;
}

// ---- the application -------------------------------------------------------------------------

enum Slot { RegAck, RecvData, MsgAllocFail, Fcm, IsDebugOn, DebugOut, ProdBatchBegin, TracePoint, ItemDown, SlotCount };

enum Action : uint8_t {
    ActNone,
    ActWorkOff,
    ActWorkOn,
    ActWorkOffOn,
    ActSubscribe,
    ActUnSubscribe,
    ActSendData,
    ActReplaceTable,
    ActGet,
    ActionCount
};

// What the application does from inside one callback, chosen by the input.
struct Reaction {
    Action action = ActNone;
    uint32_t timesLeft = 0;
    uint32_t group = 1;
    ZAN_VRRP_TLV_S a{};
    ZAN_VRRP_TLV_S b{};
    uint16_t tableMask = 0x1ff;
};

struct App {
    ZAN_VRRP_ADP_S *adp = nullptr;
    uint32_t debugOn = 0;
    uint32_t depth = 0;
    std::array<Reaction, SlotCount> react{};
    bool provokedLen = false;                 // a TLV longer than 12 went to (Un)Subscribe
    bool copyRefused = false;                 // a bounded copy was refused (an armed copy failure)
    std::array<bool, SlotCount> lacked{};     // slot missing from the table during the operation
    std::array<bool, SlotCount> present{};    // slot in the installed table
    uint32_t sink = 0;  // keeps the reads of what the library hands over
};
App g;

ZAN_VRRP_CALLBACK_S Table(uint16_t mask);

// ZAN_VrrpAdp_Get; an adapter it makes anew has an empty callback table.
void GetAdapter()
{
    const auto *slot = static_cast<const ZAN_VRRP_ADP_S *>(host::Ctx()->pAdpSlot);
    const bool existed = slot != nullptr && slot->bLive != 0u;
    g.adp = ZAN_VrrpAdp_Get(host::Ctx());
    if (g.adp != nullptr && !existed) {
        for (int s = 0; s < SlotCount; s++) {
            g.present[s] = false;
            g.lacked[s] = true;
        }
    }
}

void InstallTable(uint16_t mask)
{
    const ZAN_VRRP_CALLBACK_S cb = Table(mask);
    if (g.adp == nullptr) {
        return;
    }
    if (ZAN_VrrpAdp_RegCallBack(g.adp, &cb) == 0u) {
        for (int s = 0; s < SlotCount; s++) {
            g.present[s] = (mask >> s) & 1u;
            g.lacked[s] = g.lacked[s] || !g.present[s];
        }
    }
}

void Subscribe(bool sub, const ZAN_VRRP_TLV_S &key, const ZAN_VRRP_TLV_S &val, uint32_t group)
{
    if (key.usLen > ZAN_VRRP_TLV_VALUE_MAX || val.usLen > ZAN_VRRP_TLV_VALUE_MAX) {
        g.provokedLen = true;
    }
    if (sub) {
        (void)ZAN_VrrpAdp_Subscribe(g.adp, &key, &val, group);
    } else {
        (void)ZAN_VrrpAdp_UnSubscribe(g.adp, &key, &val, group);
    }
}

void React(Slot s)
{
    Reaction &r = g.react[s];
    if (r.action == ActNone || r.timesLeft == 0 || g.depth >= 4) {
        return;
    }
    r.timesLeft--;
    g.depth++;
    switch (r.action) {
        case ActWorkOff:
            (void)ZAN_VrrpAdp_SetWorkState(g.adp, 0);
            break;
        case ActWorkOn:
            (void)ZAN_VrrpAdp_SetWorkState(g.adp, 1);
            break;
        case ActWorkOffOn:
            (void)ZAN_VrrpAdp_SetWorkState(g.adp, 0);
            (void)ZAN_VrrpAdp_SetWorkState(g.adp, 1);
            break;
        case ActSubscribe:
            Subscribe(true, r.a, r.b, r.group);
            break;
        case ActUnSubscribe:
            Subscribe(false, r.a, r.b, r.group);
            break;
        case ActSendData:
            (void)ZAN_VrrpAdp_SendData(g.adp, r.group, &r.a, &r.b);
            break;
        case ActReplaceTable:
            InstallTable(r.tableMask);
            break;
        case ActGet:
            GetAdapter();
            break;
        default:
            break;
    }
    g.depth--;
}

// Reads a TLV handed to the application: type and length words in host order, then the value.
void Touch(const void *tlv)
{
    if (tlv == nullptr) {
        return;
    }
    const uint8_t *p = static_cast<const uint8_t *>(tlv);
    uint16_t len;
    std::memcpy(&len, p + 2, sizeof(len));
    uint32_t sum = 0;
    for (uint32_t i = 0; i < 4u + len; i++) {
        sum += p[i];
    }
    g.sink += sum;
}

void OnRegAck(uint32_t ifGroup, uint32_t)
{
    // Like the sample application: subscribe two items of the group once registered.
    for (uint8_t i = 1; i <= 2; i++) {
        ZAN_VRRP_TLV_S key{};
        key.usType = 1;
        key.usLen = 5;
        key.aucValue[0] = i;
        key.aucValue[4] = 1;
        ZAN_VRRP_TLV_S sub{};
        sub.usType = 2;
        sub.usLen = 1;
        sub.aucValue[0] = 1;
        Subscribe(true, key, sub, ifGroup);
    }
    React(RegAck);
}
void OnRecvData(const void *key, const void *data, uint32_t)
{
    Touch(key);
    Touch(data);
    React(RecvData);
}
void OnMsgAllocFail(uint32_t, uint32_t, uint32_t) { React(MsgAllocFail); }
void OnFcm(uint32_t, uint32_t) { React(Fcm); }
uint32_t OnIsDebugOn(uint32_t)
{
    React(IsDebugOn);
    return g.debugOn;
}
void OnDebugOut(const char *text, uint32_t)
{
    g.sink += static_cast<uint32_t>(std::strlen(text));
    React(DebugOut);
}
void OnProdBatchBegin(uint32_t ifGroup, uint32_t)
{
    // Like the sample application: the data set of the group, two data.
    for (uint8_t i = 1; i <= 2; i++) {
        ZAN_VRRP_TLV_S key{};
        key.usType = ZAN_VRRP_KEY_TLV_TYPE;
        key.usLen = ZAN_VRRP_KEY_TLV_LEN;
        key.aucValue[0] = i;
        key.aucValue[4] = static_cast<uint8_t>(ifGroup);
        ZAN_VRRP_TLV_S data{};
        data.usType = ZAN_VRRP_DATA_TLV_TYPE;
        data.usLen = 8;
        data.aucValue[0] = i;
        (void)ZAN_VrrpAdp_SendData(g.adp, ifGroup, &key, &data);
    }
    React(ProdBatchBegin);
}
void OnTracePoint(const char *module, uint32_t, uint32_t)
{
    g.sink += static_cast<uint32_t>(std::strlen(module));
    React(TracePoint);
}
void OnItemDown(const void *itemKey, uint32_t)
{
    Touch(itemKey);
    React(ItemDown);
}

ZAN_VRRP_CALLBACK_S Table(uint16_t mask)
{
    ZAN_VRRP_CALLBACK_S cb{};
    if (mask & (1u << RegAck)) cb.pfnRegAck = OnRegAck;
    if (mask & (1u << RecvData)) cb.pfnRecvData = OnRecvData;
    if (mask & (1u << MsgAllocFail)) cb.pfnMsgAllocFail = OnMsgAllocFail;
    if (mask & (1u << Fcm)) cb.pfnFcm = OnFcm;
    if (mask & (1u << IsDebugOn)) cb.pfnIsDebugOn = OnIsDebugOn;
    if (mask & (1u << DebugOut)) cb.pfnDebugOut = OnDebugOut;
    if (mask & (1u << ProdBatchBegin)) cb.pfnProdBatchBegin = OnProdBatchBegin;
    if (mask & (1u << TracePoint)) cb.pfnTracePoint = OnTracePoint;
    if (mask & (1u << ItemDown)) cb.pfnItemDown = OnItemDown;
    return cb;
}

// A table mask from the input: the required slots stay unless bit 9 asks to drop them too.
uint16_t ReadMask(Reader &r)
{
    uint16_t m = r.U16();
    if ((m & 0x200u) == 0u) {
        m |= (1u << RegAck) | (1u << RecvData) | (1u << ItemDown);
    }
    return static_cast<uint16_t>(m & 0x1ffu);
}

// ---- messages --------------------------------------------------------------------------------

void Put16(std::vector<uint8_t> &m, size_t at, uint16_t v)
{
    m[at] = static_cast<uint8_t>(v >> 8);
    m[at + 1] = static_cast<uint8_t>(v);
}
void Put32(std::vector<uint8_t> &m, size_t at, uint32_t v)
{
    Put16(m, at, static_cast<uint16_t>(v >> 16));
    Put16(m, at + 2, static_cast<uint16_t>(v));
}
void Append16(std::vector<uint8_t> &m, uint16_t v)
{
    m.push_back(static_cast<uint8_t>(v >> 8));
    m.push_back(static_cast<uint8_t>(v));
}

const ZAN_VRRP_INST_S *Inst(uint32_t pid)
{
    return reinterpret_cast<const ZAN_VRRP_INST_S *>(host::FindInst(pid));
}

// A sequence number or transaction id chosen among those the instance expects.
uint32_t ReadNumber(Reader &r, uint32_t pid, bool seq)
{
    const uint8_t sel = r.U8();
    const ZAN_VRRP_INST_S *inst = Inst(pid);
    const uint32_t small = sel >> 3;
    switch (sel & 7u) {
        case 0:
            return small;
        case 1:
            return inst != nullptr ? (seq ? inst->BatchSeqNum : inst->BatchTransId) + small : small;
        case 2:
            return inst != nullptr && inst->pProd != nullptr ? (seq ? inst->pProd->seq : inst->pProd->tran) + small
                                                             : small;
        case 3:
            return inst != nullptr ? inst->NotifySeq + small : small;
        case 4:
            return 0xFFFFFFFFu - small;
        default:
            return r.U32();
    }
}

// A data record: RTYPE, length, filler, key TLV, data TLV; every part may be off.
void AppendRecord(Reader &r, std::vector<uint8_t> &m)
{
    const uint8_t sel = r.U8();
    static const uint16_t kTypes[] = {3002, 3003, 3004, 3002};
    uint16_t rtype = kTypes[sel & 3u];
    if (sel & 0x04u) {
        rtype = r.U16();
    }
    const size_t filler = rtype == 3003 ? 4 : rtype == 3004 ? 8 : 0;
    const uint16_t keyType = (sel & 0x08u) ? r.U16() : ZAN_VRRP_KEY_TLV_TYPE;
    const uint16_t keyLen = (sel & 0x10u) ? static_cast<uint16_t>(r.U8() % 24) : ZAN_VRRP_KEY_TLV_LEN;
    const uint16_t dataType = (sel & 0x20u) ? r.U16() : ZAN_VRRP_DATA_TLV_TYPE;
    const uint16_t dataLen = static_cast<uint16_t>(r.U8() % 20);
    const size_t body = filler + 4u + keyLen + 4u + dataLen;
    uint16_t rlen = static_cast<uint16_t>(body);
    if (sel & 0x40u) {
        rlen = r.U16();
    }
    Append16(m, rtype);
    Append16(m, rlen);
    m.insert(m.end(), filler, 0xff);
    Append16(m, keyType);
    Append16(m, keyLen);
    const uint8_t keyByte = r.U8();
    for (uint16_t i = 0; i < keyLen; i++) {
        m.push_back(i == 0 ? keyByte : (i == 4 ? 1 : 0));
    }
    Append16(m, dataType);
    Append16(m, dataLen);
    for (uint16_t i = 0; i < dataLen; i++) {
        m.push_back(static_cast<uint8_t>(keyByte + i));
    }
    if (sel & 0x80u) {
        // Cut the record short by up to 15 bytes.
        const size_t cut = std::min<size_t>(r.U8() & 0x0fu, m.size() - 20u);
        m.resize(m.size() - cut);
    }
}

void OpDeliver(Reader &r)
{
    const uint32_t pid = ReadPid(r);
    const uint8_t mode = r.U8();
    std::vector<uint8_t> m;
    std::optional<uint32_t> delivered;
    if (mode == 0xff) {
        // Raw bytes of any length.
        m = r.Bytes(r.U16() % 2048u);
        if (r.U8() & 1u) {
            delivered = r.U16();
        }
    } else {
        m.assign(ZAN_VRRP_MSG_HDR_LEN, 0);
        const uint8_t type = (mode & 0x1fu) <= 16 ? (mode & 0x1fu) : r.U8();
        const uint8_t flags = (mode & 0x20u) ? r.U8() : ((mode & 0x40u) ? 0x81 : 0x01);
        m[ZAN_VRRP_HDR_FLAGS] = flags;
        m[ZAN_VRRP_HDR_TYPE] = type;
        Put32(m, ZAN_VRRP_HDR_SEQNUM, ReadNumber(r, pid, true));
        Put32(m, ZAN_VRRP_HDR_TRANSID, ReadNumber(r, pid, false));
        const uint8_t body = r.U8();
        if (body & 0x80u) {
            // Header words 8, 10, 16 and the entry count as the input says.
            Put16(m, ZAN_VRRP_HDR_WORD8, r.U16());
            Put16(m, ZAN_VRRP_HDR_WORD10, r.U16());
            Put16(m, ZAN_VRRP_HDR_WORD16, r.U16());
            Put16(m, ZAN_VRRP_HDR_ENTRYCNT, r.U16());
        }
        if (body & 0x40u) {
            const std::vector<uint8_t> raw = r.Bytes(body & 0x3fu);
            m.insert(m.end(), raw.begin(), raw.end());
        } else {
            for (uint8_t k = 0; k < (body & 0x0fu); k++) {
                AppendRecord(r, m);
            }
            if (body & 0x10u) {
                // A NotifyEvent TLV (2001/4) with the input's value.
                Append16(m, 2001);
                Append16(m, 4);
                Append16(m, r.U16());
                Append16(m, 0);
            }
        }
        uint16_t msgLen = static_cast<uint16_t>(std::min<size_t>(m.size(), 0xffff));
        if (body & 0x20u) {
            msgLen = r.U16();
        }
        Put16(m, ZAN_VRRP_HDR_MSGLEN, msgLen);
        const uint8_t d = r.U8();
        if (d & 1u) {
            // From 64 bytes below the message's size to 63 above.
            const int64_t size = static_cast<int64_t>(m.size()) + (d >> 1) - 64;
            delivered = static_cast<uint32_t>(std::max<int64_t>(size, 0));
        }
    }
    (void)host::DeliverMsg(pid, m, delivered);
}

// ---- invariants ------------------------------------------------------------------------------

struct AssertMark {
    size_t count = 0;
};

bool AssertExpected(const host::AssertRec &a)
{
    if (a.file != ZAN_VRRP_INST_FILE && a.file != ZAN_VRRP_PROD_FILE) {
        return false;
    }
    if (a.file == ZAN_VRRP_PROD_FILE) {
        return g.copyRefused && (a.line == 310u || a.line == 715u);
    }
    switch (a.line) {
        case 233:
        case 745:
            return g.copyRefused;
        case 232:
            return g.provokedLen;
        case 150:
            return g.lacked[RegAck];
        case 330:
            return g.lacked[RecvData];
        case 1208:
            return g.lacked[ItemDown];
        default:
            return false;
    }
}

// Blocks held equal what the live records account for: on the framework's handle the adapter,
// the producers and their parts; on the adapter's handle the deploy relations, the instances
// and their items. A block taken and not accounted for is a leak in the making.
void CheckBlocks(const char *op)
{
    if (g.adp == nullptr) {
        return;
    }
    uint32_t fw = 1u;  // the adapter
    uint32_t own = 0u;
    for (const ZAN_LIST_LINK_S *l = g.adp->stDeployList.pNext; l != &g.adp->stDeployList; l = l->pNext) {
        own++;
    }
    for (uint32_t pid : host::InstPids()) {
        const ZAN_VRRP_INST_S *inst = Inst(pid);
        own += 1u + inst->stItemTree.ulCount;
        if (inst->pProd != nullptr) {
            fw += 1u + ZAN_VrrpProd_CountList_(&inst->pProd->stPartList) +
                  ZAN_VrrpProd_CountList_(&inst->pProd->stWaitAckList);
        }
    }
    const uint32_t heldFw = host::BlocksOn(host::Ctx()->ulFwMemHandle);
    const uint32_t heldOwn = host::BlocksOn(g.adp->ulMemHandle);
    if (heldFw != fw || heldOwn != own) {
        Fail("blocks held differ from what the live records account for",
             std::string(op) + ": framework handle " + std::to_string(heldFw) + " for " + std::to_string(fw) +
                 ", adapter handle " + std::to_string(heldOwn) + " for " + std::to_string(own));
    }
}

// Blocks on the framework handle besides the adapter context, which stays in the component's
// slot once it has registered anything (the framework has no withdrawal).
uint32_t FwHeldBesideContext()
{
    return host::BlocksOn(host::Ctx()->ulFwMemHandle) - (host::Ctx()->pAdpSlot != nullptr ? 1u : 0u);
}

void Check(const char *op, size_t assertsBefore)
{
    if (host::MsgsOutstanding() != 0u) {
        Fail("message buffer held by the library after", op);
    }
    if (host::Faults() != 0u) {
        Fail("platform misuse after", op);
    }
    const std::vector<host::AssertRec> &asserts = host::Asserts();
    for (size_t i = assertsBefore; i < asserts.size(); i++) {
        if (!AssertExpected(asserts[i])) {
            Fail("unexpected KOL_Assert after", std::string(op) + ": " + asserts[i].file + ":" +
                                                    std::to_string(asserts[i].line));
        }
    }
    std::multiset<uint32_t> held;
    for (uint32_t pid : host::InstPids()) {
        const ZAN_VRRP_INST_S *inst = Inst(pid);
        if (inst == nullptr) {
            Fail("listed instance not found after", op);
        }
        for (uint32_t t : {inst->RegTmr, inst->SubTmr, inst->UnSubTmr, inst->NotifyTmr}) {
            if (t != 0u) {
                held.insert(t);
            }
        }
        const ZAN_VRRP_PROD_S *prod = inst->pProd;
        if (prod != nullptr && prod->tmr != 0u) {
            held.insert(prod->tmr);
        }
        if (inst->bWorkOn == 0u && inst->stInstHead.ulStatus == 0u) {
            if (inst->State != VRRP_INST_STATE_INIT || inst->RegTmr != 0u ||
                inst->stItemTree.ulCount != 0u) {
                Fail("instance with work off is registered or holds items after",
                     std::string(op) + " pid " + std::to_string(pid) + " (state " + std::to_string(inst->State) +
                         ", register timer " + std::to_string(inst->RegTmr) + ", items " +
                         std::to_string(inst->stItemTree.ulCount) + ")");
            }
            if (prod != nullptr && (prod->State != VRRP_PROD_STATE_INIT || prod->tmr != 0u ||
                                    prod->stPartList.pNext != &prod->stPartList ||
                                    prod->stWaitAckList.pNext != &prod->stWaitAckList)) {
                Fail("producer of an instance with work off is not idle and empty after",
                     std::string(op) + " pid " + std::to_string(pid));
            }
        }
    }
    const std::vector<uint32_t> running = host::RunningTimerHandles();
    CheckBlocks(op);
    if (std::vector<uint32_t>(held.begin(), held.end()) != running) {
        std::string d = std::string(op) + ": held";
        for (uint32_t t : held) d += " " + std::to_string(t);
        d += ", running";
        for (uint32_t t : running) d += " " + std::to_string(t);
        Fail("running timers differ from those the instances hold", d);
    }
}

// ---- setup -----------------------------------------------------------------------------------

std::vector<uint8_t> Msg(uint8_t flags, uint8_t type, uint32_t seq, const std::vector<uint8_t> &body = {})
{
    std::vector<uint8_t> m(ZAN_VRRP_MSG_HDR_LEN, 0);
    Put16(m, 0, static_cast<uint16_t>(m.size() + body.size()));
    m[2] = flags;
    m[3] = type;
    Put32(m, ZAN_VRRP_HDR_SEQNUM, seq);
    m.insert(m.end(), body.begin(), body.end());
    return m;
}

void Deploy(uint32_t op, uint32_t kind, uint32_t pid, uint32_t group)
{
    ZAN_VRRP_DEPLOY_REC_S rec{};
    rec.ulKind = kind;
    rec.ulPid = pid;
    rec.ulIfGroupId = group;
    std::vector<uint8_t> bytes(sizeof(rec));
    std::memcpy(bytes.data(), &rec, sizeof(rec));
    (void)host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, op, bytes);
}

// Brings the component of pid to a level: 0 registering; 1 registered with its items
// subscribed; 2 also its producer added and batch begun (pfnProdBatchBegin, BNData sent);
// 3 also the producer's batch ended (real-time notification) and a consumer batch begun.
void Bring(uint32_t pid, uint32_t level)
{
    if (level == 0) {
        return;
    }
    (void)host::DeliverMsg(pid, Msg(0x81, ZAN_VRRP_MSG_REGISTER, 0));
    (void)host::RunFlush();
    (void)host::DeliverMsg(pid, Msg(0x81, ZAN_VRRP_MSG_SUBSCRIBE, 0));
    if (level == 1) {
        return;
    }
    (void)host::DeliverMsg(pid, Msg(0x81, ZAN_VRRP_MSG_ADD_PRODUCER, 0));
    const ZAN_VRRP_INST_S *inst = Inst(pid);
    (void)host::DeliverMsg(pid, Msg(0x81, ZAN_VRRP_MSG_BN_BEGIN, inst->pProd != nullptr ? inst->pProd->seq : 0));
    if (level == 2) {
        return;
    }
    (void)host::DeliverMsg(pid, Msg(0x81, ZAN_VRRP_MSG_BN_END, inst->pProd != nullptr ? inst->pProd->seq + 1u : 0));
    (void)host::DeliverMsg(pid, Msg(0x01, ZAN_VRRP_MSG_BU_BEGIN, 7));
}

void Setup(uint8_t levels)
{
    host::Reset();
    GetAdapter();
    if (g.adp == nullptr) {
        Fail("no adapter in setup");
    }
    InstallTable(0x1ff);
    Deploy(ZAN_VRRP_DEPLOY_OP_CREATE, ZAN_VRRP_DEPLOY_KIND, 0x10, 1);
    Deploy(ZAN_VRRP_DEPLOY_OP_CREATE, ZAN_VRRP_DEPLOY_KIND, 0x10, 2);
    Deploy(ZAN_VRRP_DEPLOY_OP_CREATE, ZAN_VRRP_DEPLOY_KIND, 0x20, 3);
    Deploy(ZAN_VRRP_DEPLOY_OP_CREATE, ZAN_VRRP_DEPLOY_KIND, 0x30, 4);
    Bring(0x10, levels & 3u);
    Bring(0x20, (levels >> 2) & 3u);
    Bring(0x30, (levels >> 4) & 3u);
    host::Sent().clear();
    Check("setup", 0);
}

// ---- operations ------------------------------------------------------------------------------

const char *const kCliItems[] = {"adp-base",      "adp-stat",      "inst-base",    "inst-msgstat",
                                 "inst-srvstat", "inst-consumer", "inst-subinfo", "inst-prod"};

std::string ReadText(Reader &r)
{
    const std::vector<uint8_t> b = r.Bytes(r.U8() % 48u);
    return std::string(b.begin(), b.end());
}

const char *Step(Reader &r)
{
    const uint8_t op = r.U8();
    switch (op % 18) {
        case 0:
        case 1:
        case 2:
            OpDeliver(r);
            return "deliver";
        case 3:
            (void)host::DeliverFcm(ReadPid(r));
            return "fcm";
        case 4:
            (void)host::RunFlush();
            return "flush";
        case 5: {
            static const uint32_t kSteps[] = {1, 499, 500, 2999, 3000, 5001, 5002, 5003, 5004, 5005, 10000};
            const uint8_t b = r.U8();
            host::Advance(b < 11 * 20 ? kSteps[b % 11] : r.U16());
            return "advance";
        }
        case 6: {
            const ZAN_VRRP_TLV_S key = ReadTlv(r, 1, 5);
            const ZAN_VRRP_TLV_S sub = ReadTlv(r, 2, 1);
            Subscribe(true, key, sub, ReadGroup(r));
            return "subscribe";
        }
        case 7: {
            const ZAN_VRRP_TLV_S key = ReadTlv(r, 1, 5);
            const ZAN_VRRP_TLV_S sub = ReadTlv(r, 2, 1);
            Subscribe(false, key, sub, ReadGroup(r));
            return "unsubscribe";
        }
        case 8: {
            const uint32_t group = ReadGroup(r);
            const ZAN_VRRP_TLV_S key = ReadTlv(r, ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN);
            const ZAN_VRRP_TLV_S data = ReadTlv(r, ZAN_VRRP_DATA_TLV_TYPE, 8);
            (void)ZAN_VrrpAdp_SendData(g.adp, group, &key, &data);
            return "senddata";
        }
        case 9: {
            const uint8_t b = r.U8();
            (void)ZAN_VrrpAdp_SetWorkState(g.adp, b < 0xf0 ? (b & 1u) : r.U32());
            return "work";
        }
        case 10:
            InstallTable(ReadMask(r));
            return "regcallback";
        case 11: {
            const uint8_t b = r.U8();
            const uint32_t dop = (b & 1u) ? ZAN_VRRP_DEPLOY_OP_DELETE : ZAN_VRRP_DEPLOY_OP_CREATE;
            if (b & 2u) {
                // Any 36 bytes (a shorter rest of the input is zero-padded by the host).
                (void)host::DeliverCfg(ZAN_VRRP_DEPLOY_TBL, dop, r.Bytes(ZAN_VRRP_DEPLOY_REC_LEN));
            } else {
                const uint32_t kind = (b & 4u) ? r.U32() : ZAN_VRRP_DEPLOY_KIND;
                const uint32_t pid = ReadPid(r);
                Deploy(dop, kind, pid, ReadGroup(r));
            }
            return "deploy";
        }
        case 12: {
            const uint8_t b = r.U8();
            const std::string item = b < 8 * 28 ? kCliItems[b % 8] : ReadText(r);
            const uint8_t p = r.U8();
            std::optional<std::string> pidText;
            switch (p % 6) {
                case 0:
                    break;
                case 1:
                    pidText = "16";
                    break;
                case 2:
                    pidText = "0x20";
                    break;
                case 3:
                    pidText = std::to_string(ReadPid(r));
                    break;
                default:
                    pidText = ReadText(r);
                    break;
            }
            const uint8_t c = r.U8();
            (void)host::RunCli("zanvrrp", item, pidText, c < 0xf0 ? c % 3 : r.U32());
            return "cli";
        }
        case 13: {
            const uint8_t kind = r.U8() % static_cast<uint8_t>(host::FailKind::Count);
            const uint8_t skip = r.U8() % 8;
            const uint8_t count = static_cast<uint8_t>(r.U8() % 4 + 1);
            host::ArmFail(static_cast<host::FailKind>(kind), skip, count);
            return "armfail";
        }
        case 14: {
            const uint8_t s = r.U8() % SlotCount;
            Reaction &re = g.react[s];
            re.action = static_cast<Action>(r.U8() % ActionCount);
            re.timesLeft = r.U8() % 4 + 1;
            re.group = ReadGroup(r);
            if (re.action == ActSendData) {
                re.a = ReadTlv(r, ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN);
                re.b = ReadTlv(r, ZAN_VRRP_DATA_TLV_TYPE, 8);
            } else if (re.action == ActSubscribe || re.action == ActUnSubscribe) {
                re.a = ReadTlv(r, 1, 5);
                re.b = ReadTlv(r, 2, 1);
            } else if (re.action == ActReplaceTable) {
                re.tableMask = ReadMask(r);
            }
            return "reaction";
        }
        case 15: {
            const uint32_t pid = ReadPid(r);
            if (r.U8() & 1u) {
                (void)host::RunUp(pid);
                return "framework up";
            }
            (void)host::RunDown(pid);
            return "framework down";
        }
        case 16:
            // Debug output on or off takes effect at the next ZAN_VrrpAdp_Get.
            g.debugOn = r.U8() & 1u;
            GetAdapter();
            return "debug";
        default: {
            // The adapter ended and made anew (maybe failing, under an armed failure): nothing
            // may stay held in between.
            ZAN_VrrpAdp_DeInit(host::Ctx());
            if (FwHeldBesideContext() != 0u || host::RunningTimerHandles().size() != 0u) {
                Fail("DeInit left blocks or timers");
            }
            GetAdapter();
            InstallTable(ReadMask(r));
            return "deinit and get";
        }
    }
}

// With FUZZ_COMPONENT_TRACE set, one line per operation with the instances' states (to check
// what a hand-made sequence reaches).
void TraceStates(const char *op)
{
    static const bool on = std::getenv("FUZZ_COMPONENT_TRACE") != nullptr;
    if (!on) {
        return;
    }
    std::fprintf(stderr, "%-16s t=%llu", op, static_cast<unsigned long long>(host::Now()));
    for (uint32_t pid : host::InstPids()) {
        const ZAN_VRRP_INST_S *inst = Inst(pid);
        std::fprintf(stderr, " | pid 0x%x st %u work %u items %u/%u prod %u parts %u/%u", pid, inst->State,
                     static_cast<unsigned>(inst->bWorkOn), ZAN_VrrpInst_GroupCount(inst, 0u), ZAN_VrrpInst_GroupCount(inst, 1u),
                     inst->pProd != nullptr ? inst->pProd->State : 0u,
                     inst->pProd != nullptr ? ZAN_VrrpProd_CountList_(&inst->pProd->stPartList) : 0u,
                     inst->pProd != nullptr ? ZAN_VrrpProd_CountList_(&inst->pProd->stWaitAckList) : 0u);
    }
    std::fprintf(stderr, "\n");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Reader r{data, size, 0};
    g = App{};
    Setup(r.U8());
    host::SetFailHook([](host::FailKind kind) { g.copyRefused = g.copyRefused || kind == host::FailKind::Copy; });
    TraceStates("setup");
    int steps = 0;
    while (r.More() && steps < 256) {
        const size_t before = host::Asserts().size();
        g.provokedLen = false;
        g.copyRefused = false;
        for (int s = 0; s < SlotCount; s++) {
            g.lacked[s] = !g.present[s];
        }
        const char *op = Step(r);
        host::Sent().clear();
        Check(op, before);
        TraceStates(op);
        steps++;
    }
    host::ClearFail();
    const uint32_t adpHandle = host::LastCreatedHandle();
    ZAN_VrrpAdp_DeInit(host::Ctx());
    if (FwHeldBesideContext() != 0u || (adpHandle != 0u && host::BlocksOn(adpHandle) != 0u)) {
        Fail("blocks held after ZAN_VrrpAdp_DeInit");
    }
    if (host::MsgsOutstanding() != 0u || !host::RunningTimerHandles().empty() || host::Faults() != 0u) {
        Fail("buffers, timers or misuse after ZAN_VrrpAdp_DeInit");
    }
    return 0;
}
