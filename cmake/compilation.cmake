# SPDX-License-Identifier: MIT
option(WARNINGS_AS_ERRORS "Stop at a warning: for our own builds, whose compilers we know" OFF)

# The target `warnings` has the compiler options of our own code; link it PRIVATE.
add_library(warnings INTERFACE)
target_compile_options(warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Wold-style-cast
    -Woverloaded-virtual -Wcast-align -Wformat=2 $<$<BOOL:${WARNINGS_AS_ERRORS}>:-Werror>
    # The same rounding on every processor: clients see zoomed sizes and scaled pixels.
    -ffp-contract=off
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(warnings INTERFACE
    QT_MESSAGELOGCONTEXT
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_CAST_TO_ASCII
    QT_NO_FOREACH
    QT_NO_KEYWORDS
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_URL_CAST_FROM_STRING
    QT_DISABLE_DEPRECATED_BEFORE=0x050C00)

if(SANITIZE)
    # All of our code is built with the sanitizer, including the tests' fakes.
    add_compile_options(-fsanitize=${SANITIZE} -fno-omit-frame-pointer -O1)
    add_link_options(-fsanitize=${SANITIZE})
    if(SANITIZE STREQUAL "address")
        add_compile_options(-fsanitize=undefined -fno-sanitize-recover=undefined)
        add_link_options(-fsanitize=undefined)
    endif()
endif()

if(FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "FUZZ needs clang++, which has libFuzzer: scripts/fuzz.sh chooses it")
    endif()
    # GCC and clang-tidy check the code; here clang's warnings would only differ by version.
    add_compile_options(-w -O1 -g -fno-omit-frame-pointer
        -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()
