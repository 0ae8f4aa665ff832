// Producer requests: allocation under flow control with the header filled, the conversion
// that finishes a request before it is sent, and the AddProducer step.
#include "zan_vrrp_prod.h"

namespace {

enum : uint32_t {
    LINE_MALLOC_LEN_NG = 640,
    LINE_MALLOC_MSG = 645,
    LINE_MALLOC_OK = 650,
    LINE_MALLOC_NG = 662,
    LINE_DOADDPROD = 760,
};

}  // namespace

uint8_t *ZAN_VrrpProd_MallocSendMsg_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                     const ZAN_VRRP_PROD_SEND_PARA_S *pPara)
{
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pPara->usMsgLen < ZAN_VRRP_MSG_HDR_LEN) {
        ZAN_VrrpProd_Trace_(pCompCtx, LINE_MALLOC_LEN_NG, "vrrp prod, MallocSendMsg_, usMsgLen ng, %u, %u, (%u/%u)",
                            pInst->IfGroupId, (uint32_t)pProd->State, (uint32_t)pPara->usMsgLen,
                            ZAN_VRRP_MSG_HDR_LEN);
        return nullptr;
    }
    uint8_t *pMsg = static_cast<uint8_t *>(KOL_MsgFlowCtrlAlloc_F(
        pCompCtx->ulMsgAllocHandle, pInst->stInstHead.ulPid, pPara->usMsgLen, ZAN_VRRP_PROD_FILE, LINE_MALLOC_MSG));
    if (pMsg == nullptr) {
        pInst->stErrStat.usAllocMsg++;
        ZAN_VrrpProd_Trace_(pCompCtx, LINE_MALLOC_NG, "vrrp prod, MallocSendMsg_, ng, %u, %u", pInst->IfGroupId,
                            (uint32_t)pProd->State);
        pProd->bIsFcmOn = 1;
        pInst->FcFlag = 1;
        pInst->FcCnt++;
        if (pInst->pAdp->stCallBack.pfnMsgAllocFail != nullptr) {
            pInst->pAdp->stCallBack.pfnMsgAllocFail(pInst->stInstHead.ulPid, pCompCtx->ulHandle, 1);
        }
        return nullptr;
    }
    // Counted at allocation, whether or not the request is sent later.
    pInst->aulSendReqCnt[(pPara->ucMsgType < ZAN_VRRP_MSG_TYPE_NUM) ? pPara->ucMsgType : 0u]++;
    ZAN_VrrpProd_Trace_(pCompCtx, LINE_MALLOC_OK, "vrrp prod, MallocSendMsg_, ok, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
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
    return pMsg;
}

void ZAN_VrrpProd_FinishSend_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg)
{
    // The five host-order header fields go to network order; length and transaction id
    // already are.
    ZAN_VrrpAdp_SwapHdrFields(pMsg);
    ZAN_VrrpInst_SendMsg(pInst, pMsg);
}

uint32_t ZAN_VrrpProd_DoAddProd_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst)
{
    ZAN_VrrpProd_Trace_(pCompCtx, LINE_DOADDPROD, "vrrp prod, DoAddProd_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pInst->pProd->State);
    ZAN_VrrpProd_StopTmr_(pCompCtx, pInst);
    ZAN_VRRP_PROD_SEND_PARA_S stPara;
    (void)memset_s(&stPara, sizeof(stPara), 0, sizeof(stPara));
    stPara.ucMsgType = ZAN_VRRP_MSG_ADD_PRODUCER;
    stPara.usMsgLen = ZAN_VRRP_MSG_HDR_LEN;
    uint8_t *pMsg = ZAN_VrrpProd_MallocSendMsg_(pCompCtx, pInst, &stPara);
    if (pMsg != nullptr) {
        ZAN_VrrpProd_FinishSend_(pInst, pMsg);
    }
    (void)ZAN_VrrpProd_StartTmr_(pCompCtx, pInst, ZAN_VRRP_PROD_TMR_ADD_PROD);
    return 0;
}
