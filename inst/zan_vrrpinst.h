/* Consumer instance: the instance record shared by both sides, subscription items,
 * registration and sending, down and work state. */
#ifndef ZAN_VRRPINST_H
#define ZAN_VRRPINST_H

#include <stdint.h>

#include "../adp/zan_vrrpadp.h"

#define ZAN_VRRP_INST_FILE "zan_vrrpinst"
#define ZAN_VRRP_INST_MODULE "zan vrrp, inst"

enum {
    VRRP_INST_STATE_INIT = 0,
    VRRP_INST_STATE_REGING = 1,
    VRRP_INST_STATE_REGED = 2,
};

enum {
    SUB_ITEM_STATE_INIT = 0,
    SUB_ITEM_STATE_SENT = 1,
    SUB_ITEM_STATE_SUBED = 2,
    SUB_ITEM_STATE_NUM = 3,
};

/* The two groups of subscription items. */
enum {
    ZAN_VRRP_GROUP_SUB = 0,
    ZAN_VRRP_GROUP_UNSUB = 1,
    ZAN_VRRP_GROUP_NUM = 2,
};

#define ZAN_VRRP_FC_STATE_NONE 2u      /* nothing held back */
#define ZAN_VRRP_REG_TMR_MS 500u
#define ZAN_VRRP_NOTIFY_TMR_MS 3000u
#define ZAN_VRRP_ITEM_KEY_LEN 32u
#define ZAN_VRRP_ITEM_TLV_AREA 16u

typedef struct ZAN_VRRP_INST_ERR_STAT {
    uint16_t usCrtTmr;
    uint16_t usAllocMsg;
    uint16_t usMAlloc;
    uint16_t usSendMsg;
    uint16_t usRRAckAtReging;
    uint16_t usRSAckNoReged;
    uint16_t usNoRegTmr;
    uint16_t usNoSubTmr;
    uint16_t usNoUnSubTmr;
    uint16_t usRepeatSub;
    uint16_t usRepeatUnSub;
    uint16_t usBBErrSeq;
    uint16_t usBDErrTrans;
    uint16_t usBDErrSeq;
    uint16_t usBEErrTrans;
    uint16_t usBEErrSeq;
    uint16_t usKey2Long;
    uint16_t usErrInfoNum;
    uint16_t usGenKey;
} ZAN_VRRP_INST_ERR_STAT_S;

typedef struct ZAN_VRRP_INST_EVT_STAT {
    uint16_t usSubMaxLen;
    uint16_t usUnSubMaxLen;
    uint16_t usSubNoItem;
    uint16_t usUnSubNoItem;
    uint16_t usRcvBBNotInit;
    uint16_t usRcvBdInit;
    uint16_t usRcvBEInit;
    uint16_t usReNotify;
} ZAN_VRRP_INST_EVT_STAT_S;

/* Not in the display: what the instance refused because it would read or write outside a
 * buffer, and items the tree refused. */
typedef struct ZAN_VRRP_INST_DROP_STAT {
    uint32_t ulRecPastEnd; /* a record, its key TLV or its data TLV would run past usMsgLen (also
                              counted in GenKey, as a malformed record) */
    uint32_t ulShortEcho;  /* a request whose usMsgLen is below 20 was not echoed */
    uint32_t ulEchoCopy;   /* a request was not echoed: the platform refused the copy */
    uint32_t ulItemInsert; /* a subscription item the tree service refused (freed; the add still returns 0) */
} ZAN_VRRP_INST_DROP_STAT_S;

/* One group of subscription items. Its items are in the instance's item tree, and each one is
 * also on the list of its state, so that an exchange touches only the items it carries: the
 * stored items (state 0) wait there for the next request, the sent ones (state 1) for the
 * acknowledgement. Lists 0 and 1 go out in key order: each keeps a flag telling whether it is
 * in key order, and is put in order before it is packed when it is not. */
typedef struct ZAN_VRRP_ITEM_GROUP {
    ZAN_LIST_LINK_S astList[SUB_ITEM_STATE_NUM];
    uint32_t aulLen[SUB_ITEM_STATE_NUM];
    uint8_t abInOrder[SUB_ITEM_STATE_NUM];
} ZAN_VRRP_ITEM_GROUP_S;

struct ZAN_VRRP_PROD;

