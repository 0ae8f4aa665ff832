// The message decoder shared by the script runner, the simulation's trace, `zanvrrp-sim decode`
// and the capture reader: the 20-byte header and the body by message type, with a malformed
// body reported as such rather than trusted.
#ifndef ZANVRRP_SIM_DECODE_H
#define ZANVRRP_SIM_DECODE_H

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct Tlv {
    uint16_t type = 0;
    uint16_t len = 0;
    std::vector<uint8_t> value;
};

// One element of a body: a subscription item (key TLV and subscription TLV), a data record
// (record type, the key TLV and the data TLV), a data part (key TLV and data TLV), or the
// NotifyEvent TLV (in `key`).
struct BodyElem {
    enum class Kind { Item, Record, Part, Notify } kind = Kind::Item;
    uint16_t recType = 0;  // records only
    Tlv key;
    Tlv second;            // subscription TLV, or data TLV
};

struct Decoded {
    bool shortMsg = false;      // fewer than 20 bytes: nothing else is set
    uint16_t len = 0;
    uint8_t flags = 0;
    bool ack = false;
    uint8_t type = 0;
    uint32_t tran = 0;
    uint16_t w8 = 0, w10 = 0, w16 = 0, cnt = 0;
    uint32_t seq = 0;
    std::vector<BodyElem> elems;
    bool malformed = false;     // the body (or the length) does not hold what it claims
    std::string why;            // what is malformed
};

// What a body of each type holds; the body runs from byte 20 to usMsgLen (or to the end of the
// bytes when usMsgLen claims more).
Decoded Decode(const std::vector<uint8_t> &msg);

const char *TypeName(uint32_t type);

// One line: "Subscribe ack tran=0 seq=0 cnt=2 len=34 [2 items]".
std::string DescribeLine(const Decoded &d);
// Header and every body element, one per line.
std::string DescribeFull(const Decoded &d);
// The fields compared with the capture dissector, tab-separated: sender, receiver, len, flags,
// ack, type, tran, w8, w10, seq, w16, cnt, elements, key values (hex, comma-separated),
// malformed (0/1). A message shorter than a header leaves the ten header fields empty.
std::string Fields(const Decoded &d, uint32_t sender, uint32_t receiver);

}  // namespace sim

#endif
