#include "lexer.h"

#include <cstdio>

namespace sim {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

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

std::string TrimRight(std::string s)
{
    while (!s.empty() && (IsBlank(s.back()) || s.back() == '\r')) {
        s.pop_back();
    }
    return s;
}

std::string TrimLeft(const std::string &s)
{
    std::size_t i = 0;
    while (i < s.size() && IsBlank(s[i])) {
        ++i;
    }
    return s.substr(i);
}

}  // namespace

std::string StripComment(const std::string &line)
{
    bool inQuote = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (inQuote) {
            if (c == '\\' && i + 1 < line.size()) {
                ++i;
            } else if (c == '"') {
                inQuote = false;
            }
        } else if (c == '"') {
            inQuote = true;
        } else if (c == '#') {
            return TrimRight(line.substr(0, i));
        }
    }
    return TrimRight(line);
}

LexedLine Lex(const std::string &text)
{
    LexedLine out;
    std::size_t i = 0;
    const std::size_t n = text.size();
    while (i < n) {
        while (i < n && IsBlank(text[i])) {
            ++i;
        }
        if (i >= n) {
            break;
        }
        Word w;
        w.offset = i;
        while (i < n && !IsBlank(text[i])) {
            char c = text[i];
            if (c == '"') {
                w.quoted = true;
                ++i;
                bool closed = false;
                while (i < n) {
                    char q = text[i];
                    if (q == '"') {
                        closed = true;
                        ++i;
                        break;
                    }
                    if (q == '\\') {
                        if (i + 1 >= n) {
                            break;
                        }
                        char e = text[i + 1];
                        switch (e) {
                        case 'r': w.text += '\r'; break;
                        case 'n': w.text += '\n'; break;
                        case 't': w.text += '\t'; break;
                        case '\\': w.text += '\\'; break;
                        case '"': w.text += '"'; break;
                        default: throw ScriptError(std::string("unknown escape \\") + e + " in text");
                        }
                        i += 2;
                        continue;
                    }
                    w.text += q;
                    ++i;
                }
                if (!closed) {
                    throw ScriptError("text without closing quote");
                }
                continue;
            }
            if (c == '=' && w.eq == std::string::npos) {
                w.eq = w.text.size();
            }
            w.text += c;
            ++i;
        }
        if (!w.quoted && w.text == ":") {
            out.hasBytes = true;
            out.bytes = ParseHexPairs(text.substr(i));
            return out;
        }
        out.words.push_back(std::move(w));
    }
    return out;
}

uint32_t ParseU32(const std::string &text)
{
    if (text.empty()) {
        throw ScriptError("missing number");
    }
    uint64_t v = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        for (std::size_t i = 2; i < text.size(); ++i) {
            int d = HexDigit(text[i]);
            if (d < 0) {
                throw ScriptError("bad number '" + text + "'");
            }
            v = v * 16 + static_cast<uint64_t>(d);
            if (v > 0xFFFFFFFFull) {
                throw ScriptError("number '" + text + "' exceeds 32 bits");
            }
        }
        return static_cast<uint32_t>(v);
    }
    for (char c : text) {
        if (c < '0' || c > '9') {
            throw ScriptError("bad number '" + text + "'");
        }
        v = v * 10 + static_cast<uint64_t>(c - '0');
        if (v > 0xFFFFFFFFull) {
            throw ScriptError("number '" + text + "' exceeds 32 bits");
        }
    }
    return static_cast<uint32_t>(v);
}

std::vector<uint8_t> ParseHex(const std::string &text)
{
    if (text.size() % 2 != 0) {
        throw ScriptError("odd number of hex digits in '" + text + "'");
    }
    std::vector<uint8_t> out;
    out.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        int hi = HexDigit(text[i]);
        int lo = HexDigit(text[i + 1]);
        if (hi < 0 || lo < 0) {
            throw ScriptError("bad hex value '" + text + "'");
        }
        out.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    return out;
}

