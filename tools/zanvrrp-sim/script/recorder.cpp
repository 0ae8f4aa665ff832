#include "recorder.h"

#include <cstdio>
#include <cstring>

#include "lexer.h"

namespace sim {

const char *const kSlotNames[9] = {"RegAck",    "RecvData",       "MsgAllocFail", "Fcm",     "IsDebugOn",
                                   "DebugOut",  "ProdBatchBegin", "TracePoint",   "ItemDown"};

namespace {

// Value bytes copied from a TLV the library hands over; more is never legitimate.
constexpr uint16_t kTlvCopyMax = 256;

void ReadTlv(const void *p, bool &present, uint16_t &type, uint16_t &len, std::vector<uint8_t> &value)
{
    present = p != nullptr;
    if (p == nullptr) {
        return;
    }
    const auto *b = static_cast<const uint8_t *>(p);
    std::memcpy(&type, b, 2);
    std::memcpy(&len, b + 2, 2);
    uint16_t n = len < kTlvCopyMax ? len : kTlvCopyMax;
    value.assign(b + 4, b + 4 + n);
}

std::string Dec(uint32_t v) { return std::to_string(v); }

void CbRegAck(uint32_t ulIfGroupId, uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("RegAck", ulHandle);
    AppEvent e;
    e.kind = EvKind::RegAck;
    e.ifgroup = ulIfGroupId;
    r.Record(e);
}

void CbRecvData(const void *pKeyTlv, const void *pDataTlv, uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("RecvData", ulHandle);
    AppEvent e;
    e.kind = EvKind::RecvData;
    ReadTlv(pKeyTlv, e.keyPresent, e.keyType, e.keyLen, e.keyValue);
    ReadTlv(pDataTlv, e.dataPresent, e.dataType, e.dataLen, e.dataValue);
    r.Record(e);
}

void CbMsgAllocFail(uint32_t ulPid, uint32_t ulHandle, uint32_t ulNum)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("MsgAllocFail", ulHandle);
    AppEvent e;
    e.kind = EvKind::AllocFail;
    e.pid = ulPid;
    e.n = ulNum;
    r.Record(e);
}

void CbFcm(uint32_t ulPid, uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("Fcm", ulHandle);
    AppEvent e;
    e.kind = EvKind::Fcm;
    e.pid = ulPid;
    r.Record(e);
}

uint32_t CbIsDebugOn(uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("IsDebugOn", ulHandle);
    if (r.log) {
        r.log("callback IsDebugOn(handle=" + Dec(ulHandle) + ") -> " + Dec(r.debugAnswer));
    }
    return r.debugAnswer;
}

void CbDebugOut(const char *pcText, uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("DebugOut", ulHandle);
    TraceEvent t;
    t.debug = true;
    t.text = pcText != nullptr ? pcText : "";
    if (pcText == nullptr && r.callbackFault.empty()) {
        r.callbackFault = "DebugOut called with a null text";
    }
    r.RecordTrace(t);
}

void CbProdBatchBegin(uint32_t ulIfGroupId, uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("ProdBatchBegin", ulHandle);
    AppEvent e;
    e.kind = EvKind::BatchBegin;
    e.ifgroup = ulIfGroupId;
    r.Record(e);
}

void CbTracePoint(const char *pcModule, uint32_t ulLine, uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("TracePoint", ulHandle);
    TraceEvent t;
    t.module = pcModule != nullptr ? pcModule : "";
    if (pcModule == nullptr && r.callbackFault.empty()) {
        r.callbackFault = "TracePoint called with a null module";
    }
    t.line = ulLine;
    r.RecordTrace(t);
}

void CbItemDown(const void *pItemKey, uint32_t ulHandle)
{
    Recorder &r = Recorder::Instance();
    r.CheckHandle("ItemDown", ulHandle);
    AppEvent e;
    e.kind = EvKind::ItemDown;
    e.itemPresent = pItemKey != nullptr;
    if (pItemKey != nullptr) {
        std::memcpy(e.item.data(), pItemKey, e.item.size());
    }
    r.Record(e);
}

}  // namespace

