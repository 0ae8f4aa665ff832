// Receive path: header decoding and in-place conversion, sender lookup, and dispatch of
// acknowledgements and requests by message type, counted in the adapter statistics.
#include "zan_vrrpadp.h"

#include "../inst/zan_vrrpinst.h"
#include "../prod/zan_vrrp_prod.h"

namespace {

uint32_t ZAN_VrrpAdp_TypeIndex_(uint16_t usType)
{
    return (usType < ZAN_VRRP_MSG_TYPE_NUM) ? usType : 0u;
}

}  // namespace

ZAN_VRRP_INST_S *ZAN_VrrpAdp_LiveInstOfPid_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid)
{
    ZAN_VRRP_INST_S *pInst = reinterpret_cast<ZAN_VRRP_INST_S *>(ZAN_CompAdp_FindInstByPid(&pAdp->stAdpBase, ulPid));
    return (pInst != nullptr && pInst->bEnded == 0u) ? pInst : nullptr;
}

uint32_t ZAN_VrrpAdp_ProcMsg_(void *pvMsg, void *pvAdp)
{
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pvAdp);
    uint8_t *pMsg = static_cast<uint8_t *>(pvMsg);

    if (pAdp->bLive == 0u) {
        return 0;  // an ended adapter: the framework still knows its handler
    }
    // The handlers take usMsgLen as the message's length: a buffer shorter than the header, or
    // a length field that claims more than was delivered, is refused before any byte beyond
    // the delivered size is read. A length field below the header's size is dispatched; only
    // the echo, which would copy the header, refuses it (ZAN_VrrpInst_SendAck).
    const uint32_t ulSize = MSG_DataSizeGet(pMsg);
    if (ulSize < ZAN_VRRP_MSG_HDR_LEN) {
        pAdp->stDropStat.ulShortMsg++;
        return 0;
    }
    if (ZAN_VrrpAdp_GetBe16(pMsg + ZAN_VRRP_HDR_MSGLEN) > ulSize) {
        pAdp->stDropStat.ulBadMsgLen++;
        return 0;
    }

    ZAN_VRRP_MSG_DECODE_S stDecode;
    stDecode.usType = pMsg[ZAN_VRRP_HDR_TYPE];
    stDecode.bAck = (uint8_t)((pMsg[ZAN_VRRP_HDR_FLAGS] & ZAN_VRRP_FLAG_ACK) != 0u ? 1 : 0);
    stDecode.ulSeqNum = ZAN_VrrpAdp_GetBe32(pMsg + ZAN_VRRP_HDR_SEQNUM);
    stDecode.ulTransId = ZAN_VrrpAdp_GetBe32(pMsg + ZAN_VRRP_HDR_TRANSID);

    ZAN_VrrpAdp_SwapHdrFields(pMsg);

    const uint32_t ulPid = MSG_SenderCidGet(pMsg);
    ZAN_VRRP_INST_S *pInst = ZAN_VrrpAdp_LiveInstOfPid_(pAdp, ulPid);
    if (pInst == nullptr) {
        pAdp->stErrStat.usNoInst++;
        return 0;
    }
    if (stDecode.bAck != 0u) {
        ZAN_VrrpAdp_ProcAckMsg_(pAdp, pInst, pMsg, &stDecode);
    } else {
        ZAN_VrrpAdp_ProcReqMsg_(pAdp, pInst, pMsg, &stDecode);
    }
    return 0;
}

