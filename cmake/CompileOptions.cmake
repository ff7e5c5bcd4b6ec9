# What every target is compiled with, and what the library is compiled with on top.

add_library(general_warnings INTERFACE)
target_compile_options(general_warnings INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Wcast-qual -Werror)

add_library(general_options INTERFACE)
target_link_libraries(general_options INTERFACE general_warnings)
target_compile_options(general_options INTERFACE
    -fno-omit-frame-pointer
    -gdwarf-4 # the newest that Wine's image-help library reads
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
if(WIN32)
    target_compile_options(general_options INTERFACE ${GENERAL_BASELINE_FLAGS})
    target_compile_definitions(general_options INTERFACE
        __USE_MINGW_ANSI_STDIO=0 # texts are formatted by the system's C runtime
        WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0501)
    target_link_options(general_options INTERFACE -static -Wl,--no-insert-timestamp)
else()
    target_compile_options(general_options INTERFACE -msse2 -mfpmath=sse)
endif()

add_library(general_library_options INTERFACE)
target_link_libraries(general_library_options INTERFACE general_options)
target_compile_options(general_library_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
if(WIN32)
    # Nothing throws through the library, so nothing unwinds it: debuggers read .debug_frame instead.
    target_compile_options(general_library_options INTERFACE
        $<$<COMPILE_LANGUAGE:CXX>:-fno-asynchronous-unwind-tables>)
    # Callers guarantee a stack aligned to 4 bytes and no more.
    target_compile_options(general_library_options INTERFACE
        -mincoming-stack-boundary=2 -mpreferred-stack-boundary=2)
endif()

# general_modules(FILE...): adds modules that make no system call; both builds have them.
function(general_modules)
    target_sources(general PRIVATE ${ARGN})
endfunction()

# general_system_modules(FILE...): adds modules that call the system; only the DLL has them.
function(general_system_modules)
    if(WIN32)
        target_sources(general PRIVATE ${ARGN})
    endif()
endfunction()
