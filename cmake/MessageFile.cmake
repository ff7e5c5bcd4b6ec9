# QVS.message.dll: what the event viewer makes of the message log's events, "%1: <%2>" for each of the
# identifiers 1 to 65535. Resources only.
#
# A message table is a list of ranges of identifiers and, for each range, its messages one behind the
# other. All messages are alike here, so 256 ranges of 256 identifiers share one run of them: the table
# takes 7 KB instead of a megabyte.

set(message_count 256)
math(EXPR first_message "4 + 12 * 256") # behind the number of ranges and the ranges
math(EXPR last_range "65536 / ${message_count} - 1")
set(message_size 16)

set(message_ranges "")
foreach(range RANGE 0 ${last_range})
    math(EXPR low "${range} * ${message_count}")
    math(EXPR high "${low} + ${message_count} - 1")
    set(offset ${first_message})
    if(low EQUAL 0) # no event has the identifier 0
        set(low 1)
    endif()
    string(APPEND message_ranges "    ${low}L, ${high}L, ${offset}L,\n")
endforeach()
# Size, 0 for a text in the system's code page, and the text, filled up with zeros.
string(REPEAT "    ${message_size}, 0, \"%1: <%2>\\r\\n\\0\\0\",\n" ${message_count} messages)
string(REGEX REPLACE ",\n$" "\n" messages "${messages}")

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/message_file.rc CONTENT
"#pragma code_page(1252)
LANGUAGE 9, 1 // US English, which FormatMessage falls back on
1 11 // a message table
BEGIN
    256L,
@message_ranges@@messages@END
" @ONLY)

add_library(general_message_file MODULE ${PROJECT_BINARY_DIR}/message_file.rc)
set_target_properties(general_message_file PROPERTIES
    PREFIX "" OUTPUT_NAME QVS.message LINKER_LANGUAGE C LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
target_link_options(general_message_file PRIVATE -nostdlib -s -Wl,--entry=0,--no-insert-timestamp)
