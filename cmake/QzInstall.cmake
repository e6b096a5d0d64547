# Installation: headers, libraries, the CMake package and pkg-config files.
# (Filled in with the packaging work; kept separate from the build rules.)
