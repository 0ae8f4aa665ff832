// VRRP down, the instance's work state, and the routing of flow-control end and flush.
#include "zan_vrrpinst.h"

#include "../prod/zan_vrrp_prod.h"

namespace {

constexpr uint32_t LINE_ASSERT_DOWN_INST = 1205;
constexpr uint32_t LINE_ASSERT_DOWN_CTX = 1206;
constexpr uint32_t LINE_ASSERT_DOWN_ADP = 1207;
constexpr uint32_t LINE_ASSERT_ITEMDOWN_CB = 1208;

// The first item whose key is greater than pucKey. The item with that key, if still there (or
// its replacement in the other group), leads to it directly; otherwise the tree is walked
// from its start, which happens only when an item was withdrawn and could not be replaced.
ZAN_RBT_NODE_S *ZAN_VrrpInst_NextAfterKey_(ZAN_VRRP_INST_S *pInst, const uint8_t *pucKey)
{
    ZAN_RBT_NODE_S *pNode = ZAN_RBT_LookupNode(&pInst->stItemTree, pucKey, ZAN_VrrpInst_SubItemCmpKey_);
    if (pNode != nullptr) {
        return WUX_RBT_NextNode(&pInst->stItemTree, pNode);
    }
    for (pNode = WUX_RBT_FirstNode(&pInst->stItemTree); pNode != nullptr;
         pNode = WUX_RBT_NextNode(&pInst->stItemTree, pNode)) {
        if (ZAN_VrrpInst_SubItemCmpKey_(pNode, pucKey) == 1u) {
            return pNode;
        }
    }
    return nullptr;
}

}  // namespace

void ZAN_VrrpInst_NotifyVrrpDown_(ZAN_VRRP_INST_S *pInst)
{
    if (pInst == nullptr) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_DOWN_INST, 0);
        return;
    }
    if (ZAN_VrrpInst_Ctx(pInst) == nullptr) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_DOWN_CTX, 0);
        return;
    }
    if (pInst->pAdp == nullptr) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_DOWN_ADP, 0);
        return;
    }
    if (pInst->State != VRRP_INST_STATE_REGED) {
        return;
    }
    ZAN_VRRP_INST_TRACE(pInst, 1215, "vrrp-inst receive vrrp down.");
    // The instance is still registered while its items are reported: the application may add
    // and withdraw items from pfnItemDown (the down frees them right after). A withdrawal frees
    // the item it names, which may be the one just reported, so the walk does not keep a node
    // across the callback: it finds its place again by the reported key.
    const uint32_t ulHandle = ZAN_VrrpInst_Ctx(pInst)->ulHandle;
    uint8_t aucLast[ZAN_VRRP_ITEM_KEY_LEN];
    ZAN_RBT_NODE_S *pNode = WUX_RBT_FirstNode(&pInst->stItemTree);
    while (pNode != nullptr) {
        const ZAN_VRRP_SUB_ITEM_S *pItem = reinterpret_cast<const ZAN_VRRP_SUB_ITEM_S *>(pNode);
        if (pItem->ucGroup != ZAN_VRRP_GROUP_SUB || pItem->State != SUB_ITEM_STATE_SUBED) {
            pNode = WUX_RBT_NextNode(&pInst->stItemTree, pNode);
            continue;
        }
        void (*pfnItemDown)(const void *, uint32_t) = pInst->pAdp->stCallBack.pfnItemDown;
        if (pfnItemDown == nullptr) {
            KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_ITEMDOWN_CB, 0);
            return;
        }
        memcpy(aucLast, pItem->aucKey, ZAN_VRRP_ITEM_KEY_LEN);  // the walk's place: a plain copy
        pfnItemDown(pItem->aucKey, ulHandle);
        pNode = ZAN_VrrpInst_NextAfterKey_(pInst, aucLast);
    }
}

