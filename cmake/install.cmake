# What `cmake --install` puts into the prefix: the shared and the static library, the public
# header, a CMake package (find_package(zan_vrrp_lib CONFIG): zan_vrrp_lib::zan_vrrp_lib and
# zan_vrrp_lib::zan_vrrp_lib_static) and zan_vrrp_lib.pc. The host platform and zanvrrp-sim only
# with ZAN_INSTALL_HOST_PLATFORM / ZAN_INSTALL_TOOLS; the tests never.
include(CMakePackageConfigHelpers)

set(ZAN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zan_vrrp_lib)
set(ZAN_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS zan_vrrp_lib zan_vrrp_static EXPORT zan_vrrp_libTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CMAKE_SOURCE_DIR}/include/zan_vrrp_lib.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT zan_vrrp_libTargets NAMESPACE zan_vrrp_lib:: DESTINATION ${ZAN_CMAKE_DIR})

if(ZAN_INSTALL_HOST_PLATFORM)
  install(TARGETS zan_host_platform_shared EXPORT zan_host_platformTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${CMAKE_SOURCE_DIR}/host/zan_host.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT zan_host_platformTargets NAMESPACE zan_vrrp_lib:: DESTINATION ${ZAN_CMAKE_DIR})
endif()
if(ZAN_INSTALL_TOOLS)
  install(TARGETS zanvrrp-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/zan_vrrp_libConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/zan_vrrp_libConfig.cmake INSTALL_DESTINATION ${ZAN_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/zan_vrrp_libConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zan_vrrp_libConfig.cmake ${CMAKE_BINARY_DIR}/zan_vrrp_libConfigVersion.cmake
        DESTINATION ${ZAN_CMAKE_DIR})

# The .pc files find the prefix from where they lie, so an installed tree can move.
file(RELATIVE_PATH ZAN_PC_TO_PREFIX /${ZAN_PC_DIR} /)
string(REGEX REPLACE "/$" "" ZAN_PC_TO_PREFIX "${ZAN_PC_TO_PREFIX}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/zan_vrrp_lib.pc.in ${CMAKE_BINARY_DIR}/zan_vrrp_lib.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zan_vrrp_lib.pc DESTINATION ${ZAN_PC_DIR})
if(ZAN_INSTALL_HOST_PLATFORM)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/zan_host_platform.pc.in ${CMAKE_BINARY_DIR}/zan_host_platform.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/zan_host_platform.pc DESTINATION ${ZAN_PC_DIR})
endif()
