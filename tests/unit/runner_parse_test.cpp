// The script runner's language layer: lexing, numbers and hex, repeat index expansion,
// output blocks, argument checking and byte-exact message forms with data records.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "args.h"
#include "lexer.h"
#include "msgform.h"

namespace {

using sim::Args;
using sim::LexedLine;
using sim::ScriptError;

std::vector<uint8_t> Bytes(std::initializer_list<int> v)
{
    std::vector<uint8_t> out;
    for (int b : v) {
        out.push_back(static_cast<uint8_t>(b));
    }
    return out;
}

// ---- words, quotes and escapes ----

struct LexCase {
    const char *line;
    std::vector<std::string> words;
};

class LexWords : public ::testing::TestWithParam<LexCase> {};

TEST_P(LexWords, SplitsAndUnescapes)
{
    const LexCase &c = GetParam();
    LexedLine l = sim::Lex(sim::StripComment(c.line));
    std::vector<std::string> got;
    for (const sim::Word &w : l.words) {
        got.push_back(w.text);
    }
    EXPECT_EQ(got, c.words);
    EXPECT_FALSE(l.hasBytes);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, LexWords,
    ::testing::Values(LexCase{"get expect=ok", {"get", "expect=ok"}},
                      LexCase{"  deploy\tcreate  pid=0x10 ", {"deploy", "create", "pid=0x10"}},
                      LexCase{"expect debug \"vrrp-inst up, pid[0x10].\"", {"expect", "debug", "vrrp-inst up, pid[0x10]."}},
                      LexCase{R"(x "a\r\n\t\\\"b")", {"x", "a\r\n\t\\\"b"}},
                      LexCase{"x \"# not a comment\" # a comment", {"x", "# not a comment"}},
                      LexCase{"# only a comment", {}},
                      LexCase{"cli inst-base pid=\"1 2\"", {"cli", "inst-base", "pid=1 2"}},
                      LexCase{"x \"\"", {"x", ""}}));

TEST(Lex, EqualsSignOutsideQuotesNamesTheArgument)
{
    LexedLine l = sim::Lex("cli x pid=\"a=b\" \"c=d\"");
    ASSERT_EQ(l.words.size(), 4u);
    EXPECT_TRUE(l.words[2].HasEq());
    EXPECT_EQ(l.words[2].Name(), "pid");
    EXPECT_EQ(l.words[2].Value(), "a=b");
    EXPECT_FALSE(l.words[3].HasEq());
    EXPECT_TRUE(l.words[3].quoted);
}

TEST(Lex, WireBytesFollowALoneColon)
{
    LexedLine l = sim::Lex("recv pid=0x10 : 00 14 0107 00000000");
    ASSERT_EQ(l.words.size(), 2u);
    EXPECT_TRUE(l.hasBytes);
    EXPECT_EQ(l.bytes, Bytes({0x00, 0x14, 0x01, 0x07, 0, 0, 0, 0}));

    LexedLine empty = sim::Lex("recv pid=1 type=3 :");
    EXPECT_TRUE(empty.hasBytes);
    EXPECT_TRUE(empty.bytes.empty());

    LexedLine quoted = sim::Lex("x \":\" y");
    EXPECT_FALSE(quoted.hasBytes);
    EXPECT_EQ(quoted.words.size(), 3u);
}

TEST(Lex, CommentEndsTheWireBytes)
{
    LexedLine l = sim::Lex(sim::StripComment("recv pid=1 : 0a 0b # trailing"));
    EXPECT_EQ(l.bytes, Bytes({0x0a, 0x0b}));
}

class LexErrors : public ::testing::TestWithParam<const char *> {};

TEST_P(LexErrors, AreScriptErrors)
{
    EXPECT_THROW(sim::Lex(GetParam()), ScriptError);
}

INSTANTIATE_TEST_SUITE_P(Bad, LexErrors,
                         ::testing::Values("expect debug \"open", "x \"bad \\q escape\"", "recv pid=1 : 0", "recv : 0g",
                                           "recv : 001"));

// ---- numbers and hex ----

struct NumCase {
    const char *text;
    bool ok;
    uint32_t value;
};

class Numbers : public ::testing::TestWithParam<NumCase> {};

