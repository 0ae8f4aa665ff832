// Registration as a producer and the batch: AddProducer, then BNBegin, the application's data
// in BNData messages, and BNEnd, each step acknowledged (BNData excepted) and checked by state
// and sequence number.
#include "zan_vrrp_prod.h"

namespace {

enum : uint32_t {
    LINE_ADDPRODACK_NG = 800,
    LINE_ADDPRODACK = 804,
    LINE_ADDPRODACK_STATE_NG = 808,
    LINE_DOBBEGIN = 840,
    LINE_BBEGINACK_NG = 880,
    LINE_BBEGINACK = 884,
    LINE_BBEGINACK_STATE_NG = 888,
    LINE_BBEGINACK_SEQ_NG = 892,
    LINE_DOBDATA = 940,
    LINE_DOBDATA_MALLOC_NG = 952,
    LINE_DOBEND = 1000,
    LINE_BENDACK_NG = 1040,
    LINE_BENDACK = 1044,
    LINE_BENDACK_STATE_NG = 1048,
    LINE_BENDACK_SEQ_NG = 1052,
};

// A header-only batch request (BNBegin, BNEnd) with the producer's transaction id, sent and
// followed by its step's timer, also when the allocation was refused.
void ZAN_VrrpProd_SendBatchHdr_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint8_t ucType, uint32_t ulSeqNum,
                                uint32_t ulPeriodMs, uint32_t ulResetCnt)
{
    ZAN_VRRP_PROD_SEND_PARA_S stPara;
    (void)memset_s(&stPara, sizeof(stPara), 0, sizeof(stPara));
    stPara.ucMsgType = ucType;
    stPara.usMsgLen = ZAN_VRRP_MSG_HDR_LEN;
    stPara.ulTransId = pInst->pProd->tran;
    stPara.usHdrWord8 = 1;
    stPara.ulSeqNum = ulSeqNum;
    uint8_t *pMsg = ZAN_VrrpProd_MallocSendMsg_(pCompCtx, pInst, &stPara);
    if (ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt) == 0u) {
        (void)ZAN_VrrpProd_StartTmr_(pCompCtx, pInst, ulPeriodMs);
    }
}

}  // namespace

uint32_t ZAN_VrrpProd_OnAddProdAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                   const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg)
{
    (void)pDecode;
    (void)pMsg;
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_ADDPRODACK_NG, "vrrp prod, OnAddProdAck, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_ADDPRODACK, "vrrp prod, OnAddProdAck, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_ADD_PRODUCER]++;
    if (pProd->State != VRRP_PROD_STATE_ADD_PROD) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_ADDPRODACK_STATE_NG, "vrrp prod, OnAddProdAck, state ng, %u, %u",
                            pInst->IfGroupId, (uint32_t)pProd->State);
        return ZAN_VRRP_ALL_ONES;
    }
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    (void)ZAN_VrrpProd_DoBNotifyBegin_(pCompCtx, pInst);
    if (!ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        (void)ZAN_VrrpProd_ChgState_(pCompCtx, pInst, VRRP_PROD_STATE_BN_BEGIN);
    }
    return 0;
}

uint32_t ZAN_VrrpProd_DoBNotifyBegin_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DOBBEGIN, "vrrp prod, DoBNotifyBegin_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    pProd->seq = 1;
    ZAN_VrrpProd_SendBatchHdr_(pCompCtx, pInst, ZAN_VRRP_MSG_BN_BEGIN, 1, ZAN_VRRP_PROD_TMR_BN_BEGIN, ulResetCnt);
    return 0;
}

uint32_t ZAN_VrrpProd_OnBBBeginAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                   const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg)
{
    (void)pMsg;
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BBEGINACK_NG, "vrrp prod, OnBBBeginAck, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BBEGINACK, "vrrp prod, OnBBBeginAck, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_BN_BEGIN]++;
    if (pProd->State != VRRP_PROD_STATE_BN_BEGIN) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BBEGINACK_STATE_NG, "vrrp prod, OnBBBeginAck, state ng, %u, %u",
                            pInst->IfGroupId, (uint32_t)pProd->State);
        return ZAN_VRRP_ALL_ONES;
    }
    if (pDecode->ulSeqNum != pProd->seq) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BBEGINACK_SEQ_NG, "vrrp prod, OnAddProdAck, seq error, (%u, %u), %u/%u",
                            pInst->IfGroupId, (uint32_t)pProd->State, pDecode->ulSeqNum, pProd->seq);
        return ZAN_VRRP_ALL_ONES;
    }
    // State 4 first: the data the application hands over from pfnProdBatchBegin is stored.
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    (void)ZAN_VrrpProd_ChgState_(pCompCtx, pInst, VRRP_PROD_STATE_BN_DATA);
    // Once per deploy relation of this VRRP component, most recent first; the callback is read
    // afresh for every call. A reset made from a callback (work off) ends the batch.
    const ZAN_VRRP_ADP_S *pAdp = pInst->pAdp;
    const ZAN_LIST_LINK_S *pHead = &pAdp->stDeployList;
    for (const ZAN_LIST_LINK_S *pLink = pHead->pNext; pLink != pHead; pLink = pLink->pNext) {
        if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
            return 0;
        }
        const ZAN_VRRP_DEPLOY_NODE_S *pNode = reinterpret_cast<const ZAN_VRRP_DEPLOY_NODE_S *>(pLink);
        void (*pfnBatchBegin)(uint32_t, uint32_t) = pAdp->stCallBack.pfnProdBatchBegin;
        if (pNode->stRec.ulPid == pInst->stInstHead.ulPid && pfnBatchBegin != nullptr) {
            pfnBatchBegin(pNode->stRec.ulIfGroupId, pCompCtx->ulHandle);
        }
    }
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    (void)ZAN_VrrpProd_DoBNotifyData_(pCompCtx, pInst);
    ZAN_LIST_LINK_S *pCursor = nullptr;
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt) ||
        ZAN_VrrpProd_GetFirstPartByTime_(pCompCtx, pInst, &pCursor) != nullptr) {
        // A message could not be allocated: the rest of the batch is left to retransmission
        // and to the end of flow control.
        return 0;
    }
    pProd->bBNotifyDataEnd = 1;
    (void)ZAN_VrrpProd_DoBNotifyEnd_(pCompCtx, pInst);
    return 0;
}

