/* Basic functions of the platform: bounded copies, comparisons, conversions. */
#ifndef ZAN_PLAT_BASE_H
#define ZAN_PLAT_BASE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Copies count bytes when count <= destMax and both pointers are set; returns 0.
 * Otherwise copies nothing (a too large count also zero-fills dest up to destMax)
 * and returns non-zero. */
uint32_t memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
/* Fills count bytes with c when count <= destMax and dest is set; returns 0, else non-zero. */
uint32_t memset_s(void *dest, size_t destMax, int c, size_t count);

/* Bytewise comparison: <0, 0 or >0 like memcmp. */
int32_t WUX_MemCmp(const void *a, const void *b, uint32_t len);
/* Text comparison: 0 when equal. */
int32_t WUX_StrCmp(const char *a, const char *b);
/* Decimal digits, or 0x followed by hex digits, fitting 32 bits: 0 and *pulOut set;
 * anything else: non-zero. */
uint32_t WUX_StrToUint32(const char *text, uint32_t *pulOut);

#ifdef __cplusplus
}
#endif
#endif
