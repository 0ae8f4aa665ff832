// Component framework of the host: adapter base with its instance table (ordered by pid),
// instance heads, message-handler and configuration-callback registries.
#include <algorithm>
#include <cstring>

#include "host_state.h"

namespace host {

namespace {

constexpr uint32_t kInstCreated = 1u;
constexpr uint32_t kInstRunning = 0u;

InstTable *TableOf(ZAN_COMP_ADP_S *pAdp)
{
    if (pAdp == nullptr) {
        return nullptr;
    }
    auto it = W().frame.adapters.find(pAdp);
    return it == W().frame.adapters.end() ? nullptr : it->second.get();
}

std::vector<uint32_t> PidsOf(const InstTable &tbl)
{
    std::vector<uint32_t> pids;
    pids.reserve(tbl.size());
    for (const auto &entry : tbl) {
        pids.push_back(entry.first);
    }
    return pids;
}

// An operation may change the table (delete an instance): every step looks the pid up again
// and skips instances that are gone.
ZAN_COMP_INST_S *StillThere(ZAN_COMP_ADP_S *pAdp, uint32_t pid)
{
    InstTable *tbl = TableOf(pAdp);
    if (tbl == nullptr) {
        return nullptr;
    }
    auto it = tbl->find(pid);
    return it == tbl->end() ? nullptr : it->second;
}

bool RunOp(uint32_t pid, int slot)
{
    ZAN_COMP_INST_S *inst = FindInst(pid);
    if (inst == nullptr || inst->pVOps == nullptr || inst->pVOps->apfnOp[slot] == nullptr) {
        return false;
    }
    (void)inst->pVOps->apfnOp[slot](inst);
    return true;
}

}  // namespace

void ResetFrame()
{
    W().frame = FrameState{};
}

ZAN_COMP_INST_S *FindInst(uint32_t pid)
{
    return StillThere(W().frame.current, pid);
}

std::vector<uint32_t> InstPids()
{
    InstTable *tbl = TableOf(W().frame.current);
    return tbl == nullptr ? std::vector<uint32_t>{} : PidsOf(*tbl);
}

bool RunUp(uint32_t pid)
{
    return RunOp(pid, ZAN_INST_OP_UP);
}

bool RunDown(uint32_t pid)
{
    return RunOp(pid, ZAN_INST_OP_DOWN);
}

bool SetStatus(uint32_t pid, uint32_t value)
{
    ZAN_COMP_INST_S *inst = FindInst(pid);
    if (inst == nullptr) {
        return false;
    }
    inst->ulStatus = value;
    return true;
}

std::vector<Registration> Registrations()
{
    std::vector<Registration> regs;
    for (const auto &entry : W().frame.msgRegs) {
        regs.push_back({"message class " + std::to_string(entry.first), entry.second.pArg});
    }
    for (const auto &entry : W().frame.cfgRegs) {
        regs.push_back({"configuration table " + std::to_string(entry.first.first) + " op " +
                            std::to_string(entry.first.second),
                        entry.second.pArg});
    }
    for (const auto &entry : W().cli.commands) {
        regs.push_back({"command " + entry.first, entry.second.pArg});
    }
    return regs;
}

std::optional<uint32_t> DeliverCfg(uint32_t tblId, uint32_t op, const std::vector<uint8_t> &rec)
{
    auto it = W().frame.cfgRegs.find({tblId, op});
    if (it == W().frame.cfgRegs.end() || it->second.pfn == nullptr) {
        return std::nullopt;
    }
    const CfgReg reg = it->second;
    // The record is handed over in a buffer of the registered record length (zero-padded).
    std::vector<uint8_t> buf(std::max<size_t>(rec.size(), reg.recLen), 0);
    std::copy(rec.begin(), rec.end(), buf.begin());
    return reg.pfn(reg.pArg, buf.data());
}

}  // namespace host

using host::W;

extern "C" {

uint32_t ZAN_CompAdp_Init(ZAN_COMP_ADP_S *pAdp, uint32_t ulParam1, uint32_t ulParam2, ZAN_COMP_CTX_S *pCompCtx)
{
    (void)ulParam1;
    (void)ulParam2;
    if (pAdp == nullptr || pCompCtx == nullptr) {
        host::Fault("ZAN_CompAdp_Init without adapter or context");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::AdpInit)) {
        return 1;
    }
    auto table = std::make_unique<host::InstTable>();
    pAdp->pCompCtx = pCompCtx;
    pAdp->usMsgClass = host::kAdapterMsgClass;
    pAdp->usRsv = 0;
    pAdp->pInstTbl = table.get();
    W().frame.adapters[pAdp] = std::move(table);
    if (pCompCtx == &W().ctx) {
        W().frame.current = pAdp;
    }
    return 0;
}

