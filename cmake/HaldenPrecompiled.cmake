# Most of the time that a file takes to compile goes into the toolkit's headers, so they
# are compiled once. A file includes what it needs all the same: the static analysers
# see it without. So do compiler caches, which know what a file was made of before and
# do not know what a precompiled header was made of. For Windows fewer files share it,
# and what is packed there is to come from the same compilation each time.
if(WIN32 OR CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache")
    set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()
