# Libraries from Debian; tools/install_packages.sh installs them.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(MXML REQUIRED IMPORTED_TARGET mxml)
pkg_check_modules(NUMA REQUIRED IMPORTED_TARGET numa)
pkg_check_modules(INIH REQUIRED IMPORTED_TARGET inih)
pkg_check_modules(NBDKIT REQUIRED IMPORTED_TARGET nbdkit)
pkg_check_modules(ISAL REQUIRED IMPORTED_TARGET libisal)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
if(CMM_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
