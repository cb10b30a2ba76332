# Compile options for the project's own targets; never global, so consumers are not affected.
set(TALVEX_SANITIZERS "" CACHE STRING "Sanitizers to build with, e.g. address;undefined or thread")

function(talvex_set_warnings target)
    # Standard C++17 everywhere, so that every tool reads the sources as the compiler does.
    set_target_properties(${target} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON
                                               CXX_EXTENSIONS OFF)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    if(TALVEX_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(TALVEX_SANITIZERS)
        list(JOIN TALVEX_SANITIZERS "," sanitizers)
        target_compile_options(${target} PRIVATE -fsanitize=${sanitizers}
                               -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${sanitizers})
        # GCC's flow analysis under ASan reports uninitialized reads inside libstdc++'s own
        # std::function and std::regex that do not exist; the plain build keeps the warning.
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
        endif()
    endif()
endfunction()
