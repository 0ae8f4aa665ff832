#include "decode.h"

#include <cstdio>

#include "hexfmt.h"

namespace sim {

namespace {

uint16_t Be16(const std::vector<uint8_t> &m, std::size_t off)
{
    return static_cast<uint16_t>((m[off] << 8) | m[off + 1]);
}

uint32_t Be32(const std::vector<uint8_t> &m, std::size_t off)
{
    return (static_cast<uint32_t>(m[off]) << 24) | (static_cast<uint32_t>(m[off + 1]) << 16) |
           (static_cast<uint32_t>(m[off + 2]) << 8) | m[off + 3];
}

// Reads a TLV at pos that must end by `end`; false (and `why`) when it does not fit.
bool ReadTlv(const std::vector<uint8_t> &m, std::size_t &pos, std::size_t end, Tlv &t, const char *what,
             std::string &why)
{
    if (pos + 4 > end) {
        why = std::string(what) + " TLV header cut at byte " + std::to_string(pos);
        return false;
    }
    t.type = Be16(m, pos);
    t.len = Be16(m, pos + 2);
    if (pos + 4 + t.len > end) {
        why = std::string(what) + " TLV of " + std::to_string(t.len) + " bytes runs past byte " + std::to_string(end);
        return false;
    }
    t.value.assign(m.begin() + static_cast<std::ptrdiff_t>(pos + 4),
                   m.begin() + static_cast<std::ptrdiff_t>(pos + 4 + t.len));
    pos += 4u + t.len;
    return true;
}

// Bytes a record carries between its header and its key TLV, by record type; -1: unknown.
int RecordSkip(uint16_t recType)
{
    switch (recType) {
    case 3002: return 0;
    case 3003: return 4;
    case 3004: return 8;
    default: return -1;
    }
}

void DecodeBody(const std::vector<uint8_t> &m, std::size_t end, Decoded &d)
{
    std::size_t pos = 20;
    switch (d.type) {
    case 9:
    case 10:
        while (pos < end) {
            BodyElem e;
            e.kind = BodyElem::Kind::Item;
            if (!ReadTlv(m, pos, end, e.key, "item key", d.why) || !ReadTlv(m, pos, end, e.second, "subscription", d.why)) {
                d.malformed = true;
                return;
            }
            d.elems.push_back(e);
        }
        return;
    case 4:
    case 6:
        while (pos < end) {
            BodyElem e;
            e.kind = BodyElem::Kind::Part;
            if (!ReadTlv(m, pos, end, e.key, "part key", d.why) || !ReadTlv(m, pos, end, e.second, "part data", d.why)) {
                d.malformed = true;
                return;
            }
            d.elems.push_back(e);
        }
        return;
    case 12:
    case 14:
    case 15:
        while (pos < end) {
            BodyElem e;
            e.kind = BodyElem::Kind::Record;
            if (pos + 4 > end) {
                d.malformed = true;
                d.why = "record header cut at byte " + std::to_string(pos);
                return;
            }
            e.recType = Be16(m, pos);
            const std::size_t recEnd = pos + 4u + Be16(m, pos + 2);
            const int skip = RecordSkip(e.recType);
            if (recEnd > end) {
                d.malformed = true;
                d.why = "record at byte " + std::to_string(pos) + " runs past byte " + std::to_string(end);
                return;
            }
            if (skip < 0) {
                d.malformed = true;
                d.why = "record type " + std::to_string(e.recType) + " at byte " + std::to_string(pos);
                return;
            }
            std::size_t p = pos + 4u + static_cast<std::size_t>(skip);
            if (p > recEnd || !ReadTlv(m, p, recEnd, e.key, "record key", d.why) ||
                !ReadTlv(m, p, recEnd, e.second, "record data", d.why)) {
                d.malformed = true;
                if (d.why.empty()) {
                    d.why = "record at byte " + std::to_string(pos) + " too short";
                }
                return;
            }
            d.elems.push_back(e);
            pos = recEnd;
        }
        return;
    case 16:
        if (pos < end) {
            BodyElem e;
            e.kind = BodyElem::Kind::Notify;
            if (!ReadTlv(m, pos, end, e.key, "event", d.why)) {
                d.malformed = true;
                return;
            }
            d.elems.push_back(e);
        }
        return;
    default:
        return;  // a body that no message of this type carries is not interpreted
    }
}

std::string TlvText(const Tlv &t)
{
    return std::to_string(t.type) + "/" + std::to_string(t.len) + "/" + HexCompact(t.value);
}

const char *ElemName(BodyElem::Kind k, bool plural)
{
    switch (k) {
    case BodyElem::Kind::Item: return plural ? "items" : "item";
    case BodyElem::Kind::Record: return plural ? "records" : "record";
    case BodyElem::Kind::Part: return plural ? "parts" : "part";
    case BodyElem::Kind::Notify: return plural ? "events" : "event";
    }
    return "";
}

}  // namespace

Decoded Decode(const std::vector<uint8_t> &m)
{
    Decoded d;
    if (m.size() < 20) {
        d.shortMsg = true;
        d.malformed = true;
        d.why = std::to_string(m.size()) + " bytes, shorter than a header";
        return d;
    }
    d.len = Be16(m, 0);
    d.flags = m[2];
    d.ack = (m[2] & 0x80u) != 0;
    d.type = m[3];
    d.tran = Be32(m, 4);
    d.w8 = Be16(m, 8);
    d.w10 = Be16(m, 10);
    d.seq = Be32(m, 12);
    d.w16 = Be16(m, 16);
    d.cnt = Be16(m, 18);
    std::size_t end = d.len;
    if (d.len < 20 || d.len > m.size()) {
        d.malformed = true;
        d.why = "length " + std::to_string(d.len) + " with " + std::to_string(m.size()) + " bytes";
        end = d.len < 20 ? 20 : m.size();
    }
    if (!d.malformed || d.len > m.size()) {
        std::string lengthWhy = d.why;
        DecodeBody(m, end, d);
        if (!lengthWhy.empty() && d.why != lengthWhy) {
            d.why = lengthWhy + (d.why.empty() ? "" : "; " + d.why);
        }
    }
    return d;
}

const char *TypeName(uint32_t type)
{
    static const char *const kNames[] = {
        "Unknown",    "AddProducer", "DelProducer", "BNBegin", "BNData", "BNEnd",      "RNData", "Register",
        "UnRegister", "Subscribe",   "UnSubscribe", "BUBegin", "BUData", "BUEnd",      "BUBeginEnd", "RUData",
        "NotifyEvent",
    };
    return type < sizeof(kNames) / sizeof(kNames[0]) ? kNames[type] : "Unknown";
}

std::string DescribeLine(const Decoded &d)
{
    if (d.shortMsg) {
        return "(" + d.why + ")";
    }
    char buf[160];
    std::snprintf(buf, sizeof(buf), "%s%s tran=%u seq=%u cnt=%u len=%u", TypeName(d.type), d.ack ? " ack" : "", d.tran,
                  d.seq, d.cnt, d.len);
    std::string s = buf;
    if (!d.elems.empty()) {
        s += " [" + std::to_string(d.elems.size()) + " " + ElemName(d.elems[0].kind, d.elems.size() != 1) + "]";
    }
    if (d.malformed) {
        s += " MALFORMED: " + d.why;
    }
    return s;
}

std::string DescribeFull(const Decoded &d)
{
    if (d.shortMsg) {
        return "(" + d.why + ")\n";
    }
    char buf[256];
    std::snprintf(buf, sizeof(buf),
                  "%s%s (type %u)\n  usMsgLen %u  ucFlags 0x%02x  ulTransId %u  usHdrWord8 %u  usHdrWord10 %u  "
                  "ulSeqNum %u  usHdrWord16 %u  usEntryCnt %u\n",
                  TypeName(d.type), d.ack ? " acknowledgement" : " request", d.type, d.len, d.flags, d.tran, d.w8,
                  d.w10, d.seq, d.w16, d.cnt);
    std::string s = buf;
    for (const BodyElem &e : d.elems) {
        switch (e.kind) {
        case BodyElem::Kind::Item:
            s += "  item: key " + TlvText(e.key) + "  subscription " + TlvText(e.second) + "\n";
            break;
        case BodyElem::Kind::Record:
            s += "  record " + std::to_string(e.recType) + ": key " + TlvText(e.key) + "  data " + TlvText(e.second) +
                 "\n";
            break;
        case BodyElem::Kind::Part:
            s += "  part: key " + TlvText(e.key) + "  data " + TlvText(e.second) + "\n";
            break;
        case BodyElem::Kind::Notify:
            s += "  event: " + TlvText(e.key) + "\n";
            break;
        }
    }
    if (d.malformed) {
        s += "  MALFORMED: " + d.why + "\n";
    }
    return s;
}

std::string Fields(const Decoded &d, uint32_t sender, uint32_t receiver)
{
    std::string keys;
    for (const BodyElem &e : d.elems) {
        keys += (keys.empty() ? "" : ",") + HexCompact(e.key.value);
    }
    char buf[200];
    if (d.shortMsg) {
        // no header: its ten fields are empty, as a dissector leaves fields it did not find
        std::snprintf(buf, sizeof(buf), "%u\t%u\t\t\t\t\t\t\t\t\t\t\t%zu\t", sender, receiver, d.elems.size());
    } else {
        std::snprintf(buf, sizeof(buf), "%u\t%u\t%u\t%u\t%u\t%u\t%u\t%u\t%u\t%u\t%u\t%u\t%zu\t", sender, receiver,
                      d.len, d.flags, d.ack ? 1u : 0u, d.type, d.tran, d.w8, d.w10, d.seq, d.w16, d.cnt, d.elems.size());
    }
    return std::string(buf) + keys + "\t" + (d.malformed ? "1" : "0");
}

}  // namespace sim
