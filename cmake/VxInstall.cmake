# cmake --install: the libraries, the worker and the extension builds in one
# module folder, the public headers, and the CMake package `vxippylnk`:
#
#   <prefix>/include/foundation/...            host arrays
#   <prefix>/include/vxpy/client.h             the client
#   <prefix>/lib/vxippylnk/lnxgen64/           libvxpyclient.so, vxpy-worker,
#                                              libvxippylnk.so and what it needs,
#                                              the libvxbuffer builds
#   <prefix>/lib/cmake/vxippylnk/              vxippylnkConfig.cmake
#
# Everything runtime shares one folder, as in the build tree: the client finds
# the worker beside itself, and the folder's name carries the architecture
# code that the console relay looks for.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VX_INSTALL_MODULE_DIR "${CMAKE_INSTALL_LIBDIR}/vxippylnk/lnxgen64")
set(VX_INSTALL_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/vxippylnk")
get_property(_vx_vxbuffer_modules GLOBAL PROPERTY VXBUFFER_MODULE_TARGETS)

install(TARGETS vxfoundation_veltradata vxpyclient EXPORT vxippylnkTargets
  LIBRARY DESTINATION "${VX_INSTALL_MODULE_DIR}"
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(TARGETS vxplatform pylnk_core vxippylnk vxpy-worker ${_vx_vxbuffer_modules}
  LIBRARY DESTINATION "${VX_INSTALL_MODULE_DIR}"
  RUNTIME DESTINATION "${VX_INSTALL_MODULE_DIR}")
install(DIRECTORY "${CMAKE_SOURCE_DIR}/src/veltradata/include/"
                  "${CMAKE_SOURCE_DIR}/src/worker/client/include/"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

install(EXPORT vxippylnkTargets NAMESPACE vxippylnk:: DESTINATION "${VX_INSTALL_CMAKE_DIR}")
file(WRITE "${CMAKE_BINARY_DIR}/package/vxippylnkConfig.cmake"
  "# vxippylnk::client (libvxpyclient.so, vxpy/client.h) and vxippylnk::veltradata\n"
  "# (host arrays, foundation/veltradata.h).\n"
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/vxippylnkTargets.cmake\")\n")
write_basic_package_version_file("${CMAKE_BINARY_DIR}/package/vxippylnkConfigVersion.cmake"
  VERSION 1.0.0 COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/package/vxippylnkConfig.cmake"
              "${CMAKE_BINARY_DIR}/package/vxippylnkConfigVersion.cmake"
  DESTINATION "${VX_INSTALL_CMAKE_DIR}")
