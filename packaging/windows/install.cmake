# cmake --install for Windows: a folder that runs on a machine without Qt, laid out as the packages
# are.

set(veyra_windows_dir ${CMAKE_CURRENT_LIST_DIR})

# The folders that hold the compiler's own libraries; none with Visual Studio.
function(veyra_find_compiler_runtime variable)
    set(folders)
    if(MINGW)
        foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
            execute_process(
                COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
                OUTPUT_VARIABLE file
                OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
            # What the compiler does not find comes back as it was asked for.
            if(IS_ABSOLUTE "${file}")
                file(REAL_PATH "${file}" file)
                cmake_path(GET file PARENT_PATH folder)
                list(APPEND folders ${folder})
            endif()
        endforeach()
        # On Windows they lie beside the compiler.
        cmake_path(GET CMAKE_CXX_COMPILER PARENT_PATH folder)
        list(APPEND folders ${folder})
        list(REMOVE_DUPLICATES folders)
    endif()
    set(${variable} ${folders} PARENT_SCOPE)
endfunction()

function(veyra_install_for_windows target)
    install(TARGETS ${target} RUNTIME DESTINATION .)

    # The style is Fusion, which is built in, and so is the reading of PNG. TLS is for addresses that
    # begin with https://.
    set(qt_files)
    foreach(pair Core:. Gui:. Network:. Widgets:.
            QWindowsIntegrationPlugin:platforms QSchannelBackendPlugin:tls)
        string(REGEX MATCH "^(.*):(.*)$" pair ${pair})
        set(file $<TARGET_FILE:Qt6::${CMAKE_MATCH_1}>)
        install(FILES ${file} DESTINATION ${CMAKE_MATCH_2})
        list(APPEND qt_files ${file})
    endforeach()

    veyra_find_compiler_runtime(runtime_folders)
    install(CODE "
        set(veyra_program \"$<TARGET_FILE:${target}>\")
        set(veyra_qt_files \"${qt_files}\")
        set(veyra_library_folders \"$<TARGET_FILE_DIR:Qt6::Core>;${runtime_folders}\")")
    install(SCRIPT ${veyra_windows_dir}/install-libraries.cmake)
    if(MSVC)
        set(CMAKE_INSTALL_SYSTEM_RUNTIME_DESTINATION .)
        include(InstallRequiredSystemLibraries)
    endif()

    # With the line ends that every editor of Windows knows.
    set(texts ${CMAKE_CURRENT_BINARY_DIR}/licences)
    configure_file(${veyra_windows_dir}/LISEZMOI-licences.txt ${texts}/LISEZMOI.txt
        @ONLY NEWLINE_STYLE CRLF)
    configure_file(${PROJECT_SOURCE_DIR}/LICENSE ${texts}/VeyraLauncher.txt
        @ONLY NEWLINE_STYLE CRLF)
    install(DIRECTORY ${texts}/ ${veyra_windows_dir}/licences/ DESTINATION licences)

    if(VEYRA_BUILD_UPDATER)
        install(TARGETS LauncherUpdater RUNTIME DESTINATION .)
        install(DIRECTORY ${VEYRA_UPDATER_LIBRARIES}/licences/ DESTINATION licences)
    endif()

    # What Debian says of the libraries that it compiles; elsewhere they are added by hand.
    install(FILES /usr/share/doc/qt6-base-dev/copyright
        DESTINATION licences RENAME Qt.txt OPTIONAL)
    install(FILES /usr/share/doc/gcc-mingw-w64-x86-64-posix-runtime/copyright
        DESTINATION licences RENAME GCC.txt OPTIONAL)
    install(FILES /usr/share/doc/mingw-w64-x86-64-dev/copyright
        DESTINATION licences RENAME mingw-w64.txt OPTIONAL)
endfunction()
