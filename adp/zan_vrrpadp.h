/* Component adapter: the adapter context, tracing, message header and dispatch, deploy
 * relations and the application interface. */
#ifndef ZAN_VRRPADP_H
#define ZAN_VRRPADP_H

#include <stdarg.h>
#include <stdint.h>
#include <string.h>

#include "../include/zan_vrrp_lib.h"
#include "../platform/zan_platform.h"

#define ZAN_VRRP_MSG_TYPE_NUM 17u
#define ZAN_VRRP_MSG_HDR_LEN 20u

/* Message types. */
enum {
    ZAN_VRRP_MSG_UNKNOWN = 0,
    ZAN_VRRP_MSG_ADD_PRODUCER = 1,
    ZAN_VRRP_MSG_DEL_PRODUCER = 2,
    ZAN_VRRP_MSG_BN_BEGIN = 3,
    ZAN_VRRP_MSG_BN_DATA = 4,
    ZAN_VRRP_MSG_BN_END = 5,
    ZAN_VRRP_MSG_RN_DATA = 6,
    ZAN_VRRP_MSG_REGISTER = 7,
    ZAN_VRRP_MSG_UNREGISTER = 8,
    ZAN_VRRP_MSG_SUBSCRIBE = 9,
    ZAN_VRRP_MSG_UNSUBSCRIBE = 10,
    ZAN_VRRP_MSG_BU_BEGIN = 11,
    ZAN_VRRP_MSG_BU_DATA = 12,
    ZAN_VRRP_MSG_BU_END = 13,
    ZAN_VRRP_MSG_BU_BEGIN_END = 14,
    ZAN_VRRP_MSG_RU_DATA = 15,
    ZAN_VRRP_MSG_NOTIFY_EVENT = 16,
};

/* Byte offsets of the 20-byte header. */
enum {
    ZAN_VRRP_HDR_MSGLEN = 0,
    ZAN_VRRP_HDR_FLAGS = 2,
    ZAN_VRRP_HDR_TYPE = 3,
    ZAN_VRRP_HDR_TRANSID = 4,
    ZAN_VRRP_HDR_WORD8 = 8,
    ZAN_VRRP_HDR_WORD10 = 10,
    ZAN_VRRP_HDR_SEQNUM = 12,
    ZAN_VRRP_HDR_WORD16 = 16,
    ZAN_VRRP_HDR_ENTRYCNT = 18,
};
#define ZAN_VRRP_FLAG_ACK 0x80u
#define ZAN_VRRP_FLAG_BASE 0x01u

/* Host-order summary of a received header; lives for one dispatch. */
typedef struct ZAN_VRRP_MSG_DECODE {
    uint16_t usType;
    uint8_t bAck;
    uint32_t ulSeqNum;
    uint32_t ulTransId;
} ZAN_VRRP_MSG_DECODE_S;

/* Deploy record, host byte order, 36 bytes. */
typedef struct ZAN_VRRP_DEPLOY_REC {
    uint32_t ulKind;
    uint32_t ulPid;
    uint32_t aulRsv1[3];
    uint32_t ulIfGroupId;
    uint32_t aulRsv2[3];
} ZAN_VRRP_DEPLOY_REC_S;

#define ZAN_VRRP_DEPLOY_KIND 37u
#define ZAN_VRRP_DEPLOY_TBL 0xD30A6B7u
#define ZAN_VRRP_DEPLOY_OP_CREATE 0u
#define ZAN_VRRP_DEPLOY_OP_DELETE 2u
#define ZAN_VRRP_DEPLOY_REC_LEN 36u

typedef struct ZAN_VRRP_DEPLOY_NODE {
    ZAN_LIST_LINK_S stLink; /* next, prev */
    ZAN_VRRP_DEPLOY_REC_S stRec;
} ZAN_VRRP_DEPLOY_NODE_S;

typedef struct ZAN_VRRP_ADP_ERR_STAT {
    uint16_t usMallocFail;
    uint16_t usNoInst;
    uint16_t usAddSubItem;
    uint16_t usAddUnSubItem;
    uint16_t usAddDeploy;
    uint16_t usCrtInst;
    uint16_t usFindDeploy;
    uint16_t usCrtSameInst;
    uint16_t usFindInstByPid;
} ZAN_VRRP_ADP_ERR_STAT_S;

typedef struct ZAN_VRRP_ADP_EVT_STAT {
    uint16_t usSubscribe;
    uint16_t usUnSubscribe;
    uint16_t usCrtDeploy;
    uint16_t usDelDeploy;
    uint16_t usCrtInst;
    uint16_t usDelInst;
} ZAN_VRRP_ADP_EVT_STAT_S;