typedef struct ZAN_VRRP_INST {
    ZAN_COMP_INST_S stInstHead;
    ZAN_VRRP_ADP_S *pAdp;
    uint32_t MemHandle;
    uint32_t IfGroupId;
    uint32_t RegTmr;
    uint8_t bSubPending : 1;
    uint8_t bUnSubPending : 1;
    uint8_t ucSubFcState : 2;
    uint8_t ucUnSubFcState : 2;
    uint8_t bWorkOn : 1;
    uint8_t bDownBusy : 1; /* a Down_ is running: see ZAN_VrrpInst_Down_ */
    uint8_t bEnding;       /* ZAN_VrrpInst_DeInit has begun: the instance is about to be freed */
    uint8_t bEnded;        /* taken down for good; left in the framework's table, which refused to
                              delete it, until it can be freed */
    uint32_t State;
    ZAN_RBT_HEAD_S stItemTree; /* the items of both groups, by item key: a key is in one group */
    ZAN_VRRP_ITEM_GROUP_S astGroup[ZAN_VRRP_GROUP_NUM];
    uint32_t SubTmr;
    uint32_t UnSubTmr;
    uint16_t usLastKeyType;
    uint32_t BatchTransId;
    uint32_t BatchSeqNum;
    uint32_t NotifyTmr;
    uint32_t NotifySeq;
    uint32_t FcCnt;
    uint8_t FcFlag;
    uint32_t aulRcvReqCnt[ZAN_VRRP_MSG_TYPE_NUM];
    uint32_t aulRcvAckCnt[ZAN_VRRP_MSG_TYPE_NUM];
    uint32_t aulSendReqCnt[ZAN_VRRP_MSG_TYPE_NUM];
    uint32_t aulSendAckCnt[ZAN_VRRP_MSG_TYPE_NUM];
    ZAN_VRRP_INST_ERR_STAT_S stErrStat;
    ZAN_VRRP_INST_EVT_STAT_S stEvtStat;
    struct ZAN_VRRP_PROD *pProd;
    ZAN_VRRP_INST_DROP_STAT_S stDropStat;
    /* Downs so far. A step that hands control to the application compares it before and after
     * the call: when the application took the instance down meanwhile, that down ended the step
     * and the rest of it is not done. */
    uint32_t ulDownCnt;
} ZAN_VRRP_INST_S;

/* A subscription item: tree node, 32-byte key (key TLV area, subscription TLV area), the link
 * on its group's list of its state, state and group. */
typedef struct ZAN_VRRP_SUB_ITEM {
    ZAN_RBT_NODE_S stNode;
    uint8_t aucKey[ZAN_VRRP_ITEM_KEY_LEN];
    ZAN_LIST_LINK_S stLink;
    uint8_t State;
    uint8_t ucGroup;
} ZAN_VRRP_SUB_ITEM_S;

static_assert(sizeof(void *) != 4u || sizeof(ZAN_VRRP_SUB_ITEM_S) <= 64u, "an item holds at most 64 bytes");

/* Items of a group, in any state. */
static inline uint32_t ZAN_VrrpInst_GroupCount(const ZAN_VRRP_INST_S *pInst, uint32_t ulGroup)
{
    const ZAN_VRRP_ITEM_GROUP_S *pGroup = &pInst->astGroup[ulGroup];
    return pGroup->aulLen[0] + pGroup->aulLen[1] + pGroup->aulLen[2];
}

/* Bytewise order of two 32-byte item keys (the sign of a memcmp), a word at a time. */
static inline int32_t ZAN_VrrpInst_KeyOrder(const uint8_t *pucA, const uint8_t *pucB)
{
    for (uint32_t i = 0; i < ZAN_VRRP_ITEM_KEY_LEN; i += 4u) {
        const uint32_t ulA = ZAN_VrrpAdp_GetBe32(pucA + i);
        const uint32_t ulB = ZAN_VrrpAdp_GetBe32(pucB + i);
        if (ulA != ulB) {
            return (ulA > ulB) ? 1 : -1;
        }
    }
    return 0;
}

extern const ZAN_COMP_INST_VOPS_S g_stZanVrrpInstVOps;

static inline ZAN_COMP_CTX_S *ZAN_VrrpInst_Ctx(const ZAN_VRRP_INST_S *pInst)
{
    return pInst->stInstHead.pCompCtx;
}

/* Trace site of the consumer side. */
#define ZAN_VRRP_INST_TRACE(pInst, line, ...) \
    ZAN_VrrpAdp_Trace((pInst)->pAdp, ZAN_VRRP_INST_MODULE, (line), __VA_ARGS__)

/* Stops one of the instance's timers if it runs and clears its handle. */
void ZAN_VrrpInst_StopTmr_(ZAN_VRRP_INST_S *pInst, uint32_t *pulTmr);

