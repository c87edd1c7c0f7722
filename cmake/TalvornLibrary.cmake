# One static library per source folder, and include isolation between them: a library sees its
# own folder's headers and those of the libraries it depends on, nothing else. Each library gets an
# include root under the build folder holding links to its own headers only ("<root>/handoff/X.h"),
# and the source tree itself is on no product include path, so a header included against the
# direction of the dependencies ("settings" including "handoff/...") fails to build.

# -Wall -Wextra -Werror for the project's own targets (not for third-party sources built with them).
add_library(talvorn_warnings INTERFACE)
target_compile_options(talvorn_warnings INTERFACE -Wall -Wextra -Werror)

# talvorn_library(<name> FOLDER <folder> [SOURCES ...] [DEPENDS <libraries>...])
# A library without sources is a header-only (interface) library.
function(talvorn_library name)
    cmake_parse_arguments(ARG "" "FOLDER" "SOURCES;DEPENDS" ${ARGN})
    set(root ${CMAKE_BINARY_DIR}/include-roots/${name})
    file(REMOVE_RECURSE ${root})
    file(MAKE_DIRECTORY ${root}/${ARG_FOLDER})
    file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${ARG_FOLDER}/*.h)
    foreach(header ${headers})
        get_filename_component(file_name ${header} NAME)
        file(CREATE_LINK ${header} ${root}/${ARG_FOLDER}/${file_name} SYMBOLIC)
    endforeach()

    if(ARG_SOURCES)
        add_library(${name} STATIC ${ARG_SOURCES})
        target_include_directories(${name} PUBLIC ${root})
        target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE talvorn_warnings)
    else()
        add_library(${name} INTERFACE)
        target_include_directories(${name} INTERFACE ${root})
        target_link_libraries(${name} INTERFACE ${ARG_DEPENDS})
    endif()
endfunction()
