// The instance record and its subscription items: one tree of items ordered by the 32-byte
// item key, each item in the subscribe or the unsubscribe group and on its group's list of its
// state, and the operations that fill and clear them.
#include "zan_vrrpinst.h"

#include "../prod/zan_vrrp_prod.h"

namespace {

// Memory and assertion tags of this file.
constexpr uint32_t LINE_ASSERT_LEN = 232;
constexpr uint32_t LINE_ASSERT_COPY = 233;
constexpr uint32_t LINE_FREE_OTHER_SUB = 246;
constexpr uint32_t LINE_MALLOC_SUB = 250;
constexpr uint32_t LINE_FREE_REFUSED_SUB = 252;
constexpr uint32_t LINE_FREE_OTHER_UNSUB = 302;
constexpr uint32_t LINE_MALLOC_UNSUB = 306;
constexpr uint32_t LINE_FREE_REFUSED_UNSUB = 308;
constexpr uint32_t LINE_FREE_CLEAR = 380;
constexpr uint32_t LINE_FREE_UNSUBED = 420;

ZAN_VRRP_SUB_ITEM_S *ZAN_VrrpInst_ItemOfNode_(const ZAN_RBT_NODE_S *pNode)
{
    return reinterpret_cast<ZAN_VRRP_SUB_ITEM_S *>(const_cast<ZAN_RBT_NODE_S *>(pNode));
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

// The item holding the 32-byte item key, in either group, or NULL.
ZAN_VRRP_SUB_ITEM_S *ZAN_VrrpInst_FindItem_(ZAN_VRRP_INST_S *pInst, const uint8_t *pucKey)
{
    ZAN_RBT_NODE_S *pNode = ZAN_RBT_LookupNode(&pInst->stItemTree, pucKey, ZAN_VrrpInst_SubItemCmpKey_);
    return (pNode != nullptr) ? ZAN_VrrpInst_ItemOfNode_(pNode) : nullptr;
}

void ZAN_VrrpInst_ListInit_(ZAN_LIST_LINK_S *pHead)
{
    pHead->pNext = pHead;
    pHead->pPrev = pHead;
}

void ZAN_VrrpInst_ListAppend_(ZAN_LIST_LINK_S *pHead, ZAN_LIST_LINK_S *pLink)
{
    pLink->pNext = pHead;
    pLink->pPrev = pHead->pPrev;
    pHead->pPrev->pNext = pLink;
    pHead->pPrev = pLink;
}

// Puts the item at the end of its group's list of ucState. Lists 0 and 1 note whether they
// are still in key order.
void ZAN_VrrpInst_LinkItem_(ZAN_VRRP_INST_S *pInst, ZAN_VRRP_SUB_ITEM_S *pItem, uint8_t ucState)
{
    ZAN_VRRP_ITEM_GROUP_S *pGroup = &pInst->astGroup[pItem->ucGroup];
    ZAN_LIST_LINK_S *pHead = &pGroup->astList[ucState];
    if (pGroup->aulLen[ucState] == 0u) {
        pGroup->abInOrder[ucState] = 1;
    } else if (ucState != SUB_ITEM_STATE_SUBED && pGroup->abInOrder[ucState] != 0u &&
               ZAN_VrrpInst_KeyOrder(pItem->aucKey, ZAN_VrrpInst_ItemOfLink_(pHead->pPrev)->aucKey) < 0) {
        pGroup->abInOrder[ucState] = 0;
    }
    ZAN_VrrpInst_ListAppend_(pHead, &pItem->stLink);
    pGroup->aulLen[ucState]++;
    pItem->State = ucState;
}

void ZAN_VrrpInst_UnlinkItem_(ZAN_VRRP_INST_S *pInst, ZAN_VRRP_SUB_ITEM_S *pItem)
{
    pItem->stLink.pPrev->pNext = pItem->stLink.pNext;
    pItem->stLink.pNext->pPrev = pItem->stLink.pPrev;
    pInst->astGroup[pItem->ucGroup].aulLen[pItem->State]--;
}

// Merges two key-ordered chains linked by pNext and ended by null.
ZAN_LIST_LINK_S *ZAN_VrrpInst_MergeChains_(ZAN_LIST_LINK_S *pA, ZAN_LIST_LINK_S *pB)
{
    ZAN_LIST_LINK_S stHead;
    ZAN_LIST_LINK_S *pTail = &stHead;
    while (pA != nullptr && pB != nullptr) {
        if (ZAN_VrrpInst_KeyOrder(ZAN_VrrpInst_ItemOfLink_(pB)->aucKey, ZAN_VrrpInst_ItemOfLink_(pA)->aucKey) < 0) {
            pTail->pNext = pB;
            pB = pB->pNext;
        } else {
            pTail->pNext = pA;
            pA = pA->pNext;
        }
        pTail = pTail->pNext;
    }
    pTail->pNext = (pA != nullptr) ? pA : pB;
    return stHead.pNext;
}

// Merge sort of a list in place: runs of 1, 2, 4, ... items merged as a binary counter.
void ZAN_VrrpInst_SortList_(ZAN_LIST_LINK_S *pHead)
{
    ZAN_LIST_LINK_S *apRun[32] = {};
    ZAN_LIST_LINK_S *pLink = pHead->pNext;
    while (pLink != pHead) {
        ZAN_LIST_LINK_S *pNext = pLink->pNext;
        pLink->pNext = nullptr;
        uint32_t i = 0;
        for (; apRun[i] != nullptr; i++) {
            pLink = ZAN_VrrpInst_MergeChains_(apRun[i], pLink);
            apRun[i] = nullptr;
        }
        apRun[i] = pLink;
        pLink = pNext;
    }
    ZAN_LIST_LINK_S *pAll = nullptr;
    for (ZAN_LIST_LINK_S *pRun : apRun) {
        if (pRun != nullptr) {
            pAll = ZAN_VrrpInst_MergeChains_(pRun, pAll);
        }
    }
    ZAN_VrrpInst_ListInit_(pHead);
    while (pAll != nullptr) {
        ZAN_LIST_LINK_S *pNext = pAll->pNext;
        ZAN_VrrpInst_ListAppend_(pHead, pAll);
        pAll = pNext;
    }
}

// Rebuilds a list from a walk of the tree, which yields its items already in key order.
void ZAN_VrrpInst_RelinkFromTree_(ZAN_VRRP_INST_S *pInst, uint32_t ulGroup, uint8_t ucState)
{
    ZAN_LIST_LINK_S *pHead = &pInst->astGroup[ulGroup].astList[ucState];
    ZAN_VrrpInst_ListInit_(pHead);
    for (ZAN_RBT_NODE_S *pNode = WUX_RBT_FirstNode(&pInst->stItemTree); pNode != nullptr;
         pNode = WUX_RBT_NextNode(&pInst->stItemTree, pNode)) {
        ZAN_VRRP_SUB_ITEM_S *pItem = ZAN_VrrpInst_ItemOfNode_(pNode);
        if (pItem->ucGroup == ulGroup && pItem->State == ucState) {
            ZAN_VrrpInst_ListAppend_(pHead, &pItem->stLink);
        }
    }
}

// What differs between adding to the subscribe group and to the unsubscribe group.
struct ZAN_VRRP_ADD_SIDE_S {
    uint8_t ucGroup;
    bool bCountBeforeTrace;
    uint32_t ulMallocLine;
    uint32_t ulFreeOtherLine;
    uint32_t ulRefusedLine;
    uint32_t ulSameLine;
    const char *pcSame;
    uint32_t ulOtherLine;
    const char *pcOther;
    uint16_t ZAN_VRRP_INST_ERR_STAT_S::*pRepeat;
};

const ZAN_VRRP_ADD_SIDE_S g_stAddSub = {ZAN_VRRP_GROUP_SUB,
                                        true,
                                        LINE_MALLOC_SUB,
                                        LINE_FREE_OTHER_SUB,
                                        LINE_FREE_REFUSED_SUB,
                                        238,
                                        "vrrp-inst add subscribe item, find same item.",
                                        244,
                                        "vrrp-inst add subscribe item, find item in unsubscibe group.",
                                        &ZAN_VRRP_INST_ERR_STAT_S::usRepeatSub};
const ZAN_VRRP_ADD_SIDE_S g_stAddUnSub = {ZAN_VRRP_GROUP_UNSUB,
                                          false,
                                          LINE_MALLOC_UNSUB,
                                          LINE_FREE_OTHER_UNSUB,
                                          LINE_FREE_REFUSED_UNSUB,
                                          293,
                                          "vrrp-inst add unsubscribe item, find same item.",
                                          300,
                                          "vrrp-inst add unsubscribe item, find item in subscribe group.",
                                          &ZAN_VRRP_INST_ERR_STAT_S::usRepeatUnSub};

void ZAN_VrrpInst_SetPending_(ZAN_VRRP_INST_S *pInst, uint8_t ucGroup)
{
    if (ucGroup == ZAN_VRRP_GROUP_SUB) {
        pInst->bSubPending = 1;
    } else {
        pInst->bUnSubPending = 1;
    }
}

void ZAN_VrrpInst_FreeItem_(ZAN_VRRP_INST_S *pInst, ZAN_VRRP_SUB_ITEM_S *pItem, uint32_t ulLine)
{
    ZAN_VrrpInst_UnlinkItem_(pInst, pItem);
    WUX_RBT_RemoveNode(&pInst->stItemTree, &pItem->stNode);
    KOL_Free_F(pItem, ZAN_VRRP_INST_FILE, ulLine);
}

// Stores the item in the side's group in state 0. A key already in the group is a repeat and
// takes no block; a key waiting in the other group is removed there and freed, whatever its
// state, and a new item is allocated.
uint32_t ZAN_VrrpInst_StoreItem_(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_ADD_SIDE_S *pSide, const ZAN_VRRP_TLV_S *pKey,
                                 const ZAN_VRRP_TLV_S *pSub)
{
    uint8_t aucKey[ZAN_VRRP_ITEM_KEY_LEN];
    if (ZAN_VrrpInst_BuildItemKey_(pKey, pSub, aucKey) != 0u) {
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_SUB_ITEM_S *pFound = ZAN_VrrpInst_FindItem_(pInst, aucKey);
    if (pFound != nullptr && pFound->ucGroup == pSide->ucGroup) {
        if (pSide->bCountBeforeTrace) {
            pInst->stErrStat.*(pSide->pRepeat) += 1;
        }
        ZAN_VRRP_INST_TRACE(pInst, pSide->ulSameLine, "%s", pSide->pcSame);
        if (!pSide->bCountBeforeTrace) {
            pInst->stErrStat.*(pSide->pRepeat) += 1;
        }
        return 0;
    }
    if (pFound != nullptr) {
        // The trace hands control to the application. A down made there ended the add with
        // the instance's items; any other call may have changed this key's items, so the key
        // is looked up again before its item in the other group is freed.
        const uint32_t ulDownCnt = pInst->ulDownCnt;
        ZAN_VRRP_INST_TRACE(pInst, pSide->ulOtherLine, "%s", pSide->pcOther);
        if (pInst->ulDownCnt != ulDownCnt) {
            return 0;
        }
        // Short of a down, nothing the application can call takes the key out of both groups.
        pFound = ZAN_VrrpInst_FindItem_(pInst, aucKey);
        if (pFound->ucGroup == pSide->ucGroup) {
            return 0;  // the application stored it from the trace
        }
        ZAN_VrrpInst_FreeItem_(pInst, pFound, pSide->ulFreeOtherLine);
    }
    ZAN_VRRP_SUB_ITEM_S *pNew = static_cast<ZAN_VRRP_SUB_ITEM_S *>(KOL_Malloc_F(
        pInst->MemHandle, g_aucKolMemPt[0], sizeof(ZAN_VRRP_SUB_ITEM_S), ZAN_VRRP_INST_FILE, pSide->ulMallocLine));
    if (pNew == nullptr) {
        pInst->stErrStat.usMAlloc++;
        return ZAN_VRRP_ALL_ONES;
    }
    (void)memset_s(pNew, sizeof(*pNew), 0, sizeof(*pNew));
    // A plain copy between two records of the library: the tree orders the item by it.
    memcpy(pNew->aucKey, aucKey, ZAN_VRRP_ITEM_KEY_LEN);
    pNew->ucGroup = pSide->ucGroup;
    if (ZAN_RBT_AddNode(&pInst->stItemTree, &pNew->stNode, aucKey, ZAN_VrrpInst_SubItemCmpKey_) == 0u) {
        ZAN_VrrpInst_LinkItem_(pInst, pNew, SUB_ITEM_STATE_INIT);
    } else {
        // The tree refused the node (it holds no item with this key): the block is not kept.
        pInst->stDropStat.ulItemInsert++;
        KOL_Free_F(pNew, ZAN_VRRP_INST_FILE, pSide->ulRefusedLine);
    }
    ZAN_VrrpInst_SetPending_(pInst, pSide->ucGroup);
    return 0;
}

// Removes and frees every item of a group. When the group holds every item of the tree, the
// tree is emptied at once instead of node by node.
void ZAN_VrrpInst_ClearGroup_(ZAN_VRRP_INST_S *pInst, uint32_t ulGroup)
{
    const bool bWhole = ZAN_VrrpInst_GroupCount(pInst, ulGroup ^ 1u) == 0u;
    ZAN_VRRP_ITEM_GROUP_S *pGroup = &pInst->astGroup[ulGroup];
    for (uint32_t ulState = 0; ulState < SUB_ITEM_STATE_NUM; ulState++) {
        ZAN_LIST_LINK_S *pHead = &pGroup->astList[ulState];
        ZAN_LIST_LINK_S *pLink = pHead->pNext;
        while (pLink != pHead) {
            ZAN_LIST_LINK_S *pNext = pLink->pNext;
            ZAN_VRRP_SUB_ITEM_S *pItem = ZAN_VrrpInst_ItemOfLink_(pLink);
            if (!bWhole) {
                WUX_RBT_RemoveNode(&pInst->stItemTree, &pItem->stNode);
            }
            KOL_Free_F(pItem, ZAN_VRRP_INST_FILE, LINE_FREE_CLEAR);
            pLink = pNext;
        }
        ZAN_VrrpInst_ListInit_(pHead);
        pGroup->aulLen[ulState] = 0;
        pGroup->abInOrder[ulState] = 1;
    }
    if (bWhole) {
        WUX_RBT_ClearTree(&pInst->stItemTree);
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
    ZAN_VrrpInst_InitTree_(&pInst->stItemTree);
    for (ZAN_VRRP_ITEM_GROUP_S &stGroup : pInst->astGroup) {
        for (uint32_t ulState = 0; ulState < SUB_ITEM_STATE_NUM; ulState++) {
            ZAN_VrrpInst_ListInit_(&stGroup.astList[ulState]);
            stGroup.aulLen[ulState] = 0;
            stGroup.abInOrder[ulState] = 1;
        }
    }
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
    const int32_t lRet = ZAN_VrrpInst_KeyOrder(ZAN_VrrpInst_ItemOfNode_(pNode)->aucKey, static_cast<const uint8_t *>(pKey));
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
    return ZAN_VrrpInst_StoreItem_(pInst, &g_stAddSub, pKey, pSub);
}

uint32_t ZAN_VrrpInst_AddUnSubItem(ZAN_VRRP_INST_S *pInst, const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub)
{
    if (pInst->State != VRRP_INST_STATE_REGED) {
        return 0;
    }
    return ZAN_VrrpInst_StoreItem_(pInst, &g_stAddUnSub, pKey, pSub);
}

ZAN_LIST_LINK_S *ZAN_VrrpInst_OrderedList_(ZAN_VRRP_INST_S *pInst, uint32_t ulGroup, uint8_t ucState)
{
    ZAN_VRRP_ITEM_GROUP_S *pGroup = &pInst->astGroup[ulGroup];
    if (pGroup->abInOrder[ucState] == 0u) {
        // A walk of the whole tree costs one step per item held, a merge sort about log2(n)
        // compares per listed item: the cheaper of the two.
        const uint32_t ulLen = pGroup->aulLen[ucState];
        const uint32_t ulHeld = ZAN_VrrpInst_GroupCount(pInst, 0) + ZAN_VrrpInst_GroupCount(pInst, 1);
        if (ulLen < 2u) {
            // emptied or down to one item since it went out of order
        } else if (ulHeld / ulLen <= 2u * (32u - (uint32_t)__builtin_clz(ulLen))) {
            ZAN_VrrpInst_RelinkFromTree_(pInst, ulGroup, ucState);
        } else {
            ZAN_VrrpInst_SortList_(&pGroup->astList[ucState]);
        }
        pGroup->abInOrder[ucState] = 1;
    }
    return &pGroup->astList[ucState];
}

void ZAN_VrrpInst_MoveItem_(ZAN_VRRP_INST_S *pInst, ZAN_VRRP_SUB_ITEM_S *pItem, uint8_t ucState)
{
    ZAN_VrrpInst_UnlinkItem_(pInst, pItem);
    ZAN_VrrpInst_LinkItem_(pInst, pItem, ucState);
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
    ZAN_VrrpInst_ClearGroup_(pInst, ZAN_VRRP_GROUP_SUB);
}

void ZAN_VrrpInst_ClearUnSubInfo_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_VrrpInst_StopTmr_(pInst, &pInst->UnSubTmr);
    ZAN_VrrpInst_ClearGroup_(pInst, ZAN_VRRP_GROUP_UNSUB);
}

void ZAN_VrrpInst_ClearNotifyInfo_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_VrrpInst_StopTmr_(pInst, &pInst->NotifyTmr);
    pInst->NotifySeq = 0;
}

// The acknowledged request carried exactly the sent items.
void ZAN_VrrpInst_FlashItemStateToSubed_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_LIST_LINK_S *pHead = &pInst->astGroup[ZAN_VRRP_GROUP_SUB].astList[SUB_ITEM_STATE_SENT];
    while (pHead->pNext != pHead) {
        ZAN_VrrpInst_MoveItem_(pInst, ZAN_VrrpInst_ItemOfLink_(pHead->pNext), SUB_ITEM_STATE_SUBED);
    }
}

void ZAN_VrrpInst_DeleteUnSubedItem_(ZAN_VRRP_INST_S *pInst)
{
    ZAN_LIST_LINK_S *pHead = &pInst->astGroup[ZAN_VRRP_GROUP_UNSUB].astList[SUB_ITEM_STATE_SENT];
    while (pHead->pNext != pHead) {
        ZAN_VrrpInst_FreeItem_(pInst, ZAN_VrrpInst_ItemOfLink_(pHead->pNext), LINE_FREE_UNSUBED);
    }
}