/* Counters not in the display: messages the receive path refused as malformed. */
typedef struct ZAN_VRRP_ADP_DROP_STAT {
    uint32_t ulShortMsg;   /* fewer than 20 bytes delivered */
    uint32_t ulBadMsgLen;  /* usMsgLen beyond the delivered size */
    uint32_t ulShortFcm;   /* flow-control message too short to hold its pid */
} ZAN_VRRP_ADP_DROP_STAT_S;

/* Counters not in the display: framework calls that refused, each undone where it happened. */
typedef struct ZAN_VRRP_ADP_FW_STAT {
    uint32_t ulInstInit;   /* ZAN_CompInst_Init refused: the instance was not created */
    uint32_t ulAddInst;    /* ZAN_CompAdp_AddInst refused: the instance was not created */
    uint32_t ulStartWork;  /* ZAN_CompInst_StartWork refused: created all the same, it waits for the framework's Up */
    uint32_t ulDelInst;    /* ZAN_CompAdp_DelInst refused: the ended instance stays until it can go */
} ZAN_VRRP_ADP_FW_STAT_S;

struct ZAN_VRRP_ADP {
    ZAN_COMP_ADP_S stAdpBase;
    uint32_t ulMemHandle;
    ZAN_VRRP_CALLBACK_S stCallBack;
    ZAN_LIST_LINK_S stDeployList;
    uint8_t bDebugOn;
    uint8_t bWorkOn;
    /* 1 from a successful initialisation to ZAN_VrrpAdp_DeInit. The framework keeps what was
     * registered with the context (there is no withdrawal), so a context that registered
     * anything is never freed: it stays in the component's adapter slot, its handlers do
     * nothing while it is not live, and the next ZAN_VrrpAdp_Get initialises it again. */
    uint8_t bLive;
    uint8_t bRegsMade; /* the initialisation reached the registrations */
    uint32_t aulRcvReqCnt[ZAN_VRRP_MSG_TYPE_NUM];
    uint32_t aulRcvAckCnt[ZAN_VRRP_MSG_TYPE_NUM];
    ZAN_VRRP_ADP_ERR_STAT_S stErrStat;
    ZAN_VRRP_ADP_EVT_STAT_S stEvtStat;
    ZAN_VRRP_ADP_DROP_STAT_S stDropStat;
    ZAN_VRRP_ADP_FW_STAT_S stFwStat;
};

#define ZAN_VRRP_ADP_FILE "zan_vrrpadp"
#define ZAN_VRRP_ADP_MODULE "zan vrrp, adp"
#define ZAN_VRRP_ALL_ONES 0xFFFFFFFFu

struct ZAN_VRRP_INST;

/* Tracing: pfnTracePoint(module, line), then, when pfnIsDebugOn answers non-zero, the text
 * formatted into 256 bytes (truncating) to pfnDebugOut. pcFmt NULL: trace point only. */
void ZAN_VrrpAdp_Trace(const ZAN_VRRP_ADP_S *pAdp, const char *pcModule, uint32_t ulLine, const char *pcFmt, ...)
    __attribute__((format(printf, 4, 5)));

void ZAN_VrrpAdp_TraceV(const ZAN_VRRP_ADP_S *pAdp, const char *pcModule, uint32_t ulLine, const char *pcFmt,
                        va_list ap);

/* Byte-order helpers for unaligned buffer fields; inline, as the receive path runs them for
 * every word of every record. */
static inline uint16_t ZAN_VrrpAdp_GetBe16(const uint8_t *p)
{
    return (uint16_t)((uint16_t)(p[0] << 8) | p[1]);
}

static inline uint32_t ZAN_VrrpAdp_GetBe32(const uint8_t *p)
{
    return ((uint32_t)p[0] << 24) | ((uint32_t)p[1] << 16) | ((uint32_t)p[2] << 8) | (uint32_t)p[3];
}

static inline void ZAN_VrrpAdp_PutBe16(uint8_t *p, uint16_t v)
{
    p[0] = (uint8_t)(v >> 8);
    p[1] = (uint8_t)v;
}

static inline void ZAN_VrrpAdp_PutBe32(uint8_t *p, uint32_t v)
{
    p[0] = (uint8_t)(v >> 24);
    p[1] = (uint8_t)(v >> 16);
    p[2] = (uint8_t)(v >> 8);
    p[3] = (uint8_t)v;
}