// Packs the stored parts, oldest first, into as many BNData messages as needed; a part is
// deleted as soon as it is packed. The list is taken from its head each time: packed parts
// leave it, and the application may add or replace parts from a trace meanwhile.
uint32_t ZAN_VrrpProd_DoBNotifyData_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DOBDATA, "vrrp prod, DoBNotifyData_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    uint8_t *pMsg = nullptr;
    ZAN_LIST_LINK_S *pCursor = nullptr;
    for (ZAN_VRRP_PART_S *pPart = ZAN_VrrpProd_GetFirstPartByTime_(pCompCtx, pInst, &pCursor); pPart != nullptr;
         pPart = ZAN_VrrpProd_GetFirstPartByTime_(pCompCtx, pInst, &pCursor)) {
        if (pMsg == nullptr) {
            ZAN_VRRP_PROD_SEND_PARA_S stPara;
            (void)memset_s(&stPara, sizeof(stPara), 0, sizeof(stPara));
            stPara.ucMsgType = ZAN_VRRP_MSG_BN_DATA;
            stPara.usMsgLen = ZAN_VRRP_PROD_MSG_MAX;
            stPara.ulTransId = pProd->tran;
            stPara.usHdrWord8 = 1;
            stPara.ulSeqNum = pProd->seq + 1u;
            pMsg = ZAN_VrrpProd_MallocSendMsg_(pCompCtx, pInst, &stPara);
            if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
                (void)ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt);  // releases it
                return 0;
            }
            if (pMsg == nullptr) {
                ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DOBDATA_MALLOC_NG, "vrrp prod, DoBNotifyData_, malloc send msg ng, %u",
                                    pInst->IfGroupId);
                break;  // this part and the later ones stay stored
            }
            pProd->seq++;
            continue;  // the allocation called out: take the head of the list again
        }
        uint32_t bGone = 0;
        const uint32_t ulRet = ZAN_VrrpProd_FillPinned_(pCompCtx, pInst, pPart, pMsg, &bGone);
        if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
            (void)ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt);  // releases it
            return 0;
        }
        if (ulRet == 0u) {
            if (bGone == 0u) {
                ZAN_VrrpProd_DelPart_(pCompCtx, pInst, pPart);
            }
            continue;
        }
        // No room: this message goes; the part goes into the next one.
        if (ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt) != 0u) {
            return 0;
        }
        pMsg = nullptr;
    }
    if (ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt) == 0u) {
        (void)ZAN_VrrpProd_StartTmr_(pCompCtx, pInst, ZAN_VRRP_PROD_TMR_BN_DATA);
    }
    return 0;
}

uint32_t ZAN_VrrpProd_DoBNotifyEnd_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DOBEND, "vrrp prod, DoBNotifyEnd_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    ZAN_VrrpProd_SendBatchHdr_(pCompCtx, pInst, ZAN_VRRP_MSG_BN_END, pProd->seq + 1u, ZAN_VRRP_PROD_TMR_BN_END,
                               ulResetCnt);
    return 0;
}

uint32_t ZAN_VrrpProd_OnBBEndAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                 const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg)
{
    (void)pMsg;
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BENDACK_NG, "vrrp prod, OnBBEndAck, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BENDACK, "vrrp prod, OnBBEndAck, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_BN_END]++;
    if (pProd->State != VRRP_PROD_STATE_BN_DATA || pProd->bBNotifyDataEnd == 0u) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BENDACK_STATE_NG, "vrrp prod, OnBBEndAck, state ng, %u, %u, %u",
                            pInst->IfGroupId, (uint32_t)pProd->State, pProd->bBNotifyDataEnd);
        return ZAN_VRRP_ALL_ONES;
    }
    if (pDecode->ulSeqNum != pProd->seq + 1u) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_BENDACK_SEQ_NG, "vrrp prod, OnBBEndAck, seq error, (%u, %u, %u), %u/%u",
                            pInst->IfGroupId, (uint32_t)pProd->State, pProd->bBNotifyDataEnd, pDecode->ulSeqNum,
                            pProd->seq);
        return ZAN_VRRP_ALL_ONES;
    }
    const uint32_t ulResetCnt = pProd->ulResetCnt;
    (void)ZAN_VrrpProd_ChgState_(pCompCtx, pInst, VRRP_PROD_STATE_RN_DATA);
    if (!ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        (void)ZAN_VrrpProd_DoRNotifyData_(pCompCtx, pInst);
    }
    return 0;
}