const char *EvKindName(EvKind k)
{
    switch (k) {
    case EvKind::RegAck: return "regack";
    case EvKind::RecvData: return "recvdata";
    case EvKind::AllocFail: return "allocfail";
    case EvKind::Fcm: return "fcm";
    case EvKind::BatchBegin: return "batchbegin";
    case EvKind::ItemDown: return "itemdown";
    }
    return "?";
}

std::string DescribeEvent(const AppEvent &e)
{
    std::string s = EvKindName(e.kind);
    switch (e.kind) {
    case EvKind::RegAck:
    case EvKind::BatchBegin:
        s += " ifgroup=" + Dec(e.ifgroup);
        break;
    case EvKind::AllocFail:
        s += " pid=" + HexNum(e.pid) + " n=" + Dec(e.n);
        break;
    case EvKind::Fcm:
        s += " pid=" + HexNum(e.pid);
        break;
    case EvKind::RecvData:
        if (e.keyPresent) {
            s += " ktype=" + Dec(e.keyType) + " klen=" + Dec(e.keyLen) + " key=" + HexCompact(e.keyValue);
        } else {
            s += " (no key TLV)";
        }
        if (e.dataPresent) {
            s += " dtype=" + Dec(e.dataType) + " dlen=" + Dec(e.dataLen) + " data=" + HexCompact(e.dataValue);
        } else {
            s += " (no data TLV)";
        }
        break;
    case EvKind::ItemDown:
        if (e.itemPresent) {
            s += " item=" + HexCompact(std::vector<uint8_t>(e.item.begin(), e.item.end()));
        } else {
            s += " (null item key)";
        }
        break;
    }
    return s;
}

std::string DescribeTrace(const TraceEvent &t)
{
    if (t.debug) {
        return "debug " + Quote(t.text);
    }
    return "trace " + Quote(t.module) + " " + Dec(t.line);
}

Recorder &Recorder::Instance()
{
    static Recorder r;
    return r;
}

void Recorder::Reset()
{
    events.clear();
    traces.clear();
    debugAnswer = 1;
    expectedHandle = 1;
    callbackFault.clear();
    reaction = nullptr;
}

ZAN_VRRP_CALLBACK_S Recorder::Table(bool all, const std::set<std::string> &except)
{
    for (const std::string &name : except) {
        bool known = false;
        for (const char *slot : kSlotNames) {
            known = known || name == slot;
        }
        if (!known) {
            throw ScriptError("unknown callback slot '" + name + "'");
        }
    }
    auto keep = [&](const char *slot, bool required) { return (all || required) && except.count(slot) == 0; };
    ZAN_VRRP_CALLBACK_S t;
    std::memset(&t, 0, sizeof(t));
    t.pfnRegAck = keep("RegAck", true) ? CbRegAck : nullptr;
    t.pfnRecvData = keep("RecvData", true) ? CbRecvData : nullptr;
    t.pfnMsgAllocFail = keep("MsgAllocFail", false) ? CbMsgAllocFail : nullptr;
    t.pfnFcm = keep("Fcm", false) ? CbFcm : nullptr;
    t.pfnIsDebugOn = keep("IsDebugOn", false) ? CbIsDebugOn : nullptr;
    t.pfnDebugOut = keep("DebugOut", false) ? CbDebugOut : nullptr;
    t.pfnProdBatchBegin = keep("ProdBatchBegin", false) ? CbProdBatchBegin : nullptr;
    t.pfnTracePoint = keep("TracePoint", false) ? CbTracePoint : nullptr;
    t.pfnItemDown = keep("ItemDown", true) ? CbItemDown : nullptr;
    return t;
}

void Recorder::Record(const AppEvent &e)
{
    if (log) {
        log("callback " + DescribeEvent(e));
    }
    events.push_back(e);
    if (reaction) {
        reaction(e);
    }
}

void Recorder::RecordTrace(TraceEvent t)
{
    if (log) {
        log("callback " + DescribeTrace(t));
    }
    traces.push_back(std::move(t));
}

void Recorder::CheckHandle(const char *slot, uint32_t handle)
{
    if (handle != expectedHandle && callbackFault.empty()) {
        callbackFault = std::string("expected callback ") + slot + " with handle " + Dec(expectedHandle) +
                        ", got handle " + Dec(handle);
    }
}

}  // namespace sim
