// Registration with the VRRP component (Register request, 500 ms retry, acknowledgement),
// the instance's Up operation, and the sending layer shared by both sides.
#include "zan_vrrpinst.h"

#include "../prod/zan_vrrp_prod.h"

namespace {

// Message-service tags of this file.
constexpr uint32_t LINE_ALLOC_REGISTER = 690;
constexpr uint32_t LINE_ALLOC_ACK = 1060;
constexpr uint32_t LINE_ASSERT_REGACK_CB = 150;
constexpr uint32_t ZAN_VRRP_SEND_SERVICE = 6;
constexpr uint32_t ZAN_VRRP_SEND_PORT = 853;

uint32_t ZAN_VrrpInst_Handle_(const ZAN_VRRP_INST_S *pInst)
{
    return ZAN_VrrpInst_Ctx(pInst)->ulHandle;
}

}  // namespace

void ZAN_VrrpInst_AllocFail_(ZAN_VRRP_INST_S *pInst, uint32_t bRequest)
{
    if (bRequest != 0u) {
        pInst->FcFlag = 1;
    }
    pInst->FcCnt++;
    pInst->stErrStat.usAllocMsg++;
    if (pInst->pAdp->stCallBack.pfnMsgAllocFail != nullptr) {
        pInst->pAdp->stCallBack.pfnMsgAllocFail(pInst->stInstHead.ulPid, ZAN_VrrpInst_Handle_(pInst), pInst->FcCnt);
    }
}

void ZAN_VrrpInst_SendMsg_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg)
{
    const uint32_t ulPid = pInst->stInstHead.ulPid;
    const uint32_t ulRet = KOL_SEND_MSG(ulPid, ZAN_VRRP_SEND_SERVICE, ZAN_VRRP_SEND_PORT, pMsg,
                                        ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_MSGLEN));
    if (ulRet != 0u) {
        ZAN_VRRP_INST_TRACE(pInst, 1033, "vrrp-inst send message to 0x%x fail, return %u.", ulPid, ulRet);
        pInst->stErrStat.usSendMsg++;
    }
}

void ZAN_VrrpInst_SendMsg(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg)
{
    ZAN_VrrpInst_SendMsg_(pInst, pMsg);
}

uint8_t *ZAN_VrrpInst_AllocReq_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx, uint32_t ulSize,
                                uint16_t usMsgLen, uint8_t ucType, uint16_t usHdrWord8, uint32_t ulLine)
{
    uint8_t *pMsg = static_cast<uint8_t *>(KOL_MsgFlowCtrlAlloc_F(pCompCtx->ulMsgAllocHandle,
                                                                  pInst->stInstHead.ulPid, ulSize, ZAN_VRRP_INST_FILE,
                                                                  ulLine));
    if (pMsg == nullptr) {
        ZAN_VrrpInst_AllocFail_(pInst, 1);
        return nullptr;
    }
    (void)memset_s(pMsg, ulSize, 0, usMsgLen);
    ZAN_VrrpAdp_PutBe16(pMsg + ZAN_VRRP_HDR_MSGLEN, usMsgLen);
    pMsg[ZAN_VRRP_HDR_FLAGS] = ZAN_VRRP_FLAG_BASE;
    pMsg[ZAN_VRRP_HDR_TYPE] = ucType;
    ZAN_VrrpAdp_PutBe16(pMsg + ZAN_VRRP_HDR_WORD8, usHdrWord8);
    return pMsg;
}

void ZAN_VrrpInst_SendRegisterMsg_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx)
{
    uint8_t *pMsg = ZAN_VrrpInst_AllocReq_(pInst, pCompCtx, ZAN_VRRP_MSG_HDR_LEN, ZAN_VRRP_MSG_HDR_LEN,
                                           ZAN_VRRP_MSG_REGISTER, 0, LINE_ALLOC_REGISTER);
    if (pMsg == nullptr) {
        return;
    }
    // The state is settled before the send and its trace can hand control to the application:
    // a down made from there must find the instance registering and leave it unregistered.
    pInst->State = VRRP_INST_STATE_REGING;
    pInst->aulSendReqCnt[ZAN_VRRP_MSG_REGISTER]++;
    ZAN_VrrpInst_SendMsg_(pInst, pMsg);
    ZAN_VRRP_INST_TRACE(pInst, 701, "vrrp-inst send register message, pid[0x%x].", pInst->stInstHead.ulPid);
}

void ZAN_VrrpInst_RegTimeOut_(void *pvInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    (void)ulTmrVal;
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    if (pCompCtx->usStartInhibit == 0u) {
        ZAN_VrrpInst_SendRegisterMsg_(pInst, pCompCtx);
    }
}

