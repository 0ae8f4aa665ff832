/* An application built out of the tree against an installed libzan_vrrp_lib, on the host
 * platform: it takes part in the state service of one VRRP component (pid 0x10, interface group
 * 1) through the whole public interface and checks what it sees. Prints "ok" and exits 0. */
#include <stdio.h>
#include <string.h>

#include "zan_host.h"
#include "zan_vrrp_lib.h"

#define PID 0x10u
#define GROUP 1u

static ZAN_VRRP_ADP_S *g_adp;
static unsigned g_regAcks, g_records, g_batchBegins, g_fcms, g_itemsDown, g_debugLines;
static uint8_t g_lastKey[12], g_lastData[12];

static int Fail(const char *what)
{
    fprintf(stderr, "consumer: %s\n", what);
    return 1;
}

static ZAN_VRRP_TLV_S Tlv(uint16_t type, uint16_t len, uint32_t word, uint32_t word2)
{
    ZAN_VRRP_TLV_S t;
    memset(&t, 0, sizeof(t));
    t.usType = type;
    t.usLen = len;
    memcpy(t.aucValue, &word, sizeof(word));
    memcpy(t.aucValue + 4, &word2, sizeof(word2));
    return t;
}

static void OnRegAck(uint32_t ulIfGroupId, uint32_t ulHandle)
{
    (void)ulHandle;
    g_regAcks += ulIfGroupId == GROUP;
}

static void OnRecvData(const void *pKeyTlv, const void *pDataTlv, uint32_t ulHandle)
{
    (void)ulHandle;
    g_records++;
    memcpy(g_lastKey, pKeyTlv, sizeof(g_lastKey));
    memcpy(g_lastData, pDataTlv, sizeof(g_lastData));
}

static void OnMsgAllocFail(uint32_t ulPid, uint32_t ulHandle, uint32_t ulNum) { (void)ulPid, (void)ulHandle, (void)ulNum; }
static void OnFcm(uint32_t ulPid, uint32_t ulHandle) { (void)ulHandle; g_fcms += ulPid == PID; }
static uint32_t OnIsDebugOn(uint32_t ulHandle) { (void)ulHandle; return 1; }
static void OnDebugOut(const char *pcText, uint32_t ulHandle) { (void)pcText, (void)ulHandle; g_debugLines++; }
static void OnTracePoint(const char *pcModule, uint32_t ulLine, uint32_t ulHandle) { (void)pcModule, (void)ulLine, (void)ulHandle; }
static void OnItemDown(const void *pItemKey, uint32_t ulHandle) { (void)pItemKey, (void)ulHandle; g_itemsDown++; }

/* The batch begins: the application hands over its data from inside the callback. */
static void OnBatchBegin(uint32_t ulIfGroupId, uint32_t ulHandle)
{
    ZAN_VRRP_TLV_S key = Tlv(ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN, 7, 1);
    ZAN_VRRP_TLV_S data = Tlv(ZAN_VRRP_DATA_TLV_TYPE, 8, 0x11223344u, 0x55667788u);
    (void)ulHandle;
    g_batchBegins++;
    (void)ZAN_VrrpAdp_SendData(g_adp, ulIfGroupId, &key, &data);
}

/* The VRRP component: acknowledges every request by echoing its header. Returns a bit per
 * request type seen. */
static uint32_t Pump(void)
{
    uint32_t seen = 0;
    uint8_t msg[4096];
    size_t len;
    uint32_t pid;
    while ((len = ZAN_Host_TakeSent(msg, sizeof(msg), &pid)) != 0u) {
        if (len < 20u || (msg[2] & 0x80u) != 0u) {
            continue;
        }
        seen |= 1u << msg[3];
        msg[0] = 0;
        msg[1] = 20;
        msg[2] |= 0x80u;
        (void)ZAN_Host_Deliver(pid, msg, 20u);
    }
    return seen;
}

