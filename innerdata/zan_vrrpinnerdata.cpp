// The diagnostic command "zanvrrp": the adapter's configuration and statistics, and one
// instance's base data, statistics, consumer state, subscription items or producer state.
#include "zan_vrrpinnerdata.h"

#include "../inst/zan_vrrpinst.h"
#include "../prod/zan_vrrp_prod.h"

namespace {

constexpr uint32_t LINE_MALLOC_REC = 120;
constexpr uint32_t LINE_FREE_REC = 150;
constexpr uint32_t LINE_FREE_REC_NOMATCH = 160;

// The receive and send statistics share this text: one value per message type, 0 to 16.
#define ZAN_VRRP_MSG_STAT_ROWS                                                              \
    "   Unknown:      %-10u AddProducer:  %-10u DelProducer:  %u\r\n"                      \
    "   BNBegin:      %-10u BNData:       %-10u BNEnd:        %u\r\n"                      \
    "   RNData:       %-10u Register:     %-10u UnRegister:   %u\r\n"                      \
    "   Subscribe:    %-10u UnSubscribe:  %-10u BUBegin:      %u\r\n"                      \
    "   BUData:       %-10u BUEnd:        %-10u BUBeginEnd:   %u\r\n"                      \
    "   RUData:       %-10u NotifyEvent:  %-10u\r\n"
#define ZAN_VRRP_MSG_STAT_TEXT(title) \
    title "  Req Message:\r\n" ZAN_VRRP_MSG_STAT_ROWS "  Ack Message:\r\n" ZAN_VRRP_MSG_STAT_ROWS
#define ZAN_VRRP_ARR17(a)                                                                                     \
    (a)[0], (a)[1], (a)[2], (a)[3], (a)[4], (a)[5], (a)[6], (a)[7], (a)[8], (a)[9], (a)[10], (a)[11], (a)[12], \
        (a)[13], (a)[14], (a)[15], (a)[16]

char *ZAN_VrrpInnerData_Text_(uint8_t *pucRec)
{
    return reinterpret_cast<char *>(pucRec + ZAN_INNERDATA_TEXT_OFF);
}

uint32_t ZAN_VrrpInnerData_MsgStat_(char *pcText, uint32_t ulLen, bool bReceive, const uint32_t *pulReq,
                                    const uint32_t *pulAck)
{
    if (bReceive) {
        return ZAN_InnerData_Output(pcText, ulLen, ZAN_VRRP_MSG_STAT_TEXT(" Receive Message Statistics:\r\n"),
                                    ZAN_VRRP_ARR17(pulReq), ZAN_VRRP_ARR17(pulAck));
    }
    return ZAN_InnerData_Output(pcText, ulLen, ZAN_VRRP_MSG_STAT_TEXT(" Send Message Statistics:\r\n"),
                                ZAN_VRRP_ARR17(pulReq), ZAN_VRRP_ARR17(pulAck));
}

ZAN_VRRP_INST_S *ZAN_VrrpInnerData_GetInstByPid_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    if (pReq->bPidGiven == 0u) {
        (void)ZAN_InnerData_Output(pcText, 0, "Info: Please input vrrp pid.\r\n\r\n");
        return nullptr;
    }
    uint32_t ulPid = 0;
    if (WUX_StrToUint32(pReq->pcPid, &ulPid) != 0u) {
        (void)ZAN_InnerData_Output(pcText, 0, "Info: Input socket handle error.\r\n\r\n");
        return nullptr;
    }
    ZAN_VRRP_INST_S *pInst = reinterpret_cast<ZAN_VRRP_INST_S *>(ZAN_CompAdp_FindInstByPid(&pAdp->stAdpBase, ulPid));
    if (pInst == nullptr) {
        (void)ZAN_InnerData_Output(pcText, 0, "Info: Not find vrrp component instance.\r\n\r\n");
        return nullptr;
    }
    return pInst;
}

uint32_t ZAN_VrrpInnerData_GetAdpBase_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    (void)pReq;
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    uint32_t ulLen = ZAN_InnerData_Output(pcText, 0, " Base Info\r\n   MemHandle:    %s\r\n Deploy info\r\n", "--");
    ZAN_LIST_LINK_S *pHead = &pAdp->stDeployList;
    for (ZAN_LIST_LINK_S *pLink = pHead->pNext; pLink != pHead; pLink = pLink->pNext) {
        const ZAN_VRRP_DEPLOY_REC_S *pRec = &ZAN_VrrpAdp_NodeOfLink(pLink)->stRec;
        ulLen += ZAN_InnerData_Output(pcText, ulLen, " IfGroupId: %u, Pid: %u  0x%x\r\n", pRec->ulIfGroupId,
                                      pRec->ulPid, pRec->ulPid);
    }
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}

