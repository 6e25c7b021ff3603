# Compiler and toolkit settings that every target of ours links PRIVATE. They
# stand on a target of their own because INTERFACE options of a library never
# reach that library's own files.
add_library(halden_common INTERFACE)
target_compile_features(halden_common INTERFACE cxx_std_20)

target_compile_definitions(halden_common INTERFACE
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_FOREACH
    QT_DISABLE_DEPRECATED_BEFORE=0x060400)

# What ships says how each text is encoded; the tests may write plain literals.
add_library(halden_strict_strings INTERFACE)
target_compile_definitions(halden_strict_strings INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY)

target_compile_options(halden_common INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wformat=2
    # Compiling for Windows, GCC suspects an empty list behind every QList::at();
    # whatever is true of it shows on Linux.
    $<$<NOT:$<PLATFORM_ID:Windows>>:-Wnull-dereference>
    $<$<BOOL:${HALDEN_WERROR}>:-Werror>)

if(HALDEN_SANITIZE)
    set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=undefined
        -fno-omit-frame-pointer)
    target_compile_options(halden_common INTERFACE ${sanitizers})
    target_compile_definitions(halden_common INTERFACE HALDEN_SANITIZE)
    target_link_options(halden_common INTERFACE ${sanitizers})
endif()

# Everything reports where it has been; the fuzz targets bring libFuzzer itself.
if(HALDEN_FUZZ)
    set(watched -fsanitize=fuzzer-no-link)
    target_compile_options(halden_common INTERFACE ${watched})
    target_link_options(halden_common INTERFACE ${watched})
endif()

if(HALDEN_COVERAGE)
    target_compile_options(halden_common INTERFACE --coverage)
    target_compile_definitions(halden_common INTERFACE HALDEN_COVERAGE)
    target_link_options(halden_common INTERFACE --coverage)
endif()

if(WIN32)
    # What ships leaves its symbols behind, in files that do not tell where it was
    # built: the same sources make the same ones. The last one that fits is taken. What
    # reads crashes on Debian 12 finds no lines in a newer form than DWARF 4.
    target_compile_options(halden_common INTERFACE
        -gdwarf-4
        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=/halden"
        "-ffile-prefix-map=${PROJECT_BINARY_DIR}=/halden/build")
    if(HALDEN_WINDOWS_SDK)
        target_compile_options(halden_common INTERFACE
            "-ffile-prefix-map=${HALDEN_WINDOWS_SDK}=/sdk")
    endif()
    set(CMAKE_AUTOMOC_PATH_PREFIX ON)
endif()

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_AUTOMOC ON)
set(CMAKE_AUTOUIC ON)
set(CMAKE_AUTORCC ON)
# Signals and slots of the system are connected by their signatures throughout,
# the ones that stand in a form included.
set(CMAKE_AUTOUIC_OPTIONS --connections string)
set(CMAKE_AUTORCC_OPTIONS --format-version 3)
if(WIN32)
    # This machine's rcc knows a compression that the Qt shipped there does not.
    list(APPEND CMAKE_AUTORCC_OPTIONS --no-zstd)
endif()
