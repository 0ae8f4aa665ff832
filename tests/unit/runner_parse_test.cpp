// The script language the runner must be trusted for: words, quotes, comments, the ':' byte
// tail, numbers, repeat index expansion, and the bytes of the message forms with their comparison.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "args.h"
#include "lexer.h"
#include "msgform.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct LexCase {
    const char *line;
    std::vector<std::string> words;
    const char *bytes;  // hex pairs after ':', nullptr when there is no ':'
};

TEST(Lex, WordsQuotesCommentsAndByteTail)
{
    const LexCase cases[] = {
        {"  deploy\tcreate  pid=0x10 ", {"deploy", "create", "pid=0x10"}, nullptr},
        {R"(x "a\r\n\t\\\"b" cli pid="1 2" "")", {"x", "a\r\n\t\\\"b", "cli", "pid=1 2", ""}, nullptr},
        {"x \"# not a comment\" # a comment", {"x", "# not a comment"}, nullptr},
        {"# only a comment", {}, nullptr},
        {"x \":\" y", {"x", ":", "y"}, nullptr},
        {"recv pid=0x10 : 00 14 0107 00000000 # trailing", {"recv", "pid=0x10"}, "0014010700000000"},
        {"recv pid=1 type=3 :", {"recv", "pid=1", "type=3"}, ""},
    };
    for (const LexCase &c : cases) {
        SCOPED_TRACE(c.line);
        sim::LexedLine l = sim::Lex(sim::StripComment(c.line));
        std::vector<std::string> words;
        for (const sim::Word &w : l.words) {
            words.push_back(w.text);
        }
        EXPECT_EQ(words, c.words);
        EXPECT_EQ(l.hasBytes, c.bytes != nullptr);
        EXPECT_EQ(l.bytes, c.bytes != nullptr ? sim::ParseHex(c.bytes) : Bytes{});
    }
}

TEST(Lex, NumbersAreUnsigned32BitDecimalOrHex)
{
    const std::pair<const char *, uint32_t> good[] = {
        {"0", 0}, {"37", 37}, {"0x10", 0x10}, {"0XfF", 0xff}, {"4294967295", 0xFFFFFFFFu}, {"0xFFFFFFFF", 0xFFFFFFFFu}};
    for (const auto &[text, value] : good) {
        EXPECT_EQ(sim::ParseU32(text), value) << text;
    }
    for (const char *bad : {"4294967296", "0x100000000", "", "0x", "12a", "-1"}) {
        EXPECT_THROW(sim::ParseU32(bad), sim::ScriptError) << bad;
    }
}

