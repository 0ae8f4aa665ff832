// The instance record and its subscription items: two ordered groups (subscribe and
// unsubscribe) keyed by the 32-byte item key, and the operations that fill and clear them.
#include "zan_vrrpinst.h"

#include "../prod/zan_vrrp_prod.h"

namespace {

// Memory and assertion tags of this file.
constexpr uint32_t LINE_ASSERT_LEN = 232;
constexpr uint32_t LINE_ASSERT_COPY = 233;
constexpr uint32_t LINE_FREE_UNSUB = 247;
constexpr uint32_t LINE_MALLOC_SUB = 250;
constexpr uint32_t LINE_FREE_SUB = 303;
constexpr uint32_t LINE_MALLOC_UNSUB = 306;
constexpr uint32_t LINE_FREE_CLEAR = 380;
constexpr uint32_t LINE_FREE_UNSUBED = 420;
constexpr uint32_t LINE_FREE_REFUSED_SUB = 252;
constexpr uint32_t LINE_FREE_REFUSED_UNSUB = 308;

ZAN_VRRP_SUB_ITEM_S *ZAN_VrrpInst_ItemOfNode_(ZAN_RBT_NODE_S *pNode)
{
    return reinterpret_cast<ZAN_VRRP_SUB_ITEM_S *>(pNode);
}

// Builds the zero-filled 32-byte item key: the key TLV in the first 16 bytes, the
// subscription TLV in the second. A length above 12 does not fit: it is reported and the
// add is refused (result non-zero) with nothing stored.
uint32_t ZAN_VrrpInst_BuildItemKey_(const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub, uint8_t *pucItemKey)
{
    if (pKey->usLen > ZAN_VRRP_TLV_VALUE_MAX || pSub->usLen > ZAN_VRRP_TLV_VALUE_MAX) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_LEN, (pKey->usLen > ZAN_VRRP_TLV_VALUE_MAX) ? pKey->usLen : pSub->usLen);
        return 1;
    }
    (void)memset_s(pucItemKey, ZAN_VRRP_ITEM_KEY_LEN, 0, ZAN_VRRP_ITEM_KEY_LEN);
    uint32_t ulRet = memcpy_s(pucItemKey, ZAN_VRRP_ITEM_TLV_AREA, pKey, (size_t)pKey->usLen + 4u);
    ulRet |= memcpy_s(pucItemKey + ZAN_VRRP_ITEM_TLV_AREA, ZAN_VRRP_ITEM_TLV_AREA, pSub, (size_t)pSub->usLen + 4u);
    if (ulRet != 0u) {
        KOL_Assert(ZAN_VRRP_INST_FILE, LINE_ASSERT_COPY, ulRet);
        return 1;
    }
    return 0;
}

ZAN_VRRP_SUB_ITEM_S *ZAN_VrrpInst_NewItem_(ZAN_VRRP_INST_S *pInst, const uint8_t *pucItemKey, uint32_t ulLine)
{
    ZAN_VRRP_SUB_ITEM_S *pItem = static_cast<ZAN_VRRP_SUB_ITEM_S *>(
        KOL_Malloc_F(pInst->MemHandle, g_aucKolMemPt[0], sizeof(ZAN_VRRP_SUB_ITEM_S), ZAN_VRRP_INST_FILE, ulLine));
    if (pItem == nullptr) {
        pInst->stErrStat.usMAlloc++;
        return nullptr;
    }
    (void)memset_s(pItem, sizeof(*pItem), 0, sizeof(*pItem));
    (void)memcpy_s(pItem->aucKey, sizeof(pItem->aucKey), pucItemKey, ZAN_VRRP_ITEM_KEY_LEN);
    pItem->State = SUB_ITEM_STATE_INIT;
    return pItem;
}

// The trace of an add that found the item in the other group; that item is already freed, as
// the trace hands control to the application. Non-zero when the application took the instance
// down meanwhile: the add is then ignored, as every add to an unregistered instance is.
uint32_t ZAN_VrrpInst_TraceAdd_(ZAN_VRRP_INST_S *pInst, uint32_t ulLine, const char *pcText)
{
    const uint32_t ulDownCnt = pInst->ulDownCnt;
    ZAN_VRRP_INST_TRACE(pInst, ulLine, "%s", pcText);
    return (pInst->ulDownCnt != ulDownCnt) ? 1u : 0u;
}

// Puts a new item into its group; a tree that refuses it gets it freed and counted.
uint32_t ZAN_VrrpInst_AddItem_(ZAN_VRRP_INST_S *pInst, ZAN_RBT_HEAD_S *pTree, ZAN_VRRP_SUB_ITEM_S *pItem,
                               uint32_t ulFreeLine)
{
    if (ZAN_RBT_AddNode(pTree, &pItem->stNode, pItem->aucKey, ZAN_VrrpInst_SubItemCmpKey_) != 0u) {
        pInst->stDropStat.ulItemInsert++;
        KOL_Free_F(pItem, ZAN_VRRP_INST_FILE, ulFreeLine);
        return 1;
    }
    return 0;
}