/* Record and items. */
uint32_t ZAN_VrrpInst_Init(ZAN_VRRP_INST_S *pInst, ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid, uint32_t ulIfGroupId);
uint32_t ZAN_VrrpInst_DeInit(void *pInst);
void ZAN_VrrpInst_InitTree_(ZAN_RBT_HEAD_S *pTree);
/* The group's list of ucState in key order. */
ZAN_LIST_LINK_S *ZAN_VrrpInst_OrderedList_(ZAN_VRRP_INST_S *pInst, uint32_t ulGroup, uint8_t ucState);
/* Moves an item from its list to the end of its group's list of ucState. */
void ZAN_VrrpInst_MoveItem_(ZAN_VRRP_INST_S *pInst, ZAN_VRRP_SUB_ITEM_S *pItem, uint8_t ucState);
static inline ZAN_VRRP_SUB_ITEM_S *ZAN_VrrpInst_ItemOfLink_(ZAN_LIST_LINK_S *pLink)
{
    return reinterpret_cast<ZAN_VRRP_SUB_ITEM_S *>(reinterpret_cast<uint8_t *>(pLink) -
                                                   __builtin_offsetof(ZAN_VRRP_SUB_ITEM_S, stLink));
}
uint32_t ZAN_VrrpInst_SubItemCmpKey_(const ZAN_RBT_NODE_S *pNode, const void *pKey);
uint32_t ZAN_VrrpInst_AddSubItem(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub);
uint32_t ZAN_VrrpInst_AddUnSubItem(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub);
void ZAN_VrrpInst_ClearBasicInfo_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_ClearSubInfo_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_ClearUnSubInfo_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_ClearNotifyInfo_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_FlashItemStateToSubed_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_DeleteUnSubedItem_(ZAN_VRRP_INST_S *pInst);

/* Registration and sending. */
uint32_t ZAN_VrrpInst_Up_(void *pInst);
uint32_t ZAN_VrrpInst_Register_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_SendRegisterMsg_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx);
void ZAN_VrrpInst_RegTimeOut_(void *pInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx);
void ZAN_VrrpInst_ProcRegAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);
void ZAN_VrrpInst_SendMsg_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg);
void ZAN_VrrpInst_SendMsg(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg);
void ZAN_VrrpInst_SendAck(ZAN_VRRP_INST_S *pInst, const uint8_t *pMsg);
/* A consumer request of ulSize bytes with its header filled (usMsgLen, flags, type, word 8; the
 * rest of the first usMsgLen bytes zero), or NULL after the allocation-failure steps. */
uint8_t *ZAN_VrrpInst_AllocReq_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx, uint32_t ulSize,
                                uint16_t usMsgLen, uint8_t ucType, uint16_t usHdrWord8, uint32_t ulLine);
/* Allocation-failure steps shared by the consumer senders; bRequest sets FcFlag. */
void ZAN_VrrpInst_AllocFail_(ZAN_VRRP_INST_S *pInst, uint32_t bRequest);

/* Subscribe and unsubscribe exchanges. */
void ZAN_VrrpInst_Subscribe_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_UnSubscribe_(ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpInst_SendSubscribeMsg_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx, uint8_t ucState);
uint32_t ZAN_VrrpInst_SendUnSubscribeMsg_(ZAN_VRRP_INST_S *pInst, ZAN_COMP_CTX_S *pCompCtx, uint8_t ucState);
void ZAN_VrrpInst_ProcSubAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);
void ZAN_VrrpInst_ProcUnSubAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);

/* Batch and real-time update reception. */
uint32_t ZAN_VrrpInst_ProcBatchBegin(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);
void ZAN_VrrpInst_ProcBatchData(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);
uint32_t ZAN_VrrpInst_ProcBatchEnd(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);
void ZAN_VrrpInst_ProcBatchBeginEnd(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);
void ZAN_VrrpInst_ProcRealUpdate(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);
void ZAN_VrrpInst_ParseDataMsg_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg);

/* Notify events: a broken batch reported to the VRRP component. */
void ZAN_VrrpInst_NotifyEvent_SeqErr_(ZAN_VRRP_INST_S *pInst, uint32_t ulSeqNum);
void ZAN_VrrpInst_SendNotifyEventMsg_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_NotifyTimeOut_(void *pInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx);
void ZAN_VrrpInst_ProcNotifyAck(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, const ZAN_VRRP_MSG_DECODE_S *pDecode);

/* Down, work state, flow control and flush. */
uint32_t ZAN_VrrpInst_Down_(void *pInst);
void ZAN_VrrpInst_NotifyVrrpDown_(ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpInst_SetWorkState(ZAN_VRRP_INST_S *pInst, uint32_t ulOn);
uint32_t ZAN_VrrpInst_Fcm(void *pInst);
uint32_t ZAN_VrrpInst_Flush(void *pInst);

#endif
