# The tests of the classes below the window.

veyra_add_test(test_server_checker SOURCES TestServerChecker.cpp LIBRARIES veyra_net)
veyra_add_test(test_news_fetcher SOURCES TestNewsFetcher.cpp LIBRARIES veyra_net)
veyra_add_test(test_self_updater SOURCES TestSelfUpdater.cpp LIBRARIES veyra_update)
veyra_add_test(test_archive_unpacker SOURCES TestArchiveUnpacker.cpp LIBRARIES veyra_install)
veyra_add_test(test_client_downloader SOURCES TestClientDownloader.cpp LIBRARIES veyra_install)
veyra_add_test(test_update_manifest SOURCES TestUpdateManifest.cpp LIBRARIES veyra_update)
veyra_add_test(test_file_verification
    SOURCES TestFileVerification.cpp LIBRARIES veyra_update LABELS threads)
if(VEYRA_SANITIZE STREQUAL "thread")
    target_sources(test_file_verification PRIVATE support/ThreadHandovers.cpp)
endif()
veyra_add_test(test_download_queue SOURCES TestDownloadQueue.cpp LIBRARIES veyra_update)
veyra_add_test(test_config SOURCES TestConfig.cpp LIBRARIES veyra_config)

# The configuration is read once in a process: each scenario runs in a process of its own. It lies
# in a folder of its own, because the default game folder is made beside it.
add_executable(veyra_config_probe support/ConfigProbe.cpp)
target_link_libraries(veyra_config_probe PRIVATE veyra_config)
set_target_properties(veyra_config_probe PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/config_probe)
add_dependencies(test_config veyra_config_probe)
set_source_files_properties(TestConfig.cpp PROPERTIES COMPILE_DEFINITIONS
    "CONFIG_PROBE=\"$<TARGET_FILE:veyra_config_probe>\"")

# Without the tests' own build settings: what the product is built with.
qt_add_executable(test_build_settings TestBuildSettings.cpp)
target_link_libraries(test_build_settings PRIVATE veyra_config veyra_test_support)
target_compile_definitions(test_build_settings PRIVATE
    EXPECTED_VERSION="${PROJECT_VERSION}"
    EXPECTED_SERVER_URL="${VEYRA_SERVER_URL}"
    EXPECTED_DISCORD_URL="${VEYRA_DISCORD_URL}")
add_test(NAME test_build_settings COMMAND test_build_settings)
set_tests_properties(test_build_settings PROPERTIES ENVIRONMENT QT_QPA_PLATFORM=offscreen)

add_test(NAME test_server_address
    COMMAND ${CMAKE_COMMAND} -P ${CMAKE_CURRENT_SOURCE_DIR}/TestServerAddress.cmake)