void ZAN_VrrpInst_FreeItem_(ZAN_RBT_HEAD_S *pTree, ZAN_RBT_NODE_S *pNode, uint32_t ulLine)
{
    WUX_RBT_RemoveNode(pTree, pNode);
    KOL_Free_F(ZAN_VrrpInst_ItemOfNode_(pNode), ZAN_VRRP_INST_FILE, ulLine);
}

// Removes and frees every item of a group, or only those in state ulState when bOnlyState.
void ZAN_VrrpInst_FreeItems_(ZAN_RBT_HEAD_S *pTree, bool bOnlyState, uint8_t ucState, uint32_t ulLine)
{
    ZAN_RBT_NODE_S *pNode = WUX_RBT_FirstNode(pTree);
    while (pNode != nullptr) {
        ZAN_RBT_NODE_S *pNext = WUX_RBT_NextNode(pTree, pNode);
        if (!bOnlyState || ZAN_VrrpInst_ItemOfNode_(pNode)->State == ucState) {
            ZAN_VrrpInst_FreeItem_(pTree, pNode, ulLine);
        }
        pNode = pNext;
    }
}

}  // namespace

void ZAN_VrrpInst_StopTmr_(ZAN_VRRP_INST_S *pInst, uint32_t *pulTmr)
{
    if (*pulTmr != 0u) {
        ZAN_Frame_StopTmr(ZAN_VrrpInst_Ctx(pInst), *pulTmr);
        *pulTmr = 0;
    }
}

const ZAN_COMP_INST_VOPS_S g_stZanVrrpInstVOps = {
    {ZAN_VrrpInst_Up_, ZAN_VrrpInst_Down_, nullptr, nullptr, nullptr, nullptr}};

void ZAN_VrrpInst_InitTree_(ZAN_RBT_HEAD_S *pTree)
{
    pTree->pRoot = &pTree->stNil;
    pTree->stNil.pLeft = nullptr;
    pTree->stNil.pRight = nullptr;
    pTree->stNil.pParent = nullptr;
    pTree->stNil.ulColor = ZAN_RBT_BLACK;
    pTree->ulCount = 0;
    pTree->ulRsv = 0;
}

// Non-zero only when the framework refuses to make the instance; the caller then frees it.
uint32_t ZAN_VrrpInst_Init(ZAN_VRRP_INST_S *pInst, ZAN_VRRP_ADP_S *pAdp, uint32_t ulPid, uint32_t ulIfGroupId)
{
    if (ZAN_CompInst_Init(&pInst->stInstHead, ulPid, pAdp->stAdpBase.pCompCtx, ulIfGroupId) != 0u) {
        return 1;
    }
    pInst->pAdp = pAdp;
    pInst->MemHandle = pAdp->ulMemHandle;
    pInst->IfGroupId = ulIfGroupId;
    pInst->stInstHead.pVOps = &g_stZanVrrpInstVOps;
    pInst->ucSubFcState = ZAN_VRRP_FC_STATE_NONE;
    pInst->ucUnSubFcState = ZAN_VRRP_FC_STATE_NONE;
    ZAN_VrrpInst_InitTree_(&pInst->stSubItemTree);
    ZAN_VrrpInst_InitTree_(&pInst->stUnSubItemTree);
    return 0;
}

// Runs only right before the instance is freed. From then on a work-state change made from a
// callback (of this down, or of the producer's release that follows) starts nothing on it.
uint32_t ZAN_VrrpInst_DeInit(void *pvInst)
{
    ZAN_VRRP_INST_S *pInst = static_cast<ZAN_VRRP_INST_S *>(pvInst);
    if (pInst != nullptr) {
        pInst->bEnding = 1;
    }
    return ZAN_VrrpInst_Down_(pInst);
}

uint32_t ZAN_VrrpInst_SubItemCmpKey_(const ZAN_RBT_NODE_S *pNode, const void *pKey)
{
    const ZAN_VRRP_SUB_ITEM_S *pItem = reinterpret_cast<const ZAN_VRRP_SUB_ITEM_S *>(pNode);
    const int32_t lRet = WUX_MemCmp(pItem->aucKey, pKey, ZAN_VRRP_ITEM_KEY_LEN);
    if (lRet == 0) {
        return 0;
    }
    return (lRet > 0) ? 1u : 2u;
}