void ZAN_CompAdp_DeInit(ZAN_COMP_ADP_S *pAdp, ZAN_INST_OP_PF pfnInstDeInit)
{
    host::InstTable *tbl = host::TableOf(pAdp);
    if (tbl == nullptr) {
        return;
    }
    if (pfnInstDeInit != nullptr) {
        for (uint32_t pid : host::PidsOf(*tbl)) {
            ZAN_COMP_INST_S *inst = host::StillThere(pAdp, pid);
            if (inst != nullptr) {
                (void)pfnInstDeInit(inst);
            }
        }
    }
    W().frame.adapters.erase(pAdp);
    pAdp->pInstTbl = nullptr;
    if (W().frame.current == pAdp) {
        W().frame.current = nullptr;
    }
}

uint32_t ZAN_CompAdp_AddInst(ZAN_COMP_ADP_S *pAdp, ZAN_COMP_INST_S *pInst)
{
    host::InstTable *tbl = host::TableOf(pAdp);
    if (tbl == nullptr || pInst == nullptr) {
        host::Fault("ZAN_CompAdp_AddInst on an adapter without table or without instance");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::AddInst)) {
        return 1;
    }
    if (!tbl->emplace(pInst->ulPid, pInst).second) {
        return 1;
    }
    W().frame.addedInsts.insert(pInst);
    return 0;
}

uint32_t ZAN_CompAdp_DelInst(ZAN_COMP_ADP_S *pAdp, ZAN_COMP_INST_S *pInst)
{
    host::InstTable *tbl = host::TableOf(pAdp);
    if (tbl == nullptr || pInst == nullptr) {
        host::Fault("ZAN_CompAdp_DelInst on an adapter without table or without instance");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::DelInst)) {
        return 1;
    }
    auto it = tbl->find(pInst->ulPid);
    if (it == tbl->end() || it->second != pInst) {
        return 1;
    }
    tbl->erase(it);
    W().frame.addedInsts.erase(pInst);
    return 0;
}

ZAN_COMP_INST_S *ZAN_CompAdp_FindInstByPid(ZAN_COMP_ADP_S *pAdp, uint32_t ulPid)
{
    return host::StillThere(pAdp, ulPid);
}

uint32_t ZAN_CompAdp_ScanInstTbl(ZAN_COMP_ADP_S *pAdp, ZAN_INST_OP_PF pfn)
{
    host::InstTable *tbl = host::TableOf(pAdp);
    if (tbl == nullptr || pfn == nullptr) {
        return 0;
    }
    uint32_t first = 0;
    for (uint32_t pid : host::PidsOf(*tbl)) {
        ZAN_COMP_INST_S *inst = host::StillThere(pAdp, pid);
        if (inst == nullptr) {
            continue;
        }
        const uint32_t ret = pfn(inst);
        if (first == 0u) {
            first = ret;
        }
    }
    return first;
}

uint32_t ZAN_CompInst_Init(ZAN_COMP_INST_S *pInst, uint32_t ulPid, ZAN_COMP_CTX_S *pCompCtx, uint32_t ulIfGroupId)
{
    if (pInst == nullptr) {
        host::Fault("ZAN_CompInst_Init without instance");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::InstInit)) {
        return 1;
    }
    pInst->pVOps = nullptr;
    pInst->ulPid = ulPid;
    pInst->ulStatus = host::kInstCreated;
    pInst->pCompCtx = pCompCtx;
    pInst->ulIfGroupId = ulIfGroupId;
    pInst->pFwRsv = nullptr;
    return 0;
}

uint32_t ZAN_CompInst_StartWork(ZAN_COMP_INST_S *pInst)
{
    if (pInst == nullptr) {
        host::Fault("ZAN_CompInst_StartWork without instance");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::StartWork)) {
        return 1;
    }
    pInst->ulStatus = host::kInstRunning;
    if (pInst->pVOps != nullptr && pInst->pVOps->apfnOp[ZAN_INST_OP_UP] != nullptr) {
        (void)pInst->pVOps->apfnOp[ZAN_INST_OP_UP](pInst);
    }
    return 0;
}

uint32_t ZAN_Frame_RegMsgProc(ZAN_COMP_CTX_S *pCompCtx, uint16_t usMsgClass, ZAN_MSG_PROC_PF pfnProc, void *pArg,
                              ZAN_FLUSH_PF pfnFlush)
{
    if (pCompCtx == nullptr || pfnProc == nullptr) {
        host::Fault("ZAN_Frame_RegMsgProc without context or handler");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::RegMsg)) {
        return 1;
    }
    W().frame.msgRegs[usMsgClass] = host::MsgReg{pfnProc, pArg, pfnFlush};
    return 0;
}

uint32_t ZAN_SMP_RegCfgCallBack(ZAN_CFG_OBJ_S *pCfgObj, uint32_t ulTblId, uint32_t ulOp, uint32_t ulRecLen,
                                ZAN_CFG_PF pfn, void *pArg)
{
    if (pCfgObj == nullptr || pfn == nullptr) {
        host::Fault("ZAN_SMP_RegCfgCallBack without configuration object or callback");
        return 1;
    }
    if (host::ShouldFail(host::FailKind::RegCfg)) {
        return 1;
    }
    W().frame.cfgRegs[{ulTblId, ulOp}] = host::CfgReg{pfn, pArg, ulRecLen};
    return 0;
}

}  // extern "C"
