/* The diagnostic command "zanvrrp". */
#ifndef ZAN_VRRPINNERDATA_H
#define ZAN_VRRPINNERDATA_H

#include <stdint.h>

#include "../adp/zan_vrrpadp.h"

#define ZAN_VRRP_INNERDATA_FILE "zan_vrrpinnerdata"
#define ZAN_VRRP_INNERDATA_CMD "zanvrrp"
#define ZAN_VRRP_INNERDATA_REC_TYPE 0x09D22100u

typedef uint32_t (*ZAN_VRRP_INNERDATA_GET_PF)(uint8_t *pucRec, ZAN_INNERDATA_REQ_S *pReq, ZAN_VRRP_ADP_S *pAdp);

typedef struct ZAN_VRRP_INNERDATA_GETINFO {
    const char *pcItem;
    ZAN_VRRP_INNERDATA_GET_PF pfnGet;
} ZAN_VRRP_INNERDATA_GETINFO_S;

extern const ZAN_VRRP_INNERDATA_GETINFO_S g_astZanVrrpInnerDataGetInfo[8];

uint32_t ZAN_VrrpInnerData_Init(ZAN_VRRP_ADP_S *pAdp);
uint32_t ZAN_VrrpInnerData_Proc_(ZAN_INNERDATA_REQ_S *pReq, ZAN_CLI_CMD_S *pCmd, void *pAdp);

#endif
