// Captures in the pcap format: every message as one packet of link type USER0 (147), behind a
// 12-byte pseudo-header in network byte order: virtual time in milliseconds, sender pid,
// receiver pid. The packet's own timestamp is the same virtual time.
#ifndef ZANVRRP_SIM_PCAP_H
#define ZANVRRP_SIM_PCAP_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace sim {

constexpr uint32_t kPcapLinkTypeUser0 = 147;
constexpr std::size_t kPcapPseudoHdrLen = 12;

class PcapWriter {
public:
    PcapWriter() = default;
    ~PcapWriter();
    PcapWriter(const PcapWriter &) = delete;
    PcapWriter &operator=(const PcapWriter &) = delete;

    // Creates the file and writes its header; false with `err` when it cannot.
    bool Open(const std::string &path, std::string &err);
    void Write(uint64_t timeMs, uint32_t sender, uint32_t receiver, const std::vector<uint8_t> &msg);
    uint32_t Packets() const { return packets_; }

private:
    std::FILE *f_ = nullptr;
    uint32_t packets_ = 0;
};

struct PcapPacket {
    uint64_t timeMs = 0;
    uint32_t sender = 0;
    uint32_t receiver = 0;
    std::vector<uint8_t> msg;
};

// Reads a capture written by PcapWriter; false with `err` for a file of another form.
bool ReadPcap(const std::string &path, std::vector<PcapPacket> &packets, std::string &err);

}  // namespace sim

#endif
