# Warnings and sanitizers, for every target of the project.
add_compile_options(
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wold-style-cast -Wformat=2 -Wcast-align -Wcast-qual -Wextra-semi
    -Wimplicit-fallthrough -Wundef -Wvla
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
if(VELTO_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options(-Wthread-safety -Wthread-safety-beta)
else()
    add_compile_options(-Wduplicated-cond -Wduplicated-branches -Wlogical-op)
endif()

add_link_options(LINKER:--as-needed)

set(velto_library_sanitize ${VELTO_SANITIZE})
if(VELTO_SANITIZE)
    # Fuzzed code is instrumented everywhere; only the fuzzers themselves link libFuzzer's main.
    string(REPLACE "fuzzer" "fuzzer-no-link" velto_library_sanitize "${VELTO_SANITIZE}")
    add_compile_options(
        -fsanitize=${velto_library_sanitize} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${velto_library_sanitize})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # The checks that a sanitizer puts in mislead the warnings that follow the flow of values;
        # the other presets judge those.
        add_compile_options(
            -Wno-array-bounds -Wno-maybe-uninitialized -Wno-nonnull -Wno-restrict
            -Wno-stringop-overflow -Wno-stringop-overread)
    endif()
endif()
