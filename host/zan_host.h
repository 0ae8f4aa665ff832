/* The host platform seen from C: a component context on a deterministic in-process world that
 * an application (or its tests) drives in place of the framework and the VRRP components.
 * Installed with the library only when asked for (ZAN_INSTALL_HOST_PLATFORM). */
#ifndef ZAN_HOST_H
#define ZAN_HOST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ZAN_COMP_CTX;

/* Starts the world afresh (time 0, nothing held) and returns its component context. */
struct ZAN_COMP_CTX *ZAN_Host_Reset(void);
/* The world's component context. */
struct ZAN_COMP_CTX *ZAN_Host_Ctx(void);

/* A deploy relation record (kind 37) for pid and interface group, created (non-zero) or
 * deleted (0). Returns the library's result, or ZAN_HOST_NONE when nothing is registered. */
uint32_t ZAN_Host_Deploy(uint32_t ulPid, uint32_t ulIfGroupId, int bCreate);
#define ZAN_HOST_NONE 0xFFFFFFFFu

/* Delivers a message (network byte order, as on the wire) from a VRRP component.
 * Returns 0, or -1 when no handler is registered. */
int ZAN_Host_Deliver(uint32_t ulPid, const uint8_t *pucMsg, size_t ulLen);
/* A flow-control message for pid, and the framework's flush; 0, or -1 when no handler. */
int ZAN_Host_DeliverFcm(uint32_t ulPid);
int ZAN_Host_Flush(void);

/* Takes the oldest message the library sent: copies up to ulCap bytes into pucBuf, sets *pulPid
 * (may be NULL) and returns its full length; 0 when none is waiting. */
size_t ZAN_Host_TakeSent(uint8_t *pucBuf, size_t ulCap, uint32_t *pulPid);

/* Virtual time: advances by ulMs milliseconds, firing every due timer in order. */
void ZAN_Host_Advance(uint32_t ulMs);

/* Runs the diagnostic command for item (pcPid: NULL or the pid as typed) and copies its text
 * into pcOut (NUL-terminated, truncated to ulCap). Returns the command's result, or ZAN_HOST_NONE
 * when the command is not registered. */
uint32_t ZAN_Host_Cli(const char *pcItem, const char *pcPid, char *pcOut, size_t ulCap);

/* Blocks of memory held through the memory service, and platform misuse seen so far. */
uint32_t ZAN_Host_BlocksHeld(void);
uint32_t ZAN_Host_Faults(void);

#ifdef __cplusplus
}
#endif
#endif
