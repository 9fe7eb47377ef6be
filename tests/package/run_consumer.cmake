# Install, then use the installed package: the embedding example through find_package and through
# pkg-config, and the installed vpath with its example toolbox, man page and completions.
file(REMOVE_RECURSE ${SCRATCH})
set(prefix ${SCRATCH}/prefix)

function(step)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
    endif()
    set(step_output "${out}" PARENT_SCOPE)
endfunction()

function(expect pattern)
    if(NOT step_output MATCHES "${pattern}")
        message(FATAL_ERROR "expected ${pattern} in:\n${step_output}")
    endif()
endfunction()

# The example resolves area on utils, adds geometry in front, and then finds geometry's area; then
# its readers resolve area while the path changes 50 times.
function(expect_example_output)
    expect("^area -> [^\n]*/utils/area.vl\nadded [^\n]*/geometry\n[0-9]+ added, 0 removed, special subfolders included\narea -> [^\n]*/geometry/area.vl\n2 readers beside a writer: 50 changes, every answer from its reader's own state\n$")
endfunction()

step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# Every header lies in the project's own folder, never in folders other projects' headers share.
file(GLOB top_level_includes RELATIVE ${prefix}/include ${prefix}/include/*)
if(NOT top_level_includes STREQUAL "velmora")
    message(FATAL_ERROR "include/ holds ${top_level_includes}, not only velmora/")
endif()
# ... and the CMake package names that folder, once, for each target.
file(GLOB targets_file ${prefix}/*/cmake/VelmoraPathManagement/VelmoraPathManagementTargets.cmake)
file(STRINGS ${targets_file} include_lines REGEX "INTERFACE_INCLUDE_DIRECTORIES")
foreach(line IN LISTS include_lines)
    if(NOT line MATCHES "^ *INTERFACE_INCLUDE_DIRECTORIES \"\\\${_IMPORT_PREFIX}/include/velmora\"$")
        message(FATAL_ERROR "the CMake package's include folders: ${line}")
    endif()
endforeach()

step(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${SCRATCH}/build -G Ninja
     -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
step(${CMAKE_COMMAND} --build ${SCRATCH}/build)
step(${SCRATCH}/build/embedding_example ${EXAMPLES}/utils ${EXAMPLES}/geometry)
expect_example_output()

# The attach example against a path service that the installed vpath runs, in a runtime folder
# of the test's own; then, with the service stopped, the same program reading the path itself.
set(attach ${SCRATCH}/attach)
file(MAKE_DIRECTORY ${attach}/tb ${attach}/run)
file(WRITE ${attach}/tb/area.vl "")
file(WRITE ${attach}/pathdef "${attach}/tb\n")
set(attach_env ${CMAKE_COMMAND} -E env XDG_RUNTIME_DIR=${attach}/run
    XDG_STATE_HOME=${attach}/state XDG_CACHE_HOME=${attach}/cache)
set(vpath_here ${attach_env} ${prefix}/bin/vpath --pathdef ${attach}/pathdef)
step(${vpath_here} service start)
execute_process(COMMAND ${attach_env} ${SCRATCH}/build/attach_example ${attach}/pathdef ${attach}/tb
    RESULT_VARIABLE attach_result OUTPUT_VARIABLE step_output ERROR_VARIABLE attach_err)
execute_process(COMMAND ${vpath_here} service stop)
if(NOT attach_result EQUAL 0)
    message(FATAL_ERROR "attach_example failed:\n${step_output}\n${attach_err}")
endif()
expect("^attached\narea -> ${attach}/tb/area.vl\narea -> ${attach}/tb/area.vl\nmade ${attach}/tb/area.vlx\nheard: refreshed ${attach}/tb\narea -> ${attach}/tb/area.vlx\n$")
step(${attach_env} ${SCRATCH}/build/attach_example ${attach}/pathdef ${attach}/tb)
expect("^no path service \\([^\n]*\\): reading the path\narea -> ${attach}/tb/area.vl\n$")

file(GLOB_RECURSE pc_files ${prefix}/*/velmora-pathmanagement.pc)
get_filename_component(pc_dir "${pc_files}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
# The file names the install prefix; the scratch prefix stands in for it. Its flags are just the
# one include folder: the language level is the consumer's choice.
set(pc ${PKG_CONFIG} --define-variable=prefix=${prefix})
step(${pc} --cflags velmora-pathmanagement)
string(STRIP "${step_output}" cflags)
if(NOT cflags STREQUAL "-I${prefix}/include/velmora")
    message(FATAL_ERROR "pkg-config's Cflags are '${cflags}', not -I${prefix}/include/velmora")
endif()
# What the umbrella header reaches is public; docs/abi.md names every other installed header as
# not, and no header that the umbrella reaches.
step(${CXX} -std=c++20 -MM -I${prefix}/include/velmora -x c++
     ${prefix}/include/velmora/velmora/path_management.hpp)
set(reached "${step_output}")
file(READ ${ABI_DOC} abi)
string(REGEX MATCH "the headers the umbrella header does not reach:[^;]*;" unreached_text "${abi}")
string(REGEX MATCHALL "[a-z_]+\\.hpp" named "${unreached_text}")
file(GLOB_RECURSE headers RELATIVE ${prefix}/include/velmora ${prefix}/include/velmora/*.hpp)
foreach(header IN LISTS headers)
    get_filename_component(name ${header} NAME)
    string(FIND "${reached}" "/${header}" at)
    list(FIND named ${name} listed)
    if(at EQUAL -1 AND listed EQUAL -1)
        message(FATAL_ERROR "${header}: neither reached by the umbrella header nor in ${ABI_DOC}")
    elseif(NOT at EQUAL -1 AND NOT listed EQUAL -1)
        message(FATAL_ERROR "${header}: reached by the umbrella header, yet ${ABI_DOC} says not")
    endif()
endforeach()

step(${pc} --cflags --libs velmora-pathmanagement)
separate_arguments(flags UNIX_COMMAND "${step_output}")
step(${CXX} -std=c++20 ${CONSUMER_DIR}/main.cpp ${flags} -o ${SCRATCH}/pc_example)
step(${pc} --variable=libdir velmora-pathmanagement)
string(STRIP "${step_output}" libdir)
step(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir}
     ${SCRATCH}/pc_example ${EXAMPLES}/utils ${EXAMPLES}/geometry)
expect_example_output()

# The installed vpath finds the toolbox installed beside it, never the source tree's.
step(${prefix}/bin/vpath --example which area)
expect("^${prefix}/share/vpath/examples/toolbox/geometry/area.vl\n$")
foreach(file share/man/man1/vpath.1 share/bash-completion/completions/vpath
             share/zsh/vendor-completions/_vpath)
    if(NOT EXISTS ${prefix}/${file})
        message(FATAL_ERROR "not installed: ${file}")
    endif()
endforeach()
