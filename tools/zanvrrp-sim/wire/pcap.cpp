#include "pcap.h"

namespace sim {

namespace {

void PutLe32(std::vector<uint8_t> &b, uint32_t v)
{
    for (int i = 0; i < 4; i++) {
        b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

void PutBe32(std::vector<uint8_t> &b, uint32_t v)
{
    for (int i = 3; i >= 0; i--) {
        b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

uint32_t GetLe32(const uint8_t *p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
           (static_cast<uint32_t>(p[3]) << 24);
}

uint32_t GetBe32(const uint8_t *p)
{
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

constexpr uint32_t kMagic = 0xa1b2c3d4u;  // microsecond timestamps, written little-endian

}  // namespace

PcapWriter::~PcapWriter()
{
    if (f_ != nullptr) {
        std::fclose(f_);
    }
}

bool PcapWriter::Open(const std::string &path, std::string &err)
{
    f_ = std::fopen(path.c_str(), "wb");
    if (f_ == nullptr) {
        err = "cannot create " + path;
        return false;
    }
    std::vector<uint8_t> h;
    PutLe32(h, kMagic);
    h.push_back(2);  // version 2.4
    h.push_back(0);
    h.push_back(4);
    h.push_back(0);
    PutLe32(h, 0);       // time zone
    PutLe32(h, 0);       // accuracy
    PutLe32(h, 65535);   // snapshot length
    PutLe32(h, kPcapLinkTypeUser0);
    std::fwrite(h.data(), 1, h.size(), f_);
    return true;
}

void PcapWriter::Write(uint64_t timeMs, uint32_t sender, uint32_t receiver, const std::vector<uint8_t> &msg)
{
    if (f_ == nullptr) {
        return;
    }
    const uint32_t len = static_cast<uint32_t>(kPcapPseudoHdrLen + msg.size());
    std::vector<uint8_t> r;
    PutLe32(r, static_cast<uint32_t>(timeMs / 1000u));
    PutLe32(r, static_cast<uint32_t>((timeMs % 1000u) * 1000u));
    PutLe32(r, len);
    PutLe32(r, len);
    PutBe32(r, static_cast<uint32_t>(timeMs));
    PutBe32(r, sender);
    PutBe32(r, receiver);
    r.insert(r.end(), msg.begin(), msg.end());
    std::fwrite(r.data(), 1, r.size(), f_);
    packets_++;
}

bool ReadPcap(const std::string &path, std::vector<PcapPacket> &packets, std::string &err)
{
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
        err = "cannot read " + path;
        return false;
    }
    std::vector<uint8_t> all;
    uint8_t buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) {
        all.insert(all.end(), buf, buf + n);
    }
    std::fclose(f);
    if (all.size() < 24 || GetLe32(all.data()) != kMagic || GetLe32(all.data() + 20) != kPcapLinkTypeUser0) {
        err = path + " is not a capture of this tool (little-endian pcap, link type 147)";
        return false;
    }
    std::size_t pos = 24;
    while (pos + 16 <= all.size()) {
        const uint32_t incl = GetLe32(all.data() + pos + 8);
        pos += 16;
        if (incl < kPcapPseudoHdrLen || pos + incl > all.size()) {
            err = "packet " + std::to_string(packets.size() + 1) + " is cut";
            return false;
        }
        PcapPacket p;
        p.timeMs = GetBe32(all.data() + pos);
        p.sender = GetBe32(all.data() + pos + 4);
        p.receiver = GetBe32(all.data() + pos + 8);
        p.msg.assign(all.begin() + static_cast<std::ptrdiff_t>(pos + kPcapPseudoHdrLen),
                     all.begin() + static_cast<std::ptrdiff_t>(pos + incl));
        packets.push_back(std::move(p));
        pos += incl;
    }
    return true;
}

}  // namespace sim
