// Deploy relations (configuration records naming a VRRP component and an interface group)
// and the one instance per pid that they create and delete.
#include "zan_vrrpadp.h"

#include "../inst/zan_vrrpinst.h"
#include "../prod/zan_vrrp_prod.h"

namespace {

const ZAN_VRRP_PROD_CFG_S g_stZanVrrpProdCfg = {ZAN_VRRP_PROD_NAME};
constexpr uint32_t LINE_FREE_UNMADE_INST = 466;

}  // namespace

ZAN_VRRP_DEPLOY_NODE_S *ZAN_VrrpAdp_FindDeployRel_(ZAN_LIST_LINK_S *pHead, const ZAN_VRRP_DEPLOY_REC_S *pRec)
{
    for (ZAN_LIST_LINK_S *pLink = pHead->pNext; pLink != pHead; pLink = pLink->pNext) {
        ZAN_VRRP_DEPLOY_NODE_S *pNode = ZAN_VrrpAdp_NodeOfLink(pLink);
        if (WUX_MemCmp(&pNode->stRec, pRec, ZAN_VRRP_DEPLOY_REC_LEN) == 0) {
            return pNode;
        }
    }
    return nullptr;
}

uint32_t ZAN_VrrpAdp_IsDeployRelOfPidEmpty_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid)
{
    ZAN_LIST_LINK_S *pHead = &pAdp->stDeployList;
    for (ZAN_LIST_LINK_S *pLink = pHead->pNext; pLink != pHead; pLink = pLink->pNext) {
        if (ZAN_VrrpAdp_NodeOfLink(pLink)->stRec.ulPid == ulPid) {
            return 0;
        }
    }
    return 1;
}

uint32_t ZAN_VrrpAdp_AddDeployRel_(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_DEPLOY_REC_S *pRec)
{
    if (ZAN_VrrpAdp_FindDeployRel_(&pAdp->stDeployList, pRec) != nullptr) {
        pAdp->stErrStat.usFindDeploy++;
        return 0;
    }
    ZAN_VRRP_DEPLOY_NODE_S *pNode = static_cast<ZAN_VRRP_DEPLOY_NODE_S *>(
        KOL_Malloc_F(pAdp->ulMemHandle, g_aucKolMemPt[0], sizeof(ZAN_VRRP_DEPLOY_NODE_S), ZAN_VRRP_ADP_FILE, 350));
    if (pNode == nullptr) {
        pAdp->stErrStat.usMallocFail++;
        return 1;
    }
    pNode->stRec = *pRec;
    // Front insertion: every walk sees the most recent relation first.
    ZAN_LIST_LINK_S *pHead = &pAdp->stDeployList;
    pNode->stLink.pNext = pHead->pNext;
    pNode->stLink.pPrev = pHead;
    pHead->pNext->pPrev = &pNode->stLink;
    pHead->pNext = &pNode->stLink;
    return 0;
}

uint32_t ZAN_VrrpAdp_DelDeployRel_(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_DEPLOY_REC_S *pRec)
{
    ZAN_VRRP_DEPLOY_NODE_S *pNode = ZAN_VrrpAdp_FindDeployRel_(&pAdp->stDeployList, pRec);
    if (pNode == nullptr) {
        return 0;
    }
    pNode->stLink.pPrev->pNext = pNode->stLink.pNext;
    pNode->stLink.pNext->pPrev = pNode->stLink.pPrev;
    KOL_Free_F(pNode, ZAN_VRRP_ADP_FILE, 415);
    return 0;
}

uint32_t ZAN_VrrpAdp_CreateInst_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid, uint32_t ulIfGroupId)
{
    pAdp->stEvtStat.usCrtInst++;
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 449, "vrrp-adp create instance, pid[0x%x], ifGroupId[%u].", ulPid,
                      ulIfGroupId);
    ZAN_VRRP_INST_S *pOld = reinterpret_cast<ZAN_VRRP_INST_S *>(ZAN_CompAdp_FindInstByPid(&pAdp->stAdpBase, ulPid));
    if (pOld != nullptr) {
        // An instance whose deletion the framework refused is taken out now, then created anew.
        if (pOld->bEnded == 0u) {
            pAdp->stErrStat.usCrtSameInst++;
            return 0;
        }
        if (ZAN_VrrpAdp_RemoveInst_(pAdp, pOld) != 0u) {
            return 1;
        }
    }
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(
        KOL_Malloc_F(pAdp->ulMemHandle, g_aucKolMemPt[0], sizeof(ZAN_VRRP_INST_S), ZAN_VRRP_ADP_FILE, 457));
    if (pInst == nullptr) {
        pAdp->stErrStat.usMallocFail++;
        return 1;
    }
    (void)memset_s(pInst, sizeof(*pInst), 0, sizeof(*pInst));
    // A framework that refuses to make the instance, or to take it into its table, leaves nothing
    // behind: the record is freed before anything could run on it.
    if (ZAN_VrrpInst_Init(pInst, pAdp, ulPid, ulIfGroupId) != 0u) {
        pAdp->stFwStat.ulInstInit++;
        KOL_Free_F(pInst, ZAN_VRRP_ADP_FILE, LINE_FREE_UNMADE_INST);
        return 1;
    }
    ZAN_VrrpInst_SetWorkState(pInst, (pAdp->bWorkOn == 1u) ? 1u : 0u);
    if (ZAN_CompAdp_AddInst(&pAdp->stAdpBase, &pInst->stInstHead) != 0u) {
        pAdp->stFwStat.ulAddInst++;
        KOL_Free_F(pInst, ZAN_VRRP_ADP_FILE, LINE_FREE_UNMADE_INST);
        return 1;
    }

    ZAN_COMP_CTX_S *pCompCtx = pAdp->stAdpBase.pCompCtx;
    if (ZAN_VrrpProd_Init(pCompCtx, pInst, &g_stZanVrrpProdCfg) != 0u) {
        // The instance stays in the table, without producer and not started, until the last
        // relation of its pid is deleted.
        return 1;
    }
    if (pCompCtx->usStartInhibit == 0u && ZAN_CompInst_StartWork(&pInst->stInstHead) != 0u) {
        // Not started: it waits for the framework's Up, as with the start inhibited. The
        // instance is made all the same.
        pAdp->stFwStat.ulStartWork++;
    }
    return 0;
}

