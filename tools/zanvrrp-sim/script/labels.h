// Labels of `expect adp`, `expect inst` and `expect prod`: names to values read from the
// adapter, instance and producer records.
#ifndef ZANVRRP_SIM_LABELS_H
#define ZANVRRP_SIM_LABELS_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/host_world.h"

struct ZAN_VRRP_ADP;
struct ZAN_VRRP_INST;

namespace sim {

enum class LabelTarget { Adp, Inst, Prod };

// Throws ScriptError for a label the target does not have.
void ValidateLabel(LabelTarget target, const std::string &label);

// Values; the label must be valid. `Exists` (adapter, instance) is the runner's: it needs
// no record.
uint32_t ReadAdpLabel(const ZAN_VRRP_ADP &adp, const std::string &label);
uint32_t ReadInstLabel(const ZAN_VRRP_INST &inst, const std::string &label);
// The instance's producer must exist.
uint32_t ReadProdLabel(const ZAN_VRRP_INST &inst, const std::string &label);

// The component's adapter while it is live (initialised and not ended), else NULL: an ended
// adapter's context stays in the component's slot.
ZAN_VRRP_ADP *LiveAdp();

// Blocks held on the component's framework memory handle, but for the context that an ended
// adapter keeps in the component's slot (the framework may still hand it to the handlers
// registered with it): what a teardown must leave empty.
std::vector<host::HeldBlock> FwBlocksBesideKeptContext();

}  // namespace sim

#endif
