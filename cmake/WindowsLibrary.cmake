# general.dll with its import libraries: libgeneral.dll.a for GNU tools, general.lib for Microsoft's.

configure_file(${PROJECT_SOURCE_DIR}/base/version.rc.in ${PROJECT_BINARY_DIR}/version.rc @ONLY)

add_library(general SHARED
    ${PROJECT_SOURCE_DIR}/base/loader_entry.cpp
    ${PROJECT_BINARY_DIR}/version.rc)
add_library(general::general ALIAS general) # bare `general` is a keyword of target_link_libraries
set_target_properties(general PROPERTIES PREFIX "" IMPORT_PREFIX "lib")
target_include_directories(general
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(general PRIVATE GENERAL_BUILDING_DLL)
target_link_libraries(general PRIVATE $<BUILD_INTERFACE:general_library_options>)
target_link_options(general PRIVATE -Wl,--dynamicbase,--nxcompat,--disable-auto-import)
# base/general.def says why.
add_custom_command(TARGET general POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --enable-deterministic-archives --strip-symbol=_getopt $<TARGET_LINKER_FILE:general>
    VERBATIM)

find_program(LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
set(general_microsoft_import_library ${PROJECT_BINARY_DIR}/general.lib)
add_custom_command(
    OUTPUT ${general_microsoft_import_library}
    COMMAND ${LLVM_DLLTOOL} -m i386 -d ${PROJECT_SOURCE_DIR}/base/general.def
            -l ${general_microsoft_import_library}
    DEPENDS ${PROJECT_SOURCE_DIR}/base/general.def
    VERBATIM)
add_custom_target(general_microsoft_import_library ALL DEPENDS ${general_microsoft_import_library})
