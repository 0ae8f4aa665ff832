// The producer record: creation and release, its five states, its single loop timer, the
// reset, and the reactions to the VRRP component coming up or going down, to timer expiry,
// to the end of flow control and to a flush.
#include <cstdarg>

#include "zan_vrrp_prod.h"

namespace {

// Trace lines of this file.
enum : uint32_t {
    LINE_INIT = 60,
    LINE_INIT_NG = 64,
    LINE_MALLOC = 63,
    LINE_CHGSTATE = 90,
    LINE_CHGSTATE_NG = 96,
    LINE_UNINIT_NG = 160,
    LINE_UNINIT = 164,
    LINE_FREE = 167,
    LINE_UP_NG = 180,
    LINE_UP = 184,
    LINE_UP_NOT_WORK = 187,
    LINE_DOWN_NG = 200,
    LINE_DOWN = 204,
    LINE_REDO = 1520,
    LINE_REDO_NG = 1545,
    LINE_TMRTO = 1570,
    LINE_FCM_NG = 1590,
    LINE_FLUSH_NG = 1610,
};

}  // namespace

// The producer reaches the adapter, and so the application's trace hooks, through the
// component context's adapter slot.
void ZAN_VrrpProd_Trace_(ZAN_COMP_CTX_S *pCompCtx, uint32_t ulLine, const char *pcFmt, ...)
{
    va_list ap;
    va_start(ap, pcFmt);
    ZAN_VrrpAdp_TraceV(static_cast<const ZAN_VRRP_ADP_S *>(pCompCtx->pAdpSlot), ZAN_VRRP_PROD_MODULE, ulLine, pcFmt,
                       ap);
    va_end(ap);
}

uint32_t ZAN_VrrpProd_Init(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_PROD_CFG_S *pCfg)
{
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_INIT, "vrrp prod, init, %u", pInst->IfGroupId);
    ZAN_VRRP_PROD_S *pProd = static_cast<ZAN_VRRP_PROD_S *>(KOL_Malloc_F(
        pCompCtx->ulFwMemHandle, g_aucKolMemPt[0], sizeof(ZAN_VRRP_PROD_S), ZAN_VRRP_PROD_FILE, LINE_MALLOC));
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_INIT_NG, "vrrp prod, init, ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    (void)memset_s(pProd, sizeof(*pProd), 0, sizeof(*pProd));
    pProd->Name = pCfg->pcName;
    pProd->bBNotifyDataEnd = 0;
    ZAN_VrrpInst_InitTree_(&pProd->stPartTree);
    ZAN_VrrpAdp_ListInit(&pProd->stPartList);
    ZAN_VrrpAdp_ListInit(&pProd->stWaitAckList);
    pProd->tran = 1;
    pProd->seq = 1;
    pProd->tmr = 0;
    pProd->bIsFcmOn = 0;
    pInst->pProd = pProd;
    (void)ZAN_VrrpProd_ChgState_(pCompCtx, pInst, VRRP_PROD_STATE_INIT);
    return 0;
}

uint32_t ZAN_VrrpProd_ChgState_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint32_t ulNewState)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (ulNewState - 1u <= 4u) {
        // Written before the trace, which hands control to the application; the text shows the
        // old state as it was.
        const uint32_t ulOldState = pProd->State;
        pProd->State = (uint8_t)ulNewState;
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_CHGSTATE, "vrrp prod, ChgState_, %u, %u -> %u", pInst->IfGroupId,
                            ulOldState, ulNewState);
        return 0;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_CHGSTATE_NG, "vrrp prod, ChgState_, new state ng, %u, %u -> %u",
                        pInst->IfGroupId, (uint32_t)pProd->State, ulNewState);
    return ZAN_VRRP_ALL_ONES;
}

uint32_t ZAN_VrrpProd_StartTmr_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint32_t ulPeriodMs)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    pProd->tmr = ZAN_Frame_StartLoopTmr(pCompCtx, ZAN_VrrpProd_OnTmrTO_, ulPeriodMs, pInst);
    if (pProd->tmr == 0u) {
        pInst->stErrStat.usCrtTmr++;
        return ZAN_VRRP_ALL_ONES;
    }
    return 0;
}

