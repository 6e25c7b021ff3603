# How tests run that were built for Windows: inside the sandbox, under Wine.
set(HALDEN_WINE_PREFIX "${PROJECT_BINARY_DIR}/wine")
set(HALDEN_IN_WINE "${CMAKE_CURRENT_LIST_DIR}/in-wine" --prefix "${HALDEN_WINE_PREFIX}"
    --dlls "${HALDEN_WINDOWS_SDK}/bin")
foreach(library libstdc++-6.dll libwinpthread-1.dll)
    execute_process(
        COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${library}"
        OUTPUT_VARIABLE file
        OUTPUT_STRIP_TRAILING_WHITESPACE)
    cmake_path(ABSOLUTE_PATH file NORMALIZE)
    cmake_path(GET file PARENT_PATH folder)
    list(APPEND HALDEN_IN_WINE --dlls "${folder}")
endforeach()

# One page of a Windows program lies at 0x7ffe0000, always. Wine's loader lies below
# it, and the kernel puts the loader's heap anywhere in the gigabyte behind: without
# fixed addresses one start of some thousands meets the page taken and fails.
list(APPEND HALDEN_SANDBOX --fixed-addresses --read "${HALDEN_WINDOWS_SDK}")
set(HALDEN_RUN ${HALDEN_SANDBOX} -- ${HALDEN_IN_WINE} --install --)
set(HALDEN_RUN_TEST ${HALDEN_SANDBOX} -- ${HALDEN_IN_WINE} --install --results --)

# It takes a minute, so all tests share one, of which each gets a copy.
add_test(NAME windows_prefix COMMAND "${CMAKE_CURRENT_LIST_DIR}/make-prefix" "${HALDEN_WINE_PREFIX}")
set_tests_properties(windows_prefix PROPERTIES
    TIMEOUT 600
    LABELS windows
    FIXTURES_SETUP windows_prefix)

function(halden_needs_wine name)
    # Wine takes its time, and sometimes the launcher has to run out of its own
    # patience with a server, because Wine has lost the news of a reset.
    set_property(TEST ${name} PROPERTY TIMEOUT 600)
    set_property(TEST ${name} APPEND PROPERTY LABELS windows)
    set_property(TEST ${name} APPEND PROPERTY FIXTURES_REQUIRED windows_prefix)
endfunction()
