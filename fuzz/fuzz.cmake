# Initial cache of the fuzz build: cmake -C fuzz/fuzz.cmake -S . -B build-fuzz
# Every library the fuzzers link is built with clang, AddressSanitizer,
# UndefinedBehaviorSanitizer and libFuzzer's coverage instrumentation; only
# the fuzzers themselves link libFuzzer's main.
set(fuzz_flags
  -O1 -gline-tables-only -fno-omit-frame-pointer
  -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
string(JOIN " " fuzz_flags ${fuzz_flags})
set(CMAKE_C_COMPILER clang CACHE STRING "")
set(CMAKE_CXX_COMPILER clang++ CACHE STRING "")
set(CMAKE_BUILD_TYPE "" CACHE STRING "")
set(CMAKE_C_FLAGS "${fuzz_flags}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "${fuzz_flags}" CACHE STRING "")
set(CMAKE_EXE_LINKER_FLAGS "-fsanitize=address,undefined" CACHE STRING "")
set(CMAKE_SHARED_LINKER_FLAGS "-fsanitize=address,undefined" CACHE STRING "")
set(AVD_FUZZ ON CACHE BOOL "")
