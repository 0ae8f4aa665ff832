// The subscribe and unsubscribe exchanges: stored items are packed into requests of at most
// 4095 bytes, repeated on a 3 s timer until acknowledged, and confirmed by the acknowledgement.
#include "zan_vrrpinst.h"

namespace {

constexpr uint32_t LINE_ALLOC_SUB = 760;
constexpr uint32_t LINE_ALLOC_UNSUB = 930;
constexpr uint32_t LINE_ASSERT_COPY = 745;
constexpr uint32_t LINE_ASSERT_SUBACK = 790;
constexpr uint32_t LINE_ASSERT_UNSUBACK = 960;
constexpr uint32_t ZAN_VRRP_SUB_MSG_MAX = 4096;
constexpr uint32_t ZAN_VRRP_SUB_TMR_MS = 3000;

// What differs between the two exchanges.
struct ZAN_VRRP_SUB_SIDE_S {
    uint8_t ucMsgType;
    uint32_t ulAllocLine;
    uint32_t ulGroup;
    uint32_t ZAN_VRRP_INST_S::*pTmr;
    uint16_t ZAN_VRRP_INST_EVT_STAT_S::*pMaxLen;
    uint16_t ZAN_VRRP_INST_EVT_STAT_S::*pNoItem;
};

const ZAN_VRRP_SUB_SIDE_S g_stSubSide = {ZAN_VRRP_MSG_SUBSCRIBE,
                                         LINE_ALLOC_SUB,
                                         ZAN_VRRP_GROUP_SUB,
                                         &ZAN_VRRP_INST_S::SubTmr,
                                         &ZAN_VRRP_INST_EVT_STAT_S::usSubMaxLen,
                                         &ZAN_VRRP_INST_EVT_STAT_S::usSubNoItem};
const ZAN_VRRP_SUB_SIDE_S g_stUnSubSide = {ZAN_VRRP_MSG_UNSUBSCRIBE,
                                           LINE_ALLOC_UNSUB,
                                           ZAN_VRRP_GROUP_UNSUB,
                                           &ZAN_VRRP_INST_S::UnSubTmr,
                                           &ZAN_VRRP_INST_EVT_STAT_S::usUnSubMaxLen,
                                           &ZAN_VRRP_INST_EVT_STAT_S::usUnSubNoItem};

// Copies one TLV area (type, length, value) to pucDst with type and length in network order;
// the result is the copy's. The room was checked, so the two words lie inside it either way.
uint32_t ZAN_VrrpInst_PutTlv_(uint8_t *pucDst, uint32_t ulRoom, const uint8_t *pucTlv, uint32_t ulSize)
{
    const uint32_t ulRet = memcpy_s(pucDst, ulRoom, pucTlv, ulSize);
    ZAN_VrrpAdp_PutBe16(pucDst, ZAN_VrrpAdp_GetHost16(pucTlv));
    ZAN_VrrpAdp_PutBe16(pucDst + 2, ZAN_VrrpAdp_GetHost16(pucTlv + 2));
    return ulRet;
}

// Packs the group's items of ucState in key order until one does not fit; packed stored items
// become sent ones.
void ZAN_VrrpInst_BuildBody_(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_SUB_SIDE_S *pSide, uint8_t *pMsg, uint8_t ucState)
{
    uint32_t ulPos = ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_MSGLEN);
    uint16_t usCount = 0;
    ZAN_LIST_LINK_S *pHead = ZAN_VrrpInst_OrderedList_(pInst, pSide->ulGroup, ucState);
    ZAN_LIST_LINK_S *pLink = pHead->pNext;
    while (pLink != pHead) {
        ZAN_LIST_LINK_S *pNext = pLink->pNext;
        ZAN_VRRP_SUB_ITEM_S *pItem = ZAN_VrrpInst_ItemOfLink_(pLink);
        const uint8_t *pucKey = pItem->aucKey;
        const uint8_t *pucSub = pItem->aucKey + ZAN_VRRP_ITEM_TLV_AREA;
        const uint32_t ulK = (uint32_t)ZAN_VrrpAdp_GetHost16(pucKey + 2) + 4u;
        const uint32_t ulS = (uint32_t)ZAN_VrrpAdp_GetHost16(pucSub + 2) + 4u;
        if (ulPos + ulK + ulS >= ZAN_VRRP_SUB_MSG_MAX) {
            pInst->stEvtStat.*(pSide->pMaxLen) += 1;
            break;
        }
        uint32_t ulRet = ZAN_VrrpInst_PutTlv_(pMsg + ulPos, ZAN_VRRP_SUB_MSG_MAX - ulPos, pucKey, ulK);
        ulRet |= ZAN_VrrpInst_PutTlv_(pMsg + ulPos + ulK, ZAN_VRRP_SUB_MSG_MAX - ulPos - ulK, pucSub, ulS);
        if (ulRet != 0u) {
            KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_COPY, ulRet);
        }
        ulPos += ulK + ulS;
        usCount = (uint16_t)(usCount + 2u);
        if (ucState == SUB_ITEM_STATE_INIT) {
            ZAN_VrrpInst_MoveItem_(pInst, pItem, SUB_ITEM_STATE_SENT);
        }
        pLink = pNext;
    }
    ZAN_VrrpAdp_PutBe16(pMsg + ZAN_VRRP_HDR_MSGLEN, (uint16_t)ulPos);
    ZAN_VrrpAdp_PutBe16(pMsg + ZAN_VRRP_HDR_ENTRYCNT, usCount);
}

