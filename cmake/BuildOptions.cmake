# Settings that every target of this project shares: they are asked for per target, so that a
# project that adds this one as a subdirectory keeps its own.

function(tarvisnet_build_options target)
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD 17
        CXX_STANDARD_REQUIRED ON
        CXX_EXTENSIONS OFF)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_TO_ASCII
        QT_NO_KEYWORDS
        # What the oldest Qt still offers without a warning may be used on all.
        QT_DEPRECATED_WARNINGS
        QT_DISABLE_DEPRECATED_BEFORE=0x050f00)
    if(TARVISNET_STRICT)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(TARVISNET_SANITIZERS)
        target_compile_options(${target} PRIVATE
            -fsanitize=${TARVISNET_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${TARVISNET_SANITIZERS})
    endif()
    if(TARVISNET_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage)
        target_link_options(${target} PRIVATE --coverage)
    endif()
endfunction()
