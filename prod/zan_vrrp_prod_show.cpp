// The producer's part of the diagnostic command.
#include "zan_vrrp_prod.h"

namespace {

constexpr uint32_t LINE_GETINSTPROD_NG = 2240;

}  // namespace

uint32_t ZAN_VrrpProd_GetInstProd(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint8_t *pucRec,
                                  ZAN_INNERDATA_REQ_S *pReq)
{
    char *pcText = reinterpret_cast<char *>(pucRec + ZAN_INNERDATA_TEXT_OFF);
    (void)pReq;
    const ZAN_VRRP_PROD_S *pProd = pInst->pProd;
    if (pProd == nullptr) {
        ZAN_VRRP_PROD_TRACE(pCompCtx, LINE_GETINSTPROD_NG, "vrrp prod, GetInstProd, prod ng, %u", pInst->IfGroupId);
        return 0;
    }
    const uint32_t ulPartCount = ZAN_VrrpProd_CountList_(&pProd->stPartList);
    const uint32_t ulWaitAckCount = ZAN_VrrpProd_CountList_(&pProd->stWaitAckList);
    uint32_t ulLen = 0;
    ulLen += ZAN_InnerData_Output(pcText, ulLen,
                                  " prod Info\r\n   Name: %s\r\n   State:       %-10u bBNotifyDataEnd:   %-10u "
                                  "partCount:   %-10u\r\n   WaitAckPart: %-10u tran:              %-10u seq:         "
                                  "%-10u\r\n   tmr:         %-10u bIsFcmOn:          %-10u\r\n",
                                  pProd->Name, (uint32_t)pProd->State, pProd->bBNotifyDataEnd, ulPartCount,
                                  ulWaitAckCount, pProd->tran, pProd->seq, (pProd->tmr != 0u) ? 1u : 0u,
                                  pProd->bIsFcmOn);
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}
