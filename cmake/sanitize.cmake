# Initial cache of the sanitizer build (scripts/build --asan, build-asan/):
#   cmake -C cmake/sanitize.cmake -S . -B build-asan -G Ninja
# clang with AddressSanitizer and UndefinedBehaviorSanitizer (AVD_SANITIZE),
# and libFuzzer's coverage instrumentation, so that one build runs both the
# tests and the fuzzers; only the fuzzers link libFuzzer's main. The C++
# library's own checks find what the sanitizers cannot see, such as the
# value of an empty std::optional read.
set(flags -O1 -gline-tables-only -fsanitize=fuzzer-no-link -D_GLIBCXX_ASSERTIONS)
string(JOIN " " flags ${flags})
set(CMAKE_C_COMPILER clang CACHE STRING "")
set(CMAKE_CXX_COMPILER clang++ CACHE STRING "")
set(CMAKE_BUILD_TYPE "" CACHE STRING "")
set(CMAKE_C_FLAGS "${flags}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "${flags}" CACHE STRING "")
set(AVD_SANITIZE ON CACHE BOOL "")
set(AVD_FUZZ ON CACHE BOOL "")
