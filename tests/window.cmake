# The main window, the settings dialog and the whole program.

# The real main() with a driver inside, for tests that run the launcher as a process.
qt_add_executable(veyra_driven_launcher
    ${PROJECT_SOURCE_DIR}/app/main.cpp
    support/LauncherDriver.cpp
    $<TARGET_OBJECTS:veyra_resources>
    $<TARGET_OBJECTS:veyra_test_settings>)
target_link_libraries(veyra_driven_launcher PRIVATE veyra_app Qt6::Test)
set_target_properties(veyra_driven_launcher PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/veyra_driven_launcher)

set(window_fixture window/TestLauncher.cpp window/TestLauncher.h)

#   veyra_add_window_test(name SOURCES file... [WITHOUT_PICTURES])
function(veyra_add_window_test name)
    cmake_parse_arguments(PARSE_ARGV 1 test "WITHOUT_PICTURES" "" "SOURCES")
    if(NOT test_WITHOUT_PICTURES)
        list(APPEND test_SOURCES $<TARGET_OBJECTS:veyra_resources>)
    endif()
    veyra_add_test(${name} SOURCES ${test_SOURCES} ${window_fixture} LIBRARIES veyra_app)
endfunction()

function(veyra_add_program_test name)
    veyra_add_test(${name} ${ARGN} LIBRARIES Qt6::Network)
    add_dependencies(${name} veyra_driven_launcher)
endfunction()

veyra_add_window_test(test_window_view SOURCES window/TestWindowView.cpp)
veyra_add_window_test(test_window_without_pictures WITHOUT_PICTURES
    SOURCES window/TestWindowWithoutPictures.cpp)
veyra_add_window_test(test_startup_chain SOURCES window/TestStartupChain.cpp)
veyra_add_window_test(test_launcher_update SOURCES window/TestLauncherUpdate.cpp)
veyra_add_window_test(test_game_launch SOURCES window/TestGameLaunch.cpp)
veyra_add_window_test(test_status_and_news SOURCES window/TestStatusAndNews.cpp)
veyra_add_window_test(test_settings_dialog SOURCES window/TestSettingsDialog.cpp)
veyra_add_program_test(test_program SOURCES window/TestProgram.cpp)
veyra_add_program_test(test_random_closing SOURCES window/TestRandomClosing.cpp)