uint32_t ZAN_VrrpInnerData_GetAdpStat_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    (void)pReq;
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    const ZAN_VRRP_ADP_ERR_STAT_S *pErr = &pAdp->stErrStat;
    const ZAN_VRRP_ADP_EVT_STAT_S *pEvt = &pAdp->stEvtStat;
    uint32_t ulLen = ZAN_VrrpInnerData_MsgStat_(pcText, 0, true, pAdp->aulRcvReqCnt, pAdp->aulRcvAckCnt);
    ulLen += ZAN_InnerData_Output(pcText, ulLen,
                                  " Error Statistics:\r\n   MallocFail:   %-10u NoInst:       %-10u AddSubItem:   %u\r\n"
                                  "   AddUnSubItem: %-10u AddDeploy:    %-10u CrtInst:      %u\r\n"
                                  "   FindDeploy:   %-10u CrtSameInst:  %-10u FindInstByPid:%u\r\n",
                                  pErr->usMallocFail, pErr->usNoInst, pErr->usAddSubItem, pErr->usAddUnSubItem,
                                  pErr->usAddDeploy, pErr->usCrtInst, pErr->usFindDeploy, pErr->usCrtSameInst,
                                  pErr->usFindInstByPid);
    ulLen += ZAN_InnerData_Output(pcText, ulLen,
                                  " Event Statistics:\r\n   Subscribe:    %-10u UnSubscribe:  %-10u CrtDeploy:    %u\r\n"
                                  "   DelDeploy:    %-10u CrtInst:      %-10u DelInst:      %u\r\n",
                                  pEvt->usSubscribe, pEvt->usUnSubscribe, pEvt->usCrtDeploy, pEvt->usDelDeploy,
                                  pEvt->usCrtInst, pEvt->usDelInst);
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}

uint32_t ZAN_VrrpInnerData_GetInstBase_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    const ZAN_VRRP_INST_S *pInst = ZAN_VrrpInnerData_GetInstByPid_(pucRec, pReq, pAdp);
    if (pInst == nullptr) {
        return 0;
    }
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    uint32_t ulLen = ZAN_InnerData_Output(
        pcText, 0, " Base Info\r\n   MemHandle:    %s IfGroupId:    %-10u FcCnt:        %-10u\r\n   FcFlag:       %-10u\r\n",
        "--", pInst->IfGroupId, pInst->FcCnt, (uint32_t)pInst->FcFlag);
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}

uint32_t ZAN_VrrpInnerData_GetInstMsgStat_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    const ZAN_VRRP_INST_S *pInst = ZAN_VrrpInnerData_GetInstByPid_(pucRec, pReq, pAdp);
    if (pInst == nullptr) {
        return 0;
    }
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    uint32_t ulLen = ZAN_VrrpInnerData_MsgStat_(pcText, 0, true, pInst->aulRcvReqCnt, pInst->aulRcvAckCnt);
    ulLen += ZAN_VrrpInnerData_MsgStat_(pcText, ulLen, false, pInst->aulSendReqCnt, pInst->aulSendAckCnt);
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}

