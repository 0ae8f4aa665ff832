// Host platform functions the runner needs beyond host_world.h. Declared weak so that the
// runner links while the host platform does not provide them yet; a caller tests the
// address before the call and reports the missing function instead.
#ifndef ZANVRRP_SIM_HOST_EXT_H
#define ZANVRRP_SIM_HOST_EXT_H

#include <cstdint>

namespace host {

// Period in ms of the running loop timer with this handle; 0 when no such timer runs.
uint32_t TimerPeriod(uint32_t handle) __attribute__((weak));

}  // namespace host

#endif
