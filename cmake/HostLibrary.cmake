# The modules that make no system call, as a static library for this machine.

add_library(general STATIC)
add_library(general::general ALIAS general) # bare `general` is a keyword of target_link_libraries
target_include_directories(general PUBLIC ${PROJECT_SOURCE_DIR}/include PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(general PUBLIC GENERAL_STATIC)
target_link_libraries(general PRIVATE general_library_options)