uint32_t ZAN_VrrpInst_AddSubItem(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub)
{
    if (pInst->State != VRRP_INST_STATE_REGED) {
        return 0;
    }
    pInst->usLastKeyType = pKey->usType;

    uint8_t aucItemKey[ZAN_VRRP_ITEM_KEY_LEN];
    if (ZAN_VrrpInst_BuildItemKey_(pKey, pSub, aucItemKey) != 0u) {
        return ZAN_VRRP_ALL_ONES;
    }
    if (ZAN_RBT_LookupNode(&pInst->stSubItemTree, aucItemKey, ZAN_VrrpInst_SubItemCmpKey_) != nullptr) {
        pInst->stErrStat.usRepeatSub++;
        ZAN_VRRP_INST_TRACE(pInst, 238, "vrrp-inst add subscribe item, find same item.");
        return 0;
    }
    ZAN_RBT_NODE_S *pOther = ZAN_RBT_LookupNode(&pInst->stUnSubItemTree, aucItemKey, ZAN_VrrpInst_SubItemCmpKey_);
    if (pOther != nullptr) {
        ZAN_VrrpInst_FreeItem_(&pInst->stUnSubItemTree, pOther, LINE_FREE_UNSUB);
        if (ZAN_VrrpInst_TraceAdd_(pInst, 244, "vrrp-inst add subscribe item, find item in unsubscibe group.") != 0u) {
            return 0;
        }
    }
    ZAN_VRRP_SUB_ITEM_S *pItem = ZAN_VrrpInst_NewItem_(pInst, aucItemKey, LINE_MALLOC_SUB);
    if (pItem == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    if (ZAN_VrrpInst_AddItem_(pInst, &pInst->stSubItemTree, pItem, LINE_FREE_REFUSED_SUB) != 0u) {
        return ZAN_VRRP_ALL_ONES;
    }
    pInst->bSubPending = 1;
    return 0;
}

uint32_t ZAN_VrrpInst_AddUnSubItem(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub)
{
    if (pInst->State != VRRP_INST_STATE_REGED) {
        return 0;
    }
    uint8_t aucItemKey[ZAN_VRRP_ITEM_KEY_LEN];
    if (ZAN_VrrpInst_BuildItemKey_(pKey, pSub, aucItemKey) != 0u) {
        return ZAN_VRRP_ALL_ONES;
    }
    if (ZAN_RBT_LookupNode(&pInst->stUnSubItemTree, aucItemKey, ZAN_VrrpInst_SubItemCmpKey_) != nullptr) {
        ZAN_VRRP_INST_TRACE(pInst, 293, "vrrp-inst add unsubscribe item, find same item.");
        pInst->stErrStat.usRepeatUnSub++;
        return 0;
    }
    ZAN_RBT_NODE_S *pOther = ZAN_RBT_LookupNode(&pInst->stSubItemTree, aucItemKey, ZAN_VrrpInst_SubItemCmpKey_);
    if (pOther != nullptr) {
        ZAN_VrrpInst_FreeItem_(&pInst->stSubItemTree, pOther, LINE_FREE_SUB);
        if (ZAN_VrrpInst_TraceAdd_(pInst, 300, "vrrp-inst add unsubscribe item, find item in subscribe group.") != 0u) {
            return 0;
        }
    }
    ZAN_VRRP_SUB_ITEM_S *pItem = ZAN_VrrpInst_NewItem_(pInst, aucItemKey, LINE_MALLOC_UNSUB);
    if (pItem == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    if (ZAN_VrrpInst_AddItem_(pInst, &pInst->stUnSubItemTree, pItem, LINE_FREE_REFUSED_UNSUB) != 0u) {
        return ZAN_VRRP_ALL_ONES;
    }
    pInst->bUnSubPending = 1;
    return 0;
}

void ZAN_VrrpInst_ClearBasicInfo_(ZAN_VRRP_INST_S *pInst)
{
    pInst->State = VRRP_INST_STATE_INIT;
    pInst->BatchTransId = 0;
    pInst->BatchSeqNum = 0;
}

void ZAN_VrrpInst_ClearSubInfo_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_VrrpInst_StopTmr_(pInst, &pInst->SubTmr);
    ZAN_VrrpInst_FreeItems_(&pInst->stSubItemTree, false, 0, LINE_FREE_CLEAR);
    WUX_RBT_ClearTree(&pInst->stSubItemTree);
}

void ZAN_VrrpInst_ClearUnSubInfo_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_VrrpInst_StopTmr_(pInst, &pInst->UnSubTmr);
    ZAN_VrrpInst_FreeItems_(&pInst->stUnSubItemTree, false, 0, LINE_FREE_CLEAR);
    WUX_RBT_ClearTree(&pInst->stUnSubItemTree);
}

void ZAN_VrrpInst_ClearNotifyInfo_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_VrrpInst_StopTmr_(pInst, &pInst->NotifyTmr);
    pInst->NotifySeq = 0;
}

void ZAN_VrrpInst_FlashItemStateToSubed_(ZAN_VRRP_INST_S *pInst)
{
    for (ZAN_RBT_NODE_S *pNode = WUX_RBT_FirstNode(&pInst->stSubItemTree); pNode != nullptr;
         pNode = WUX_RBT_NextNode(&pInst->stSubItemTree, pNode)) {
        ZAN_VRRP_SUB_ITEM_S *pItem = ZAN_VrrpInst_ItemOfNode_(pNode);
        if (pItem->State == SUB_ITEM_STATE_SENT) {
            pItem->State = SUB_ITEM_STATE_SUBED;
        }
    }
}

void ZAN_VrrpInst_DeleteUnSubedItem_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_VrrpInst_FreeItems_(&pInst->stUnSubItemTree, true, SUB_ITEM_STATE_SENT, LINE_FREE_UNSUBED);
}