uint32_t ZAN_VrrpInst_Register_(ZAN_VRRP_INST_S *pInst)
{
    if (pInst->bWorkOn == 0u) {
        return 0;
    }
    ZAN_COMP_CTX_S *pCompCtx = ZAN_VrrpInst_Ctx(pInst);
    ZAN_VrrpInst_StopTmr_(pInst, &pInst->RegTmr);
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    ZAN_VrrpInst_SendRegisterMsg_(pInst, pCompCtx);
    if (pInst->ulDownCnt != ulDownCnt) {
        // The application took the instance down from a callback of the send (pfnMsgAllocFail,
        // a trace): that ended this registration, and one it started again there keeps its own
        // timer, which must not be overwritten.
        return 0;
    }
    pInst->RegTmr = ZAN_Frame_StartLoopTmr(pCompCtx, ZAN_VrrpInst_RegTimeOut_, ZAN_VRRP_REG_TMR_MS, pInst);
    if (pInst->RegTmr == 0u) {
        pInst->stErrStat.usCrtTmr++;
        return 1;
    }
    return 0;
}

void ZAN_VrrpInst_ProcRegAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pMsg;
    (void)pDecode;
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_REGISTER]++;
    if (pInst->State != VRRP_INST_STATE_REGING) {
        pInst->stErrStat.usRRAckAtReging++;
        return;
    }
    if (pInst->RegTmr != 0u) {
        ZAN_Frame_StopTmr(ZAN_VrrpInst_Ctx(pInst), pInst->RegTmr);
        pInst->RegTmr = 0;
    } else {
        pInst->stErrStat.usNoRegTmr++;
    }
    pInst->State = VRRP_INST_STATE_REGED;
    // The trace and the callback hand control to the application; a down made there ends the
    // registration, and nothing of it is continued afterwards.
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    ZAN_VRRP_INST_TRACE(pInst, 153, "vrrp-inst receive regist ack, begin batch subscribe.");
    if (pInst->ulDownCnt != ulDownCnt) {
        return;
    }
    // A required slot; an application that left it empty is told through the assertion
    // rather than by a crash. It may subscribe from inside the callback: State is already 2.
    if (pInst->pAdp->stCallBack.pfnRegAck != nullptr) {
        pInst->pAdp->stCallBack.pfnRegAck(pInst->IfGroupId, ZAN_VrrpInst_Handle_(pInst));
    } else {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_REGACK_CB, 0);
    }
    if (pInst->ulDownCnt != ulDownCnt) {
        return;
    }
    ZAN_VrrpInst_Subscribe_(pInst);
}

uint32_t ZAN_VrrpInst_Up_(void *pvInst)
{
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    // An ended instance that the framework still lists (its deletion was refused) is only
    // waiting to be freed: it must not register again, nor start a timer.
    if (pInst == nullptr || pInst->bEnding != 0u) {
        return 0;
    }
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    ZAN_VRRP_INST_TRACE(pInst, 528, "vrrp-inst up, pid[0x%x].", pInst->stInstHead.ulPid);
    if (pInst->ulDownCnt != ulDownCnt) {
        return 0;  // the application changed the work state from the trace, which did the rest
    }
    (void)ZAN_VrrpInst_Register_(pInst);
    (void)ZAN_VrrpProd_OnVrrpUp(ZAN_VrrpInst_Ctx(pInst), pInst);
    return 0;
}

void ZAN_VrrpInst_SendAck(ZAN_VRRP_INST_S *pInst, const uint8_t *pMsg)
{
    const uint16_t usLen = ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_MSGLEN);
    if (usLen < ZAN_VRRP_MSG_HDR_LEN) {
        // The echo is usMsgLen bytes long and its header is 20: such a request is not echoed.
        pInst->stDropStat.ulShortEcho++;
        return;
    }
    uint8_t *pAck = static_cast<uint8_t *>(KOL_MsgFlowCtrlAlloc_F(
        ZAN_VrrpInst_Ctx(pInst)->ulMsgAllocHandle, pInst->stInstHead.ulPid, usLen, ZAN_VRRP_INST_FILE, LINE_ALLOC_ACK));
    if (pAck == nullptr) {
        ZAN_VrrpInst_AllocFail_(pInst, 0);
        return;
    }
    if (memcpy_s(pAck, usLen, pMsg, usLen) != 0u) {
        // No echo without the copy: its length would be whatever the buffer held.
        pInst->stDropStat.ulEchoCopy++;
        MSG_Free(pInst->stInstHead.ulPid, pAck);
        return;
    }
    pAck[ZAN_VRRP_HDR_FLAGS] |= ZAN_VRRP_FLAG_ACK;
    ZAN_VrrpAdp_SwapHdrFields(pAck);
    ZAN_VrrpInst_SendMsg_(pInst, pAck);
}
