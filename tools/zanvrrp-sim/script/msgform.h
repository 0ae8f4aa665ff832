// Message forms of `recv` and `expect sent`: raw bytes, or a 20-byte header in network
// order built from named fields followed by data records (`rec=`) and a body; building,
// partial comparison and decoding of headers for reports.
#ifndef ZANVRRP_SIM_MSGFORM_H
#define ZANVRRP_SIM_MSGFORM_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "args.h"
#include "lexer.h"

namespace sim {

constexpr std::size_t kHdrLen = 20;

struct MsgForm {
    bool raw = false;
    // raw form
    std::vector<uint8_t> rawBytes;
    std::optional<uint32_t> size;   // delivered buffer size (recv only)
    // fields form
    std::optional<uint32_t> type, flags, tran, w8, w10, seq, w16, cnt, len;
    bool ack = false;
    bool hasBody = false;
    std::vector<uint8_t> body;      // the records, then the ':' bytes
    bool partial = false;           // expect sent only
};

struct MsgFormOptions {
    bool allowSize = false;     // recv: size=N
    bool allowPartial = false;  // expect sent: partial
};

// Reads the form from the remaining arguments and the line's ':' tail. The fields form is
// chosen by type=N; otherwise the ':' bytes are the whole message.
MsgForm ParseMsgForm(Args &args, const LexedLine &line, const MsgFormOptions &opt);

// The bytes of one data record from `KEY/DATA`, `RTYPE/KEY/DATA` or `RTYPE/KEY/DATA/DTYPE`
// (KEY, DATA hex; RTYPE default 3002, DTYPE default 1001): record type, record length, filler
// (4 bytes 0xFF for 3003, 8 for 3004), key TLV (type 3001), data TLV; every word big-endian.
std::vector<uint8_t> BuildRecord(const std::string &text);

// The bytes of the form (defaults filled in).
std::vector<uint8_t> BuildMsg(const MsgForm &form);

// Empty when `sent` matches the form (exact bytes, or the named fields and body with
// `partial`); else what differs.
std::string CompareMsg(const MsgForm &form, const std::vector<uint8_t> &sent);

// "len=20 flags=0x81 type=7(Register) tran=0 w8=0 w10=0 seq=0 w16=0 cnt=0", or a note
// for a message shorter than a header.
std::string DecodeHeader(const std::vector<uint8_t> &msg);
const char *MsgTypeName(uint32_t type);

// Text of the form for reports.
std::string DescribeForm(const MsgForm &form);

}  // namespace sim

#endif
