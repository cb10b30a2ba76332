include(CMakePackageConfigHelpers)

set(TALVEX_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/Talvex")

install(TARGETS talvex EXPORT TalvexTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Public headers mirror the source folders; implementation headers stay private.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/talvex/"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/talvex"
        FILES_MATCHING PATTERN "*.h"
        PATTERN "*Impl.h" EXCLUDE)

install(EXPORT TalvexTargets NAMESPACE Talvex:: DESTINATION "${TALVEX_CMAKE_DIR}")

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/TalvexConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/TalvexConfig.cmake" INSTALL_DESTINATION "${TALVEX_CMAKE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TalvexConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TalvexConfig.cmake"
              "${PROJECT_BINARY_DIR}/TalvexConfigVersion.cmake"
              "${PROJECT_SOURCE_DIR}/cmake/FindAndroidPlatform.cmake"
        DESTINATION "${TALVEX_CMAKE_DIR}")

configure_file("${PROJECT_SOURCE_DIR}/cmake/talvex.pc.in" "${PROJECT_BINARY_DIR}/talvex.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/talvex.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
