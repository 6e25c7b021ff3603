# Windows programs (64-bit) with Debian's MinGW-w64, against the prefix that
# packaging/windows/build-sdk makes or that HALDEN_WINDOWS_SDK names.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The posix flavour has std::thread and std::mutex.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# No date in the programs: the same sources make the same bytes.
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-Wl,--no-insert-timestamp")
endforeach()

if(NOT HALDEN_WINDOWS_SDK)
    execute_process(
        COMMAND "${CMAKE_CURRENT_LIST_DIR}/../packaging/windows/build-sdk" --print-path
        OUTPUT_VARIABLE HALDEN_WINDOWS_SDK
        OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES HALDEN_WINDOWS_SDK)

set(CMAKE_FIND_ROOT_PATH "${HALDEN_WINDOWS_SDK}" /usr/x86_64-w64-mingw32)
set(CMAKE_PREFIX_PATH "${HALDEN_WINDOWS_SDK}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# moc, uic and rcc run here: they are those of this machine's Qt, which has to be
# of the same version.
set(QT_HOST_PATH /usr)
file(GLOB _halden_host_info "/usr/lib/*/cmake/Qt6HostInfo")
cmake_path(GET _halden_host_info PARENT_PATH QT_HOST_PATH_CMAKE_DIR)
