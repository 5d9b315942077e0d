# Flags that every target of the project is built with.

add_library(cmm_flags INTERFACE)
target_compile_options(cmm_flags INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Werror
    -fno-omit-frame-pointer
    # File names in log lines are relative to the project; no path of the builder gets in.
    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CMM_SANITIZE)
    target_compile_options(cmm_flags INTERFACE
        -fsanitize=${CMM_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(cmm_flags INTERFACE -fsanitize=${CMM_SANITIZE})
    if(CMM_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # g++ warns that it does not model fences; the project uses none, libraries' headers may.
        target_compile_options(cmm_flags INTERFACE -Wno-error=tsan)
    endif()
endif()
if(CMM_CHECKING)
    # For the slab layer; its tests ask for it, too.
    target_compile_definitions(cmm_flags INTERFACE ZYMM_CHECKING)
endif()
if(CMM_COVERAGE)
    # Counters go into the library's own code alone, also where a test compiles an inline function
    # of its headers: each test is a process and would otherwise write those of the tests too.
    target_compile_options(cmm_flags INTERFACE
        --coverage -fprofile-update=atomic -fprofile-filter-files=.*/src/cmm_umm/.*)
    target_link_options(cmm_flags INTERFACE --coverage)
endif()

# Code without exceptions and run-time type information.
#
# What is delivered is optimised as a whole: a free of a page goes through four files, and calls
# between them cost more than the work. The objects carry ordinary code, too, so that the static
# libraries can be linked without it. Functions that call nothing go without a frame.
add_library(cmm_plain_flags INTERFACE)
target_link_libraries(cmm_plain_flags INTERFACE cmm_flags)
target_compile_options(cmm_plain_flags INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
set(CMM_WHOLE_LIBRARY_LINK "")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    target_compile_options(cmm_plain_flags INTERFACE
        -flto=auto -ffat-lto-objects -fno-semantic-interposition -momit-leaf-frame-pointer)
    set(CMM_WHOLE_LIBRARY_LINK -flto=auto -O2)
endif()

# cmm_add_twin_library(NAME name OBJECTS target MAP version-script LINK libraries...)
#
# A shared library and its static twin from the same objects. The static one, NAME_static, has the
# same file name and leaves the symbols of the layers below undefined.
function(cmm_add_twin_library)
    cmake_parse_arguments(ARG "" "NAME;OBJECTS;MAP" "LINK;PRIVATE_LINK;INCLUDE" ${ARGN})

    add_library(${ARG_NAME} SHARED $<TARGET_OBJECTS:${ARG_OBJECTS}>)
    set_target_properties(${ARG_NAME} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
        LINKER_LANGUAGE CXX LINK_DEPENDS ${ARG_MAP})
    target_link_options(${ARG_NAME} PRIVATE
        -Wl,--version-script=${ARG_MAP} -Wl,-z,nodelete -Wl,-Bsymbolic-functions
        ${CMM_WHOLE_LIBRARY_LINK})
    if(NOT CMM_SANITIZE)
        target_link_options(${ARG_NAME} PRIVATE -Wl,-z,defs)
    endif()
    target_link_libraries(${ARG_NAME} PUBLIC ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK} cmm_flags)
    target_include_directories(${ARG_NAME} PUBLIC ${ARG_INCLUDE})

    add_library(${ARG_NAME}_static STATIC $<TARGET_OBJECTS:${ARG_OBJECTS}>)
    set_target_properties(${ARG_NAME}_static PROPERTIES
        OUTPUT_NAME ${ARG_NAME} LINKER_LANGUAGE CXX)
    target_include_directories(${ARG_NAME}_static PUBLIC ${ARG_INCLUDE})
endfunction()