uint32_t ZAN_VrrpInnerData_GetInstSrvStat_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    const ZAN_VRRP_INST_S *pInst = ZAN_VrrpInnerData_GetInstByPid_(pucRec, pReq, pAdp);
    if (pInst == nullptr) {
        return 0;
    }
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    const ZAN_VRRP_INST_ERR_STAT_S *pErr = &pInst->stErrStat;
    const ZAN_VRRP_INST_EVT_STAT_S *pEvt = &pInst->stEvtStat;
    uint32_t ulLen = ZAN_InnerData_Output(
        pcText, 0,
        " Error Statistics:\r\n   CrtTmr:       %-10u AllocMsg:     %-10u MAlloc:       %u\r\n"
        "   SendMsg:      %-10u RRAck@Reging: %-10u RSAckNoReged: %u\r\n"
        "   NoRegTmr:     %-10u NoSubTmr:     %-10u NoUnSubTmr:   %u\r\n"
        "   RepeatSub:    %-10u RepeatUnSub:  %-10u BBErrSeq:     %u\r\n"
        "   BDErrTrans:   %-10u BDErrSeq:     %-10u BEErrTrans:   %u\r\n"
        "   BEErrSeq:     %-10u Key2Long:     %-10u ErrInfoNum:   %u\r\n"
        "   GenKey:       %-10u \r\n",
        pErr->usCrtTmr, pErr->usAllocMsg, pErr->usMAlloc, pErr->usSendMsg, pErr->usRRAckAtReging, pErr->usRSAckNoReged,
        pErr->usNoRegTmr, pErr->usNoSubTmr, pErr->usNoUnSubTmr, pErr->usRepeatSub, pErr->usRepeatUnSub,
        pErr->usBBErrSeq, pErr->usBDErrTrans, pErr->usBDErrSeq, pErr->usBEErrTrans, pErr->usBEErrSeq, pErr->usKey2Long,
        pErr->usErrInfoNum, pErr->usGenKey);
    ulLen += ZAN_InnerData_Output(pcText, ulLen,
                                  " Event Statistics:\r\n   SubMaxLen:    %-10u UnSubMaxLen:  %-10u SubNoItem:    %u\r\n"
                                  "   UnSubNoItem:  %-10u RcvBBNotInit: %-10u RcvBdInit:    %u\r\n"
                                  "   RcvBEInit:    %-10u ReNotify:     %-10u\r\n",
                                  pEvt->usSubMaxLen, pEvt->usUnSubMaxLen, pEvt->usSubNoItem, pEvt->usUnSubNoItem,
                                  pEvt->usRcvBBNotInit, pEvt->usRcvBdInit, pEvt->usRcvBEInit, pEvt->usReNotify);
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}

uint32_t ZAN_VrrpInnerData_GetInstConsumer_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    const ZAN_VRRP_INST_S *pInst = ZAN_VrrpInnerData_GetInstByPid_(pucRec, pReq, pAdp);
    if (pInst == nullptr) {
        return 0;
    }
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    uint32_t ulLen = ZAN_InnerData_Output(
        pcText, 0,
        " Consumer Info\r\n   RegTmr:        %s State:       %-10u SubTmr:         %s\r\n"
        "   UnSubTmr:      %s BatchTransId:%-10u BatchSeqNum:   %-10u\r\n"
        "   NotifyTmr:     %s NotifySeq:   %-10u\r\n",
        "--", pInst->State, "--", "--", pInst->BatchTransId, pInst->BatchSeqNum, "--", pInst->NotifySeq);
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}

uint32_t ZAN_VrrpInnerData_ItemLines_(char *pcText, uint32_t ulLen, ZAN_RBT_HEAD_S *pTree, uint32_t ulGroup)
{
    for (ZAN_RBT_NODE_S *pNode = WUX_RBT_FirstNode(pTree); pNode != nullptr; pNode = WUX_RBT_NextNode(pTree, pNode)) {
        const ZAN_VRRP_SUB_ITEM_S *pItem = reinterpret_cast<const ZAN_VRRP_SUB_ITEM_S *>(pNode);
        if (pItem->ucGroup != ulGroup) {
            continue;
        }
        const uint8_t *pucKey = pItem->aucKey;
        const uint8_t *pucSub = pItem->aucKey + ZAN_VRRP_ITEM_TLV_AREA;
        ulLen += ZAN_InnerData_Output(pcText, ulLen,
                                      "   State: %u KeyType: %u KeyLen: %u IfIndex: %u VrrpId: %u SubType: %u SubLen: %u\r\n",
                                      (uint32_t)pItem->State, (uint32_t)ZAN_VrrpAdp_GetHost16(pucKey),
                                      (uint32_t)ZAN_VrrpAdp_GetHost16(pucKey + 2), ZAN_VrrpAdp_GetHost32(pucKey + 4),
                                      ZAN_VrrpAdp_GetHost32(pucKey + 8), (uint32_t)ZAN_VrrpAdp_GetHost16(pucSub),
                                      (uint32_t)ZAN_VrrpAdp_GetHost16(pucSub + 2));
    }
    return ulLen;
}

uint32_t ZAN_VrrpInnerData_GetInstSubItem_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    ZAN_VRRP_INST_S *pInst = ZAN_VrrpInnerData_GetInstByPid_(pucRec, pReq, pAdp);
    if (pInst == nullptr) {
        return 0;
    }
    char *pcText = ZAN_VrrpInnerData_Text_(pucRec);
    uint32_t ulLen = ZAN_InnerData_Output(pcText, 0, " Subscribe Item Info\r\n");
    ulLen = ZAN_VrrpInnerData_ItemLines_(pcText, ulLen, &pInst->stItemTree, ZAN_VRRP_GROUP_SUB);
    ulLen += ZAN_InnerData_Output(pcText, ulLen, " UnSubscribe Item Info\r\n");
    ulLen = ZAN_VrrpInnerData_ItemLines_(pcText, ulLen, &pInst->stItemTree, ZAN_VRRP_GROUP_UNSUB);
    (void)ZAN_InnerData_Output(pcText, ulLen, "\r\n");
    return 0;
}

