# Compiles 32-bit programs for this machine, with sanitizers that stop at the first finding.

set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(host_flags "-m32 -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer")
set(CMAKE_C_FLAGS_INIT "${host_flags}")
set(CMAKE_CXX_FLAGS_INIT "${host_flags}")
