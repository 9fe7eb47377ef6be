# A Debian package of everything that installs: cmake --preset package, build, then
# (cd build/package && cpack -G DEB). Its dependencies on Debian's libraries are found by
# dpkg-shlibdeps from what the binaries link.

set(CPACK_PACKAGE_NAME vpath)
set(CPACK_PACKAGE_VENDOR "Velmora")
set(CPACK_PACKAGE_CONTACT "Velmora vpath maintainers <vpath@velmora.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "search-path utilities: the vpath command and its C++ library")
set(CPACK_PACKAGE_DESCRIPTION
    "vpath resolves names on an ordered search path of folders, lists and edits the saved path, "
    "and reports what changed between two paths. The package also holds the C++20 library it "
    "is built on, with its headers, CMake package and pkg-config file, the man page, bash and "
    "zsh completion, and an example toolbox.")
set(CPACK_RESOURCE_FILE_README ${PROJECT_SOURCE_DIR}/README.md)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Building against the headers needs Boost's; running vpath does not.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libboost1.81-dev, libboost-thread1.81-dev")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://velmora.invalid/vpath")
include(CPack)
