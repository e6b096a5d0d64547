// Owner of the test programs' precompiled header (see CMakeLists.txt). It
// holds no tests; it is linked with gtest_main only so that it is built with
// the same settings as every test program.
