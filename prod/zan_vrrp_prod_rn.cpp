// Real-time notification: after the batch, stored parts go out in RNData messages, one
// outstanding at a time; the parts of that message wait on the wait-ack list until it is
// acknowledged, and are sent again in a new message when the timer expires.
#include "zan_vrrp_prod.h"

namespace {

enum : uint32_t {
    LINE_DORNDATA = 1200,
    LINE_DORNDATA_MALLOC_NG = 1212,
    LINE_DORNDATA_NO_DATA = 1230,
    LINE_DORNDATA_FULL = 1248,
    LINE_RNDATAACK_NG = 1290,
    LINE_RNDATAACK = 1294,
    LINE_RNDATAACK_STATE_NG = 1298,
};

uint8_t *ZAN_VrrpProd_MallocRNData_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_SEND_PARA_S stPara;
    (void)memset_s(&stPara, sizeof(stPara), 0, sizeof(stPara));
    stPara.ucMsgType = ZAN_VRRP_MSG_RN_DATA;
    stPara.usMsgLen = ZAN_VRRP_PROD_MSG_MAX;
    stPara.usHdrWord8 = 1;
    return ZAN_VrrpProd_MallocSendMsg_(pCompCtx, pInst, &stPara);
}

// The parts of the outstanding message again, in pMsg. Only a reset can change the wait-ack
// list while its parts are packed (the packing traces), and a reset ends the step.
// 0: the step goes on to its timer; 1: a reset ended it.
uint32_t ZAN_VrrpProd_ResendWaitAck_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint8_t *pMsg,
                                     uint32_t ulResetCnt)
{
    ZAN_LIST_LINK_S *pCursor = nullptr;
    for (ZAN_VRRP_PART_S *pPart = ZAN_VrrpProd_GetFirstWaitAckPart_(pCompCtx, pInst, &pCursor); pPart != nullptr;
         pPart = ZAN_VrrpProd_GetNextWaitAckPart_(pCompCtx, pInst, &pCursor)) {
        uint32_t bGone = 0;
        (void)ZAN_VrrpProd_FillPinned_(pCompCtx, pInst, pPart, pMsg, &bGone);
        if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
            break;
        }
    }
    return ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt);
}

// New parts, oldest first, into pMsg; each packed part moves to the wait-ack list. The list is
// taken from its head each time: packed parts leave it, and the application may add or replace
// parts from the packing's trace. 0: the step goes on to its timer; 1: a reset ended it.
uint32_t ZAN_VrrpProd_SendNewParts_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint8_t *pMsg,
                                    uint32_t ulResetCnt)
{
    ZAN_LIST_LINK_S *pCursor = nullptr;
    for (ZAN_VRRP_PART_S *pPart = ZAN_VrrpProd_GetFirstPartByTime_(pCompCtx, pInst, &pCursor); pPart != nullptr;
         pPart = ZAN_VrrpProd_GetFirstPartByTime_(pCompCtx, pInst, &pCursor)) {
        uint32_t bGone = 0;
        const uint32_t ulRet = ZAN_VrrpProd_FillPinned_(pCompCtx, pInst, pPart, pMsg, &bGone);
        if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
            break;
        }
        if (ulRet != 0u) {
            // This part and the later ones wait for the next message.
            ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DORNDATA_FULL, "vrrp prod, SendMsgRNotifyData_, send data, fill full, %u",
                                pInst->IfGroupId);
            break;
        }
        if (bGone == 0u) {
            (void)ZAN_VrrpProd_MovePart2WaitAck_(pCompCtx, pInst, pPart);
        }
    }
    return ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt);
}

}  // namespace

uint32_t ZAN_VrrpProd_DoRNotifyData_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DORNDATA, "vrrp prod, SendMsgRNotifyData_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    const bool bWaiting = pProd->stWaitAckList.pNext != &pProd->stWaitAckList;
    if (!bWaiting && pProd->stPartList.pNext == &pProd->stPartList) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DORNDATA_NO_DATA, "vrrp prod, SendMsgRNotifyData_, no data to send, %u",
                            pInst->IfGroupId);
        return 0;  // idle: no timer
    }
    uint8_t *pMsg = ZAN_VrrpProd_MallocRNData_(pCompCtx, pInst);
    uint32_t ulEnded = 0;
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        ulEnded = ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt);  // releases it
    } else if (pMsg == nullptr) {
        // Nothing moves; the timer, or the end of flow control for new data, tries again.
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DORNDATA_MALLOC_NG, "vrrp prod, SendMsgRNotifyData_, malloc send msg ng, %u",
                            pInst->IfGroupId);
        ulEnded = ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt) ? 1u : 0u;
    } else if (bWaiting) {
        // A message is still unacknowledged: its parts go again; new data waits.
        ulEnded = ZAN_VrrpProd_ResendWaitAck_(pCompCtx, pInst, pMsg, ulResetCnt);
    } else {
        ulEnded = ZAN_VrrpProd_SendNewParts_(pCompCtx, pInst, pMsg, ulResetCnt);
    }
    if (ulEnded == 0u) {
        (void)ZAN_VrrpProd_StartTmr_(pCompCtx, pInst, ZAN_VRRP_PROD_TMR_RN_DATA);
    }
    return 0;
}

uint32_t ZAN_VrrpProd_OnRNotifyDataAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                       const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg)
{
    (void)pDecode;
    (void)pMsg;
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_RNDATAACK_NG, "vrrp prod, OnRNotifyDataAck, prod ng, %u",
                            pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_RNDATAACK, "vrrp prod, OnRNotifyDataAck, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_RN_DATA]++;
    if (pProd->State != VRRP_PROD_STATE_RN_DATA) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_RNDATAACK_STATE_NG, "vrrp prod, OnRNotifyDataAck, state ng, %u, %u",
                            pInst->IfGroupId, (uint32_t)pProd->State);
        return ZAN_VRRP_ALL_ONES;
    }
    // Any acknowledgement releases every waiting part: RNData carries no sequence number.
    ZAN_LIST_LINK_S *pCursor = nullptr;
    for (ZAN_VRRP_PART_S *pPart = ZAN_VrrpProd_GetFirstWaitAckPart_(pCompCtx, pInst, &pCursor); pPart != nullptr;
         pPart = ZAN_VrrpProd_GetNextWaitAckPart_(pCompCtx, pInst, &pCursor)) {
        ZAN_VrrpProd_DelPart_(pCompCtx, pInst, pPart);
    }
    (void)ZAN_VrrpProd_DoRNotifyData_(pCompCtx, pInst);
    return 0;
}