TEST_P(Numbers, ParseOrFail)
{
    const NumCase &c = GetParam();
    if (c.ok) {
        EXPECT_EQ(sim::ParseU32(c.text), c.value);
    } else {
        EXPECT_THROW(sim::ParseU32(c.text), ScriptError);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Values, Numbers,
    ::testing::Values(NumCase{"0", true, 0}, NumCase{"37", true, 37}, NumCase{"0x10", true, 0x10},
                      NumCase{"0XfF", true, 0xff}, NumCase{"4294967295", true, 0xFFFFFFFFu},
                      NumCase{"0xFFFFFFFF", true, 0xFFFFFFFFu}, NumCase{"4294967296", false, 0},
                      NumCase{"0x100000000", false, 0}, NumCase{"", false, 0}, NumCase{"0x", false, 0},
                      NumCase{"12a", false, 0}, NumCase{"-1", false, 0}));

TEST(Hex, EvenDigitsOnly)
{
    EXPECT_EQ(sim::ParseHex("0403020105060708"), Bytes({4, 3, 2, 1, 5, 6, 7, 8}));
    EXPECT_EQ(sim::ParseHex("aBcD"), Bytes({0xab, 0xcd}));
    EXPECT_TRUE(sim::ParseHex("").empty());
    EXPECT_THROW(sim::ParseHex("abc"), ScriptError);
    EXPECT_THROW(sim::ParseHex("zz"), ScriptError);
    EXPECT_THROW(sim::ParseHex("00 11"), ScriptError);
}

// ---- repeat index expansion ----

struct ExpandCase {
    const char *body;
    uint32_t i;
    const char *want;
};

class Expand : public ::testing::TestWithParam<ExpandCase> {};

TEST_P(Expand, Substitutes)
{
    const ExpandCase &c = GetParam();
    EXPECT_EQ(sim::ExpandIndex(c.body, c.i), c.want);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, Expand,
    ::testing::Values(ExpandCase{"subscribe ifgroup=1 keytype=1 key={i}", 12, "subscribe ifgroup=1 keytype=1 key=12"},
                      ExpandCase{"key=0000{i:2x}00", 10, "key=00000a00"},
                      ExpandCase{"key={i:4x}{i:2x}", 255, "key=00ffff"},
                      ExpandCase{"seq={i} : {i:2x} {i:2x}", 3, "seq=3 : 03 03"},
                      ExpandCase{"{i:2x}", 0x1ab, "1ab"},
                      ExpandCase{"no index {j}", 5, "no index {j}"}));

TEST(Expand, BadPatternIsAnError)
{
    EXPECT_THROW(sim::ExpandIndex("{i:x}", 1), ScriptError);
    EXPECT_THROW(sim::ExpandIndex("{i:2}", 1), ScriptError);
    EXPECT_THROW(sim::ExpandIndex("{i:0x}", 1), ScriptError);
}

// ---- script splitting and output blocks ----

TEST(Split, KeepsLineNumbersAndBlocks)
{
    std::string text =
        "# header\n"
        "get\r\n"
        "\n"
        "cli adp-base\n"
        "expect output  # the block follows\n"
        "| Base Info\n"
        "  |   MemHandle:    --  \n"
        "|\n"
        "end\n"
        "expect sent none\n";
    std::vector<sim::ScriptLine> lines = sim::SplitScript(text);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].line, 2u);
    EXPECT_EQ(lines[0].text, "get");
    EXPECT_EQ(lines[1].line, 4u);
    EXPECT_EQ(lines[2].line, 5u);
    EXPECT_EQ(lines[2].text, "expect output");
    EXPECT_EQ(lines[2].block, (std::vector<std::string>{" Base Info", "   MemHandle:    --  ", ""}));
    EXPECT_EQ(lines[3].line, 10u);
}

TEST(Split, BrokenBlocksNameTheirLine)
{
    try {
        sim::SplitScript("get\nexpect output\n|a\n");
        FAIL() << "no error";
    } catch (const sim::ScriptSplitError &e) {
        EXPECT_EQ(e.line, 2u);
    }
    try {
        sim::SplitScript("expect output\n|a\nget\nend\n");
        FAIL() << "no error";
    } catch (const sim::ScriptSplitError &e) {
        EXPECT_EQ(e.line, 3u);
    }
}

