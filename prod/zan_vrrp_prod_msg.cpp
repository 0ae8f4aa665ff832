// Producer requests: allocation under flow control with the header filled, packing of data
// parts, the conversion that finishes a request before it is sent, and the AddProducer step.
#include "zan_vrrp_prod.h"

namespace {

enum : uint32_t {
    LINE_MALLOC_LEN_NG = 640,
    LINE_MALLOC_MSG = 645,
    LINE_MALLOC_OK = 650,
    LINE_MALLOC_NG = 662,
    LINE_FILL = 690,
    LINE_FILL_USED_NG = 701,
    LINE_FILL_LEFT_NG = 707,
    LINE_FILL_COPY = 715,
    LINE_PINNED_FREE = 735,
    LINE_DOADDPROD = 760,
};

constexpr uint32_t ZAN_VRRP_KEY_TYPE_LEN_WORD = (ZAN_VRRP_KEY_TLV_TYPE << 16) | ZAN_VRRP_KEY_TLV_LEN;

// Copies a TLV to the message with its type and length in network order and the 32-bit value
// word at ulWordOff (if any) turned from host to network order; the other bytes as they are.
// The result is the copy's; the room was checked, so the words lie inside it either way.
uint32_t ZAN_VrrpProd_PutTlv_(uint8_t *pucDst, uint32_t ulRoom, const uint8_t *pucTlv, int32_t lWordOff)
{
    const uint16_t usLen = ZAN_VrrpAdp_GetHost16(pucTlv + 2);
    const uint32_t ulRet = memcpy_s(pucDst, ulRoom, pucTlv, (size_t)usLen + 4u);
    ZAN_VrrpAdp_PutBe16(pucDst, ZAN_VrrpAdp_GetHost16(pucTlv));
    ZAN_VrrpAdp_PutBe16(pucDst + 2, usLen);
    if (lWordOff >= 0) {
        ZAN_VrrpAdp_PutBe32(pucDst + 4 + lWordOff, ZAN_VrrpAdp_GetHost32(pucTlv + 4 + lWordOff));
    }
    return ulRet;
}

}  // namespace

uint8_t *ZAN_VrrpProd_MallocSendMsg_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                     const ZAN_VRRP_PROD_SEND_PARA_S *pPara)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pPara->usMsgLen < ZAN_VRRP_MSG_HDR_LEN) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_MALLOC_LEN_NG, "vrrp prod, MallocSendMsg_, usMsgLen ng, %u, %u, (%u/%u)",
                            pInst->IfGroupId, (uint32_t)pProd->State, (uint32_t)pPara->usMsgLen,
                            ZAN_VRRP_MSG_HDR_LEN);
        return nullptr;
    }
    uint8_t *pMsg = static_cast<uint8_t *>(KOL_MsgFlowCtrlAlloc_F(
        pCompCtx->ulMsgAllocHandle, pInst->stInstHead.ulPid, pPara->usMsgLen, ZAN_VRRP_PROD_FILE, LINE_MALLOC_MSG));
    // The flow-control state and the counters are settled before the trace and the callback,
    // which hand control to the application.
    if (pMsg == nullptr) {
        pInst->stErrStat.usAllocMsg++;
        pProd->bIsFcmOn = 1;
        pInst->FcFlag = 1;
        pInst->FcCnt++;
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_MALLOC_NG, "vrrp prod, MallocSendMsg_, ng, %u, %u", pInst->IfGroupId,
                            (uint32_t)pProd->State);
        if (pInst->pAdp->stCallBack.pfnMsgAllocFail != nullptr) {
            pInst->pAdp->stCallBack.pfnMsgAllocFail(pInst->stInstHead.ulPid, pCompCtx->ulHandle, 1);
        }
        return nullptr;
    }
    // Counted at allocation, whether or not the request is sent later.
    pInst->aulSendReqCnt[(pPara->ucMsgType < ZAN_VRRP_MSG_TYPE_NUM) ? pPara->ucMsgType : 0u]++;
    pProd->bIsFcmOn = 0;
    // usHdrWord8, usHdrWord10 and ulSeqNum stay in host order until the request is finished.
    ZAN_VrrpAdp_PutBe16(pMsg + ZAN_VRRP_HDR_MSGLEN, ZAN_VRRP_MSG_HDR_LEN);
    pMsg[ZAN_VRRP_HDR_FLAGS] = ZAN_VRRP_FLAG_BASE;
    pMsg[ZAN_VRRP_HDR_TYPE] = pPara->ucMsgType;
    ZAN_VrrpAdp_PutBe32(pMsg + ZAN_VRRP_HDR_TRANSID, pPara->ulTransId);
    ZAN_VrrpAdp_PutHost16(pMsg + ZAN_VRRP_HDR_WORD8, pPara->usHdrWord8);
    ZAN_VrrpAdp_PutHost16(pMsg + ZAN_VRRP_HDR_WORD10, pPara->usHdrWord10);
    ZAN_VrrpAdp_PutHost32(pMsg + ZAN_VRRP_HDR_SEQNUM, pPara->ulSeqNum);
    ZAN_VrrpAdp_PutHost16(pMsg + ZAN_VRRP_HDR_WORD16, 0);
    ZAN_VrrpAdp_PutHost16(pMsg + ZAN_VRRP_HDR_ENTRYCNT, 0);
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_MALLOC_OK, "vrrp prod, MallocSendMsg_, ok, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    return pMsg;
}