uint32_t ZAN_VrrpInst_Down_(void *pvInst)
{
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    if (pInst == nullptr || pInst->bDownBusy != 0u) {
        return 0;
    }
    // Until it ends, the callbacks of a down (pfnItemDown, traces) cannot bring the instance
    // back: a nested Down_ does nothing (it must not free the items this one is walking), and
    // a work-state change only takes effect at the next Up, so nothing is started again on an
    // instance that is being taken down, or deleted right after. Items the application adds
    // meanwhile are freed by the clearing below.
    pInst->bDownBusy = 1;
    pInst->ulDownCnt++;
    ZAN_COMP_CTX_S *pCompCtx = ZAN_VrrpInst_Ctx(pInst);
    ZAN_VrrpInst_StopTmr_(pInst, &pInst->RegTmr);
    ZAN_VrrpInst_NotifyVrrpDown_(pInst);
    ZAN_VrrpInst_ClearBasicInfo_(pInst);
    ZAN_VrrpInst_ClearSubInfo_(pInst);
    ZAN_VrrpInst_ClearUnSubInfo_(pInst);
    ZAN_VrrpInst_ClearNotifyInfo_(pInst);
    (void)ZAN_VrrpProd_OnVrrpDown(pCompCtx, pInst);
    ZAN_VRRP_INST_TRACE(pInst, 567, "vrrp-inst down, pid[0x%x].", pInst->stInstHead.ulPid);
    pInst->bDownBusy = 0;
    return 0;
}

void ZAN_VrrpInst_SetWorkState(ZAN_VRRP_INST_S *pInst, uint32_t ulOn)
{
    const uint8_t bOn = (ulOn != 0u) ? 1 : 0;
    if (bOn == pInst->bWorkOn) {
        return;
    }
    pInst->bWorkOn = bOn;
    // While the framework does not run the instance, or while it is being taken down, the
    // change waits for its next Up; an instance about to be freed has none.
    if (pInst->stInstHead.ulStatus != 0u || pInst->bDownBusy != 0u || pInst->bEnding != 0u) {
        return;
    }
    if (bOn != 0u) {
        const uint32_t ulDownCnt = pInst->ulDownCnt;
        (void)ZAN_VrrpInst_Register_(pInst);
        if (pInst->ulDownCnt != ulDownCnt) {
            return;  // the application changed the work state again from a callback, which did the rest
        }
        (void)ZAN_VrrpProd_OnVrrpUp(ZAN_VrrpInst_Ctx(pInst), pInst);
    } else {
        (void)ZAN_VrrpInst_Down_(pInst);
        (void)ZAN_VrrpInst_Up_(pInst);
    }
}

uint32_t ZAN_VrrpInst_Fcm(void *pvInst)
{
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    ZAN_COMP_CTX_S *pCompCtx = ZAN_VrrpInst_Ctx(pInst);
    // Requests held back by flow control go out now; a new refusal holds them back again.
    if (pInst->ucSubFcState != ZAN_VRRP_FC_STATE_NONE) {
        const uint8_t ucState = pInst->ucSubFcState;
        pInst->ucSubFcState = ZAN_VRRP_FC_STATE_NONE;
        (void)ZAN_VrrpInst_SendSubscribeMsg_(pInst, pCompCtx, ucState);
    }
    if (pInst->ucUnSubFcState != ZAN_VRRP_FC_STATE_NONE) {
        const uint8_t ucState = pInst->ucUnSubFcState;
        pInst->ucUnSubFcState = ZAN_VRRP_FC_STATE_NONE;
        (void)ZAN_VrrpInst_SendUnSubscribeMsg_(pInst, pCompCtx, ucState);
    }
    return ZAN_VrrpProd_OnFcm(ZAN_VrrpInst_Ctx(pInst), pInst);
}

uint32_t ZAN_VrrpInst_Flush(void *pvInst)
{
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    if (pInst->bEnding != 0u) {
        return 0;  // ended, only left in the framework's table because it refused to remove it
    }
    // Items added since the last flush go out together; each pending bit is cleared once the
    // exchange it starts has been tried.
    if (pInst->bSubPending != 0u) {
        ZAN_VrrpInst_Subscribe_(pInst);
        pInst->bSubPending = 0;
    }
    if (pInst->bUnSubPending != 0u) {
        ZAN_VrrpInst_UnSubscribe_(pInst);
        pInst->bUnSubPending = 0;
    }
    return ZAN_VrrpProd_OnFlush(ZAN_VrrpInst_Ctx(pInst), pInst);
}
