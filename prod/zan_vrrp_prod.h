/* Producer: the producer record, its states and timer, the data part store and the
 * producer's requests. */
#ifndef ZAN_VRRP_PROD_H
#define ZAN_VRRP_PROD_H

#include <stdint.h>

#include "../inst/zan_vrrpinst.h"

#define ZAN_VRRP_PROD_FILE "zan_vrrp_prod"
#define ZAN_VRRP_PROD_MODULE "zan vrrp, prod"
#define ZAN_VRRP_PROD_NAME "vrrp_prod"

enum {
    VRRP_PROD_STATE_INIT = 1,
    VRRP_PROD_STATE_ADD_PROD = 2,
    VRRP_PROD_STATE_BN_BEGIN = 3,
    VRRP_PROD_STATE_BN_DATA = 4,
    VRRP_PROD_STATE_RN_DATA = 5,
};

/* Retransmission periods, one per sending step. */
#define ZAN_VRRP_PROD_TMR_ADD_PROD 5001u
#define ZAN_VRRP_PROD_TMR_BN_BEGIN 5002u
#define ZAN_VRRP_PROD_TMR_BN_DATA 5003u
#define ZAN_VRRP_PROD_TMR_BN_END 5004u
#define ZAN_VRRP_PROD_TMR_RN_DATA 5005u

#define ZAN_VRRP_PROD_MSG_MAX 4096u
#define ZAN_VRRP_PART_KEY_LEN 16u

typedef struct ZAN_VRRP_PROD_CFG {
    const char *pcName;
} ZAN_VRRP_PROD_CFG_S;

typedef struct ZAN_VRRP_PROD {
    const char *Name;
    uint8_t State;
    uint32_t bBNotifyDataEnd;
    ZAN_RBT_HEAD_S stPartTree;
    ZAN_LIST_LINK_S stPartList;
    ZAN_LIST_LINK_S stWaitAckList;
    uint32_t tran;
    uint32_t seq;
    uint32_t tmr;
    uint32_t bIsFcmOn;
    /* Resets so far. A sending step that hands control to the application (traces,
     * pfnMsgAllocFail, pfnProdBatchBegin) compares it before and after: when the application
     * reset the producer meanwhile (work state off, and maybe on again), the step is over. */
    uint32_t ulResetCnt;
    /* The part being packed while the packing traces: deleting it meanwhile (the application
     * replaces or drops it from a callback) only takes it off the lists; the packer frees it. */
    struct ZAN_VRRP_PART *pPinned;
    uint32_t bPinnedGone;
} ZAN_VRRP_PROD_S;

/* A data part; the key TLV and the data TLV follow the record in the same block. */
typedef struct ZAN_VRRP_PART {
    uint32_t bWaitAck;
    ZAN_RBT_NODE_S stTreeNode;
    ZAN_LIST_LINK_S stListNode;
} ZAN_VRRP_PART_S;

/* A part with its key TLV and an 8-byte data TLV: at most 64 bytes on a 32-bit target. */
static_assert(sizeof(void *) != 4u || sizeof(ZAN_VRRP_PART_S) + 24u <= 64u, "a part holds at most 64 bytes");

/* Send parameters of one producer request, host order. */
typedef struct ZAN_VRRP_PROD_SEND_PARA {
    uint8_t ucMsgType;
    uint16_t usMsgLen;
    uint32_t ulTransId;
    uint16_t usHdrWord8;
    uint16_t usHdrWord10;
    uint32_t ulSeqNum;
} ZAN_VRRP_PROD_SEND_PARA_S;

static inline uint8_t *ZAN_VrrpProd_PartTlv(ZAN_VRRP_PART_S *pPart)
{
    return (uint8_t *)(pPart + 1);
}

/* True when the producer was reset since ulResetCnt was read. */
static inline bool ZAN_VrrpProd_ResetSince_(const ZAN_VRRP_INST_S *pInst, uint32_t ulResetCnt)
{
    return pInst->pProd->ulResetCnt != ulResetCnt;
}

/* Trace point of the producer, with debug text when debug output is on. */
void ZAN_VrrpProd_Trace_(ZAN_COMP_CTX_S *pCompCtx, uint32_t ulLine, const char *pcFmt, ...)
    __attribute__((format(printf, 3, 4)));

#define ZAN_VRRP_PROD_TRACE(pCompCtx, ulLine, ...) ZAN_VrrpProd_Trace_((pCompCtx), (ulLine), __VA_ARGS__)

