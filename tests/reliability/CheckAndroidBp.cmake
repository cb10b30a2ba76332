# Fails when Android.bp's libtalvex does not compile exactly the sources the CMake target does,
# or does not link the platform libraries the CMake target links.
#
#   cmake -DANDROID_BP=<Android.bp> -DSOURCES_FILE=<one source per line> -DROOT=<project root>
#         -P CheckAndroidBp.cmake

cmake_minimum_required(VERSION 3.20)

foreach(variable ANDROID_BP SOURCES_FILE ROOT)
    if(NOT DEFINED ${variable})
        message(FATAL_ERROR "CheckAndroidBp: ${variable} is not set")
    endif()
endforeach()

# CMake's list: absolute paths of the talvex target, compiled files only, relative to the root.
file(STRINGS "${SOURCES_FILE}" cmake_entries)
set(cmake_sources "")
foreach(entry IN LISTS cmake_entries)
    if(NOT entry MATCHES "\\.(cpp|cc|c)$")
        continue()
    endif()
    if(NOT IS_ABSOLUTE "${entry}")
        set(entry "${ROOT}/${entry}")
    endif()
    file(RELATIVE_PATH relative "${ROOT}" "${entry}")
    list(APPEND cmake_sources "${relative}")
endforeach()
list(SORT cmake_sources)

# The cc_library_shared block named libtalvex, up to the closing brace at the start of a line.
file(READ "${ANDROID_BP}" bp)
string(REGEX MATCH "cc_library_shared[ \t]*{[^\n]*\n[ \t]+name:[ \t]*\"libtalvex\"[^\n]*\n([^}]|}[^\n])*\n}"
       block "${bp}")
if(block STREQUAL "")
    message(FATAL_ERROR "CheckAndroidBp: no cc_library_shared named \"libtalvex\" in ${ANDROID_BP}")
endif()

# Quoted entries of one list property of the block.
function(bp_list property out)
    string(REGEX MATCH "\n[ \t]+${property}:[ \t]*\\[[^]]*\\]" text "${block}")
    string(REGEX MATCHALL "\"[^\"]*\"" quoted "${text}")
    set(values "")
    foreach(item IN LISTS quoted)
        string(REGEX REPLACE "^\"(.*)\"$" "\\1" item "${item}")
        list(APPEND values "${item}")
    endforeach()
    set(${out} "${values}" PARENT_SCOPE)
endfunction()

bp_list(srcs bp_sources)
set(problems "")
set(seen "")
foreach(source IN LISTS bp_sources)
    if(source IN_LIST seen)
        string(APPEND problems "\n  listed twice in Android.bp: ${source}")
    endif()
    list(APPEND seen "${source}")
    if(source MATCHES "[*?]")
        string(APPEND problems "\n  a glob in Android.bp cannot be compared: ${source}")
    elseif(NOT source IN_LIST cmake_sources)
        string(APPEND problems "\n  in Android.bp but not built by CMake: ${source}")
    endif()
endforeach()
foreach(source IN LISTS cmake_sources)
    if(NOT source IN_LIST bp_sources)
        string(APPEND problems "\n  built by CMake but missing from Android.bp: ${source}")
    endif()
endforeach()

bp_list(shared_libs bp_libraries)
foreach(library liblog libcutils libutils libjsoncpp)
    if(NOT library IN_LIST bp_libraries)
        string(APPEND problems "\n  shared_libs lacks ${library}")
    endif()
endforeach()

list(LENGTH cmake_sources count)
if(count EQUAL 0)
    string(APPEND problems "\n  CMake reported no sources for the talvex target")
endif()
if(NOT problems STREQUAL "")
    message(FATAL_ERROR "Android.bp and CMake disagree:${problems}")
endif()
message(STATUS "Android.bp lists the ${count} sources CMake builds")
