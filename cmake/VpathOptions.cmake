# Compiler settings shared by every target of the project.

find_program(VPATH_CCACHE ccache)
if(VPATH_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${VPATH_CCACHE}")
endif()

if(VPATH_SANITIZE)
    set(_vpath_san_flags -fsanitize=${VPATH_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    if(VPATH_SANITIZE MATCHES "thread")
        list(APPEND _vpath_san_flags -O1)
    endif()
    add_compile_options(${_vpath_san_flags})
    add_link_options(-fsanitize=${VPATH_SANITIZE})
endif()

# Warnings for the project's own code; third-party headers come in as system headers.
function(vpath_set_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
        -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wmissing-declarations)
    # GCC 12 reports overlapping copies inside std::string that cannot happen (GCC bug 105329),
    # more of them the more it inlines; the warning is left to the compilers that get it right.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
    if(VPATH_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
