# ccache, when there is one. Paths below the source folder count as relative ones, so that several
# clones and worktrees share what they compiled.
find_program(VELTO_CCACHE ccache)
if(VELTO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
        ${VELTO_CCACHE})
endif()
