// The live simulation's options reach what pids and keys allow and refuse more with a clear
// message; an item's key tells its group and number back.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "peer.h"
#include "simrun.h"

namespace {

struct OptCase {
    std::vector<std::string> args;
    const char *error;  // nullptr: accepted
};

TEST(SimOptions, LimitsComeFromPidsAndKeys)
{
    const OptCase cases[] = {
        {{"--peers", "16", "--items", "1000"}, nullptr},
        {{"--peers", "268435454", "--groups", "1", "--items", "1", "--parts", "1"}, nullptr},
        {{"--peers", "268435455"}, "--peers is at most 268435454: each VRRP component takes a 32-bit pid, 0x10 apart"},
        {{"--peers", "65536", "--groups", "65535", "--items", "1", "--parts", "1"}, nullptr},
        {{"--peers", "65536", "--groups", "65536"}, "--peers x --groups is at most 4294967295: interface group ids are 32-bit"},
        {{"--groups", "65535", "--items", "65537", "--peers", "1"}, nullptr},
        {{"--groups", "2", "--items", "2147483648", "--peers", "1"},
         "--peers x --groups x --items is at most 4294967295: the first word of an item's or a datum's key numbers them "
         "all (32-bit)"},
        {{"--peers", "3", "--parts", "1431655766"},
         "--peers x --groups x --parts is at most 4294967295: the first word of an item's or a datum's key numbers them "
         "all (32-bit)"},
        {{"--items", "4294967296"}, "--items needs a number"},
        {{"--parts", "0"}, "--peers, --groups, --items and --parts must be at least 1"},
        {{"--loss", "1.5"}, "--loss needs a number from 0 to 1"},
        {{"--keep-loss", "--loss-up", "0.2"}, nullptr},
        {{"--seed", "2", "--seeds", "1-3"}, "--seed and --seeds exclude each other"},
        {{"--bogus"}, "unknown option --bogus"},
    };
    for (const OptCase &c : cases) {
        std::string line;
        for (const std::string &a : c.args) {
            line += a + " ";
        }
        SCOPED_TRACE(line);
        sim::SimOptions opt;
        std::vector<uint64_t> seeds;
        std::string err;
        const bool ok = sim::ParseSimOptions(c.args, opt, seeds, err);
        if (c.error == nullptr) {
            EXPECT_TRUE(ok) << err;
        } else {
            EXPECT_FALSE(ok);
            EXPECT_EQ(err, c.error);
        }
    }
    sim::SimOptions opt;
    std::vector<uint64_t> seeds;
    std::string err;
    ASSERT_TRUE(sim::ParseSimOptions({"--keep-loss", "--loss-down", "0.25", "--peers", "300"}, opt, seeds, err));
    EXPECT_TRUE(opt.keepLoss);
    EXPECT_EQ(opt.lossDown, 0.25);
    EXPECT_EQ(opt.lossUp, 0.0);
    EXPECT_EQ(opt.peers, 300u);
}

TEST(SimKeys, AnItemKeyTellsItsNumberBack)
{
    // Three groups of 70000 items: the numbers run over all groups.
    const uint32_t groups = 3, items = 70000;
    struct Case {
        uint32_t group, i;
    };
    for (const Case c : {Case{1, 0}, Case{1, 69999}, Case{2, 0}, Case{3, 69999}, Case{2, 250}}) {
        SCOPED_TRACE(std::to_string(c.group) + "/" + std::to_string(c.i));
        const sim::Key8 k = sim::ItemKey(c.group, c.i, items);
        uint32_t ifIndex;
        std::memcpy(&ifIndex, k.data(), 4);
        EXPECT_EQ(ifIndex, (c.group - 1u) * items + c.i + 1u);
        EXPECT_EQ(k[4], 1u + c.i % 250u);
        uint64_t n = 0;
        ASSERT_TRUE(sim::ItemNumber(k.data(), groups, items, n));
        EXPECT_EQ(n, uint64_t(c.group - 1u) * items + c.i);
    }
    // Keys of no item: IfIndex 0, past the last group, or another VrrpId.
    sim::Key8 k = sim::ItemKey(1, 5, items);
    uint64_t n = 0;
    k[4] ^= 1u;
    EXPECT_FALSE(sim::ItemNumber(k.data(), groups, items, n));
    EXPECT_FALSE(sim::ItemNumber(sim::Key8{}.data(), groups, items, n));
    EXPECT_FALSE(sim::ItemNumber(sim::ItemKey(4, 0, items).data(), groups, items, n));
    // The largest key space: IfIndex 0xFFFFFFFF is the last item.
    EXPECT_TRUE(sim::ItemNumber(sim::ItemKey(65535, 65536, 65537).data(), 65535, 65537, n));
    EXPECT_EQ(n, 0xFFFFFFFEull);
}

}  // namespace
