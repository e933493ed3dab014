# `cmake --install`: the library and its public headers, gralloc-layout, the host platform with
# the simulated gralloc, the test kit, and the CMake package and pkg-config file that find them.
#
#   <prefix>/bin/gralloc-layout
#   <prefix>/<libdir>/libzyncam_grallocutils_aidlv2helper.so.<version>, the host platform's and
#                     the simulator's libraries, libzyncam_testkit.a
#   <prefix>/<libdir>/hw/mapper.zyncamsim.so    where the host platform's sphal search looks
#   <prefix>/<libdir>/cmake/ZynCamGralloc/      find_package(ZynCamGralloc)
#   <prefix>/<libdir>/pkgconfig/zyncam_grallocutils_aidlv2helper.pc
#   <prefix>/include/zyncam-gralloc/            public headers
#   <prefix>/include/zyncam-gralloc/platform/   stand-in platform headers, the camera stack's
#   <prefix>/include/zyncam-gralloc/host/       host-only controls (zyncam_host/...)
#   <prefix>/include/zyncam-gralloc/testkit/    the test kit
#   <prefix>/share/zyncam-gralloc/profiles/     the shipped device profiles
include(CMakePackageConfigHelpers)

set(ZYNCAM_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZynCamGralloc)

# Installed programs and libraries find their neighbours wherever the prefix is moved to.
file(RELATIVE_PATH _zyncam_bin_to_lib
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR})
set_target_properties(gralloc-layout PROPERTIES INSTALL_RPATH "$ORIGIN/${_zyncam_bin_to_lib}")
set_target_properties(zyncam_grallocutils_aidlv2helper zyncam_host_platform zyncam_simgralloc
  PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(mapper_zyncamsim PROPERTIES INSTALL_RPATH "$ORIGIN/..")
# Where this tree is laid out as an installation is (bin/, lib/, lib/hw/), the installed targets
# are built with their install RUNPATH. Otherwise CMake pads the build RUNPATH with empty entries
# so that install can rewrite it in place, and an empty entry makes the loader search the
# current folder for every library.
if(CMAKE_INSTALL_BINDIR STREQUAL "bin" AND CMAKE_INSTALL_LIBDIR STREQUAL "lib")
  set_target_properties(gralloc-layout zyncam_grallocutils_aidlv2helper zyncam_host_platform
    zyncam_simgralloc mapper_zyncamsim PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
endif()

install(TARGETS zyncam_grallocutils_aidlv2helper zyncam_host_platform zyncam_simgralloc
    zyncam_host_api
  EXPORT ZynCamGrallocTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS gralloc-layout RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Only the working mapper: the broken variants serve this tree's own tests.
install(TARGETS mapper_zyncamsim LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/hw)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
  DESTINATION ${ZYNCAM_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/include/ ${PROJECT_SOURCE_DIR}/camera/include/
  DESTINATION ${ZYNCAM_INSTALL_INCLUDEDIR}/platform FILES_MATCHING PATTERN "*.h")
# The shipped device profiles, for ZYNCAM_GRALLOC_PROFILE and gralloc-layout --profile.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/profiles/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zyncam-gralloc/profiles FILES_MATCHING PATTERN "*.json")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/api/
  DESTINATION ${ZYNCAM_INSTALL_INCLUDEDIR}/host FILES_MATCHING PATTERN "*.h")

install(EXPORT ZynCamGrallocTargets
  NAMESPACE ZynCamGralloc:: DESTINATION ${ZYNCAM_PACKAGE_DIR})

# The test kit needs GoogleTest, so it comes in a file of its own that the package loads only
# where GoogleTest is found.
if(TARGET zyncam_testkit)
  install(TARGETS zyncam_testkit EXPORT ZynCamGrallocTestKitTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/tests/kit/
    DESTINATION ${ZYNCAM_INSTALL_INCLUDEDIR}/testkit FILES_MATCHING PATTERN "*.h")
  install(EXPORT ZynCamGrallocTestKitTargets
    NAMESPACE ZynCamGralloc:: DESTINATION ${ZYNCAM_PACKAGE_DIR})
endif()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZynCamGrallocConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/ZynCamGrallocConfig.cmake
  INSTALL_DESTINATION ${ZYNCAM_PACKAGE_DIR})
# Same major version: the SONAME changes with it.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZynCamGrallocConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/ZynCamGrallocConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/ZynCamGrallocConfigVersion.cmake
  DESTINATION ${ZYNCAM_PACKAGE_DIR})

# pkg-config: paths relative to the .pc file, so that `cmake --install --prefix` anywhere works.
file(RELATIVE_PATH ZYNCAM_PC_TO_PREFIX
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/zyncam_grallocutils_aidlv2helper.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/zyncam_grallocutils_aidlv2helper.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zyncam_grallocutils_aidlv2helper.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
