# cmake --install: on Windows a folder that runs as it is, elsewhere the usual places below a prefix,
# with Qt as the system's package.

if(WIN32)
    include(${PROJECT_SOURCE_DIR}/packaging/windows/install.cmake)
    veyra_install_for_windows(VeyraLauncher)
    return()
endif()

include(GNUInstallDirs)
install(TARGETS VeyraLauncher)
if(TARGET veyra-publier)
    # For the operator's machine alone: players' installations and packages go without. systemd reads
    # below /usr/local what is installed there, whatever the system's library folder is called.
    install(TARGETS veyra-publier COMPONENT publisher EXCLUDE_FROM_ALL)
    install(FILES packaging/linux/veyra-etat.service packaging/linux/veyra-etat.timer
        DESTINATION lib/systemd/system
        COMPONENT publisher EXCLUDE_FROM_ALL)
endif()
install(FILES LICENSE CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES packaging/linux/veyra-launcher.desktop
    DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
foreach(size 16 24 32 48 256)
    install(FILES resources/art/icon-${size}.png
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps
        RENAME veyra-launcher.png)
endforeach()
