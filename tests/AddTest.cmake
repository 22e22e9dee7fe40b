# One function for all test programs.
#
#   tarvisnet_add_test(NAME [INNER] [LIBRARIES library...] [ENVIRONMENT NAME=value...]
#       [TIMEOUT seconds] [COMMAND prefix...])
#
# Builds NAME from NAME.cpp and makes it a test of CTest. INNER is for a unit that the library hides:
# its test links the library's objects. COMMAND stands before the program when CTest starts it.
function(tarvisnet_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "INNER" "TIMEOUT" "LIBRARIES;ENVIRONMENT;COMMAND")
    if(arg_INNER)
        set(library tarvisnet_objects)
    else()
        set(library TarvisNet::TarvisNet)
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 240)
    endif()

    add_executable(${name} ${name}.cpp)
    tarvisnet_build_options(${name})
    target_link_libraries(${name} PRIVATE
        ${arg_LIBRARIES} tarvisnet_test_bench ${library} Qt${TARVISNET_QT}::Test)
    target_precompile_headers(${name} REUSE_FROM tarvisnet_test_support)
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
    # AUTOMOC takes six times as long for a single file.
    set(moc "${CMAKE_CURRENT_BINARY_DIR}/${name}.moc")
    qt_generate_moc(${name}.cpp "${moc}" TARGET ${name})
    target_sources(${name} PRIVATE "${moc}")
    target_include_directories(${name} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}")
    add_test(NAME ${name} COMMAND ${arg_COMMAND} $<TARGET_FILE:${name}>)
    # CTest begins with what takes longest, or it would end with that, alone.
    set_tests_properties(${name} PROPERTIES
        COST ${arg_TIMEOUT}
        TIMEOUT ${arg_TIMEOUT}
        ENVIRONMENT "${arg_ENVIRONMENT}")
endfunction()

# Makes the strict clients of a test fast ones. All that the ones promise is to hold of the others.
set(TARVISNET_FAST_CLIENTS TARVISNET_TEST_POLICY=fast)

# Has CTest run the test NAME once more with fast clients, but only its test functions FUNCTION... if
# there are any:
#
#   tarvisnet_add_fast_test(NAME [FUNCTION...])
function(tarvisnet_add_fast_test name)
    add_test(NAME ${name}_fast COMMAND $<TARGET_FILE:${name}> ${ARGN})
    set_tests_properties(${name}_fast PROPERTIES
        COST 300
        TIMEOUT 300
        ENVIRONMENT "${TARVISNET_FAST_CLIENTS};${TARVISNET_GARBAGE_WHEN_FREED}")
endfunction()

# What was freed reads as garbage, also inside Qt, where no sanitizer looks.
set(TARVISNET_GARBAGE_WHEN_FREED MALLOC_PERTURB_=165)
