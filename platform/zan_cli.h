/* Diagnostics: inner-data commands and the command framework's output records. */
#ifndef ZAN_CLI_H
#define ZAN_CLI_H

#include <stdint.h>
#include "zan_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZAN_INNERDATA_REC_LEN 3220u   /* output record size */
#define ZAN_INNERDATA_TEXT_OFF 148u   /* text starts here */
#define ZAN_INNERDATA_TEXT_MAX 3072u  /* size of the text area */

/* A command request as the inner-data service hands it over. */
typedef struct ZAN_INNERDATA_REQ {
    const char *pcItem;     /* item name */
    const char *pcPid;      /* text of the pid option */
    uint32_t bPidGiven;     /* non-zero when the pid option was given */
    uint32_t ulContinue;    /* continuation word, 0 on the first call */
} ZAN_INNERDATA_REQ_S;

/* The command framework's command being answered. */
typedef struct ZAN_CLI_CMD {
    uint32_t ulCmdId;
    void *pFwRsv;
} ZAN_CLI_CMD_S;

typedef uint32_t (*ZAN_INNERDATA_PF)(ZAN_INNERDATA_REQ_S *pReq, ZAN_CLI_CMD_S *pCmd, void *pArg);

uint32_t ZAN_InnerData_RegCallBack(ZAN_COMP_CTX_S *pCompCtx, const char *pcName, ZAN_INNERDATA_PF pfn, void *pArg);
/* Appends formatted text at pcText + ulCurLen, never past ZAN_INNERDATA_TEXT_MAX bytes of the
 * text area (the text stays zero-terminated inside it); returns the characters added. */
uint32_t ZAN_InnerData_Output(char *pcText, uint32_t ulCurLen, const char *pcFmt, ...)
    __attribute__((format(printf, 3, 4)));
/* Copies a finished output record into the command's answer. */
uint32_t CLI_AddRec(ZAN_CLI_CMD_S *pCmd, const void *pRec, uint32_t ulLen, uint32_t ulType);
uint32_t CLI_AddOptionData(ZAN_CLI_CMD_S *pCmd, const void *pData, uint32_t ulLen);
uint32_t CLI_SetRetCode(uint32_t ulCmdId, uint32_t ulValue, uint32_t ulCode);

#ifdef __cplusplus
}
#endif
#endif
