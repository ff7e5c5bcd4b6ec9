# Compiles 32-bit fuzz targets for this machine: libFuzzer, with sanitizers that stop at the first
# finding. Warnings are the other builds' business: -w.

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(fuzz_flags "-m32 -w -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer")
set(CMAKE_C_FLAGS_INIT "${fuzz_flags}")
set(CMAKE_CXX_FLAGS_INIT "${fuzz_flags}")
