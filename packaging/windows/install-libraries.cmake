# Run by cmake --install, which sets veyra_program, veyra_qt_files and veyra_library_folders: installs
# what else these load, found by walking their import tables. That is the compiler's runtime, and
# what a Qt of another origin is built with.

set(CMAKE_GET_RUNTIME_DEPENDENCIES_PLATFORM windows+pe) # wherever this runs

# What is found nowhere is part of Windows, when this runs on another system.
file(GET_RUNTIME_DEPENDENCIES
    EXECUTABLES ${veyra_program}
    LIBRARIES ${veyra_qt_files}
    DIRECTORIES ${veyra_library_folders}
    RESOLVED_DEPENDENCIES_VAR libraries
    UNRESOLVED_DEPENDENCIES_VAR system_libraries
    PRE_EXCLUDE_REGEXES "^api-ms-" "^ext-ms-" "^qt6(core|gui|network|widgets)\\.dll$"
    POST_EXCLUDE_REGEXES "[/\\\\][Ss][Yy][Ss][Tt][Ee][Mm]32[/\\\\]")
file(INSTALL ${libraries} DESTINATION "${CMAKE_INSTALL_PREFIX}")
