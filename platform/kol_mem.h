/* Memory service: handles, blocks and assertions. */
#ifndef KOL_MEM_H
#define KOL_MEM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Partition table; every allocation passes its first byte as the partition. */
extern uint8_t g_aucKolMemPt[];

/* Creates a memory handle for component cid; id is the handle's identity.
 * 0 on success with *pulHandle set. */
uint32_t KOL_HandleInitialize(uint32_t cid, uint32_t id, uint32_t *pulHandle);
/* Releases every block still held on the handle and ends it. */
void KOL_HandleFinalize(uint32_t handle);

/* A block of size bytes on handle, or NULL. file and line tag the caller. */
void *KOL_Malloc_F(uint32_t handle, uint8_t partition, uint32_t size, const char *file, uint32_t line);
void KOL_Free_F(void *block, const char *file, uint32_t line);

/* Reports a broken precondition; it returns to the caller. */
void KOL_Assert(const char *file, uint32_t line, uint32_t value);

#ifdef __cplusplus
}
#endif
#endif
