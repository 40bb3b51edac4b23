# What Windows reads from the program's file: icon, version resource and application manifest.

set(veyra_windows_dir ${CMAKE_CURRENT_LIST_DIR})

# veyra_add_windows_metadata(target [DESCRIPTION text] [KNOWS_RESOLUTION])
# DESCRIPTION is what Windows calls the program, in ASCII; without it the product's name.
# KNOWS_RESOLUTION is for a program that asks the screen for its resolution without declaring so.
function(veyra_add_windows_metadata target)
    enable_language(RC)
    cmake_parse_arguments(PARSE_ARGV 1 veyra "KNOWS_RESOLUTION" "DESCRIPTION" "")

    set(veyra_company "Veyra")
    set(veyra_product "Veyra Launcher")
    set(veyra_internal_name ${target})
    string(REGEX REPLACE "^Veyra" "" veyra_identity ${target})
    if(NOT veyra_DESCRIPTION)
        set(veyra_DESCRIPTION ${veyra_product})
    endif()
    set(veyra_resolution "<!-- Awareness of the screen's resolution is left out: Qt declares it at start. -->")
    if(veyra_KNOWS_RESOLUTION)
        set(veyra_resolution "")
        set(veyra_resolution_setting "<dpiAware xmlns=\"http://schemas.microsoft.com/SMI/2005/WindowsSettings\">true</dpiAware>")
    endif()
    set(veyra_icon ${veyra_windows_dir}/launcher.ico)
    set(veyra_manifest ${CMAKE_CURRENT_BINARY_DIR}/${target}.manifest)

    # Windows counts with four numbers, whatever the project's version has.
    set(version "${PROJECT_VERSION}.0.0.0")
    string(REGEX MATCH "^[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+" veyra_version_dotted "${version}")
    string(REPLACE "." "," veyra_version_numbers "${veyra_version_dotted}")

    configure_file(${veyra_windows_dir}/VeyraLauncher.manifest.in ${veyra_manifest} @ONLY)
    configure_file(${veyra_windows_dir}/VeyraLauncher.rc.in
        ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc @ONLY)
    set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${target}.rc PROPERTIES
        OBJECT_DEPENDS "${veyra_icon};${veyra_manifest}")
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)

    if(MSVC)
        # Or the linker adds a manifest of its own.
        target_link_options(${target} PRIVATE /MANIFEST:NO)
    endif()
endfunction()
