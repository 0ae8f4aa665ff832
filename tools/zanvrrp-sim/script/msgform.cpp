#include "msgform.h"

#include <cstdio>

#include "decode.h"

namespace sim {

namespace {

void PutBe16(std::vector<uint8_t> &m, std::size_t off, uint32_t v)
{
    m[off] = static_cast<uint8_t>(v >> 8);
    m[off + 1] = static_cast<uint8_t>(v);
}

void PutBe32(std::vector<uint8_t> &m, std::size_t off, uint32_t v)
{
    m[off] = static_cast<uint8_t>(v >> 24);
    m[off + 1] = static_cast<uint8_t>(v >> 16);
    m[off + 2] = static_cast<uint8_t>(v >> 8);
    m[off + 3] = static_cast<uint8_t>(v);
}

uint32_t GetBe16(const std::vector<uint8_t> &m, std::size_t off)
{
    return (static_cast<uint32_t>(m[off]) << 8) | m[off + 1];
}

uint32_t GetBe32(const std::vector<uint8_t> &m, std::size_t off)
{
    return (static_cast<uint32_t>(m[off]) << 24) | (static_cast<uint32_t>(m[off + 1]) << 16) |
           (static_cast<uint32_t>(m[off + 2]) << 8) | m[off + 3];
}

constexpr uint32_t kRecTypeDefault = 3002;
constexpr uint32_t kRecTypeFill4 = 3003;
constexpr uint32_t kRecTypeFill8 = 3004;
constexpr uint32_t kRecKeyType = 3001;
constexpr uint32_t kRecDataTypeDefault = 1001;

void AppendBe16(std::vector<uint8_t> &m, uint32_t v)
{
    m.push_back(static_cast<uint8_t>(v >> 8));
    m.push_back(static_cast<uint8_t>(v));
}

uint32_t RecordWord(const std::string &text, const char *what)
{
    uint32_t v = ParseU32(text);
    if (v > 0xFFFFu) {
        throw ScriptError(std::string(what) + " " + text + " does not fit 16 bits");
    }
    return v;
}

// Header fields in wire order: name, offset, width in bytes.
struct FieldDef {
    const char *name;
    std::size_t off;
    unsigned width;
    std::optional<uint32_t> MsgForm::*member;
};

const FieldDef kFields[] = {
    {"len", 0, 2, &MsgForm::len},   {"flags", 2, 1, &MsgForm::flags}, {"type", 3, 1, &MsgForm::type},
    {"tran", 4, 4, &MsgForm::tran}, {"w8", 8, 2, &MsgForm::w8},       {"w10", 10, 2, &MsgForm::w10},
    {"seq", 12, 4, &MsgForm::seq},  {"w16", 16, 2, &MsgForm::w16},    {"cnt", 18, 2, &MsgForm::cnt},
};

uint32_t GetField(const std::vector<uint8_t> &m, const FieldDef &f)
{
    switch (f.width) {
    case 1: return m[f.off];
    case 2: return GetBe16(m, f.off);
    default: return GetBe32(m, f.off);
    }
}

std::string FirstDifference(const std::vector<uint8_t> &want, const std::vector<uint8_t> &got)
{
    std::size_t n = want.size() < got.size() ? want.size() : got.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (want[i] != got[i]) {
            char buf[96];
            std::snprintf(buf, sizeof(buf), "byte %zu differs: %02x expected, %02x came", i, want[i], got[i]);
            return buf;
        }
    }
    return "length " + std::to_string(want.size()) + " expected, " + std::to_string(got.size()) + " came";
}

}  // namespace

MsgForm ParseMsgForm(Args &args, const LexedLine &line, const MsgFormOptions &opt)
{
    MsgForm f;
    if (opt.allowPartial) {
        f.partial = args.Flag("partial");
    }
    f.type = args.NumBits("type", 8);
    if (f.type) {
        f.ack = args.Flag("ack");
        f.flags = args.NumBits("flags", 8);
        f.tran = args.Num("tran");
        f.w8 = args.NumBits("w8", 16);
        f.w10 = args.NumBits("w10", 16);
        f.seq = args.Num("seq");
        f.w16 = args.NumBits("w16", 16);
        f.cnt = args.NumBits("cnt", 16);
        f.len = args.NumBits("len", 16);
        for (const std::string &text : args.All("rec")) {
            std::vector<uint8_t> rec = BuildRecord(text);
            f.body.insert(f.body.end(), rec.begin(), rec.end());
        }
        f.hasBody = line.hasBytes || !f.body.empty();
        f.body.insert(f.body.end(), line.bytes.begin(), line.bytes.end());
        if (!f.partial && kHdrLen + f.body.size() > 0xFFFF && !f.len) {
            throw ScriptError("body too long for the 16-bit length field");
        }
        return f;
    }
    if (f.partial) {
        throw ScriptError("'partial' needs the fields form (type=N ...)");
    }
    if (!args.All("rec").empty()) {
        throw ScriptError("rec= needs the fields form (type=N ...)");
    }
    f.raw = true;
    if (opt.allowSize) {
        f.size = args.Num("size");
    }
    if (!line.hasBytes) {
        throw ScriptError("message expected: type=N ... or ': BYTES'");
    }
    f.rawBytes = line.bytes;
    return f;
}

