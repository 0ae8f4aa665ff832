// A host world with an adapter, a recording callback table and helpers to create instances,
// shared by the library's unit tests.
#ifndef LIB_FIXTURE_H
#define LIB_FIXTURE_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "adp/zan_vrrpadp.h"
#include "host/host_world.h"
#include "inst/zan_vrrpinst.h"
#include "prod/zan_vrrp_prod.h"

namespace libtest {

struct Recorder {
    std::vector<std::string> debug;
    std::vector<std::pair<std::string, uint32_t>> traces;
    std::vector<uint32_t> regAcks;
    uint32_t debugOn = 1;
};

Recorder &Rec();
ZAN_VRRP_CALLBACK_S AllCallbacks();

std::vector<uint8_t> DeployRec(uint32_t pid, uint32_t ifGroup, uint32_t kind = ZAN_VRRP_DEPLOY_KIND);
uint32_t CreateDeploy(uint32_t pid, uint32_t ifGroup);
uint32_t DeleteDeploy(uint32_t pid, uint32_t ifGroup);
ZAN_VRRP_INST_S *Inst(uint32_t pid);
ZAN_VRRP_TLV_S Tlv(uint16_t type, uint16_t len, const std::vector<uint8_t> &value);

// Blocks held on the component's framework memory handle besides the adapter context that an
// ended adapter keeps in the component's slot (registrations may still name it).
uint32_t FwBlocksBesideContext();

// A non-fatal failure listing the fault log when the host recorded any platform misuse.
void ExpectNoFaults();

class LibTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    ZAN_VRRP_ADP_S *adp = nullptr;
};

}  // namespace libtest

#endif
