/* Message service: flow-controlled allocation, sending, received-buffer queries. */
#ifndef KOL_MSG_H
#define KOL_MSG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A message buffer of len bytes for destPid, or NULL when flow control refuses it.
 * The buffer need not be zeroed. */
void *KOL_MsgFlowCtrlAlloc_F(uint32_t allocHandle, uint32_t destPid, uint32_t len, const char *file,
                             uint32_t line);
/* Sends len bytes of buf to destPid; takes the buffer over whatever the result. 0 on success. */
uint32_t KOL_SEND_MSG(uint32_t destPid, uint32_t service, uint32_t port, void *buf, uint32_t len);
/* Releases a buffer that was allocated for destPid and not sent. */
void MSG_Free(uint32_t destPid, void *msg);
/* The pid (component id) of the component that sent a received message. */
uint32_t MSG_SenderCidGet(const void *msg);
/* The number of bytes delivered in a received message buffer. The receive path needs it so
 * that a message shorter than its header, or whose length field claims more than was
 * delivered, is dropped before any byte beyond the delivered size is read. */
uint32_t MSG_DataSizeGet(const void *msg);

#ifdef __cplusplus
}
#endif
#endif
