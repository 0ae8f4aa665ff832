/* Compiled with the public header included first, as C and as C++: every declaration of the
 * interface is used, so a header that does not compile in either language fails here. */
#include <stddef.h>
#include <string.h>

typedef uint32_t (*SubscribeFn)(ZAN_VRRP_ADP_S *, const ZAN_VRRP_TLV_S *, const ZAN_VRRP_TLV_S *, uint32_t);

static const SubscribeFn g_apfn[2] = {ZAN_VrrpAdp_Subscribe, ZAN_VrrpAdp_UnSubscribe};

int zan_header_check(struct ZAN_COMP_CTX *ctx)
{
    ZAN_VRRP_CALLBACK_S table;
    ZAN_VRRP_TLV_S key = {ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN, {0}};
    ZAN_VRRP_TLV_S data = {ZAN_VRRP_DATA_TLV_TYPE, 8u, {0}};
    ZAN_VRRP_ADP_S *adp = ZAN_VrrpAdp_Get(ctx);
    memset(&table, 0, sizeof(table));
    uint32_t r = ZAN_VrrpAdp_RegCallBack(adp, &table) | ZAN_VrrpAdp_SetWorkState(adp, 1u) |
                 g_apfn[0](adp, &key, &data, 1u) | g_apfn[1](adp, &key, &data, 1u) |
                 ZAN_VrrpAdp_SendData(adp, 1u, &key, &data);
    ZAN_VrrpAdp_DeInit(ctx);
    return r == ZAN_VRRP_FAIL && sizeof(key.aucValue) == ZAN_VRRP_TLV_VALUE_MAX && table.pfnRegAck == NULL;
}