// The packed part: key TLV with its first value word in network order, data TLV with its last
// value word in network order; the other value bytes unchanged.
uint32_t ZAN_VrrpProd_FillSendMsg_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart,
                                   uint8_t *pMsg, uint32_t ulCapacity)
{
    const ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_FILL, "vrrp prod, FillSendMsg_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    if (pPart == pProd->pPinned && pProd->bPinnedGone != 0u) {
        return 0;  // replaced or dropped from the trace: the newer version, if any, is still stored
    }
    const uint8_t *pucKey = ZAN_VrrpProd_PartTlv(pPart);
    const uint32_t ulKeyWord = ((uint32_t)ZAN_VrrpAdp_GetHost16(pucKey) << 16) | ZAN_VrrpAdp_GetHost16(pucKey + 2);
    const uint8_t *pucData = pucKey + 4u + ZAN_VRRP_KEY_TLV_LEN;
    const uint16_t usDataLen = ZAN_VrrpAdp_GetHost16(pucData + 2);
    if (ulKeyWord != ZAN_VRRP_KEY_TYPE_LEN_WORD || ZAN_VrrpAdp_GetHost16(pucData) != ZAN_VRRP_DATA_TLV_TYPE ||
        (usDataLen != 0u && usDataLen != 8u)) {
        return 0;  // not a valid part: skipped
    }
    const uint32_t ulUsed = ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_MSGLEN);
    if (ulUsed > ulCapacity) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_FILL_USED_NG, "vrrp prod, FillSendMsg_, used len ng, %u, %u", ulUsed,
                            ulCapacity);
        return ZAN_VRRP_ALL_ONES;
    }
    const uint32_t ulKeySize = 4u + ZAN_VRRP_KEY_TLV_LEN;
    const uint32_t ulNeeded = ulKeySize + 4u + usDataLen;
    const uint32_t ulLeft = ulCapacity - ulUsed;
    if (ulLeft < ulNeeded) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_FILL_LEFT_NG, "vrrp prod, FillSendMsg_, left len ng, %u, %u", ulLeft,
                            ulNeeded);
        return ZAN_VRRP_ALL_ONES;
    }
    uint32_t ulRet = ZAN_VrrpProd_PutTlv_(pMsg + ulUsed, ulLeft, pucKey, 0);
    ulRet |= ZAN_VrrpProd_PutTlv_(pMsg + ulUsed + ulKeySize, ulLeft - ulKeySize, pucData, (usDataLen == 8u) ? 4 : -1);
    if (ulRet != 0u) {
        KOL_Assert(ZAN_VRRP_PROD_FILE, LINE_FILL_COPY, 0);
    }
    ZAN_VrrpAdp_PutBe16(pMsg + ZAN_VRRP_HDR_MSGLEN, (uint16_t)(ulUsed + ulNeeded));
    ZAN_VrrpAdp_PutHost16(pMsg + ZAN_VRRP_HDR_ENTRYCNT,
                          (uint16_t)(ZAN_VrrpAdp_GetHost16(pMsg + ZAN_VRRP_HDR_ENTRYCNT) + 1u));
    return 0;
}

uint32_t ZAN_VrrpProd_FillPinned_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart,
                                  uint8_t *pMsg, uint32_t *pbGone)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    pProd->pPinned = pPart;
    pProd->bPinnedGone = 0;
    const uint32_t ulRet = ZAN_VrrpProd_FillSendMsg_(pCompCtx, pInst, pPart, pMsg, ZAN_VRRP_PROD_MSG_MAX);
    *pbGone = pProd->bPinnedGone;
    pProd->pPinned = nullptr;
    pProd->bPinnedGone = 0;
    if (*pbGone != 0u) {
        KOL_Free_F(pPart, ZAN_VRRP_PROD_FILE, LINE_PINNED_FREE);
    }
    return ulRet;
}

void ZAN_VrrpProd_FinishSend_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg)
{
    // The five host-order header fields go to network order; length and transaction id
    // already are.
    ZAN_VrrpAdp_SwapHdrFields(pMsg);
    ZAN_VrrpInst_SendMsg(pInst, pMsg);
}

uint32_t ZAN_VrrpProd_SendUnlessReset_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, uint32_t ulResetCnt)
{
    const ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd->ulResetCnt != ulResetCnt) {
        if (pMsg != nullptr) {
            MSG_Free(pInst->stInstHead.ulPid, pMsg);
        }
        return 1;
    }
    if (pMsg != nullptr) {
        ZAN_VrrpProd_FinishSend_(pInst, pMsg);
    }
    return (pProd->ulResetCnt != ulResetCnt) ? 1u : 0u;
}

uint32_t ZAN_VrrpProd_DoAddProd_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    const uint32_t ulResetCnt = pInst->pProd->ulResetCnt;
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_DOADDPROD, "vrrp prod, DoAddProd_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pInst->pProd->State);
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    ZAN_VRRP_PROD_SEND_PARA_S stPara;
    (void)memset_s(&stPara, sizeof(stPara), 0, sizeof(stPara));
    stPara.ucMsgType = ZAN_VRRP_MSG_ADD_PRODUCER;
    stPara.usMsgLen = ZAN_VRRP_MSG_HDR_LEN;
    uint8_t *pMsg = ZAN_VrrpProd_MallocSendMsg_(pCompCtx, pInst, &stPara);
    if (ZAN_VrrpProd_SendUnlessReset_(pInst, pMsg, ulResetCnt) == 0u) {
        (void)ZAN_VrrpProd_StartTmr_(pCompCtx, pInst, ZAN_VRRP_PROD_TMR_ADD_PROD);
    }
    return 0;
}
