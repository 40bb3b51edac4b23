# What Windows reads from the program's file: icon, version resource and application manifest.

set(veyra_windows_dir ${CMAKE_CURRENT_LIST_DIR})

function(veyra_add_windows_metadata target)
    enable_language(RC)

    set(veyra_company "Veyra")
    set(veyra_product "Veyra Launcher")
    set(veyra_internal_name ${target})
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
