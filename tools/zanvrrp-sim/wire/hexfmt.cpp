#include "hexfmt.h"

#include <cstdio>

namespace sim {

std::string HexSpaced(const std::vector<uint8_t> &bytes)
{
    std::string out;
    char buf[4];
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(buf, sizeof(buf), "%02x", bytes[i]);
        if (i != 0) {
            out += ' ';
        }
        out += buf;
    }
    return out;
}

std::string HexCompact(const std::vector<uint8_t> &bytes)
{
    std::string out;
    char buf[4];
    for (uint8_t b : bytes) {
        std::snprintf(buf, sizeof(buf), "%02x", b);
        out += buf;
    }
    return out;
}

std::string HexNum(uint32_t v)
{
    char buf[16];
    std::snprintf(buf, sizeof(buf), "0x%x", v);
    return buf;
}

}  // namespace sim
