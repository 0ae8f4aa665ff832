/* libzan_vrrp_lib: the application's interface to the state service of VRRP components.
 *
 * Usage: ZAN_VrrpAdp_Get(component) once the component is up, then
 * ZAN_VrrpAdp_RegCallBack(adapter, &table) before the first deploy record arrives.
 * Everything runs on the component's message-loop thread; callbacks are synchronous. A callback
 * may subscribe, unsubscribe, send data and change the work state; it must not call
 * ZAN_VrrpAdp_DeInit, which frees the instance the callback is reporting from. */
#ifndef ZAN_VRRP_LIB_H
#define ZAN_VRRP_LIB_H

#include <stdint.h>

#if defined(__GNUC__)
#define ZAN_VRRP_API __attribute__((visibility("default")))
#else
#define ZAN_VRRP_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct ZAN_COMP_CTX;              /* the framework's component context */
typedef struct ZAN_VRRP_ADP ZAN_VRRP_ADP_S; /* the adapter: opaque to the application */

/* A TLV as the application passes it, host byte order: type, length of the value, value.
 * Pass a whole record: the traces read the key's first five value bytes (IfIndex, VrrpId)
 * whatever usLen says; only 4 + usLen bytes are kept. */
typedef struct ZAN_VRRP_TLV {
    uint16_t usType;
    uint16_t usLen;
    uint8_t aucValue[12];
} ZAN_VRRP_TLV_S;

#define ZAN_VRRP_KEY_TLV_TYPE 3001u   /* key TLV: IfIndex (u32), VrrpId (u8), 3 more bytes */
#define ZAN_VRRP_KEY_TLV_LEN 8u
#define ZAN_VRRP_DATA_TLV_TYPE 1001u  /* data TLV: 0 or 8 value bytes */
#define ZAN_VRRP_TLV_VALUE_MAX 12u    /* longest subscription key or type value */
#define ZAN_VRRP_FAIL 0xFFFFFFFFu     /* no instance serves the ifGroupId */

/* The application's callbacks; every one gets the component's ulHandle last.
 * pfnRegAck, pfnRecvData and pfnItemDown are required; the others may be NULL. */
typedef struct ZAN_VRRP_CALLBACK {
    void (*pfnRegAck)(uint32_t ulIfGroupId, uint32_t ulHandle);
    void (*pfnRecvData)(const void *pKeyTlv, const void *pDataTlv, uint32_t ulHandle);
    void (*pfnMsgAllocFail)(uint32_t ulPid, uint32_t ulHandle, uint32_t ulNum);
    void (*pfnFcm)(uint32_t ulPid, uint32_t ulHandle);
    uint32_t (*pfnIsDebugOn)(uint32_t ulHandle);
    void (*pfnDebugOut)(const char *pcText, uint32_t ulHandle);
    void (*pfnProdBatchBegin)(uint32_t ulIfGroupId, uint32_t ulHandle);
    void (*pfnTracePoint)(const char *pcModule, uint32_t ulLine, uint32_t ulHandle);
    void (*pfnItemDown)(const void *pItemKey, uint32_t ulHandle);
} ZAN_VRRP_CALLBACK_S;

/* The component's adapter, created on the first call; NULL when it cannot be created. */
ZAN_VRRP_API ZAN_VRRP_ADP_S *ZAN_VrrpAdp_Get(struct ZAN_COMP_CTX *pCompCtx);
/* Ends the adapter with all its instances. */
ZAN_VRRP_API void ZAN_VrrpAdp_DeInit(struct ZAN_COMP_CTX *pCompCtx);
/* Replaces the callback table; 0 on success. */
ZAN_VRRP_API uint32_t ZAN_VrrpAdp_RegCallBack(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_CALLBACK_S *pCallBack);
/* Work state of every instance: non-zero works, 0 takes them down. */
ZAN_VRRP_API uint32_t ZAN_VrrpAdp_SetWorkState(ZAN_VRRP_ADP_S *pAdp, uint32_t ulOn);
/* Subscribes / unsubscribes a VRRP item of the group; 0, ZAN_VRRP_FAIL or the refusal. */
ZAN_VRRP_API uint32_t ZAN_VrrpAdp_Subscribe(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_TLV_S *pKey,
                                            const ZAN_VRRP_TLV_S *pSub, uint32_t ulIfGroupId);
ZAN_VRRP_API uint32_t ZAN_VrrpAdp_UnSubscribe(ZAN_VRRP_ADP_S *pAdp, const ZAN_VRRP_TLV_S *pKey,
                                              const ZAN_VRRP_TLV_S *pSub, uint32_t ulIfGroupId);
/* Hands one datum (key TLV 3001/8, data TLV 1001/0 or 8) to the producer of the group. */
ZAN_VRRP_API uint32_t ZAN_VrrpAdp_SendData(ZAN_VRRP_ADP_S *pAdp, uint32_t ulIfGroupId, const ZAN_VRRP_TLV_S *pKey,
                                           const ZAN_VRRP_TLV_S *pData);

#ifdef __cplusplus
}
#endif
#endif