TEST(Lex, RepeatIndexExpansion)
{
    const struct {
        const char *body;
        uint32_t i;
        const char *want;
    } cases[] = {
        {"subscribe key={i}", 12, "subscribe key=12"},
        {"key=0000{i:2x}00", 10, "key=00000a00"},
        {"key={i:4x}{i:2x} : {i:2x}", 255, "key=00ffff : ff"},
        {"{i:2x}", 0x1ab, "1ab"},
        {"no index {j} {i", 5, "no index {j} {i"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(sim::ExpandIndex(c.body, c.i), c.want) << c.body;
    }
    for (const char *bad : {"{i:x}", "{i:2}", "{i:0x}"}) {
        EXPECT_THROW(sim::ExpandIndex(bad, 1), sim::ScriptError) << bad;
    }
}

// `cmd` is "recv" or "expect sent"; pid=1 comes first.
sim::MsgForm Form(const std::string &cmd, const std::string &rest)
{
    sim::LexedLine l = sim::Lex(cmd + " pid=1 " + rest);
    const bool recv = cmd == "recv";
    sim::Args a(l.words, recv ? 1 : 2);
    a.NumReq("pid");
    sim::MsgForm f = sim::ParseMsgForm(a, l, sim::MsgFormOptions{recv, !recv});
    a.Done();
    return f;
}

Bytes Hex(const char *pairs)
{
    return sim::ParseHexPairs(pairs);
}

TEST(MsgForm, BuildsExactBytes)
{
    const struct {
        const char *args;
        const char *bytes;
        uint32_t size;  // recv size=, 0 when not given
    } cases[] = {
        // header defaults: flags 0x01 (0x81 with ack), len 20 + body, every other field 0
        {"type=11", "0014 01 0b 00000000 0000 0000 00000000 0000 0000", 0},
        {"type=7 ack", "0014 81 07 00000000 0000 0000 00000000 0000 0000", 0},
        {"type=16 flags=0x40 ack len=99", "0063 c0 10 00000000 0000 0000 00000000 0000 0000", 0},
        {"type=15 tran=0x01020304 w8=1 w10=0x0a0b seq=0x11223344 w16=0xbeef cnt=2 : aa bb",
         "0016 01 0f 01020304 0001 0a0b 11223344 beef 0002 aabb", 0},
        {"size=40 : 00 28 01 0f", "0028010f", 40},
        // records: RTYPE, length, filler, key TLV 3001, data TLV (DTYPE default 1001)
        {"type=4 rec=0a00000001000000/0102",
         "002a 01 04 00000000 0000 0000 00000000 0000 0000 0bba 0012 0bb9 0008 0a00000001000000 03e9 0002 0102", 0},
        {"type=4 rec=3002/0a00000001000000/0102",
         "002a 01 04 00000000 0000 0000 00000000 0000 0000 0bba 0012 0bb9 0008 0a00000001000000 03e9 0002 0102", 0},
        {"type=4 rec=7/0a0b/0c0d0e/0x1234",
         "0025 01 04 00000000 0000 0000 00000000 0000 0000 0007 000d 0bb9 0002 0a0b 1234 0003 0c0d0e", 0},
        {"type=4 rec=3003/0a/01",
         "0026 01 04 00000000 0000 0000 00000000 0000 0000 0bbb 000e ffffffff 0bb9 0001 0a 03e9 0001 01", 0},
        {"type=4 rec=3004/0a/01",
         "002a 01 04 00000000 0000 0000 00000000 0000 0000 0bbc 0012 ffffffffffffffff 0bb9 0001 0a 03e9 0001 01", 0},
        // records in order, then the ':' bytes
        {"type=6 rec=0a/01 rec=3003/0b/ : aa bb",
         "0035 01 06 00000000 0000 0000 00000000 0000 0000 0bba 000a 0bb9 0001 0a 03e9 0001 01 "
         "0bbb 000d ffffffff 0bb9 0001 0b 03e9 0000 aabb",
         0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        sim::MsgForm f = Form("recv", c.args);
        EXPECT_EQ(sim::BuildMsg(f), Hex(c.bytes));
        EXPECT_EQ(f.size.value_or(0), c.size);
    }
}

TEST(MsgForm, ComparesExactlyOrOnlyWhatPartialNames)
{
    // type 9, w8 1, cnt 1, body de ad be ef
    const char *sub = "0018 01 09 00000000 0001 0000 00000000 0000 0001 deadbeef";
    // type 4, tran 9, record 0a/01
    const char *rec = "0022 01 04 00000009 0000 0000 00000000 0000 0000 0bba 000a 0bb9 0001 0a 03e9 0001 01";
    const struct {
        const char *args;
        const char *sent;
        bool match;
    } cases[] = {
        {"type=9 w8=1 cnt=1 : de ad be ef", sub, true},
        {"type=9 w8=1 cnt=1 : de ad be ee", sub, false},
        {"type=9 w8=1 : de ad be ef", sub, false},
        {": 00 18 01 09 00000000 0001 0000 00000000 0000 0001 deadbeef", sub, true},
        {": 00 18 01 09", sub, false},
        {"partial type=9", sub, true},
        {"partial type=9 cnt=1 w8=1 len=24 flags=1", sub, true},
        {"partial type=9 cnt=2", sub, false},
        {"partial type=9 ack", sub, false},
        {"partial type=9 : de ad be ef", sub, true},
        {"partial type=9 : de ad", sub, false},
        {"partial type=9", "001401", false},
        {"type=4 rec=0a/01", rec, false},
        {"partial type=4 rec=0a/01", rec, true},
        {"partial type=4 rec=0a/02", rec, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        std::string diff = sim::CompareMsg(Form("expect sent", c.args), Hex(c.sent));
        EXPECT_EQ(diff.empty(), c.match) << diff;
    }
}

}  // namespace
