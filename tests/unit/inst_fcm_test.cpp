// Flow-control end and flush return what the producer's side answers: an instance whose
// producer could not be created reports the failure, one with a producer succeeds.
#include "lib_fixture.h"

namespace {

class FcmFlushResult : public libtest::LibTest {};

TEST_F(FcmFlushResult, IsTheProducersResult)
{
    ASSERT_EQ(libtest::CreateDeploy(0x10, 1), 0u);
    // The producer record comes from the component's framework handle; its allocation fails.
    host::ArmFail(host::FailKind::Malloc, 0, 1, host::Ctx()->ulFwMemHandle);
    ASSERT_EQ(libtest::CreateDeploy(0x20, 2), 1u);
    ZAN_VRRP_INST_S *withProd = libtest::Inst(0x10);
    ZAN_VRRP_INST_S *withoutProd = libtest::Inst(0x20);
    ASSERT_NE(withoutProd, nullptr);
    ASSERT_EQ(withoutProd->pProd, nullptr);

    EXPECT_EQ(ZAN_VrrpInst_Fcm(withProd), 0u);
    EXPECT_EQ(ZAN_VrrpInst_Flush(withProd), 0u);
    EXPECT_EQ(ZAN_VrrpInst_Fcm(withoutProd), ZAN_VRRP_ALL_ONES);
    EXPECT_EQ(ZAN_VrrpInst_Flush(withoutProd), ZAN_VRRP_ALL_ONES);
    // The adapter's flush hands the first failure of its scan to the framework.
    EXPECT_EQ(ZAN_VrrpAdp_Flush_(adp), ZAN_VRRP_ALL_ONES);
}

}  // namespace
