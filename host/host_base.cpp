// Basic functions of the host: bounded copy and fill, comparisons, number conversion.
#include <cstring>

#include "host_state.h"

namespace {

int32_t Sign(int v)
{
    return v < 0 ? -1 : (v > 0 ? 1 : 0);
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

}  // namespace

extern "C" {

uint32_t memcpy_s(void *dest, size_t destMax, const void *src, size_t count)
{
    if (dest == nullptr || host::ShouldFail(host::FailKind::Copy)) {
        return 1;
    }
    if (count > destMax) {
        if (destMax > 0u) {
            std::memset(dest, 0, destMax);
        }
        return 1;
    }
    if (src == nullptr) {
        return 1;
    }
    if (count > 0u) {
        std::memmove(dest, src, count);
    }
    return 0;
}

uint32_t memset_s(void *dest, size_t destMax, int c, size_t count)
{
    if (dest == nullptr || count > destMax) {
        return 1;
    }
    if (count > 0u) {
        std::memset(dest, c, count);
    }
    return 0;
}

int32_t WUX_MemCmp(const void *a, const void *b, uint32_t len)
{
    if (len == 0u) {
        return 0;
    }
    if (a == nullptr || b == nullptr) {
        host::Fault("WUX_MemCmp with a NULL operand");
        return a == b ? 0 : (a == nullptr ? -1 : 1);
    }
    return Sign(std::memcmp(a, b, len));
}

int32_t WUX_StrCmp(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr) {
        return a == b ? 0 : (a == nullptr ? -1 : 1);
    }
    return Sign(std::strcmp(a, b));
}

uint32_t WUX_StrToUint32(const char *text, uint32_t *pulOut)
{
    if (text == nullptr || pulOut == nullptr || text[0] == '\0') {
        return 1;
    }
    uint64_t value = 0;
    if (text[0] == '0' && text[1] == 'x') {
        const char *p = text + 2;
        if (*p == '\0') {
            return 1;
        }
        for (; *p != '\0'; p++) {
            const int d = HexDigit(*p);
            if (d < 0) {
                return 1;
            }
            value = value * 16u + static_cast<uint64_t>(d);
            if (value > UINT32_MAX) {
                return 1;
            }
        }
    } else {
        for (const char *p = text; *p != '\0'; p++) {
            if (*p < '0' || *p > '9') {
                return 1;
            }
            value = value * 10u + static_cast<uint64_t>(*p - '0');
            if (value > UINT32_MAX) {
                return 1;
            }
        }
    }
    *pulOut = static_cast<uint32_t>(value);
    return 0;
}

}  // extern "C"
