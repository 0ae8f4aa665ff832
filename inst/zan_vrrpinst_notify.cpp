// Notify events: a batch that broke its sequence is reported to the VRRP component with a
// NotifyEvent request, repeated every 3 s until it is acknowledged; one is outstanding at a time.
#include "zan_vrrpinst.h"

namespace {

constexpr uint32_t LINE_ALLOC_NOTIFY = 1160;
constexpr uint32_t LINE_ASSERT_NOTIFYACK = 1240;
constexpr uint16_t ZAN_VRRP_NOTIFY_MSG_LEN = 28;
constexpr uint16_t ZAN_VRRP_NOTIFY_TLV_TYPE = 2001;
constexpr uint16_t ZAN_VRRP_NOTIFY_TLV_LEN = 4;
constexpr uint32_t ZAN_VRRP_NOTIFY_TLV_OFF = 20;

}  // namespace

void ZAN_VrrpInst_SendNotifyEventMsg_(ZAN_VRRP_INST_S *pInst)
{
    pInst->aulSendReqCnt[ZAN_VRRP_MSG_NOTIFY_EVENT]++;
    uint8_t *pMsg = ZAN_VrrpInst_AllocReq_(pInst, ZAN_VrrpInst_Ctx(pInst), ZAN_VRRP_NOTIFY_MSG_LEN,
                                           ZAN_VRRP_NOTIFY_MSG_LEN, ZAN_VRRP_MSG_NOTIFY_EVENT, 1, LINE_ALLOC_NOTIFY);
    if (pMsg == nullptr) {
        return;  // not held back: the notify timer, started all the same, tries again
    }
    ZAN_VrrpAdp_PutBe32(pMsg + ZAN_VRRP_HDR_SEQNUM, pInst->NotifySeq);
    ZAN_VrrpAdp_PutBe16(pMsg + ZAN_VRRP_HDR_ENTRYCNT, 1);
    uint8_t *pucTlv = pMsg + ZAN_VRRP_NOTIFY_TLV_OFF;
    ZAN_VrrpAdp_PutBe16(pucTlv, ZAN_VRRP_NOTIFY_TLV_TYPE);
    ZAN_VrrpAdp_PutBe16(pucTlv + 2, ZAN_VRRP_NOTIFY_TLV_LEN);
    ZAN_VrrpAdp_PutBe16(pucTlv + 4, pInst->usLastKeyType);
    ZAN_VrrpInst_SendMsg_(pInst, pMsg);
    ZAN_VRRP_INST_TRACE(pInst, 1177, "vrrp-inst send seq error, pid[0x%x]", pInst->stInstHead.ulPid);
}

void ZAN_VrrpInst_NotifyEvent_SeqErr_(ZAN_VRRP_INST_S *pInst, uint32_t ulSeqNum)
{
    if (pInst->NotifyTmr != 0u) {
        // One NotifyEvent at a time; it keeps the number of the first error.
        pInst->stEvtStat.usReNotify++;
        return;
    }
    pInst->NotifySeq = ulSeqNum;
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    ZAN_VrrpInst_SendNotifyEventMsg_(pInst);
    if (pInst->ulDownCnt != ulDownCnt) {
        return;  // taken down from a callback of the send: the down ended the notify exchange
    }
    pInst->NotifyTmr = ZAN_Frame_StartLoopTmr(ZAN_VrrpInst_Ctx(pInst), ZAN_VrrpInst_NotifyTimeOut_,
                                              ZAN_VRRP_NOTIFY_TMR_MS, pInst);
    if (pInst->NotifyTmr == 0u) {
        pInst->stErrStat.usCrtTmr++;
    }
}

void ZAN_VrrpInst_NotifyTimeOut_(void *pvInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx)
{
    (void)ulTmrVal;
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    if (pCompCtx->usStartInhibit == 0u) {
        ZAN_VrrpInst_SendNotifyEventMsg_(pInst);
    }
}

void ZAN_VrrpInst_ProcNotifyAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    (void)pMsg;
    (void)pDecode;
    if (pInst == nullptr) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_NOTIFYACK, 0);
        return;
    }
    pInst->aulRcvAckCnt[ZAN_VRRP_MSG_NOTIFY_EVENT]++;
    // Only a registered instance ends its notify exchange; otherwise the timer keeps repeating.
    if (pInst->State == VRRP_INST_STATE_REGED) {
        ZAN_VrrpInst_StopTmr_(pInst, &pInst->NotifyTmr);
        pInst->NotifySeq = 0;
    }
}