int main(void)
{
    static const ZAN_VRRP_CALLBACK_S table = {OnRegAck,  OnRecvData,   OnMsgAllocFail, OnFcm,     OnIsDebugOn,
                                              OnDebugOut, OnBatchBegin, OnTracePoint,   OnItemDown};
    struct ZAN_COMP_CTX *ctx = ZAN_Host_Reset();
    uint32_t seen = 0;
    int i;
    char text[8192];

    g_adp = ZAN_VrrpAdp_Get(ctx);
    if (g_adp == NULL || ZAN_VrrpAdp_Get(ctx) != g_adp) {
        return Fail("no adapter, or a second one");
    }
    if (ZAN_VrrpAdp_RegCallBack(g_adp, &table) != 0u) {
        return Fail("callback table refused");
    }
    if (ZAN_Host_Deploy(PID, GROUP, 1) != 0u) {
        return Fail("deploy relation refused");
    }
    /* Register, AddProducer, the batch (BNBegin, BNData, BNEnd): every step acknowledged. */
    for (i = 0; i < 8; i++) {
        seen |= Pump();
    }
    if (g_regAcks != 1u || g_batchBegins != 1u || (seen & 0xBEu) != 0xBAu) {
        return Fail("registration or batch incomplete");
    }

    /* A subscription goes out at the flush and is acknowledged. */
    {
        ZAN_VRRP_TLV_S key = Tlv(1, 5, 7, 1);
        ZAN_VRRP_TLV_S sub = Tlv(2, 1, 1, 0);
        if (ZAN_VrrpAdp_Subscribe(g_adp, &key, &sub, GROUP) != 0u || ZAN_Host_Flush() != 0 ||
            (Pump() & (1u << 9)) == 0u) {
            return Fail("subscribe exchange");
        }
        if (ZAN_VrrpAdp_Subscribe(g_adp, &key, &sub, 99u) != ZAN_VRRP_FAIL) {
            return Fail("a subscription for an unknown group was taken");
        }
    }

    /* A real-time update of one record arrives, converted to host order. */
    {
        static const uint8_t ru[48] = {0,    48,   0x01, 15,   0, 0, 0, 0, 0,    0,    0,    0,    0,    0,    0,    0,
                                       0,    0,    0,    1,    0x0b, 0xba, 0, 24, 0x0b, 0xb9, 0, 8, 0, 0, 0, 7,
                                       1,    0,    0,    0,    0x03, 0xe9, 0, 8, 0xa1, 0xa2, 0xa3, 0xa4, 0xb1, 0xb2, 0xb3, 0xb4};
        uint16_t type;
        if (ZAN_Host_Deliver(PID, ru, sizeof(ru)) != 0 || g_records != 1u) {
            return Fail("record not handed over");
        }
        memcpy(&type, g_lastKey, sizeof(type));
        if (type != ZAN_VRRP_KEY_TLV_TYPE || g_lastData[4] != 0xa1u) {
            return Fail("record handed over wrongly");
        }
        (void)Pump();
    }

    /* Real-time data, flow control, an unsubscription. */
    {
        ZAN_VRRP_TLV_S key = Tlv(ZAN_VRRP_KEY_TLV_TYPE, ZAN_VRRP_KEY_TLV_LEN, 8, 1);
        ZAN_VRRP_TLV_S data = Tlv(ZAN_VRRP_DATA_TLV_TYPE, 0, 0, 0);
        ZAN_VRRP_TLV_S item = Tlv(1, 5, 7, 1);
        ZAN_VRRP_TLV_S sub = Tlv(2, 1, 1, 0);
        if (ZAN_VrrpAdp_SendData(g_adp, GROUP, &key, &data) != 0u || ZAN_Host_Flush() != 0 ||
            (Pump() & (1u << 6)) == 0u) {
            return Fail("real-time data not sent");
        }
        if (ZAN_Host_DeliverFcm(PID) != 0 || g_fcms != 1u) {
            return Fail("flow control not reported");
        }
        if (ZAN_VrrpAdp_UnSubscribe(g_adp, &item, &sub, GROUP) != 0u || ZAN_Host_Flush() != 0 ||
            (Pump() & (1u << 10)) == 0u) {
            return Fail("unsubscribe exchange");
        }
    }

    /* Work off and on again: the component registers anew. */
    if (ZAN_VrrpAdp_SetWorkState(g_adp, 0) != 0u || ZAN_VrrpAdp_SetWorkState(g_adp, 1) != 0u) {
        return Fail("work state");
    }
    ZAN_Host_Advance(3000);
    if ((Pump() & (1u << 7)) == 0u || g_regAcks != 2u) {
        return Fail("no registration after work on");
    }

    /* The operator's view. */
    if (ZAN_Host_Cli("inst-base", "0x10", text, sizeof(text)) == ZAN_HOST_NONE || strstr(text, "IfGroupId:    1 ") == NULL) {
        return Fail("diagnostic command");
    }

    /* Everything is released but the adapter context, which the framework's registrations
     * still name; the next ZAN_VrrpAdp_Get starts it afresh. */
    ZAN_VrrpAdp_DeInit(ctx);
    if (ZAN_Host_BlocksHeld() != 1u || ZAN_Host_Faults() != 0u) {
        return Fail("memory held or platform misuse after DeInit");
    }
    if (ZAN_VrrpAdp_Get(ctx) != g_adp || ZAN_Host_BlocksHeld() != 1u) {
        return Fail("a new adapter after DeInit");
    }
    ZAN_VrrpAdp_DeInit(ctx);
    printf("ok: %u registrations, %u record(s), %u debug lines\n", g_regAcks, g_records, g_debugLines);
    return 0;
}