void ZAN_VrrpProd_StopTmr_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd->tmr != 0u) {
        ZAN_Frame_StopTmr(pCompCtx, pProd->tmr);
        pProd->tmr = 0;
    }
}

uint32_t ZAN_VrrpProd_TmrIsStart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    (void)pCompCtx;
    return (pInst->pProd->tmr != 0u) ? 1u : 0u;
}

uint32_t ZAN_VrrpProd_Reset_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    const uint32_t ulResetCnt = ++pProd->ulResetCnt;
    (void)ZAN_VrrpProd_ChgState_(pCompCtx, pInst, VRRP_PROD_STATE_INIT);
    if (pProd->ulResetCnt != ulResetCnt) {
        // The application reset the producer again from the trace (and maybe started it
        // again): that reset has done the rest of this one.
        return 0;
    }
    pProd->bBNotifyDataEnd = 0;
    ZAN_LIST_LINK_S *pCursor = nullptr;
    for (ZAN_VRRP_PART_S *pPart = ZAN_VrrpProd_GetFirstPartByTime_(pCompCtx, pInst, &pCursor); pPart != nullptr;
         pPart = ZAN_VrrpProd_GetNextPartByTime_(pCompCtx, pInst, &pCursor)) {
        ZAN_VrrpProd_DelPart_(pCompCtx, pInst, pPart);
    }
    for (ZAN_VRRP_PART_S *pPart = ZAN_VrrpProd_GetFirstWaitAckPart_(pCompCtx, pInst, &pCursor); pPart != nullptr;
         pPart = ZAN_VrrpProd_GetNextWaitAckPart_(pCompCtx, pInst, &pCursor)) {
        ZAN_VrrpProd_DelPart_(pCompCtx, pInst, pPart);
    }
    pProd->seq = 1;
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    pProd->bIsFcmOn = 0;
    return 0;
}

void ZAN_VrrpProd_Uninit(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    if (pInst->pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_UNINIT_NG, "vrrp prod, uninit, prod ng, %u", pInst->IfGroupId);
        return;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_UNINIT, "vrrp prod, uninit, %u", pInst->IfGroupId);
    (void)ZAN_VrrpProd_Reset_(pCompCtx, pInst);
    KOL_Free_F(pInst->pProd, ZAN_VRRP_PROD_FILE, LINE_FREE);
    pInst->pProd = nullptr;
}

uint32_t ZAN_VrrpProd_OnVrrpUp(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    if (pInst->pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_UP_NG, "vrrp prod, OnVrrpUp, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_UP, "vrrp prod, OnVrrpUp, %u, %u", pInst->IfGroupId,
                        (uint32_t)pInst->pProd->State);
    if (pInst->bWorkOn == 0u) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_UP_NOT_WORK, "vrrp prod, OnVrrpUp, not work, %u, %u", pInst->IfGroupId,
                            (uint32_t)pInst->bWorkOn);
        return 0;
    }
    // A reset made by the application from a callback (work off, and maybe on again, from a
    // trace) ends this start; the nested one, if any, has done it.
    const uint32_t ulResetCnt = pInst->pProd->ulResetCnt + 1u;
    (void)ZAN_VrrpProd_Reset_(pCompCtx, pInst);
    if (pInst->pProd->ulResetCnt != ulResetCnt) {
        return 0;
    }
    (void)ZAN_VrrpProd_DoAddProd_(pCompCtx, pInst);
    if (pInst->pProd->ulResetCnt == ulResetCnt) {
        (void)ZAN_VrrpProd_ChgState_(pCompCtx, pInst, VRRP_PROD_STATE_ADD_PROD);
    }
    return 0;
}

