# CMake's own default for Release builds is -O3, which makes the libraries larger and no read faster (docs/footprint.md).
# CMake reads this file before it takes over its defaults, so what the command line or a toolchain file says still counts.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE_INIT "${CMAKE_CXX_FLAGS_RELEASE_INIT}")
