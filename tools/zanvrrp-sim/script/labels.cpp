#include "labels.h"

#include <algorithm>

#include <cstring>

#include "adp/zan_vrrpadp.h"
#include "host/host_world.h"
#include "inst/zan_vrrpinst.h"
#include "lexer.h"
#include "prod/zan_vrrp_prod.h"

namespace sim {

namespace {

// A corrupt list or tree must not hang the runner.
constexpr uint32_t kWalkLimit = 1000000;

uint32_t CountList(const ZAN_LIST_LINK_S &head)
{
    uint32_t n = 0;
    const ZAN_LIST_LINK_S *p = head.pNext;
    while (p != nullptr && p != &head && n < kWalkLimit) {
        ++n;
        p = p->pNext;
    }
    return n;
}

// Items of a group, counted by a walk of the tree rather than read from the group's lists.
uint32_t CountGroup(const ZAN_VRRP_INST_S &inst, uint8_t group)
{
    auto *t = const_cast<ZAN_RBT_HEAD_S *>(&inst.stItemTree);
    uint32_t n = 0;
    uint32_t steps = 0;
    for (ZAN_RBT_NODE_S *node = WUX_RBT_FirstNode(t); node != nullptr && steps < kWalkLimit;
         node = WUX_RBT_NextNode(t, node), ++steps) {
        n += (reinterpret_cast<const ZAN_VRRP_SUB_ITEM_S *>(node)->ucGroup == group) ? 1u : 0u;
    }
    return n;
}

template <typename R>
struct Scalar {
    const char *name;
    uint32_t (*read)(const R &);
};

template <typename R>
struct Array {
    const char *name;
    const uint32_t *(*read)(const R &);
};

using Adp = ZAN_VRRP_ADP;
using Inst = ZAN_VRRP_INST;

const Scalar<Adp> kAdpScalars[] = {
    {"Err.MallocFail", [](const Adp &a) -> uint32_t { return a.stErrStat.usMallocFail; }},
    {"Err.NoInst", [](const Adp &a) -> uint32_t { return a.stErrStat.usNoInst; }},
    {"Err.AddSubItem", [](const Adp &a) -> uint32_t { return a.stErrStat.usAddSubItem; }},
    {"Err.AddUnSubItem", [](const Adp &a) -> uint32_t { return a.stErrStat.usAddUnSubItem; }},
    {"Err.AddDeploy", [](const Adp &a) -> uint32_t { return a.stErrStat.usAddDeploy; }},
    {"Err.CrtInst", [](const Adp &a) -> uint32_t { return a.stErrStat.usCrtInst; }},
    {"Err.FindDeploy", [](const Adp &a) -> uint32_t { return a.stErrStat.usFindDeploy; }},
    {"Err.CrtSameInst", [](const Adp &a) -> uint32_t { return a.stErrStat.usCrtSameInst; }},
    {"Err.FindInstByPid", [](const Adp &a) -> uint32_t { return a.stErrStat.usFindInstByPid; }},
    {"Evt.Subscribe", [](const Adp &a) -> uint32_t { return a.stEvtStat.usSubscribe; }},
    {"Evt.UnSubscribe", [](const Adp &a) -> uint32_t { return a.stEvtStat.usUnSubscribe; }},
    {"Evt.CrtDeploy", [](const Adp &a) -> uint32_t { return a.stEvtStat.usCrtDeploy; }},
    {"Evt.DelDeploy", [](const Adp &a) -> uint32_t { return a.stEvtStat.usDelDeploy; }},
    {"Evt.CrtInst", [](const Adp &a) -> uint32_t { return a.stEvtStat.usCrtInst; }},
    {"Evt.DelInst", [](const Adp &a) -> uint32_t { return a.stEvtStat.usDelInst; }},
    {"Drop.Short", [](const Adp &a) -> uint32_t { return a.stDropStat.ulShortMsg; }},
    {"Drop.BadLen", [](const Adp &a) -> uint32_t { return a.stDropStat.ulBadMsgLen; }},
    {"Drop.ShortFcm", [](const Adp &a) -> uint32_t { return a.stDropStat.ulShortFcm; }},
    {"Fw.InstInit", [](const Adp &a) -> uint32_t { return a.stFwStat.ulInstInit; }},
    {"Fw.AddInst", [](const Adp &a) -> uint32_t { return a.stFwStat.ulAddInst; }},
    {"Fw.StartWork", [](const Adp &a) -> uint32_t { return a.stFwStat.ulStartWork; }},
    {"Fw.DelInst", [](const Adp &a) -> uint32_t { return a.stFwStat.ulDelInst; }},
    {"WorkOn", [](const Adp &a) -> uint32_t { return a.bWorkOn; }},
    {"DebugOn", [](const Adp &a) -> uint32_t { return a.bDebugOn; }},
    {"Deploys", [](const Adp &a) -> uint32_t { return CountList(a.stDeployList); }},
    {"Instances", [](const Adp &) -> uint32_t { return static_cast<uint32_t>(host::InstPids().size()); }},
};

const Array<Adp> kAdpArrays[] = {
    {"RcvReq", [](const Adp &a) -> const uint32_t * { return a.aulRcvReqCnt; }},
    {"RcvAck", [](const Adp &a) -> const uint32_t * { return a.aulRcvAckCnt; }},
};

const Scalar<Inst> kInstScalars[] = {
    {"Err.CrtTmr", [](const Inst &i) -> uint32_t { return i.stErrStat.usCrtTmr; }},
    {"Err.AllocMsg", [](const Inst &i) -> uint32_t { return i.stErrStat.usAllocMsg; }},
    {"Err.MAlloc", [](const Inst &i) -> uint32_t { return i.stErrStat.usMAlloc; }},
    {"Err.SendMsg", [](const Inst &i) -> uint32_t { return i.stErrStat.usSendMsg; }},
    {"Err.RRAck@Reging", [](const Inst &i) -> uint32_t { return i.stErrStat.usRRAckAtReging; }},
    {"Err.RSAckNoReged", [](const Inst &i) -> uint32_t { return i.stErrStat.usRSAckNoReged; }},
    {"Err.NoRegTmr", [](const Inst &i) -> uint32_t { return i.stErrStat.usNoRegTmr; }},
    {"Err.NoSubTmr", [](const Inst &i) -> uint32_t { return i.stErrStat.usNoSubTmr; }},
    {"Err.NoUnSubTmr", [](const Inst &i) -> uint32_t { return i.stErrStat.usNoUnSubTmr; }},
    {"Err.RepeatSub", [](const Inst &i) -> uint32_t { return i.stErrStat.usRepeatSub; }},
    {"Err.RepeatUnSub", [](const Inst &i) -> uint32_t { return i.stErrStat.usRepeatUnSub; }},
    {"Err.BBErrSeq", [](const Inst &i) -> uint32_t { return i.stErrStat.usBBErrSeq; }},
    {"Err.BDErrTrans", [](const Inst &i) -> uint32_t { return i.stErrStat.usBDErrTrans; }},
    {"Err.BDErrSeq", [](const Inst &i) -> uint32_t { return i.stErrStat.usBDErrSeq; }},
    {"Err.BEErrTrans", [](const Inst &i) -> uint32_t { return i.stErrStat.usBEErrTrans; }},
    {"Err.BEErrSeq", [](const Inst &i) -> uint32_t { return i.stErrStat.usBEErrSeq; }},
    {"Err.Key2Long", [](const Inst &i) -> uint32_t { return i.stErrStat.usKey2Long; }},
    {"Err.ErrInfoNum", [](const Inst &i) -> uint32_t { return i.stErrStat.usErrInfoNum; }},
    {"Err.GenKey", [](const Inst &i) -> uint32_t { return i.stErrStat.usGenKey; }},
    {"Evt.SubMaxLen", [](const Inst &i) -> uint32_t { return i.stEvtStat.usSubMaxLen; }},
    {"Evt.UnSubMaxLen", [](const Inst &i) -> uint32_t { return i.stEvtStat.usUnSubMaxLen; }},
    {"Evt.SubNoItem", [](const Inst &i) -> uint32_t { return i.stEvtStat.usSubNoItem; }},
    {"Evt.UnSubNoItem", [](const Inst &i) -> uint32_t { return i.stEvtStat.usUnSubNoItem; }},
    {"Evt.RcvBBNotInit", [](const Inst &i) -> uint32_t { return i.stEvtStat.usRcvBBNotInit; }},
    {"Evt.RcvBdInit", [](const Inst &i) -> uint32_t { return i.stEvtStat.usRcvBdInit; }},
    {"Evt.RcvBEInit", [](const Inst &i) -> uint32_t { return i.stEvtStat.usRcvBEInit; }},
    {"Evt.ReNotify", [](const Inst &i) -> uint32_t { return i.stEvtStat.usReNotify; }},
    {"Drop.RecPastEnd", [](const Inst &i) -> uint32_t { return i.stDropStat.ulRecPastEnd; }},
    {"Drop.ShortEcho", [](const Inst &i) -> uint32_t { return i.stDropStat.ulShortEcho; }},
    {"Drop.EchoCopy", [](const Inst &i) -> uint32_t { return i.stDropStat.ulEchoCopy; }},
    {"Drop.ItemInsert", [](const Inst &i) -> uint32_t { return i.stDropStat.ulItemInsert; }},
    {"Ended", [](const Inst &i) -> uint32_t { return i.bEnded; }},
    {"Prod", [](const Inst &i) -> uint32_t { return i.pProd != nullptr ? 1u : 0u; }},
    {"IfGroupId", [](const Inst &i) -> uint32_t { return i.IfGroupId; }},
    {"FcCnt", [](const Inst &i) -> uint32_t { return i.FcCnt; }},
    {"FcFlag", [](const Inst &i) -> uint32_t { return i.FcFlag; }},
    {"State", [](const Inst &i) -> uint32_t { return i.State; }},
    {"BatchTransId", [](const Inst &i) -> uint32_t { return i.BatchTransId; }},
    {"BatchSeqNum", [](const Inst &i) -> uint32_t { return i.BatchSeqNum; }},
    {"NotifySeq", [](const Inst &i) -> uint32_t { return i.NotifySeq; }},
    {"RegTmr", [](const Inst &i) -> uint32_t { return i.RegTmr != 0 ? 1u : 0u; }},
    {"SubTmr", [](const Inst &i) -> uint32_t { return i.SubTmr != 0 ? 1u : 0u; }},
    {"UnSubTmr", [](const Inst &i) -> uint32_t { return i.UnSubTmr != 0 ? 1u : 0u; }},
    {"NotifyTmr", [](const Inst &i) -> uint32_t { return i.NotifyTmr != 0 ? 1u : 0u; }},
    {"WorkOn", [](const Inst &i) -> uint32_t { return i.bWorkOn; }},
    {"SubPending", [](const Inst &i) -> uint32_t { return i.bSubPending; }},
    {"UnSubPending", [](const Inst &i) -> uint32_t { return i.bUnSubPending; }},
    {"SubFcState", [](const Inst &i) -> uint32_t { return i.ucSubFcState; }},
    {"UnSubFcState", [](const Inst &i) -> uint32_t { return i.ucUnSubFcState; }},
    {"LastKeyType", [](const Inst &i) -> uint32_t { return i.usLastKeyType; }},
    {"SubItems", [](const Inst &i) -> uint32_t { return CountGroup(i, ZAN_VRRP_GROUP_SUB); }},
    {"UnSubItems", [](const Inst &i) -> uint32_t { return CountGroup(i, ZAN_VRRP_GROUP_UNSUB); }},
    {"Status", [](const Inst &i) -> uint32_t { return i.stInstHead.ulStatus; }},
};

const Array<Inst> kInstArrays[] = {
    {"RcvReq", [](const Inst &i) -> const uint32_t * { return i.aulRcvReqCnt; }},
    {"RcvAck", [](const Inst &i) -> const uint32_t * { return i.aulRcvAckCnt; }},
    {"SendReq", [](const Inst &i) -> const uint32_t * { return i.aulSendReqCnt; }},
    {"SendAck", [](const Inst &i) -> const uint32_t * { return i.aulSendAckCnt; }},
};

uint32_t ProdTmrPeriod(const Inst &i)
{
    if (i.pProd->tmr == 0) {
        return 0;
    }
    return host::TimerPeriod(i.pProd->tmr);
}

const Scalar<Inst> kProdScalars[] = {
    {"State", [](const Inst &i) -> uint32_t { return i.pProd->State; }},
    {"bBNotifyDataEnd", [](const Inst &i) -> uint32_t { return i.pProd->bBNotifyDataEnd; }},
    {"partCount", [](const Inst &i) -> uint32_t { return CountList(i.pProd->stPartList); }},
    {"WaitAckPart", [](const Inst &i) -> uint32_t { return CountList(i.pProd->stWaitAckList); }},
    {"tran", [](const Inst &i) -> uint32_t { return i.pProd->tran; }},
    {"seq", [](const Inst &i) -> uint32_t { return i.pProd->seq; }},
    {"tmr", [](const Inst &i) -> uint32_t { return i.pProd->tmr != 0 ? 1u : 0u; }},
    {"TmrPeriod", ProdTmrPeriod},
    {"bIsFcmOn", [](const Inst &i) -> uint32_t { return i.pProd->bIsFcmOn; }},
};

// "Name[T]": splits into name and message type (0..16); false when not of that form.
bool SplitArrayLabel(const std::string &label, std::string &name, uint32_t &index)
{
    std::size_t open = label.find('[');
    if (open == std::string::npos || label.empty() || label.back() != ']') {
        return false;
    }
    name = label.substr(0, open);
    std::string idx = label.substr(open + 1, label.size() - open - 2);
    index = ParseU32(idx);
    if (index >= ZAN_VRRP_MSG_TYPE_NUM) {
        throw ScriptError("message type " + idx + " out of range in '" + label + "' (0 to 16)");
    }
    return true;
}

template <typename R, std::size_t NS, std::size_t NA>
const Scalar<R> *FindLabel(const Scalar<R> (&scalars)[NS], const Array<R> (&arrays)[NA], const std::string &label,
                           const Array<R> *&array, uint32_t &index)
{
    array = nullptr;
    for (const Scalar<R> &s : scalars) {
        if (label == s.name) {
            return &s;
        }
    }
    std::string name;
    if (SplitArrayLabel(label, name, index)) {
        for (const Array<R> &a : arrays) {
            if (a.read != nullptr && name == a.name) {
                array = &a;
                return nullptr;
            }
        }
    }
    throw ScriptError("unknown label '" + label + "'");
}

template <typename R, std::size_t NS, std::size_t NA>
uint32_t ReadFrom(const Scalar<R> (&scalars)[NS], const Array<R> (&arrays)[NA], const R &rec,
                  const std::string &label)
{
    const Array<R> *array = nullptr;
    uint32_t index = 0;
    const Scalar<R> *s = FindLabel(scalars, arrays, label, array, index);
    if (s != nullptr) {
        return s->read(rec);
    }
    return array->read(rec)[index];
}

const Array<Inst> kNoArrays[1] = {{"", nullptr}};

}  // namespace

void ValidateLabel(LabelTarget target, const std::string &label)
{
    const Array<Adp> *aa = nullptr;
    const Array<Inst> *ia = nullptr;
    uint32_t index = 0;
    switch (target) {
    case LabelTarget::Adp:
        if (label != "Exists") {
            FindLabel(kAdpScalars, kAdpArrays, label, aa, index);
        }
        break;
    case LabelTarget::Inst:
        if (label != "Exists") {
            FindLabel(kInstScalars, kInstArrays, label, ia, index);
        }
        break;
    case LabelTarget::Prod:
        FindLabel(kProdScalars, kNoArrays, label, ia, index);
        break;
    }
}

uint32_t ReadAdpLabel(const ZAN_VRRP_ADP &adp, const std::string &label)
{
    return ReadFrom(kAdpScalars, kAdpArrays, adp, label);
}

uint32_t ReadInstLabel(const ZAN_VRRP_INST &inst, const std::string &label)
{
    return ReadFrom(kInstScalars, kInstArrays, inst, label);
}

uint32_t ReadProdLabel(const ZAN_VRRP_INST &inst, const std::string &label)
{
    return ReadFrom(kProdScalars, kNoArrays, inst, label);
}

ZAN_VRRP_ADP *LiveAdp()
{
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(host::Ctx()->pAdpSlot);
    return (pAdp != nullptr && pAdp->bLive != 0u) ? pAdp : nullptr;
}

std::vector<host::HeldBlock> FwBlocksBesideKeptContext()
{
    std::vector<host::HeldBlock> held = host::HeldBlocks(host::Ctx()->ulFwMemHandle);
    if (host::Ctx()->pAdpSlot != nullptr) {
        auto it = std::find_if(held.begin(), held.end(), [](const host::HeldBlock &b) {
            return b.file == ZAN_VRRP_ADP_FILE && b.line == 74u && b.size == sizeof(ZAN_VRRP_ADP_S);
        });
        if (it != held.end()) {
            held.erase(it);
        }
    }
    return held;
}

}  // namespace sim
