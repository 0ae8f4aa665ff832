/* Component framework: component context, adapter base and instance table, instances,
 * message-handler and configuration registrations, loop timers. */
#ifndef ZAN_FRAME_H
#define ZAN_FRAME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Circular doubly linked list link; a list is empty when its head points at itself. */
typedef struct ZAN_LIST_LINK {
    struct ZAN_LIST_LINK *pNext;
    struct ZAN_LIST_LINK *pPrev;
} ZAN_LIST_LINK_S;

/* The configuration service's object on which configuration callbacks are registered. */
typedef struct ZAN_CFG_OBJ {
    uint32_t ulObjId;
} ZAN_CFG_OBJ_S;

/* The framework's record of one application component: the values a library reads of it. */
typedef struct ZAN_COMP_CTX {
    uint32_t ulHandle;        /* passed back in every application callback */
    uint32_t ulCid;           /* component id */
    uint16_t usCompKind;      /* component kind */
    uint16_t usStartInhibit;  /* non-zero: new instances are not started by the adapter */
    uint32_t ulFwMemHandle;   /* framework memory handle of the component */
    uint32_t ulMsgAllocHandle;/* first argument of KOL_MsgFlowCtrlAlloc_F */
    void *pAdpSlot;           /* the component adapter, empty until created */
    ZAN_CFG_OBJ_S stCfgObj;   /* configuration object */
} ZAN_COMP_CTX_S;

/* Framework component-adapter header; first member of a component's adapter record.
 * The library reads pCompCtx and usMsgClass; the rest is the framework's. */
typedef struct ZAN_COMP_ADP {
    ZAN_COMP_CTX_S *pCompCtx;
    uint16_t usMsgClass;
    uint16_t usRsv;
    void *pInstTbl;
} ZAN_COMP_ADP_S;

struct ZAN_COMP_INST_VOPS;

/* Framework instance head; first member of an instance record. */
typedef struct ZAN_COMP_INST {
    const struct ZAN_COMP_INST_VOPS *pVOps;
    uint32_t ulPid;
    uint32_t ulStatus;        /* 0 while the framework runs the instance */
    ZAN_COMP_CTX_S *pCompCtx;
    uint32_t ulIfGroupId;     /* given to ZAN_CompInst_Init */
    void *pFwRsv;
} ZAN_COMP_INST_S;

typedef uint32_t (*ZAN_INST_OP_PF)(void *pInst);

/* Instance operations: slot 0 Up, slot 1 Down, four further slots. */
typedef struct ZAN_COMP_INST_VOPS {
    ZAN_INST_OP_PF apfnOp[6];
} ZAN_COMP_INST_VOPS_S;

#define ZAN_INST_OP_UP 0
#define ZAN_INST_OP_DOWN 1

/* Adapter base and instance table (keyed by pid). */
uint32_t ZAN_CompAdp_Init(ZAN_COMP_ADP_S *pAdp, uint32_t ulParam1, uint32_t ulParam2, ZAN_COMP_CTX_S *pCompCtx);
/* Runs pfnInstDeInit for every instance and drops the table. */
void ZAN_CompAdp_DeInit(ZAN_COMP_ADP_S *pAdp, ZAN_INST_OP_PF pfnInstDeInit);
uint32_t ZAN_CompAdp_AddInst(ZAN_COMP_ADP_S *pAdp, ZAN_COMP_INST_S *pInst);
uint32_t ZAN_CompAdp_DelInst(ZAN_COMP_ADP_S *pAdp, ZAN_COMP_INST_S *pInst);
ZAN_COMP_INST_S *ZAN_CompAdp_FindInstByPid(ZAN_COMP_ADP_S *pAdp, uint32_t ulPid);
/* Calls pfn for every instance; returns the first non-zero result, else 0. */
uint32_t ZAN_CompAdp_ScanInstTbl(ZAN_COMP_ADP_S *pAdp, ZAN_INST_OP_PF pfn);

/* Instances. */
uint32_t ZAN_CompInst_Init(ZAN_COMP_INST_S *pInst, uint32_t ulPid, ZAN_COMP_CTX_S *pCompCtx, uint32_t ulIfGroupId);
uint32_t ZAN_CompInst_StartWork(ZAN_COMP_INST_S *pInst);

/* Message handlers: pfnProc for every message of usMsgClass, pfnFlush when the framework flushes.
 * A registration lasts as long as the component (a new one for the same class replaces it);
 * there is no withdrawal, so pArg must stay valid for the component's life. The same holds for
 * configuration callbacks and inner-data commands. */
typedef uint32_t (*ZAN_MSG_PROC_PF)(void *pMsg, void *pArg);
typedef uint32_t (*ZAN_FLUSH_PF)(void *pArg);
uint32_t ZAN_Frame_RegMsgProc(ZAN_COMP_CTX_S *pCompCtx, uint16_t usMsgClass, ZAN_MSG_PROC_PF pfnProc, void *pArg,
                              ZAN_FLUSH_PF pfnFlush);

/* Loop timers: pfn(param, timer value, component context) every periodMs until stopped.
 * Returns a non-zero handle, or 0 on failure. */
typedef void (*ZAN_TMR_PF)(void *pParam, uint32_t ulTmrVal, ZAN_COMP_CTX_S *pCompCtx);
uint32_t ZAN_Frame_StartLoopTmr(ZAN_COMP_CTX_S *pCompCtx, ZAN_TMR_PF pfn, uint32_t ulPeriodMs, void *pParam);
void ZAN_Frame_StopTmr(ZAN_COMP_CTX_S *pCompCtx, uint32_t ulHandle);

/* Configuration callbacks: pfn(arg, record) for operation op of table tblId, records of recLen bytes. */
typedef uint32_t (*ZAN_CFG_PF)(void *pArg, const void *pRec);
uint32_t ZAN_SMP_RegCfgCallBack(ZAN_CFG_OBJ_S *pCfgObj, uint32_t ulTblId, uint32_t ulOp, uint32_t ulRecLen,
                                ZAN_CFG_PF pfn, void *pArg);

#ifdef __cplusplus
}
#endif
#endif