static inline uint16_t ZAN_VrrpAdp_GetHost16(const uint8_t *p)
{
    uint16_t v;
    memcpy(&v, p, sizeof(v));
    return v;
}

static inline uint32_t ZAN_VrrpAdp_GetHost32(const uint8_t *p)
{
    uint32_t v;
    memcpy(&v, p, sizeof(v));
    return v;
}

static inline void ZAN_VrrpAdp_PutHost16(uint8_t *p, uint16_t v)
{
    memcpy(p, &v, sizeof(v));
}

static inline void ZAN_VrrpAdp_PutHost32(uint8_t *p, uint32_t v)
{
    memcpy(p, &v, sizeof(v));
}
/* Converts the five fields at offsets 8, 10, 12, 16, 18 between network and host order
 * (the conversion is its own inverse). */
void ZAN_VrrpAdp_SwapHdrFields(uint8_t *pMsg);

/* Adapter (framework registration). */
uint32_t ZAN_VrrpAdp_Init_(ZAN_VRRP_ADP_S *pAdp, ZAN_COMP_CTX_S *pCompCtx);
/* What the adapter's end runs for each instance of the framework's table (nothing for NULL). */
uint32_t ZAN_VrrpAdp_DeInitInst_(void *pInst);
uint32_t ZAN_VrrpAdp_Flush_(void *pAdp);
uint32_t ZAN_VrrpAdp_Fcm_(void *pMsg, void *pAdp);
uint32_t ZAN_VrrpAdp_SetWorkOn_(void *pInst);
uint32_t ZAN_VrrpAdp_SetWorkDown_(void *pInst);

/* Receive path. The framework ignores ProcMsg_'s result. */
uint32_t ZAN_VrrpAdp_ProcMsg_(void *pMsg, void *pAdp);
void ZAN_VrrpAdp_ProcAckMsg_(ZAN_VRRP_ADP_S *pAdp, struct ZAN_VRRP_INST *pInst, uint8_t *pMsg,
                             const ZAN_VRRP_MSG_DECODE_S *pDecode);
void ZAN_VrrpAdp_ProcReqMsg_(ZAN_VRRP_ADP_S *pAdp, struct ZAN_VRRP_INST *pInst, uint8_t *pMsg,
                             const ZAN_VRRP_MSG_DECODE_S *pDecode);

/* Deploy relations and instances. */
uint32_t ZAN_VrrpAdp_CreateDeploy_(void *pAdp, const void *pRec);
uint32_t ZAN_VrrpAdp_DeleteDeploy_(void *pAdp, const void *pRec);
uint32_t ZAN_VrrpAdp_CreateInst_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid, uint32_t ulIfGroupId);
uint32_t ZAN_VrrpAdp_DeleteInst_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid);
/* Takes an ended instance out of the framework's table and frees it; non-zero when refused. */
uint32_t ZAN_VrrpAdp_RemoveInst_(ZAN_VRRP_ADP_S *pAdp, struct ZAN_VRRP_INST *pInst);
/* The instance of pid as the framework's lookup finds it, but NULL for one that has ended and
 * stays in the framework's table only because its deletion was refused. */
struct ZAN_VRRP_INST *ZAN_VrrpAdp_LiveInstOfPid_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid);
uint32_t ZAN_VrrpAdp_AddDeployRel_(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_DEPLOY_REC_S *pRec);
uint32_t ZAN_VrrpAdp_DelDeployRel_(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_DEPLOY_REC_S *pRec);
ZAN_VRRP_DEPLOY_NODE_S *ZAN_VrrpAdp_FindDeployRel_(ZAN_LIST_LINK_S *pHead, const ZAN_VRRP_DEPLOY_REC_S *pRec);
uint32_t ZAN_VrrpAdp_IsDeployRelOfPidEmpty_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid);
struct ZAN_VRRP_INST *ZAN_VrrpAdp_FindInstByIfGroupId_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulIfGroupId);

/* Makes a circular list empty: the head points at itself. */
static inline void ZAN_VrrpAdp_ListInit(ZAN_LIST_LINK_S *pHead)
{
    pHead->pNext = pHead;
    pHead->pPrev = pHead;
}

/* The deploy node of a list link. */
static inline ZAN_VRRP_DEPLOY_NODE_S *ZAN_VrrpAdp_NodeOfLink(ZAN_LIST_LINK_S *pLink)
{
    return (ZAN_VRRP_DEPLOY_NODE_S *)(void *)pLink;
}

#endif