/* Record, states, timer, lifecycle. */
uint32_t ZAN_VrrpProd_Init(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_PROD_CFG_S *pCfg);
uint32_t ZAN_VrrpProd_ChgState_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint32_t ulNewState);
uint32_t ZAN_VrrpProd_StartTmr_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint32_t ulPeriodMs);
void ZAN_VrrpProd_StopTmr_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_TmrIsStart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_Reset_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpProd_Uninit(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_OnVrrpUp(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_OnVrrpDown(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
void ZAN_VrrpProd_OnTmrTO_(void *pInst, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx);
uint32_t ZAN_VrrpProd_OnFcm(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_OnFlush(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);

/* Data parts. */
uint32_t ZAN_VrrpProd_CmpPart_(const ZAN_RBT_NODE_S *pNode, const void *pKey);
/* Stores a new part (a zeroed block with copies of both TLVs) in the tree and at the tail of
 * the time list; NULL when the block cannot be allocated or the tree refuses it. */
ZAN_VRRP_PART_S *ZAN_VrrpProd_AddPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey,
                                       const ZAN_VRRP_TLV_S *pData);
/* The part in the tree with the 16-byte part key, or NULL. */
ZAN_VRRP_PART_S *ZAN_VrrpProd_FindPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const uint8_t *pucKey);
void ZAN_VrrpProd_DelPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart);
uint32_t ZAN_VrrpProd_MovePart2WaitAck_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart);
ZAN_VRRP_PART_S *ZAN_VrrpProd_GetFirstPartByTime_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                  ZAN_LIST_LINK_S **ppCursor);
ZAN_VRRP_PART_S *ZAN_VrrpProd_GetNextPartByTime_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                 ZAN_LIST_LINK_S **ppCursor);
ZAN_VRRP_PART_S *ZAN_VrrpProd_GetFirstWaitAckPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                   ZAN_LIST_LINK_S **ppCursor);
ZAN_VRRP_PART_S *ZAN_VrrpProd_GetNextWaitAckPart_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                                  ZAN_LIST_LINK_S **ppCursor);
uint32_t ZAN_VrrpProd_SendData(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey,
                               const ZAN_VRRP_TLV_S *pData);
/* Parts on a list (time list or wait-ack list), counted by walking it. */
uint32_t ZAN_VrrpProd_CountList_(const ZAN_LIST_LINK_S *pHead);

/* Requests. */
uint8_t *ZAN_VrrpProd_MallocSendMsg_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                     const ZAN_VRRP_PROD_SEND_PARA_S *pPara);
uint32_t ZAN_VrrpProd_FillSendMsg_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart,
                                   uint8_t *pMsg, uint32_t ulCapacity);
void ZAN_VrrpProd_FinishSend_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg);
/* Sends pMsg (may be NULL: nothing to send) unless the producer was reset since ulResetCnt was
 * read, in which case the message is released. 0: the step goes on; 1: a reset ended it. */
uint32_t ZAN_VrrpProd_SendUnlessReset_(ZAN_VRRP_INST_S *pInst, uint8_t *pMsg, uint32_t ulResetCnt);
/* Packs pPart into pMsg (FillSendMsg_) with the part pinned; *pbGone tells whether the part was
 * deleted meanwhile (then already freed here). */
uint32_t ZAN_VrrpProd_FillPinned_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, ZAN_VRRP_PART_S *pPart,
                                  uint8_t *pMsg, uint32_t *pbGone);
uint32_t ZAN_VrrpProd_DoAddProd_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);

/* Registration and batch. */
uint32_t ZAN_VrrpProd_OnAddProdAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                   const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg);
uint32_t ZAN_VrrpProd_DoBNotifyBegin_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_OnBBBeginAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                   const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg);
uint32_t ZAN_VrrpProd_DoBNotifyData_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_DoBNotifyEnd_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_OnBBEndAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                 const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg);

/* Real-time notification. */
uint32_t ZAN_VrrpProd_DoRNotifyData_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_OnRNotifyDataAck(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                       const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg);

/* Notify events from the VRRP component. */
uint32_t ZAN_VrrpProd_OnNotifyEvent(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst,
                                    const ZAN_VRRP_MSG_DECODE_S *pDecode, uint8_t *pMsg);
uint32_t ZAN_VrrpProd_DoNotifyEventAck_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint8_t *pMsg);

/* Retransmission. */
uint32_t ZAN_VrrpProd_ReDo_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);
uint32_t ZAN_VrrpProd_NeedReDoAcc_(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst);

/* Diagnostics. */
uint32_t ZAN_VrrpProd_GetInstProd(ZAN_COMP_CTX_S *pCompCtx, ZAN_VRRP_INST_S *pInst, uint8_t *pucRec,
                                  ZAN_INNERDATA_REQ_S *pReq);

#endif