void ZAN_VrrpAdp_ProcAckMsg_(ZAN_VRRP_ADP_S *pAdp, ZAN_VRRP_INST_S *pInst, uint8_t *pMsg,
                             const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    if (pInst == nullptr) {
        // ProcMsg_ never passes one; without an instance there is nothing to count against.
        KOL_Assert(ZAN_VRRP_ADP_FILE, 513, 0);
        return;
    }
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 515, "vrrp-adp receive ack message, msgtype[%u].",
                      (uint32_t)pDecode->usType);

    switch (pDecode->usType) {
        case ZAN_VRRP_MSG_REGISTER:
            ZAN_VrrpInst_ProcRegAck(pInst, pMsg, pDecode);
            break;
        case ZAN_VRRP_MSG_SUBSCRIBE:
            ZAN_VrrpInst_ProcSubAck(pInst, pMsg, pDecode);
            break;
        case ZAN_VRRP_MSG_UNSUBSCRIBE:
            ZAN_VrrpInst_ProcUnSubAck(pInst, pMsg, pDecode);
            break;
        case ZAN_VRRP_MSG_NOTIFY_EVENT:
            ZAN_VrrpInst_ProcNotifyAck(pInst, pMsg, pDecode);
            break;
        case ZAN_VRRP_MSG_ADD_PRODUCER:
            (void)ZAN_VrrpProd_OnAddProdAck(ZAN_VrrpInst_Ctx(pInst), pInst, pDecode, pMsg);
            break;
        case ZAN_VRRP_MSG_BN_BEGIN:
            (void)ZAN_VrrpProd_OnBBBeginAck(ZAN_VrrpInst_Ctx(pInst), pInst, pDecode, pMsg);
            break;
        case ZAN_VRRP_MSG_BN_END:
            (void)ZAN_VrrpProd_OnBBEndAck(ZAN_VrrpInst_Ctx(pInst), pInst, pDecode, pMsg);
            break;
        case ZAN_VRRP_MSG_RN_DATA:
            (void)ZAN_VrrpProd_OnRNotifyDataAck(ZAN_VrrpInst_Ctx(pInst), pInst, pDecode, pMsg);
            break;
        default:
            break;  // BNData is not acknowledged; other types have no handler
    }
    pAdp->aulRcvAckCnt[ZAN_VrrpAdp_TypeIndex_(pDecode->usType)]++;
}

void ZAN_VrrpAdp_ProcReqMsg_(ZAN_VRRP_ADP_S *pAdp, ZAN_VRRP_INST_S *pInst, uint8_t *pMsg,
                             const ZAN_VRRP_MSG_DECODE_S *pDecode)
{
    if (pInst == nullptr) {
        KOL_Assert(ZAN_VRRP_ADP_FILE, 576, 0);
        return;
    }
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 578, "vrrp-adp receive req message, msgtype[%u].",
                      (uint32_t)pDecode->usType);

    // A begin or end of a batch is acknowledged once the consumer accepts it, a batch's data
    // never; a self-contained update is acknowledged before it is parsed, so that the echo
    // carries the bytes as received, whatever the parsing yields.
    switch (pDecode->usType) {
        case ZAN_VRRP_MSG_BU_BEGIN:
            // A batch's begin is always accepted (ZAN_VrrpInst_ProcBatchBegin answers 0).
            (void)ZAN_VrrpInst_ProcBatchBegin(pInst, pMsg, pDecode);
            pInst->aulSendAckCnt[ZAN_VRRP_MSG_BU_BEGIN]++;
            ZAN_VrrpInst_SendAck(pInst, pMsg);
            break;
        case ZAN_VRRP_MSG_BU_DATA:
            ZAN_VrrpInst_ProcBatchData(pInst, pMsg, pDecode);
            break;
        case ZAN_VRRP_MSG_BU_END:
            if (ZAN_VrrpInst_ProcBatchEnd(pInst, pMsg, pDecode) == 0u) {
                pInst->aulSendAckCnt[ZAN_VRRP_MSG_BU_END]++;
                ZAN_VrrpInst_SendAck(pInst, pMsg);
            }
            break;
        case ZAN_VRRP_MSG_BU_BEGIN_END:
            pInst->aulSendAckCnt[ZAN_VRRP_MSG_BU_BEGIN_END]++;
            ZAN_VrrpInst_SendAck(pInst, pMsg);
            ZAN_VrrpInst_ProcBatchBeginEnd(pInst, pMsg, pDecode);
            break;
        case ZAN_VRRP_MSG_RU_DATA:
            pInst->aulSendAckCnt[ZAN_VRRP_MSG_RU_DATA]++;
            ZAN_VrrpInst_SendAck(pInst, pMsg);
            ZAN_VrrpInst_ProcRealUpdate(pInst, pMsg, pDecode);
            break;
        case ZAN_VRRP_MSG_NOTIFY_EVENT:
            // Answered, if at all, by the producer.
            (void)ZAN_VrrpProd_OnNotifyEvent(ZAN_VrrpInst_Ctx(pInst), pInst, pDecode, pMsg);
            break;
        default:
            break;  // no handler: counted only
    }
    pAdp->aulRcvReqCnt[ZAN_VrrpAdp_TypeIndex_(pDecode->usType)]++;
}
