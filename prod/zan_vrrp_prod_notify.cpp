// A NotifyEvent request from the VRRP component: while a batch is under way it is acknowledged
// by echo, and the batch starts again from BNBegin under a new transaction id.
#include "zan_vrrp_prod.h"

namespace {

enum : uint32_t {
    LINE_NOTIFY_NG = 1700,
    LINE_NOTIFY = 1704,
    LINE_NOTIFY_STATE_NG = 1710,
    LINE_NOTIFY_ACK_OK = 1716,
    LINE_NOTIFYACK = 1740,
};

}  // namespace

uint32_t ZAN_VrrpProd_OnNotifyEvent(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                    const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg)
{
    (void)pDecode;
    ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_NOTIFY_NG, "vrrp prod, OnNotifyEvent, prod ng, %u", pInst->IfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_NOTIFY, "vrrp prod, OnNotifyEvent, %u, %u", pInst->IfGroupId,
                        (uint32_t)pProd->State);
    pInst->aulRcvReqCnt[ZAN_VRRP_MSG_NOTIFY_EVENT]++;
    if (pProd->State != VRRP_PROD_STATE_BN_BEGIN && pProd->State != VRRP_PROD_STATE_BN_DATA) {
        // Not answered; in particular the real-time notification of state 5 goes on.
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_NOTIFY_STATE_NG, "vrrp prod, OnNotifyEvent, state ng, %u, %u",
                            pInst->IfGroupId, (uint32_t)pProd->State);
        return ZAN_VRRP_ALL_ONES;
    }
    // The acknowledgement and the traces hand control to the application; a reset made there
    // (work off) ends the restart.
    uint32_t ulResetCnt = pProd->ulResetCnt;
    (void)ZAN_VrrpProd_DoNotifyEventAck_(pCompCtx, pInst, pMsg);
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_NOTIFY_ACK_OK, "vrrp prod, OnNotifyEvent, send ack ok, %u, %u",
                        pInst->IfGroupId, (uint32_t)pProd->State);
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    ulResetCnt++;
    (void)ZAN_VrrpProd_Reset_(pCompCtx, pInst);
    if (ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        return 0;
    }
    pProd->tran++;
    (void)ZAN_VrrpProd_DoBNotifyBegin_(pCompCtx, pInst);
    if (!ZAN_VrrpProd_ResetSince_(pInst, ulResetCnt)) {
        (void)ZAN_VrrpProd_ChgState_(pCompCtx, pInst, VRRP_PROD_STATE_BN_BEGIN);
    }
    return 0;
}

uint32_t ZAN_VrrpProd_DoNotifyEventAck_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint8_t *pMsg)
{
    ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_NOTIFYACK, "vrrp prod, DoNotifyEventAck_, %u, %u", pInst->IfGroupId,
                        (uint32_t)pInst->pProd->State);
    pInst->aulSendAckCnt[ZAN_VRRP_MSG_NOTIFY_EVENT]++;  // before the send, whatever its outcome
    ZAN_VrrpInst_SendAck(pInst, pMsg);
    return 0;
}
