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

# Faults that get through end the process instead of being used (tools/check-hardening looks at the
# files). Fortified calls need an optimized build, and the sanitizers have checks of their own there.
include(CheckPIESupported)
check_pie_supported()
add_compile_definitions(_GLIBCXX_ASSERTIONS)
add_compile_options(-fstack-protector-strong -fstack-clash-protection)
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
if(NOT VELTO_SANITIZE)
    add_compile_options(
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
endif()
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    # The mark for shadow stacks is set here, since the C library's start files of Debian 12 lack
    # it; they have no landing pads either, so the other mark is left to the linker's judgement.
    add_compile_options(-fcf-protection=full)
    add_link_options(LINKER:-z,shstk)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    add_compile_options(-mbranch-protection=standard)
endif()

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