void ZAN_VrrpInst_SetFcState_(ZAN_VRRP_INST_S *pInst, bool bSub, uint8_t ucState)
{
    if (bSub) {
        pInst->ucSubFcState = ucState;
    } else {
        pInst->ucUnSubFcState = ucState;
    }
}

// 0: sent, or the allocation failed (the wanted state is held back); 1: no item in that state.
uint32_t ZAN_VrrpInst_SendSideMsg_(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_SUB_SIDE_S *pSide,
                                   ZAN_COMP_CTX_S *pCompCtx, uint8_t ucState)
{
    const bool bSub = (pSide == &g_stSubSide);
    // Held back until the request is allocated: whatever the application does from
    // pfnMsgAllocFail finds it held back.
    ZAN_VrrpInst_SetFcState_(pInst, bSub, ucState);
    uint8_t *pMsg = ZAN_VrrpInst_AllocReq_(pInst, pCompCtx, ZAN_VRRP_SUB_MSG_MAX, ZAN_VRRP_MSG_HDR_LEN,
                                           pSide->ucMsgType, 1, pSide->ulAllocLine);
    if (pMsg == nullptr) {
        return 0;
    }
    ZAN_VrrpInst_SetFcState_(pInst, bSub, ZAN_VRRP_FC_STATE_NONE);
    ZAN_VrrpInst_BuildBody_(pInst, pSide, pMsg, ucState);
    if (ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_ENTRYCNT) == 0u) {
        pInst->stEvtStat.*(pSide->pNoItem) += 1;
        MSG_Free(pInst->stInstHead.ulPid, pMsg);
        return 1;
    }
    if (bSub) {
        pInst->aulSendReqCnt[ZAN_VRRP_MSG_SUBSCRIBE]++;
        ZAN_VrrpInst_SendMsg_(pInst, pMsg);
        ZAN_VRRP_INST_TRACE(pInst, 774, "vrrp-inst send subscribe message, pid[0x%x].", pInst->stInstHead.ulPid);
    } else {
        ZAN_VrrpInst_SendMsg_(pInst, pMsg);
        ZAN_VRRP_INST_TRACE(pInst, 945, "vrrp-inst send unsubscribe message, pid[0x%x].", pInst->stInstHead.ulPid);
    }
    return 0;
}

// A retry expiry repeats the sent, unacknowledged items; with none left the timer stops.
void ZAN_VrrpInst_SideTimeOut_(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_SUB_SIDE_S *pSide, ZAN_COMP_CTX_S *pCompCtx)
{
    if (pCompCtx->usStartInhibit != 0u) {
        return;
    }
    if (ZAN_VrrpInst_SendSideMsg_(pInst, pSide, pCompCtx, SUB_ITEM_STATE_SENT) == 1u) {
        ZAN_VrrpInst_StopTmr_(pInst, &(pInst->*(pSide->pTmr)));
    }
}

void ZAN_VrrpInst_SubTimeOut_(void *pvInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    (void)ulTmrVal;
    ZAN_VrrpInst_SideTimeOut_(static_cast<ZAN_VRRP_INST_S *>(pvInst), &g_stSubSide, pCompCtx);
}

void ZAN_VrrpInst_UnSubTimeOut_(void *pvInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    (void)ulTmrVal;
    ZAN_VrrpInst_SideTimeOut_(static_cast<ZAN_VRRP_INST_S *>(pvInst), &g_stUnSubSide, pCompCtx);
}

}  // namespace

