// The adapter context: creation, framework registrations, teardown, callback table, work
// state, flush and flow-control routing.
#include "zan_vrrpadp.h"

#include "../innerdata/zan_vrrpinnerdata.h"
#include "../inst/zan_vrrpinst.h"
#include "../prod/zan_vrrp_prod.h"

namespace {

constexpr uint32_t ZAN_VRRP_MEM_ID_LOW = 0xff09u;
constexpr uint32_t ZAN_VRRP_ADP_PARAM1 = 3u;
constexpr uint32_t ZAN_VRRP_ADP_PARAM2 = 85u;
constexpr uint16_t ZAN_VRRP_FCM_MSG_CLASS = 7u;
constexpr uint32_t ZAN_VRRP_FCM_PID_OFF = 8u;

// After a failed initialisation the memory handle (which holds no block yet) and the
// framework's adapter base are ended; whatever was registered stays with the framework.
void ZAN_VrrpAdp_UndoInit_(ZAN_VRRP_ADP_S *pAdp)
{
    if (pAdp->ulMemHandle != 0u) {
        ZAN_CompAdp_DeInit(&pAdp->stAdpBase, ZAN_VrrpAdp_DeInitInst_);
        KOL_HandleFinalize(pAdp->ulMemHandle);
        pAdp->ulMemHandle = 0u;
    }
}

}  // namespace

// Every instance is taken down as the consumer does it, then its producer record is released:
// producer records live on the framework memory handle, which the adapter does not finalise.
uint32_t ZAN_VrrpAdp_DeInitInst_(void *pvInst)
{
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    if (pInst == nullptr) {
        return 0;
    }
    (void)ZAN_VrrpInst_DeInit(pInst);
    ZAN_VrrpProd_Uninit(ZAN_VrrpInst_Ctx(pInst), pInst);
    return 0;
}

ZAN_VRRP_ADP_S *ZAN_VrrpAdp_Get(ZAN_COMP_CTX_S *pCompCtx)
{
    if (pCompCtx == nullptr) {
        return nullptr;
    }
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pCompCtx->pAdpSlot);
    if (pAdp != nullptr && pAdp->bLive != 0u) {
        if (pAdp->stCallBack.pfnIsDebugOn != nullptr) {
            pAdp->bDebugOn = (uint8_t)pAdp->stCallBack.pfnIsDebugOn(pCompCtx->ulHandle);
        }
        return pAdp;
    }

    // A context kept in the slot (ended, or its initialisation failed after registering) is
    // initialised again in place: the framework may still hand it to the handlers.
    const bool bKept = pAdp != nullptr;
    if (!bKept) {
        pAdp = static_cast<ZAN_VRRP_ADP_S *>(
            KOL_Malloc_F(pCompCtx->ulFwMemHandle, g_aucKolMemPt[0], sizeof(ZAN_VRRP_ADP_S), ZAN_VRRP_ADP_FILE, 74));
        if (pAdp == nullptr) {
            return nullptr;
        }
    }
    if (ZAN_VrrpAdp_Init_(pAdp, pCompCtx) != 0u) {
        ZAN_VrrpAdp_UndoInit_(pAdp);
        if (bKept || pAdp->bRegsMade != 0u) {
            pCompCtx->pAdpSlot = pAdp;  // kept: a registration may name it
        } else {
            KOL_Free_F(pAdp, ZAN_VRRP_ADP_FILE, 81);
            pCompCtx->pAdpSlot = nullptr;
        }
        return nullptr;
    }
    pCompCtx->pAdpSlot = pAdp;
    return pAdp;
}

uint32_t ZAN_VrrpAdp_Init_(ZAN_VRRP_ADP_S *pAdp, ZAN_COMP_CTX_S *pCompCtx)
{
    if (pAdp == nullptr) {
        KOL_Assert(ZAN_VRRP_ADP_FILE, 241, 0);
        return 1;
    }
    (void)memset_s(pAdp, sizeof(*pAdp), 0, sizeof(*pAdp));

    const uint32_t ulMemId = ZAN_VRRP_MEM_ID_LOW | ((uint32_t)pCompCtx->usCompKind << 16);
    if (KOL_HandleInitialize(pCompCtx->ulCid, ulMemId, &pAdp->ulMemHandle) != 0u) {
        pAdp->ulMemHandle = 0u;
        return 1;
    }
    // Without the framework's adapter base there is no instance table to work with.
    if (ZAN_CompAdp_Init(&pAdp->stAdpBase, ZAN_VRRP_ADP_PARAM1, ZAN_VRRP_ADP_PARAM2, pCompCtx) != 0u) {
        return 1;
    }

    // All registrations are made; their results are combined.
    pAdp->bRegsMade = 1;
    uint32_t ulRet = 0;
    ulRet |= ZAN_Frame_RegMsgProc(pCompCtx, pAdp->stAdpBase.usMsgClass, ZAN_VrrpAdp_ProcMsg_, pAdp,
                                  ZAN_VrrpAdp_Flush_);
    ulRet |= ZAN_Frame_RegMsgProc(pCompCtx, ZAN_VRRP_FCM_MSG_CLASS, ZAN_VrrpAdp_Fcm_, pAdp, ZAN_VrrpAdp_Flush_);
    ulRet |= ZAN_SMP_RegCfgCallBack(&pCompCtx->stCfgObj, ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_CREATE,
                                    ZAN_VRRP_DEPLOY_REC_LEN, ZAN_VrrpAdp_CreateDeploy_, pAdp);
    ulRet |= ZAN_SMP_RegCfgCallBack(&pCompCtx->stCfgObj, ZAN_VRRP_DEPLOY_TBL, ZAN_VRRP_DEPLOY_OP_DELETE,
                                    ZAN_VRRP_DEPLOY_REC_LEN, ZAN_VrrpAdp_DeleteDeploy_, pAdp);
    ulRet |= ZAN_VrrpInnerData_Init(pAdp);
    if (ulRet != 0u) {
        return 1;
    }
    ZAN_VrrpAdp_ListInit(&pAdp->stDeployList);
    pAdp->bWorkOn = 1;
    pAdp->bLive = 1;
    return 0;
}

