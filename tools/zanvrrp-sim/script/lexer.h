// Lexical layer of the script language: lines, words, quoted texts, numbers, hex values,
// the wire-byte tail after a lone ':', `expect output` blocks and `repeat` index expansion.
#ifndef ZANVRRP_SIM_LEXER_H
#define ZANVRRP_SIM_LEXER_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "hexfmt.h"

namespace sim {

// A fault in the script itself (unknown command, bad argument); reported with FILE:LINE.
struct ScriptError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One blank-separated word. Quoted parts are unescaped and their quotes removed.
struct Word {
    std::string text;             // the whole word, unescaped
    std::size_t offset = 0;       // where the word starts in the line
    std::size_t eq = std::string::npos;  // first '=' outside quotes (index into text)
    bool quoted = false;          // some part of the word was quoted

    bool HasEq() const { return eq != std::string::npos; }
    std::string Name() const { return HasEq() ? text.substr(0, eq) : text; }
    std::string_view NameView() const { return std::string_view(text).substr(0, eq); }
    std::string Value() const { return HasEq() ? text.substr(eq + 1) : std::string(); }
};

struct LexedLine {
    std::vector<Word> words;      // words before a lone ':'
    bool hasBytes = false;        // a lone ':' was present
    std::vector<uint8_t> bytes;   // the hex pairs after it
};

// Removes a '#' comment outside quotes; trailing blanks and a CR are dropped too.
std::string StripComment(const std::string &line);

// Splits a (comment-free) line into words; a lone unquoted ':' ends the words and the
// rest of the line is read as hex pairs.
LexedLine Lex(const std::string &text);

// Unsigned 32-bit number, decimal or 0x hex.
uint32_t ParseU32(const std::string &text);
// An even number of hex digits without blanks; empty is zero bytes.
std::vector<uint8_t> ParseHex(const std::string &text);
// Hex digit pairs, blanks allowed between pairs.
std::vector<uint8_t> ParseHexPairs(const std::string &text);

// Replaces {i} with i in decimal and {i:Wx} with i in lower-case hex, zero-padded to W.
std::string ExpandIndex(const std::string &body, uint32_t i);

// A script split into commands: one entry per command line, with the `|TEXT` lines of an
// `expect output` block attached to it.
struct ScriptLine {
    uint32_t line = 0;
    std::string text;                 // comment-free command text
    std::vector<std::string> block;   // TEXT of each `|TEXT` line (expect output only)
};

struct ScriptSplitError : ScriptError {
    ScriptSplitError(uint32_t l, const std::string &m) : ScriptError(m), line(l) {}
    uint32_t line;
};

// Splits the content of a script file; throws ScriptSplitError for a broken block.
std::vector<ScriptLine> SplitScript(const std::string &content);

// Texts in scripts and reports: C-escaped, in double quotes. (Bytes and numbers in hex are in
// hexfmt.h, which the wire layer shares.)
std::string Quote(const std::string &text);

}  // namespace sim

#endif