uint32_t ZAN_VrrpInst_SendSubscribeMsg_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx, uint8_t ucState)
{
    return ZAN_VrrpInst_SendSideMsg_(pInst, &g_stSubSide, pCompCtx, ucState);
}

uint32_t ZAN_VrrpInst_SendUnSubscribeMsg_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx, uint8_t ucState)
{
    return ZAN_VrrpInst_SendSideMsg_(pInst, &g_stUnSubSide, pCompCtx, ucState);
}

// Traces, pfnMsgAllocFail and a failed send hand control to the application. A down made
// there ends the exchange (items freed, timer stopped), and the step does not go on with it.
void ZAN_VrrpInst_Subscribe_(ZAN_VRRP_INST_S *pInst)
{
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    ZAN_VRRP_INST_TRACE(pInst, 715, "vrrp-inst try to subscribe.");
    // An exchange in flight: later items follow its acknowledgement.
    if (pInst->SubTmr != 0u || pInst->ulDownCnt != ulDownCnt) {
        return;
    }
    ZAN_COMP_CTX_S *pCompCtx = ZAN_VrrpInst_Ctx(pInst);
    if (ZAN_VrrpInst_SendSubscribeMsg_(pInst, pCompCtx, SUB_ITEM_STATE_INIT) == 0u) {
        if (pInst->ulDownCnt != ulDownCnt) {
            return;
        }
        pInst->SubTmr = ZAN_Frame_StartLoopTmr(pCompCtx, ZAN_VrrpInst_SubTimeOut_, ZAN_VRRP_SUB_TMR_MS, pInst);
        if (pInst->SubTmr == 0u) {
            pInst->stErrStat.usCrtTmr++;
        }
        ZAN_VRRP_INST_TRACE(pInst, 728, "vrrp-inst start timer for subscribe.");
    } else {
        ZAN_VRRP_INST_TRACE(pInst, 723, "vrrp-inst nothing to subscribe for init state item.");
    }
}

void ZAN_VrrpInst_UnSubscribe_(ZAN_VRRP_INST_S *pInst)
{
    if (pInst->UnSubTmr != 0u) {
        return;
    }
    ZAN_COMP_CTX_S *pCompCtx = ZAN_VrrpInst_Ctx(pInst);
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    if (ZAN_VrrpInst_SendUnSubscribeMsg_(pInst, pCompCtx, SUB_ITEM_STATE_INIT) == 0u &&
        pInst->ulDownCnt == ulDownCnt) {
        pInst->UnSubTmr = ZAN_Frame_StartLoopTmr(pCompCtx, ZAN_VrrpInst_UnSubTimeOut_, ZAN_VRRP_SUB_TMR_MS, pInst);
        if (pInst->UnSubTmr == 0u) {
            pInst->stErrStat.usCrtTmr++;
        }
    }
}

void ZAN_VrrpInst_ProcSubAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pMsg;
    (void)pDecode;
    if (pInst == nullptr) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_SUBACK, 0);
        return;
    }
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_SUBSCRIBE]++;
    if (pInst->State != VRRP_INST_STATE_REGED) {
        pInst->stErrStat.usRSAckNoReged++;
        return;
    }
    if (pInst->SubTmr != 0u) {
        ZAN_Frame_StopTmr(ZAN_VrrpInst_Ctx(pInst), pInst->SubTmr);
        pInst->SubTmr = 0;
    } else {
        pInst->stErrStat.usNoSubTmr++;
    }
    ZAN_VrrpInst_FlashItemStateToSubed_(pInst);
    ZAN_VrrpInst_Subscribe_(pInst);
}

void ZAN_VrrpInst_ProcUnSubAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pMsg;
    (void)pDecode;
    if (pInst == nullptr) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_UNSUBACK, 0);
        return;
    }
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_UNSUBSCRIBE]++;
    if (pInst->State != VRRP_INST_STATE_REGED) {
        return;
    }
    if (pInst->UnSubTmr != 0u) {
        ZAN_Frame_StopTmr(ZAN_VrrpInst_Ctx(pInst), pInst->UnSubTmr);
        pInst->UnSubTmr = 0;
    } else {
        pInst->stErrStat.usNoUnSubTmr++;
    }
    ZAN_VrrpInst_DeleteUnSubedItem_(pInst);
    ZAN_VrrpInst_UnSubscribe_(pInst);
}