uint32_t ZAN_VrrpInnerData_GetInstProd_(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp)
{
    ZAN_VRRP_INST_S *pInst = ZAN_VrrpInnerData_GetInstByPid_(pucRec, pReq, pAdp);
    if (pInst == nullptr) {
        return 0;
    }
    return ZAN_VrrpProd_GetInstProd(ZAN_VrrpInst_Ctx(pInst), pInst, pucRec, pReq);
}

}  // namespace

const ZAN_VRRP_INNERDATA_GETINFO_S g_astZanVrrpInnerDataGetInfo[8] = {
    {"adp-base", ZAN_VrrpInnerData_GetAdpBase_},
    {"adp-stat", ZAN_VrrpInnerData_GetAdpStat_},
    {"inst-base", ZAN_VrrpInnerData_GetInstBase_},
    {"inst-msgstat", ZAN_VrrpInnerData_GetInstMsgStat_},
    {"inst-srvstat", ZAN_VrrpInnerData_GetInstSrvStat_},
    {"inst-consumer", ZAN_VrrpInnerData_GetInstConsumer_},
    {"inst-subinfo", ZAN_VrrpInnerData_GetInstSubItem_},
    {"inst-prod", ZAN_VrrpInnerData_GetInstProd_},
};

uint32_t ZAN_VrrpInnerData_Init(ZAN_VRRP_ADP_S *pAdp)
{
    return ZAN_InnerData_RegCallBack(pAdp->stAdpBase.pCompCtx, ZAN_VRRP_INNERDATA_CMD, ZAN_VrrpInnerData_Proc_, pAdp);
}

uint32_t ZAN_VrrpInnerData_Proc_(ZAN_INNERDATA_REQ_S *pReq, ZAN_CLI_CMD_S *pCmd, void *pvAdp)
{
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pvAdp);
    if (pAdp->bLive == 0u) {
        return 1;  // an ended adapter has no memory handle to print from
    }
    uint8_t *pucRec = static_cast<uint8_t *>(
        KOL_Malloc_F(pAdp->ulMemHandle, g_aucKolMemPt[0], ZAN_INNERDATA_REC_LEN, ZAN_VRRP_INNERDATA_FILE, LINE_MALLOC_REC));
    if (pucRec == nullptr) {
        return 1;
    }
    (void)memset_s(pucRec, ZAN_INNERDATA_REC_LEN, 0, ZAN_INNERDATA_REC_LEN);
    if (pReq->ulContinue == 0u) {
        (void)ZAN_InnerData_Output(ZAN_VrrpInnerData_Text_(pucRec), 0,
                                   " ZanVrrp App Cid:  0x%x\r\n"
                                   "================================================================================\r\n",
                                   pAdp->stAdpBase.pCompCtx->ulCid);
        (void)CLI_AddRec(pCmd, pucRec, ZAN_INNERDATA_REC_LEN, ZAN_VRRP_INNERDATA_REC_TYPE);
    }
    (void)memset_s(pucRec, ZAN_INNERDATA_REC_LEN, 0, ZAN_INNERDATA_REC_LEN);
    for (const ZAN_VRRP_INNERDATA_GETINFO_S &stRow : g_astZanVrrpInnerDataGetInfo) {
        if (WUX_StrCmp(pReq->pcItem, stRow.pcItem) != 0) {
            continue;
        }
        // Every handler answers 0, so the continuation step for a handler that has more to
        // print (CLI_AddOptionData, then CLI_SetRetCode) is never taken.
        (void)stRow.pfnGet(pucRec, pReq, pAdp);
        (void)CLI_AddRec(pCmd, pucRec, ZAN_INNERDATA_REC_LEN, ZAN_VRRP_INNERDATA_REC_TYPE);
        KOL_Free_F(pucRec, ZAN_VRRP_INNERDATA_FILE, LINE_FREE_REC);
        return 0;
    }
    (void)CLI_AddRec(pCmd, pucRec, ZAN_INNERDATA_REC_LEN, ZAN_VRRP_INNERDATA_REC_TYPE);
    KOL_Free_F(pucRec, ZAN_VRRP_INNERDATA_FILE, LINE_FREE_REC_NOMATCH);
    return 0;
}
