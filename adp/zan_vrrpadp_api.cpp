// The application's calls that name an interface group: the group is mapped to the instance
// of the VRRP component that serves it through the deploy relations.
#include "zan_vrrpadp.h"

#include "../inst/zan_vrrpinst.h"
#include "../prod/zan_vrrp_prod.h"

namespace {

constexpr const char *ZAN_VRRP_SUB_TEXT =
    "vrrp-adp subscribe, key-type[%d], key-len[%d], vrrpid[%d], ifindex[%d], sub-type[%d], sub-len[%d] ifgrpid[%d].";

// Subscribe and unsubscribe trace the same text: the key's IfIndex (value bytes 0-3) and
// VrrpId (value byte 4) with the lengths and types.
void ZAN_VrrpAdp_TraceSub_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulLine, const ZAN_VRRP_TLV_S *pKey,
                           const ZAN_VRRP_TLV_S *pSub, uint32_t ulIfGroupId)
{
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, ulLine, ZAN_VRRP_SUB_TEXT, (int)pKey->usType, (int)pKey->usLen,
                      (int)pKey->aucValue[4], (int)ZAN_VrrpAdp_GetHost32(pKey->aucValue), (int)pSub->usType,
                      (int)pSub->usLen, (int)ulIfGroupId);
}

}  // namespace

ZAN_VRRP_INST_S *ZAN_VrrpAdp_FindInstByIfGroupId_(ZAN_VRRP_ADP_S *pAdp, uint32_t ulIfGroupId)
{
    ZAN_LIST_LINK_S *pHead = &pAdp->stDeployList;
    for (ZAN_LIST_LINK_S *pLink = pHead->pNext; pLink != pHead; pLink = pLink->pNext) {
        const ZAN_VRRP_DEPLOY_NODE_S *pNode = ZAN_VrrpAdp_NodeOfLink(pLink);
        if (pNode->stRec.ulIfGroupId == ulIfGroupId) {
            return ZAN_VrrpAdp_LiveInstOfPid_(pAdp, pNode->stRec.ulPid);
        }
    }
    return nullptr;
}

uint32_t ZAN_VrrpAdp_Subscribe(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub,
                               uint32_t ulIfGroupId)
{
    if (pAdp == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    pAdp->stEvtStat.usSubscribe++;
    if (pKey == nullptr || pSub == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VrrpAdp_TraceSub_(pAdp, 147, pKey, pSub, ulIfGroupId);
    ZAN_VRRP_INST_S *pInst = ZAN_VrrpAdp_FindInstByIfGroupId_(pAdp, ulIfGroupId);
    if (pInst == nullptr) {
        pAdp->stErrStat.usNoInst++;
        ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 152,
                          "vrrp-adp subscribe, can not find vrrp instance, ifgroupid[%d].", (int)ulIfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    const uint32_t ulRet = ZAN_VrrpInst_AddSubItem(pInst, pKey, pSub);
    if (ulRet == 0u) {
        return 0;
    }
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 158, "vrrp-adp subscribe, add subscribe item fail.");
    pAdp->stErrStat.usAddSubItem++;
    return ulRet;
}

uint32_t ZAN_VrrpAdp_UnSubscribe(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_TLV_S *pKey, const ZAN_VRRP_TLV_S *pSub,
                                 uint32_t ulIfGroupId)
{
    if (pAdp == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    pAdp->stEvtStat.usUnSubscribe++;
    if (pKey == nullptr || pSub == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VrrpAdp_TraceSub_(pAdp, 177, pKey, pSub, ulIfGroupId);
    ZAN_VRRP_INST_S *pInst = ZAN_VrrpAdp_FindInstByIfGroupId_(pAdp, ulIfGroupId);
    if (pInst == nullptr) {
        pAdp->stErrStat.usNoInst++;
        ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 182,
                          "vrrp-adp unsubscribe, can not find vrrp instance, ifgroupid[%d].", (int)ulIfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    const uint32_t ulRet = ZAN_VrrpInst_AddUnSubItem(pInst, pKey, pSub);
    if (ulRet == 0u) {
        return 0;
    }
    ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 188, "vrrp-adp subscribe, add unsubscribe item fail.");
    pAdp->stErrStat.usAddUnSubItem++;
    return ulRet;
}

uint32_t ZAN_VrrpAdp_SendData(ZAN_VRRP_ADP_S *pAdp, uint32_t ulIfGroupId, const ZAN_VRRP_TLV_S *pKey,
                              const ZAN_VRRP_TLV_S *pData)
{
    if (pAdp == nullptr || pKey == nullptr || pData == nullptr) {
        return ZAN_VRRP_ALL_ONES;
    }
    ZAN_VRRP_INST_S *pInst = ZAN_VrrpAdp_FindInstByIfGroupId_(pAdp, ulIfGroupId);
    if (pInst == nullptr) {
        pAdp->stErrStat.usNoInst++;
        ZAN_VrrpAdp_Trace(pAdp, ZAN_VRRP_ADP_MODULE, 204,
                          "vrrp-adp SendData, can not find vrrp instance, ifgroupid[%d].", (int)ulIfGroupId);
        return ZAN_VRRP_ALL_ONES;
    }
    return ZAN_VrrpProd_SendData(ZAN_VrrpInst_Ctx(pInst), pInst, pKey, pData);
}
