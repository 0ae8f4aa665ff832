// The tracing convention and the header conversion pair.
#include <functional>
#include <iterator>

#include "lib_fixture.h"

namespace {

using libtest::Rec;

class Trace : public libtest::LibTest {};

TEST_F(Trace, DebugTextIsTruncatedTo255Characters)
{
    const std::string longArg(400, 'x');
    ZAN_VrrpAdp_Trace(adp, "zan vrrp, adp", 7, "head %s tail", longArg.c_str());
    ASSERT_EQ(Rec().debug.size(), 1u);
    EXPECT_EQ(Rec().debug[0].size(), 255u);
    EXPECT_EQ(Rec().debug[0].substr(0, 5), "head ");
    ASSERT_EQ(Rec().traces.size(), 1u);
    EXPECT_EQ(Rec().traces[0], std::make_pair(std::string("zan vrrp, adp"), 7u));
}

// The same for the adapter's trace and for the instance's and the producer's trace sites.
TEST_F(Trace, EachStepDependsOnlyOnItsOwnSlots)
{
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    ZAN_VRRP_INST_S *inst = libtest::Inst(0x10);
    ASSERT_NE(inst, nullptr);
    const std::function<void()> sites[] = {
        [&] { ZAN_VrrpAdp_Trace(adp, "zan vrrp, adp", 9, "text %u", 5u); },
        [&] { ZAN_VRRP_INST_TRACE(inst, 9, "text %u", 5u); },
        [&] { ZAN_VRRP_PROD_TRACE(host::Ctx(), 9, "text %u", 5u); },
    };
    struct Case {
        bool trace, isDebug, debugOut;
        uint32_t debugOn;
        size_t points, texts;
    };
    const Case cases[] = {
        {true, true, true, 1, 1, 1},  {true, true, true, 0, 1, 0},  {true, false, true, 1, 1, 0},
        {false, true, true, 1, 0, 1}, {true, true, false, 1, 1, 0}, {false, false, false, 1, 0, 0},
    };
    for (const Case &c : cases) {
        for (size_t site = 0; site < std::size(sites); site++) {
            ZAN_VRRP_CALLBACK_S cb = libtest::AllCallbacks();
            if (!c.trace) cb.pfnTracePoint = nullptr;
            if (!c.isDebug) cb.pfnIsDebugOn = nullptr;
            if (!c.debugOut) cb.pfnDebugOut = nullptr;
            ASSERT_EQ(ZAN_VrrpAdp_RegCallBack(adp, &cb), 0u);
            Rec() = libtest::Recorder{};
            Rec().debugOn = c.debugOn;
            sites[site]();
            EXPECT_EQ(Rec().traces.size(), c.points) << "site " << site;
            EXPECT_EQ(Rec().debug.size(), c.texts) << "site " << site;
            if (c.texts == 1u && Rec().debug.size() == 1u) {
                EXPECT_EQ(Rec().debug[0], "text 5");
            }
        }
    }
}

TEST_F(Trace, SiteWithoutTextOnlyCallsTheTracePoint)
{
    ZAN_VrrpAdp_Trace(adp, "zan vrrp, inst", 3, nullptr);
    EXPECT_EQ(Rec().traces.size(), 1u);
    EXPECT_TRUE(Rec().debug.empty());
}

TEST(HeaderConversion, SwapsExactlyTheFiveFieldsAndIsItsOwnInverse)
{
    uint8_t msg[24];
    for (uint8_t i = 0; i < sizeof(msg); i++) {
        msg[i] = (uint8_t)(i + 1);
    }
    uint8_t orig[24];
    std::memcpy(orig, msg, sizeof(msg));
    ZAN_VrrpAdp_SwapHdrFields(msg);
    EXPECT_EQ(0, std::memcmp(msg, orig, 8));             // length, flags, type, transaction id
    EXPECT_EQ(0, std::memcmp(msg + 20, orig + 20, 4));   // the body
    EXPECT_EQ(ZAN_VrrpAdp_GetHost16(msg + 8), 0x090Au);
    EXPECT_EQ(ZAN_VrrpAdp_GetHost16(msg + 10), 0x0B0Cu);
    EXPECT_EQ(ZAN_VrrpAdp_GetHost32(msg + 12), 0x0D0E0F10u);
    EXPECT_EQ(ZAN_VrrpAdp_GetHost16(msg + 16), 0x1112u);
    EXPECT_EQ(ZAN_VrrpAdp_GetHost16(msg + 18), 0x1314u);
    ZAN_VrrpAdp_SwapHdrFields(msg);
    EXPECT_EQ(0, std::memcmp(msg, orig, sizeof(msg)));
}

}  // namespace