uint32_t ZAN_VrrpAdp_RemoveInst_(ZAN_VRRP_ADP_S *pAdp, ZAN_VRRP_INST_S *pInst)
{
    if (ZAN_CompAdp_DelInst(&pAdp->stAdpBase, &pInst->stInstHead) != 0u) {
        // Still in the framework's table: the ended record stays (the receive path, the flush
        // and the application's calls pass it by) until a later attempt or the memory handle's
        // end releases it.
        pInst->bEnded = 1;
        pAdp->stFwStat.ulDelInst++;
        return 1;
    }
    KOL_Free_F(pInst, ZAN_VRRP_ADP_FILE, 503);
    return 0;
}

uint32_t ZAN_VrrpAdp_DeleteInst_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid)
{
    pAdp->stEvtStat.usDelInst++;
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 495, "vrrp-adp delete instance, pid[0x%x].", ulPid);
    ZAN_VRRP_INST_S *pInst = reinterpret_cast<ZAN_VRRP_INST_S *>(ZAN_CompAdp_FindInstByPid(&pAdp->stAdpBase, ulPid));
    if (pInst == nullptr) {
        return 0;
    }
    (void)ZAN_VrrpInst_DeInit(pInst);
    ZAN_VrrpProd_Uninit(ZAN_VrrpInst_Ctx(pInst), pInst);
    (void)ZAN_VrrpAdp_RemoveInst_(pAdp, pInst);
    return 0;
}

uint32_t ZAN_VrrpAdp_CreateDeploy_(void *pvAdp, const void *pvRec)
{
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pvAdp);
    ZAN_VRRP_DEPLOY_REC_S stRec;
    if (pAdp->bLive == 0u || memcpy_s(&stRec, sizeof(stRec), pvRec, ZAN_VRRP_DEPLOY_REC_LEN) != 0u ||
        stRec.ulKind != ZAN_VRRP_DEPLOY_KIND) {
        return 0;
    }
    pAdp->stEvtStat.usCrtDeploy++;
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 321, "vrrp-adp create deploy, pid[0x%x], ifgrpid[%u].", stRec.ulPid,
                      stRec.ulIfGroupId);
    if (ZAN_VrrpAdp_AddDeployRel_(pAdp, &stRec) != 0u) {
        ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 325, "vrrp-adp create deploy, fail to add deploy relation.");
        pAdp->stErrStat.usAddDeploy++;
        return 1;
    }
    if (ZAN_VrrpAdp_CreateInst_(pAdp, stRec.ulPid, stRec.ulIfGroupId) == 0u) {
        return 0;
    }
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 332, "vrrp-adp create deploy, fail to create instance, pid[%d].",
                      (int)stRec.ulPid);
    pAdp->stErrStat.usCrtInst++;
    return 1;
}

uint32_t ZAN_VrrpAdp_DeleteDeploy_(void *pvAdp, const void *pvRec)
{
    ZAN_VRRP_ADP_S *pAdp = static_cast<ZAN_VRRP_ADP_S *>(pvAdp);
    ZAN_VRRP_DEPLOY_REC_S stRec;
    if (pAdp->bLive == 0u || memcpy_s(&stRec, sizeof(stRec), pvRec, ZAN_VRRP_DEPLOY_REC_LEN) != 0u ||
        stRec.ulKind != ZAN_VRRP_DEPLOY_KIND) {
        return 0;
    }
    pAdp->stEvtStat.usDelDeploy++;
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 391, "vrrp-adp delete deploy, pid[0x%x], ifgrpid[%u].", stRec.ulPid,
                      stRec.ulIfGroupId);
    (void)ZAN_VrrpAdp_DelDeployRel_(pAdp, &stRec);
    if (ZAN_VrrpAdp_IsDeployRelOfPidEmpty_(pAdp, stRec.ulPid) == 1u) {
        ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 395, "all deploy of pid is empty, del inst.");
        (void)ZAN_VrrpAdp_DeleteInst_(pAdp, stRec.ulPid);
    } else {
        ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 398, "all deploy of pid is not empty, not del inst.");
    }
    return 0;
}
