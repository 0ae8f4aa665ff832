// The host's basic functions: bounded copy and fill, comparisons, number conversion.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "host/host_world.h"

namespace {

class HostBaseTest : public ::testing::Test {
protected:
    void SetUp() override { host::Reset(); }
};

TEST_F(HostBaseTest, MemcpySBounds)
{
    struct Case {
        const char *name;
        bool nullDest;
        bool nullSrc;
        size_t destMax;
        size_t count;
        uint32_t expectRet;   // 0 or 1 (non-zero)
        const char *expectDest;  // the 8 bytes of dest afterwards
    };
    const Case cases[] = {
        {"exact fit", false, false, 8, 8, 0, "ABCDEFGH"},
        {"shorter", false, false, 8, 3, 0, "ABC....."},
        {"zero count", false, false, 8, 0, 0, "........"},
        {"count over destMax zero-fills destMax", false, false, 5, 6, 1, "\0\0\0\0\0..."},
        {"NULL source", false, true, 8, 4, 1, "........"},
        {"NULL dest", true, false, 8, 4, 1, "........"},
    };
    const char src[] = "ABCDEFGH";
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::array<char, 8> dest;
        dest.fill('.');
        const uint32_t ret = memcpy_s(c.nullDest ? nullptr : dest.data(), c.destMax, c.nullSrc ? nullptr : src, c.count);
        EXPECT_EQ(ret != 0u, c.expectRet != 0u);
        EXPECT_EQ(std::memcmp(dest.data(), c.expectDest, dest.size()), 0) << std::string(dest.data(), dest.size());
    }
}

TEST_F(HostBaseTest, MemsetSBounds)
{
    struct Case {
        const char *name;
        bool nullDest;
        size_t destMax;
        size_t count;
        uint32_t expectRet;
        const char *expectDest;
    };
    const Case cases[] = {
        {"exact fit", false, 8, 8, 0, "xxxxxxxx"},
        {"shorter", false, 8, 2, 0, "xx......"},
        {"zero count", false, 8, 0, 0, "........"},
        {"count over destMax", false, 4, 5, 1, "........"},
        {"NULL dest", true, 8, 4, 1, "........"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::array<char, 8> dest;
        dest.fill('.');
        const uint32_t ret = memset_s(c.nullDest ? nullptr : dest.data(), c.destMax, 'x', c.count);
        EXPECT_EQ(ret != 0u, c.expectRet != 0u);
        EXPECT_EQ(std::memcmp(dest.data(), c.expectDest, dest.size()), 0) << std::string(dest.data(), dest.size());
    }
}

TEST_F(HostBaseTest, StrToUint32)
{
    struct Case {
        const char *text;
        bool ok;
        uint32_t value;
    };
    const Case cases[] = {
        {"0", true, 0},
        {"7", true, 7},
        {"0010", true, 10},
        {"4294967295", true, 0xFFFFFFFFu},
        {"0x10", true, 0x10},
        {"0xffffffff", true, 0xFFFFFFFFu},
        {"0xABCdef", true, 0xABCDEFu},
        {"0x0000000001", true, 1},
        {"", false, 0},
        {"12ab", false, 0},
        {"4294967296", false, 0},
        {"99999999999999999999", false, 0},
        {"0x", false, 0},
        {"0x100000000", false, 0},
        {"0x1g", false, 0},
        {"-1", false, 0},
        {"+1", false, 0},
        {" 1", false, 0},
        {"1 ", false, 0},
        {"x10", false, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string("\"") + c.text + "\"");
        uint32_t out = 0xDEADBEEFu;
        const uint32_t ret = WUX_StrToUint32(c.text, &out);
        EXPECT_EQ(ret == 0u, c.ok);
        EXPECT_EQ(out, c.ok ? c.value : 0xDEADBEEFu);
    }
    uint32_t out = 0;
    EXPECT_NE(WUX_StrToUint32(nullptr, &out), 0u);
    EXPECT_NE(WUX_StrToUint32("1", nullptr), 0u);
}

TEST_F(HostBaseTest, Comparisons)
{
    struct Case {
        const char *a;
        const char *b;
        int sign;
    };
    const Case cases[] = {
        {"abc", "abc", 0}, {"abc", "abd", -1}, {"abd", "abc", 1}, {"ab", "abc", -1}, {"", "", 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        const int32_t s = WUX_StrCmp(c.a, c.b);
        EXPECT_EQ((s > 0) - (s < 0), c.sign);
        const uint32_t len = static_cast<uint32_t>(std::strlen(c.a) + 1u);
        if (std::strlen(c.b) + 1u >= len) {
            const int32_t m = WUX_MemCmp(c.a, c.b, len);
            EXPECT_EQ((m > 0) - (m < 0), c.sign);
        }
    }
    const uint8_t hi[] = {0x80, 0x00};
    const uint8_t lo[] = {0x7F, 0xFF};
    EXPECT_GT(WUX_MemCmp(hi, lo, 2), 0);   // bytes compare unsigned
    EXPECT_EQ(WUX_MemCmp(hi, lo, 0), 0);
}

}  // namespace