// ---- arguments ----

TEST(ArgsTest, TakesEachArgumentOnceAndRejectsTheRest)
{
    LexedLine l = sim::Lex("deploy create pid=0x10 ifgroup=1 bogus=2");
    Args a(l.words, 1);
    EXPECT_EQ(a.NextPositional()->text, "create");
    EXPECT_EQ(a.NumReq("pid"), 0x10u);
    EXPECT_EQ(a.NumOr("kind", 37), 37u);
    EXPECT_EQ(a.Num("ifgroup"), 1u);
    EXPECT_THROW(a.Done(), ScriptError);
    EXPECT_EQ(a.Num("bogus"), 2u);
    EXPECT_NO_THROW(a.Done());
}

TEST(ArgsTest, DuplicatesAndBadValuesAreErrors)
{
    LexedLine dup = sim::Lex("x pid=1 pid=2");
    EXPECT_THROW(Args(dup.words, 1), ScriptError);
    LexedLine bad = sim::Lex("x w8=0x10000 pid=zz");
    Args a(bad.words, 1);
    EXPECT_THROW(a.NumBits("w8", 16), ScriptError);
    EXPECT_THROW(a.Num("pid"), ScriptError);
    LexedLine miss = sim::Lex("x");
    Args m(miss.words, 1);
    EXPECT_THROW(m.NumReq("pid"), ScriptError);
}

TEST(ArgsTest, RecMayRepeatAndIsTakenInOrder)
{
    LexedLine l = sim::Lex("recv pid=1 rec=01/02 type=3 rec=03/04 rec=05/");
    Args a(l.words, 1);
    EXPECT_EQ(a.All("rec"), (std::vector<std::string>{"01/02", "03/04", "05/"}));
    EXPECT_TRUE(a.All("rec").empty());
    EXPECT_EQ(a.All("type"), (std::vector<std::string>{"3"}));
    EXPECT_EQ(a.Num("pid"), 1u);
    EXPECT_NO_THROW(a.Done());

    LexedLine dup = sim::Lex("recv rec=01/02 type=3 rec=03/04 type=4");
    EXPECT_THROW(Args(dup.words, 1), ScriptError);
}

// ---- message forms, byte-exact ----

struct FormCase {
    const char *line;       // arguments after the command word
    std::vector<uint8_t> bytes;
};

class BuildForm : public ::testing::TestWithParam<FormCase> {};

