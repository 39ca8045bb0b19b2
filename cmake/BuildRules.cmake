# How the targets of this project are built: flags that reach no consumer, and one function a folder.

# Warnings, and what the code needs of the platform. Linked privately and for the build only.
add_library(WyvernBuildFlags INTERFACE)
target_compile_features(WyvernBuildFlags INTERFACE cxx_std_17)
target_compile_options(WyvernBuildFlags INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall;-Wextra;-Wpedantic;-Wconversion;-Wshadow>
    $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<BOOL:${WYVERN_WARNINGS_AS_ERRORS}>>:-Werror>)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # Sizes, inode numbers and times of 64 bits: without them, fstat and readdir fail on files that a large disk may hold,
    # and fstat on whatever was written, or merely read, after January 2038.
    target_compile_definitions(WyvernBuildFlags INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# What a release carries against the errors that tests did not find. Also given to the libraries built from source.
# The compiler may predefine _FORTIFY_SOURCE, hence the -U.
add_library(WyvernHardening INTERFACE)
set(wyvern_is_release $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
target_compile_options(WyvernHardening INTERFACE
    $<${wyvern_is_release}:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
target_link_options(WyvernHardening INTERFACE
    $<${wyvern_is_release}:LINKER:-z,relro,-z,now,-z,noexecstack>)

# A release leaves out what nothing calls, function by function; a library from source brings most of that, and what it
# pulls out of a static C library with it: TinyXML's reading of numbers is the only use of scanf in the program.
add_library(WyvernSizeFlags INTERFACE)
target_compile_options(WyvernSizeFlags INTERFACE $<${wyvern_is_release}:-ffunction-sections;-fdata-sections>)
target_link_options(WyvernSizeFlags INTERFACE $<${wyvern_is_release}:LINKER:--gc-sections>)

# For a launcher that is optimised as one program, which takes a fifth off our own code. The archives carry ordinary code
# beside what that needs, for whoever links them without, as our tests do.
add_library(WyvernWholeProgram INTERFACE)
if(WYVERN_WHOLE_PROGRAM AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(WyvernWholeProgram INTERFACE -flto=auto -ffat-lto-objects)
endif()

foreach(dependency WyvernLibiconv WyvernTinyXml)
    if(TARGET ${dependency})
        target_link_libraries(${dependency}
            PRIVATE $<BUILD_INTERFACE:WyvernHardening> $<BUILD_INTERFACE:WyvernSizeFlags>)
    endif()
endforeach()

# wyvern_add_library(<folder> HEADERS <public header>... SOURCES <source>... [USES <folder>...])
#
# The static library of one folder, with the alias Wyvern::<folder>. An include of another folder's header without that
# folder under USES is a mistake.
function(wyvern_add_library folder)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HEADERS;SOURCES;USES")
    set(target Wyvern_${folder})
    add_library(${target} STATIC ${arg_SOURCES})
    add_library(Wyvern::${folder} ALIAS ${target})
    target_sources(${target} PUBLIC
        FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${arg_HEADERS})
    target_compile_features(${target} PUBLIC cxx_std_17)
    target_link_libraries(${target}
        PUBLIC ${arg_USES}
        PRIVATE $<BUILD_INTERFACE:WyvernBuildFlags> $<BUILD_INTERFACE:WyvernHardening>
                $<BUILD_INTERFACE:WyvernSizeFlags> $<BUILD_INTERFACE:WyvernWholeProgram>)
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${folder}
        POSITION_INDEPENDENT_CODE ON
        CXX_EXTENSIONS OFF)
    set_property(GLOBAL APPEND PROPERTY WYVERN_LIBRARIES ${target})
endfunction()
