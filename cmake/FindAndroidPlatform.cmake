# Finds Android's liblog, libcutils and libutils as Debian builds them for Linux. They ship no
# CMake or pkg-config files, and live outside the default search path.
#
# Imported targets: Android::liblog, Android::libcutils, Android::libutils.
# Variables: AndroidPlatform_FOUND, AndroidPlatform_INCLUDE_DIR, AndroidPlatform_LIBRARY_DIR.

find_path(AndroidPlatform_INCLUDE_DIR NAMES android/log.h cutils/trace.h utils/Trace.h
          PATH_SUFFIXES android)
find_library(AndroidPlatform_liblog_LIBRARY NAMES log PATH_SUFFIXES android)
find_library(AndroidPlatform_libcutils_LIBRARY NAMES cutils PATH_SUFFIXES android)
find_library(AndroidPlatform_libutils_LIBRARY NAMES utils PATH_SUFFIXES android)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(AndroidPlatform
    REQUIRED_VARS AndroidPlatform_INCLUDE_DIR AndroidPlatform_liblog_LIBRARY
                  AndroidPlatform_libcutils_LIBRARY AndroidPlatform_libutils_LIBRARY)

if(AndroidPlatform_FOUND)
    get_filename_component(AndroidPlatform_LIBRARY_DIR "${AndroidPlatform_liblog_LIBRARY}"
                           DIRECTORY)
    foreach(lib liblog libcutils libutils)
        if(NOT TARGET Android::${lib})
            add_library(Android::${lib} SHARED IMPORTED)
            set_target_properties(Android::${lib} PROPERTIES
                IMPORTED_LOCATION "${AndroidPlatform_${lib}_LIBRARY}"
                INTERFACE_INCLUDE_DIRECTORIES "${AndroidPlatform_INCLUDE_DIR}")
        endif()
    endforeach()
endif()
mark_as_advanced(AndroidPlatform_INCLUDE_DIR AndroidPlatform_liblog_LIBRARY
                 AndroidPlatform_libcutils_LIBRARY AndroidPlatform_libutils_LIBRARY)