TEST_P(BuildForm, ByteExact)
{
    const FormCase &c = GetParam();
    LexedLine l = sim::Lex(std::string("recv ") + c.line);
    Args a(l.words, 1);
    a.NumReq("pid");
    sim::MsgForm f = sim::ParseMsgForm(a, l, sim::MsgFormOptions{true, false});
    a.Done();
    EXPECT_EQ(sim::BuildMsg(f), c.bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, BuildForm,
    ::testing::Values(
        FormCase{"pid=0x10 type=7 ack",
                 Bytes({0x00, 0x14, 0x81, 0x07, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})},
        FormCase{"pid=0x10 type=11",
                 Bytes({0x00, 0x14, 0x01, 0x0b, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})},
        FormCase{"pid=1 type=15 tran=0x01020304 w8=1 w10=0x0a0b seq=0x11223344 w16=0xbeef cnt=2 : aa bb",
                 Bytes({0x00, 0x16, 0x01, 0x0f, 0x01, 0x02, 0x03, 0x04, 0x00, 0x01, 0x0a, 0x0b, 0x11, 0x22, 0x33,
                        0x44, 0xbe, 0xef, 0x00, 0x02, 0xaa, 0xbb})},
        FormCase{"pid=1 type=16 flags=0x40 ack len=99",
                 Bytes({0x00, 0x63, 0xc0, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})},
        FormCase{"pid=1 type=3 flags=0",
                 Bytes({0x00, 0x14, 0x00, 0x03, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})},
        FormCase{"pid=1 size=40 : 00 28 01 0f", Bytes({0x00, 0x28, 0x01, 0x0f})},
        FormCase{"pid=1 : ", Bytes({})}));

// ---- data records (rec=) ----

struct RecCase {
    const char *name;
    const char *line;   // arguments after the command word
    std::vector<uint8_t> bytes;
};

void PrintTo(const RecCase &c, std::ostream *os)
{
    *os << c.name;
}

class RecordForm : public ::testing::TestWithParam<RecCase> {};

TEST_P(RecordForm, ByteExactInRecvAndExpectSent)
{
    const RecCase &c = GetParam();
    LexedLine l = sim::Lex(std::string("recv ") + c.line);
    Args a(l.words, 1);
    a.NumReq("pid");
    sim::MsgForm f = sim::ParseMsgForm(a, l, sim::MsgFormOptions{true, false});
    a.Done();
    EXPECT_EQ(sim::BuildMsg(f), c.bytes);

    // expect sent builds the same bytes and matches exactly them
    LexedLine e = sim::Lex(std::string("expect sent ") + c.line);
    Args b(e.words, 2);
    b.NumReq("pid");
    sim::MsgForm g = sim::ParseMsgForm(b, e, sim::MsgFormOptions{false, true});
    b.Done();
    EXPECT_EQ(sim::CompareMsg(g, c.bytes), "");
    std::vector<uint8_t> changed = c.bytes;
    changed.back() ^= 1;
    EXPECT_NE(sim::CompareMsg(g, changed), "");
}

std::vector<uint8_t> Header(uint32_t len, uint8_t type)
{
    return Bytes({static_cast<int>(len >> 8), static_cast<int>(len & 0xff), 0x01, type, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                  0, 0, 0, 0, 0, 0, 0});
}

std::vector<uint8_t> Cat(std::vector<uint8_t> a, const std::vector<uint8_t> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The record of `rec=0a00000001000000/0102`.
const std::vector<uint8_t> kRec = Bytes({0x0b, 0xba, 0x00, 0x12, 0x0b, 0xb9, 0x00, 0x08, 0x0a, 0x00, 0x00, 0x00, 0x01,
                                         0x00, 0x00, 0x00, 0x03, 0xe9, 0x00, 0x02, 0x01, 0x02});

INSTANTIATE_TEST_SUITE_P(
    Records, RecordForm,
    ::testing::Values(
        RecCase{"KeyAndData", "pid=1 type=4 rec=0a00000001000000/0102", Cat(Header(42, 4), kRec)},
        RecCase{"RecordTypeKeyData", "pid=1 type=4 rec=3002/0a00000001000000/0102", Cat(Header(42, 4), kRec)},
        RecCase{"EmptyData", "pid=1 type=6 rec=0x0bbd/0a0b/",
                Cat(Header(34, 6), Bytes({0x0b, 0xbd, 0x00, 0x0a, 0x0b, 0xb9, 0x00, 0x02, 0x0a, 0x0b, 0x03, 0xe9,
                                          0x00, 0x00}))},
        RecCase{"FourFillerBytes", "pid=1 type=4 rec=3003/0a/01",
                Cat(Header(38, 4), Bytes({0x0b, 0xbb, 0x00, 0x0e, 0xff, 0xff, 0xff, 0xff, 0x0b, 0xb9, 0x00, 0x01,
                                          0x0a, 0x03, 0xe9, 0x00, 0x01, 0x01}))},
        RecCase{"EightFillerBytes", "pid=1 type=4 rec=3004/0a/01",
                Cat(Header(42, 4), Bytes({0x0b, 0xbc, 0x00, 0x12, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                                          0x0b, 0xb9, 0x00, 0x01, 0x0a, 0x03, 0xe9, 0x00, 0x01, 0x01}))},
        RecCase{"DataType", "pid=1 type=4 rec=7/0a0b/0c0d0e/0x1234",
                Cat(Header(37, 4), Bytes({0x00, 0x07, 0x00, 0x0d, 0x0b, 0xb9, 0x00, 0x02, 0x0a, 0x0b, 0x12, 0x34,
                                          0x00, 0x03, 0x0c, 0x0d, 0x0e}))},
        RecCase{"InOrderThenBody", "pid=1 type=4 rec=0a/01 rec=3003/0b/ : aa bb",
                Cat(Header(53, 4), Bytes({0x0b, 0xba, 0x00, 0x0a, 0x0b, 0xb9, 0x00, 0x01, 0x0a, 0x03, 0xe9, 0x00,
                                          0x01, 0x01, 0x0b, 0xbb, 0x00, 0x0d, 0xff, 0xff, 0xff, 0xff, 0x0b, 0xb9,
                                          0x00, 0x01, 0x0b, 0x03, 0xe9, 0x00, 0x00, 0xaa, 0xbb}))},
        RecCase{"GivenLength", "pid=1 type=4 len=20 rec=0a00000001000000/0102", Cat(Header(20, 4), kRec)}),
    [](const ::testing::TestParamInfo<RecCase> &p) { return std::string(p.param.name); });

TEST(RecordForm, PartialComparesTheRecordsAsBody)
{
    LexedLine l = sim::Lex("expect sent pid=1 partial type=4 rec=0a00000001000000/0102");
    Args a(l.words, 2);
    a.NumReq("pid");
    sim::MsgForm f = sim::ParseMsgForm(a, l, sim::MsgFormOptions{false, true});
    a.Done();
    std::vector<uint8_t> sent = Cat(Header(42, 4), kRec);
    sent[4] = 9;   // tran, not named
    EXPECT_EQ(sim::CompareMsg(f, sent), "");
    sent.back() = 3;
    EXPECT_NE(sim::CompareMsg(f, sent), "");
}

struct RecErrorCase {
    const char *name;
    const char *args;
    const char *error;
};

void PrintTo(const RecErrorCase &c, std::ostream *os)
{
    *os << c.name;
}

class RecordErrors : public ::testing::TestWithParam<RecErrorCase> {};

TEST_P(RecordErrors, AreScriptErrors)
{
    const RecErrorCase &c = GetParam();
    LexedLine l = sim::Lex(std::string("recv pid=1 ") + c.args);
    try {
        Args a(l.words, 1);
        a.NumReq("pid");
        sim::ParseMsgForm(a, l, sim::MsgFormOptions{true, false});
        a.Done();
        FAIL() << "no error";
    } catch (const ScriptError &e) {
        EXPECT_EQ(std::string(e.what()), c.error);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Records, RecordErrors,
    ::testing::Values(
        RecErrorCase{"KeyOnly", "type=4 rec=0a",
                     "rec=0a: KEY/DATA, RTYPE/KEY/DATA or RTYPE/KEY/DATA/DTYPE expected"},
        RecErrorCase{"FiveParts", "type=4 rec=1/0a/01/2/3",
                     "rec=1/0a/01/2/3: KEY/DATA, RTYPE/KEY/DATA or RTYPE/KEY/DATA/DTYPE expected"},
        RecErrorCase{"EmptyKey", "type=4 rec=/01", "rec=/01: empty key"},
        RecErrorCase{"OddKey", "type=4 rec=0a0/01", "rec=0a0/01: odd number of hex digits in '0a0'"},
        RecErrorCase{"BadData", "type=4 rec=0a/zz", "rec=0a/zz: bad hex value 'zz'"},
        RecErrorCase{"BadRecordType", "type=4 rec=x/0a/01", "rec=x/0a/01: bad number 'x'"},
        RecErrorCase{"WideRecordType", "type=4 rec=0x10000/0a/01",
                     "rec=0x10000/0a/01: record type 0x10000 does not fit 16 bits"},
        RecErrorCase{"WideDataType", "type=4 rec=1/0a/01/65536",
                     "rec=1/0a/01/65536: data type 65536 does not fit 16 bits"},
        RecErrorCase{"RawForm", "rec=0a/01 : 00 14", "rec= needs the fields form (type=N ...)"}),
    [](const ::testing::TestParamInfo<RecErrorCase> &p) { return std::string(p.param.name); });

TEST(Form, RawSizeIsKept)
{
    LexedLine l = sim::Lex("recv pid=1 size=40 : 00 28");
    Args a(l.words, 1);
    a.NumReq("pid");
    sim::MsgForm f = sim::ParseMsgForm(a, l, sim::MsgFormOptions{true, false});
    EXPECT_TRUE(f.raw);
    EXPECT_EQ(f.size, 40u);
}

TEST(Form, MissingMessageAndMisplacedWordsAreErrors)
{
    {
        LexedLine l = sim::Lex("recv pid=1");
        Args a(l.words, 1);
        a.NumReq("pid");
        EXPECT_THROW(sim::ParseMsgForm(a, l, sim::MsgFormOptions{true, false}), ScriptError);
    }
    {
        LexedLine l = sim::Lex("recv pid=1 type=256");
        Args a(l.words, 1);
        a.NumReq("pid");
        EXPECT_THROW(sim::ParseMsgForm(a, l, sim::MsgFormOptions{true, false}), ScriptError);
    }
    {
        LexedLine l = sim::Lex("expect sent pid=1 partial : 00");
        Args a(l.words, 2);
        a.NumReq("pid");
        EXPECT_THROW(sim::ParseMsgForm(a, l, sim::MsgFormOptions{false, true}), ScriptError);
    }
    {
        // `size` belongs to recv only; left unused, Done() rejects it.
        LexedLine l = sim::Lex("expect sent pid=1 size=3 : 00");
        Args a(l.words, 2);
        a.NumReq("pid");
        sim::ParseMsgForm(a, l, sim::MsgFormOptions{false, true});
        EXPECT_THROW(a.Done(), ScriptError);
    }
}

struct CompareCase {
    const char *line;  // arguments of expect sent after pid
    std::vector<uint8_t> sent;
    bool match;
};

class CompareForm : public ::testing::TestWithParam<CompareCase> {};

TEST_P(CompareForm, ExactOrPartial)
{
    const CompareCase &c = GetParam();
    LexedLine l = sim::Lex(std::string("expect sent pid=1 ") + c.line);
    Args a(l.words, 2);
    a.NumReq("pid");
    sim::MsgForm f = sim::ParseMsgForm(a, l, sim::MsgFormOptions{false, true});
    a.Done();
    EXPECT_EQ(sim::CompareMsg(f, c.sent).empty(), c.match) << sim::CompareMsg(f, c.sent);
}

const std::vector<uint8_t> kSubscribe = Bytes({0x00, 0x18, 0x01, 0x09, 0, 0, 0, 0, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0,
                                               0x00, 0x01, 0xde, 0xad, 0xbe, 0xef});

INSTANTIATE_TEST_SUITE_P(
    Cases, CompareForm,
    ::testing::Values(CompareCase{"type=9 w8=1 cnt=1 : de ad be ef", kSubscribe, true},
                      CompareCase{"type=9 w8=1 cnt=1 : de ad be ee", kSubscribe, false},
                      CompareCase{"type=9 w8=1 : de ad be ef", kSubscribe, false},
                      CompareCase{": 00 18 01 09 00000000 0001 0000 00000000 0000 0001 deadbeef", kSubscribe, true},
                      CompareCase{": 00 18 01 09", kSubscribe, false},
                      CompareCase{"partial type=9", kSubscribe, true},
                      CompareCase{"partial type=9 cnt=1 w8=1 len=24", kSubscribe, true},
                      CompareCase{"partial type=9 cnt=2", kSubscribe, false},
                      CompareCase{"partial type=9 ack", kSubscribe, false},
                      CompareCase{"partial type=9 flags=1", kSubscribe, true},
                      CompareCase{"partial type=9 : de ad be ef", kSubscribe, true},
                      CompareCase{"partial type=9 : de ad", kSubscribe, false},
                      CompareCase{"partial type=9", Bytes({0x00, 0x14, 0x01}), false}));

TEST(Decode, NamesTheHeaderFields)
{
    EXPECT_EQ(sim::DecodeHeader(kSubscribe),
              "len=24 flags=0x01 type=9(Subscribe) tran=0 w8=1 w10=0 seq=0 w16=0 cnt=1");
    EXPECT_EQ(sim::DecodeHeader(Bytes({0x00, 0x14, 0x81, 0x07, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0})),
              "len=20 flags=0x81(ack) type=7(Register) tran=1 w8=0 w10=0 seq=2 w16=0 cnt=0");
    EXPECT_EQ(sim::DecodeHeader(Bytes({1, 2})), "(2 bytes, shorter than a header)");
}

}  // namespace