std::vector<uint8_t> ParseHexPairs(const std::string &text)
{
    std::vector<uint8_t> out;
    std::size_t i = 0;
    while (i < text.size()) {
        if (IsBlank(text[i]) || text[i] == '\r') {
            ++i;
            continue;
        }
        std::size_t start = i;
        while (i < text.size() && !IsBlank(text[i]) && text[i] != '\r') {
            ++i;
        }
        std::string chunk = text.substr(start, i - start);
        try {
            std::vector<uint8_t> part = ParseHex(chunk);
            out.insert(out.end(), part.begin(), part.end());
        } catch (const ScriptError &) {
            throw ScriptError("bad wire bytes '" + chunk + "' (hex digit pairs expected)");
        }
    }
    return out;
}

std::string ExpandIndex(const std::string &body, uint32_t i)
{
    std::string out;
    out.reserve(body.size() + 8);
    std::size_t p = 0;
    while (p < body.size()) {
        // Everything up to the next '{' as it is.
        const std::size_t brace = body.find('{', p);
        out.append(body, p, brace == std::string::npos ? std::string::npos : brace - p);
        if (brace == std::string::npos) {
            break;
        }
        p = brace;
        if (body.compare(p, 3, "{i}") == 0) {
            out += std::to_string(i);
            p += 3;
            continue;
        }
        if (body.compare(p, 3, "{i:") == 0) {
            std::size_t q = p + 3;
            uint32_t width = 0;
            std::size_t digits = 0;
            while (q < body.size() && body[q] >= '0' && body[q] <= '9' && digits < 3) {
                width = width * 10 + static_cast<uint32_t>(body[q] - '0');
                ++q;
                ++digits;
            }
            if (digits == 0 || width == 0 || width > 16 || body.compare(q, 2, "x}") != 0) {
                throw ScriptError("bad index pattern in '" + body.substr(p, 8) + "' ({i:Wx} expected)");
            }
            char buf[32];
            std::snprintf(buf, sizeof(buf), "%0*x", static_cast<int>(width), i);
            out += buf;
            p = q + 2;
            continue;
        }
        out += body[p];
        ++p;
    }
    return out;
}

std::vector<ScriptLine> SplitScript(const std::string &content)
{
    std::vector<std::string> raw;
    std::size_t start = 0;
    while (start <= content.size()) {
        std::size_t nl = content.find('\n', start);
        if (nl == std::string::npos) {
            if (start < content.size()) {
                raw.push_back(content.substr(start));
            }
            break;
        }
        raw.push_back(content.substr(start, nl - start));
        start = nl + 1;
    }

    std::vector<ScriptLine> out;
    for (std::size_t k = 0; k < raw.size(); ++k) {
        std::string text = TrimLeft(StripComment(raw[k]));
        if (text.empty()) {
            continue;
        }
        ScriptLine sl;
        sl.line = static_cast<uint32_t>(k + 1);
        sl.text = text;
        // An `expect output` line owns the `|TEXT` lines up to `end`.
        std::string norm;
        for (char c : text) {
            norm += IsBlank(c) ? ' ' : c;
        }
        std::size_t sp = norm.find(' ');
        bool isOutput = sp != std::string::npos && norm.substr(0, sp) == "expect" &&
                        TrimLeft(norm.substr(sp)) == "output";
        if (isOutput) {
            bool ended = false;
            for (++k; k < raw.size(); ++k) {
                std::string line = raw[k];
                if (!line.empty() && line.back() == '\r') {
                    line.pop_back();
                }
                std::string left = TrimLeft(line);
                if (!left.empty() && left[0] == '|') {
                    sl.block.push_back(left.substr(1));
                    continue;
                }
                std::string cmd = TrimLeft(StripComment(line));
                if (cmd.empty()) {
                    continue;
                }
                if (cmd == "end") {
                    ended = true;
                    break;
                }
                throw ScriptSplitError(static_cast<uint32_t>(k + 1),
                                       "expected '|TEXT' or 'end' in the output block, got '" + cmd + "'");
            }
            if (!ended) {
                throw ScriptSplitError(sl.line, "output block without 'end'");
            }
        }
        out.push_back(std::move(sl));
    }
    return out;
}

std::string Quote(const std::string &text)
{
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
        case '\r': out += "\\r"; break;
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f) {
                char buf[8];
                std::snprintf(buf, sizeof(buf), "\\x%02x", static_cast<unsigned char>(c));
                out += buf;
            } else {
                out += c;
            }
        }
    }
    out += '"';
    return out;
}

}  // namespace sim
