// Bytes and numbers in hex, as messages, traces, scripts and reports show them.
#ifndef ZANVRRP_SIM_HEXFMT_H
#define ZANVRRP_SIM_HEXFMT_H

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

std::string HexSpaced(const std::vector<uint8_t> &bytes);   // "01 02 0a"
std::string HexCompact(const std::vector<uint8_t> &bytes);  // "01020a"
std::string HexNum(uint32_t v);                             // 0x followed by lower-case hex

}  // namespace sim

#endif