uint32_t ZAN_VrrpProd_OnVrrpDown(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    if (pInst->pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DOWN_NG, "vrrp prod, OnVrrpDown, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DOWN, "vrrp prod, OnVrrpDown, %u, %u", pInst->IfGroupId,
                        (uint32_t)pInst->pProd->State);
    return ZAN_VrrpProd_Reset_(pCompCtx, pInst);
}

void ZAN_VrrpProd_OnTmrTO_(void *pvInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    (void)ulTmrVal;
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_TMRTO, "vrrp prod, OnTmrTO_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pInst->pProd->State);
    // An expiry ends flow control as far as the producer is concerned.
    pInst->pProd->bIsFcmOn = 0;
    (void)ZAN_VrrpProd_ReDo_(pCompCtx, pInst);
}

uint32_t ZAN_VrrpProd_OnFcm(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    if (pInst->pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_FCM_NG, "vrrp prod, OnFcm, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    pInst->pProd->bIsFcmOn = 0;
    if (ZAN_VrrpProd_NeedReDoAcc_(pCompCtx, pInst) == 1u) {
        return ZAN_VrrpProd_ReDo_(pCompCtx, pInst);
    }
    return 0;
}

uint32_t ZAN_VrrpProd_OnFlush(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    if (pInst->pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_FLUSH_NG, "vrrp prod, OnFlush, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    if (ZAN_VrrpProd_NeedReDoAcc_(pCompCtx, pInst) == 1u) {
        return ZAN_VrrpProd_ReDo_(pCompCtx, pInst);
    }
    return 0;
}

// The pending step of the current state is repeated; the state is not changed.
uint32_t ZAN_VrrpProd_ReDo_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_REDO, "vrrp prod ReDo_, %u, %u", pInst->IfGroupId, (uint32_t)pProd->State);
    if (pProd->ulResetCnt != ulResetCnt) {
        return 0;  // reset from the trace: nothing is pending any more
    }
    switch (pProd->State) {
        case VRRP_PROD_STATE_ADD_PROD:
            (void)ZAN_VrrpProd_DoAddProd_(pCompCtx, pInst);
            return 0;
        case VRRP_PROD_STATE_BN_BEGIN:
            (void)ZAN_VrrpProd_DoBNotifyBegin_(pCompCtx, pInst);
            return 0;
        case VRRP_PROD_STATE_BN_DATA:
            if (pProd->bBNotifyDataEnd == 0u) {
                (void)ZAN_VrrpProd_DoBNotifyData_(pCompCtx, pInst);
                ZAN_LIST_LINK_S *pCursor = nullptr;
                if (pProd->ulResetCnt != ulResetCnt ||
                    ZAN_VrrpProd_GetFirstPartByTime_(pCompCtx, pInst, &pCursor) != nullptr) {
                    return 0;
                }
                pProd->bBNotifyDataEnd = 1;
            }
            (void)ZAN_VrrpProd_DoBNotifyEnd_(pCompCtx, pInst);
            return 0;
        case VRRP_PROD_STATE_RN_DATA:
            (void)ZAN_VrrpProd_DoRNotifyData_(pCompCtx, pInst);
            return 0;
        default:
            ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_REDO_NG, "vrrp prod, OnFcm, state ng, %u, %u", pInst->IfGroupId,
                                (uint32_t)pProd->State);
            return ZAN_VRRP_ALL_ONES;
    }
}

// Work that must not wait for the timer: the rest of a batch, or new real-time parts while
// nothing waits for an acknowledgement.
uint32_t ZAN_VrrpProd_NeedReDoAcc_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    (void)pCompCtx;
    const ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd->bIsFcmOn != 0u) {
        return 0;
    }
    if (pProd->State == VRRP_PROD_STATE_BN_DATA) {
        return (pProd->bBNotifyDataEnd == 0u) ? 1u : 0u;
    }
    if (pProd->State == VRRP_PROD_STATE_RN_DATA) {
        if (pProd->stWaitAckList.pNext != &pProd->stWaitAckList) {
            return 0;
        }
        return (pProd->stPartList.pNext != &pProd->stPartList) ? 1u : 0u;
    }
    return 0;
}