void ZAN_VrrpAdp_DeInit(ZAN_COMP_CTX_S *pCompCtx)
{
    if (pCompCtx == nullptr || pCompCtx->pAdpSlot == nullptr) {
        return;
    }
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pCompCtx->pAdpSlot);
    if (pAdp->ulMemHandle != 0u) {
        ZAN_CompAdp_DeInit(&pAdp->stAdpBase, ZAN_VrrpAdp_DeInitInst_);
        ZAN_LIST_LINK_S *pHead = &pAdp->stDeployList;
        while (pHead->pNext != pHead) {
            ZAN_LIST_LINK_S *pLink = pHead->pNext;
            pHead->pNext = pLink->pNext;
            pLink->pNext->pPrev = pHead;
            KOL_Free_F(ZAN_VrrpAdp_NodeOfLink(pLink), ZAN_VRRP_ADP_FILE, 114);
        }
        KOL_HandleFinalize(pAdp->ulMemHandle);
        pAdp->ulMemHandle = 0u;
    }
    // The context itself stays in the slot, ended: the framework keeps its registrations, and
    // the next ZAN_VrrpAdp_Get starts it afresh.
    pAdp->bLive = 0;
}

uint32_t ZAN_VrrpAdp_RegCallBack(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_CALLBACK_S *pCallBack)
{
    if (pAdp == nullptr || pCallBack == nullptr) {
        return 1;
    }
    return memcpy_s(&pAdp->stCallBack, sizeof(pAdp->stCallBack), pCallBack, sizeof(*pCallBack));
}

uint32_t ZAN_VrrpAdp_SetWorkOn_(void *pInst)
{
    if (pInst != nullptr) {
        ZAN_VrrpInst_SetWorkState(static_cast<ZAN_VRRP_INST_S *>(pInst), 1);
    }
    return 0;
}

uint32_t ZAN_VrrpAdp_SetWorkDown_(void *pInst)
{
    if (pInst != nullptr) {
        ZAN_VrrpInst_SetWorkState(static_cast<ZAN_VRRP_INST_S *>(pInst), 0);
    }
    return 0;
}

uint32_t ZAN_VrrpAdp_SetWorkState(ZAN_VRRP_ADP_S *pAdp, uint32_t ulOn)
{
    if (pAdp == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    pAdp->bWorkOn = (ulOn != 0u) ? 1 : 0;
    return ZAN_CompAdp_ScanInstTbl(&pAdp->stAdpBase, (ulOn != 0u) ? ZAN_VrrpAdp_SetWorkOn_ : ZAN_VrrpAdp_SetWorkDown_);
}

uint32_t ZAN_VrrpAdp_Flush_(void *pvAdp)
{
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pvAdp);
    if (pAdp->bLive == 0u) {
        return 0;
    }
    return ZAN_CompAdp_ScanInstTbl(&pAdp->stAdpBase, ZAN_VrrpInst_Flush);
}

uint32_t ZAN_VrrpAdp_Fcm_(void *pMsg, void *pvAdp)
{
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pvAdp);
    if (pAdp->bLive == 0u) {
        return 0;
    }
    if (MSG_DataSizeGet(pMsg) < ZAN_VRRP_FCM_PID_OFF + sizeof(uint32_t)) {
        pAdp->stDropStat.ulShortFcm++;
        return 0;
    }
    const uint32_t ulPid = ZAN_VrrpAdp_GetHost32(static_cast<const uint8_t *>(pMsg) + ZAN_VRRP_FCM_PID_OFF);
    ZAN_VRRP_INST_S *pInst = ZAN_VrrpAdp_LiveInstOfPid_(pAdp, ulPid);
    if (pInst == nullptr) {
        pAdp->stErrStat.usFindInstByPid++;
        return 0;
    }
    if (pAdp->stCallBack.pfnFcm != nullptr) {
        pAdp->stCallBack.pfnFcm(ulPid, pAdp->stAdpBase.pCompCtx->ulHandle);
    }
    return ZAN_VrrpInst_Fcm(pInst);
}