std::vector<uint8_t> BuildRecord(const std::string &text)
{
    std::vector<std::string> parts(1);
    for (char c : text) {
        if (c == '/') {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    if (parts.size() < 2 || parts.size() > 4) {
        throw ScriptError("rec=" + text + ": KEY/DATA, RTYPE/KEY/DATA or RTYPE/KEY/DATA/DTYPE expected");
    }
    try {
        std::size_t at = parts.size() == 2 ? 0 : 1;
        uint32_t rtype = at == 1 ? RecordWord(parts[0], "record type") : kRecTypeDefault;
        std::vector<uint8_t> key = ParseHex(parts[at]);
        std::vector<uint8_t> data = ParseHex(parts[at + 1]);
        uint32_t dtype = parts.size() == 4 ? RecordWord(parts[3], "data type") : kRecDataTypeDefault;
        if (key.empty()) {
            throw ScriptError("empty key");
        }
        std::size_t fill = rtype == kRecTypeFill4 ? 4 : rtype == kRecTypeFill8 ? 8 : 0;
        std::size_t recLen = fill + 4 + key.size() + 4 + data.size();
        if (recLen > 0xFFFF) {
            throw ScriptError("record too long for its 16-bit length");
        }
        std::vector<uint8_t> m;
        AppendBe16(m, rtype);
        AppendBe16(m, static_cast<uint32_t>(recLen));
        m.insert(m.end(), fill, 0xFF);
        AppendBe16(m, kRecKeyType);
        AppendBe16(m, static_cast<uint32_t>(key.size()));
        m.insert(m.end(), key.begin(), key.end());
        AppendBe16(m, dtype);
        AppendBe16(m, static_cast<uint32_t>(data.size()));
        m.insert(m.end(), data.begin(), data.end());
        return m;
    } catch (const ScriptError &e) {
        throw ScriptError("rec=" + text + ": " + e.what());
    }
}

std::vector<uint8_t> BuildMsg(const MsgForm &f)
{
    if (f.raw) {
        return f.rawBytes;
    }
    std::vector<uint8_t> m(kHdrLen, 0);
    uint32_t flags = f.flags ? *f.flags : 0x01u;
    if (f.ack) {
        flags |= 0x80u;
    }
    uint32_t len = f.len ? *f.len : static_cast<uint32_t>(kHdrLen + f.body.size());
    PutBe16(m, 0, len);
    m[2] = static_cast<uint8_t>(flags);
    m[3] = static_cast<uint8_t>(f.type.value_or(0));
    PutBe32(m, 4, f.tran.value_or(0));
    PutBe16(m, 8, f.w8.value_or(0));
    PutBe16(m, 10, f.w10.value_or(0));
    PutBe32(m, 12, f.seq.value_or(0));
    PutBe16(m, 16, f.w16.value_or(0));
    PutBe16(m, 18, f.cnt.value_or(0));
    m.insert(m.end(), f.body.begin(), f.body.end());
    return m;
}

std::string CompareMsg(const MsgForm &f, const std::vector<uint8_t> &sent)
{
    if (!f.partial) {
        std::vector<uint8_t> want = BuildMsg(f);
        return want == sent ? std::string() : FirstDifference(want, sent);
    }
    if (sent.size() < kHdrLen) {
        return "message shorter than a header";
    }
    std::string diff;
    for (const FieldDef &d : kFields) {
        const std::optional<uint32_t> &want = f.*(d.member);
        if (!want) {
            continue;
        }
        uint32_t expected = *want;
        if (d.off == 2 && f.ack) {
            expected |= 0x80u;
        }
        uint32_t got = GetField(sent, d);
        if (got != expected) {
            diff += (diff.empty() ? "" : "; ") + std::string(d.name) + " " + std::to_string(expected) +
                    " expected, " + std::to_string(got) + " came";
        }
    }
    if (f.ack && !f.flags && (sent[2] & 0x80u) == 0) {
        diff += (diff.empty() ? "" : "; ") + std::string("ack flag expected, not set");
    }
    if (f.hasBody) {
        std::vector<uint8_t> got(sent.begin() + kHdrLen, sent.end());
        if (got != f.body) {
            diff += (diff.empty() ? "" : "; ") + std::string("body ") + FirstDifference(f.body, got);
        }
    }
    return diff;
}

const char *MsgTypeName(uint32_t type)
{
    return TypeName(type);
}

std::string DecodeHeader(const std::vector<uint8_t> &m)
{
    const Decoded d = Decode(m);
    if (d.shortMsg) {
        return "(" + std::to_string(m.size()) + " bytes, shorter than a header)";
    }
    char buf[256];
    std::snprintf(buf, sizeof(buf), "len=%u flags=0x%02x%s type=%u(%s) tran=%u w8=%u w10=%u seq=%u w16=%u cnt=%u", d.len,
                  d.flags, d.ack ? "(ack)" : "", d.type, TypeName(d.type), d.tran, d.w8, d.w10, d.seq, d.w16, d.cnt);
    return buf;
}

std::string DescribeForm(const MsgForm &f)
{
    if (f.raw) {
        return HexSpaced(f.rawBytes);
    }
    if (!f.partial) {
        return HexSpaced(BuildMsg(f));
    }
    std::string out = "partial";
    for (const FieldDef &d : kFields) {
        const std::optional<uint32_t> &v = f.*(d.member);
        if (v) {
            out += " " + std::string(d.name) + "=" + std::to_string(*v);
        }
    }
    if (f.ack) {
        out += " ack";
    }
    if (f.hasBody) {
        out += " : " + HexSpaced(f.body);
    }
    return out;
}

}  // namespace sim
