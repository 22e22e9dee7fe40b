# Functions that make programs of tests.
#
#   tarvisnet_add_tests(PROGRAM [INNER] [LIBRARIES library...] [TIMEOUT seconds] TESTS name...)
#
# Builds PROGRAM from every name.cpp, and makes each of them a test of CTest. Most of what compiling a
# test takes is what all of them include.
#
#   tarvisnet_add_test(NAME [INNER] [LIBRARIES library...] [ENVIRONMENT NAME=value...]
#       [TIMEOUT seconds] [COMMAND prefix...])
#
# The same for a test that needs a program for itself, which has a main() of its own. COMMAND stands
# before the program when CTest starts it.
#
# INNER is for units that the library hides: their tests link the library's objects.
function(tarvisnet_add_tests program)
    cmake_parse_arguments(PARSE_ARGV 1 arg "INNER" "TIMEOUT" "LIBRARIES;TESTS")
    add_executable(${program})
    set_target_properties(${program} PROPERTIES UNITY_BUILD_BATCH_SIZE 12)
    if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # In a file that is included, GCC takes a class for that of a header.
        target_compile_options(${program} PRIVATE -Wno-subobject-linkage)
    endif()
    tarvisnet_build_test(${program} "${arg_INNER}"
        SOURCES ${arg_TESTS}
        LIBRARIES ${arg_LIBRARIES} tarvisnet_test_main)
    foreach(name IN LISTS arg_TESTS)
        add_test(NAME ${name} COMMAND ${program} ${name})
        tarvisnet_set_timeout(${name} "${arg_TIMEOUT}")
    endforeach()
endfunction()

function(tarvisnet_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "INNER" "TIMEOUT" "LIBRARIES;ENVIRONMENT;COMMAND")
    add_executable(${name})
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
    tarvisnet_build_test(${name} "${arg_INNER}" SOURCES ${name} LIBRARIES ${arg_LIBRARIES})
    add_test(NAME ${name} COMMAND ${arg_COMMAND} $<TARGET_FILE:${name}>)
    tarvisnet_set_timeout(${name} "${arg_TIMEOUT}")
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${arg_ENVIRONMENT}")
endfunction()

# What both have in common.
function(tarvisnet_build_test program is_inner)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;LIBRARIES")
    if(is_inner)
        set(library tarvisnet_objects)
    else()
        set(library TarvisNet::TarvisNet)
    endif()
    tarvisnet_build_options(${program})
    target_link_libraries(${program} PRIVATE
        ${arg_LIBRARIES} tarvisnet_test_bench ${library} Qt${TARVISNET_QT}::Test)
    target_precompile_headers(${program} REUSE_FROM tarvisnet_test_support)
    target_include_directories(${program} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}")
    foreach(source IN LISTS arg_SOURCES)
        # AUTOMOC would have an empty result compiled besides, for each program.
        set(moc "${CMAKE_CURRENT_BINARY_DIR}/${source}.moc")
        qt_generate_moc(${source}.cpp "${moc}" TARGET ${program})
        target_sources(${program} PRIVATE ${source}.cpp "${moc}")
    endforeach()
endfunction()

# CTest begins with what takes longest, or it would end with that, alone.
function(tarvisnet_set_timeout name seconds)
    if(NOT seconds)
        set(seconds 240)
    endif()
    set_tests_properties(${name} PROPERTIES COST ${seconds} TIMEOUT ${seconds})
endfunction()

# Makes the strict clients of a test fast ones. All that the ones promise is to hold of the others.
set(TARVISNET_FAST_CLIENTS TARVISNET_TEST_POLICY=fast)

# Has CTest run the test NAME, which has a program for itself, once more with fast clients, but only its
# test functions FUNCTION... if there are any:
#
#   tarvisnet_add_fast_test(NAME [FUNCTION...])
function(tarvisnet_add_fast_test name)
    add_test(NAME ${name}_fast COMMAND $<TARGET_FILE:${name}> ${ARGN})
    tarvisnet_set_timeout(${name}_fast 300)
    set_tests_properties(${name}_fast PROPERTIES
        ENVIRONMENT "${TARVISNET_FAST_CLIENTS};${TARVISNET_GARBAGE_WHEN_FREED}")
endfunction()

# What was freed reads as garbage, also inside Qt, where no sanitizer looks.
set(TARVISNET_GARBAGE_WHEN_FREED MALLOC_PERTURB_=165)
